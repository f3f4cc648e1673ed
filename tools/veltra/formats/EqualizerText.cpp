// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/formats/EqualizerText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <optional>
#include <sstream>
#include <utility>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/filters/TextFile.h"
#include "tools/veltra/formats/GraphicEqualizer.h"
#include "tools/veltra/session/StrictNumber.h"

namespace veltra::host {

namespace {

constexpr double kShelfSlope = 0.9; // of a shelf without a Q
constexpr double kNotchQ = 30.0;    // of a notch without a Q
constexpr double kMostGain_dB = 200.0;
constexpr std::size_t kMostNodes = 4096;

/** The names of the text's channels, in the order of their numbers, and ours for them. */
constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kChannels { { { "L", "FL" },
                                                                                     { "R", "FR" },
                                                                                     { "C", "C" },
                                                                                     { "LFE", "SW" },
                                                                                     { "RL", "BL" },
                                                                                     { "RR", "BR" },
                                                                                     { "SL", "SL" },
                                                                                     { "SR", "SR" } } };

/** Keys whose lines would change the sound in a way that is not read. */
constexpr std::array kRefusedKeys {
    "Include",    "Device", "Stage", "If", "ElseIf", "Else", "EndIf", "Eval", "Copy", "VSTPlugin", "LoudnessCorrection",
    "Convolution"
};

/** Keys and first words of lines that say nothing about the sound. */
constexpr std::array kHeaderWords { "Filter Settings", "Room EQ",        "Dated", "Notes",
                                    "Equaliser",       "No measurement", "#",     "*" };

std::vector<std::string_view> wordsOf (std::string_view text)
{
    std::vector<std::string_view> words;

    for (text = trimmed (text); ! text.empty(); text = trimmed (text))
    {
        const auto word = text.substr (0, text.find_first_of (" \t"));
        words.push_back (word);
        text.remove_prefix (word.size());
    }

    return words;
}

/** A text with points for decimal commas, and with the blanks in a number's thousands taken out. */
std::string withPoints (std::string_view text)
{
    std::string result;

    for (std::size_t i = 0; i < text.size(); ++i)
    {
        if (text.substr (i).starts_with ("\xc2\xa0")) // no-break space
            ++i;
        else
            result += text[i] == ',' ? '.' : text[i];
    }

    return result;
}

class Reader
{
public:
    Reader (std::filesystem::path fileToName, std::string_view channelToRead, std::vector<std::string>& notesToWrite)
        : file (std::move (fileToName)),
          channel (channelToRead),
          notes (notesToWrite)
    {
    }

    FilterChain read (const std::string& text)
    {
        std::istringstream lines (text.starts_with ("\xef\xbb\xbf") ? text.substr (3) : text);

        for (std::string content; std::getline (lines, content);)
        {
            ++line;
            readLine (trimmed (content));
        }

        if (! anything)
            throw Failure (kExitInput, file.string()
                                           + " has no filter: no line 'Filter: ON PK Fc 100 Hz Gain -3 dB Q 1.4', "
                                             "'Preamp: -3 dB' or 'GraphicEQ: 20 -1; ...' was found.");

        if (hasChannelLines && ! channelSeen)
            throw Failure (kExitInput, file.string() + " has no line for channel " + channel + ".");

        return std::move (chain);
    }

private:
    Failure refuse (const std::string& found, const std::string& expected) const
    {
        return { kExitInput, file.string() + ", line " + std::to_string (line) + ": found " + found + "; expected "
                                 + expected + "." };
    }

    static std::string quoted (std::string_view text) { return "'" + logText (text, 60) + "'"; }

    void readLine (std::string_view content)
    {
        const auto colon = content.find (':');
        const auto key = trimmed (content.substr (0, colon));
        const auto value = colon == content.npos ? std::string_view() : trimmed (content.substr (colon + 1));

        if (content.starts_with ("Number") && content.find ("Frequency(Hz)") != content.npos)
            throw refuse ("a table of filters", "filter settings as text lines");

        if (colon != content.npos && std::ranges::find (kRefusedKeys, key) != kRefusedKeys.end())
            throw refuse (quoted (content), "no '" + std::string (key) + "', which is not read");

        if (value.find ('`') != value.npos)
            throw refuse (quoted (content), "numbers instead of an expression");

        if (colon != content.npos && key.starts_with ("Filter") && ! key.starts_with ("Filter Settings"))
            filter (value);
        else if (key == "Preamp")
            preamp (value);
        else if (key == "Delay")
            delay (value);
        else if (key == "Channel")
            selectChannel (value);
        else if (key == "GraphicEQ")
            graphic (value);
        else if (! content.empty()
                 && std::ranges::none_of (kHeaderWords, [&] (const char* word) { return content.starts_with (word); }))
            notes.push_back (file.string() + ", line " + std::to_string (line) + ": " + quoted (content)
                             + " is not read.");
    }

    void selectChannel (std::string_view value)
    {
        selected = false;
        hasChannelLines = true;

        for (const auto word : wordsOf (value))
        {
            const auto ours = std::ranges::find_if (
                kChannels, [&] (const auto& entry) { return equalsIgnoringCase (entry.first, word); });
            const auto number = strictNumber<unsigned> (word);

            if (equalsIgnoringCase (word, "ALL") || equalsIgnoringCase (word, channel)
                || (ours != kChannels.end() && equalsIgnoringCase (ours->second, channel))
                || (equalsIgnoringCase (word, "SUB") && equalsIgnoringCase ("SW", channel))
                || (number && *number >= 1 && *number <= kChannels.size()
                    && equalsIgnoringCase (kChannels[*number - 1].second, channel)))
                selected = true;
        }

        channelSeen = channelSeen || selected;
    }

    /** What stands behind a word, the last one of its name: the type "LS Q" has a Q of its own. */
    static std::optional<std::string> textBehind (const std::vector<std::string_view>& words, std::string_view name)
    {
        for (auto i = words.size(); i-- > 1;)
            if (words[i - 1] == name)
                return std::string (words[i]);

        return std::nullopt;
    }

    double number (std::string_view text, std::string_view what) const
    {
        for (const std::string_view unit : { "Hz", "dB" })
            if (text.ends_with (unit))
                text.remove_suffix (unit.size());

        if (text.starts_with ('+'))
            text.remove_prefix (1);

        const auto value = strictNumber<double> (text);

        if (! value)
            throw refuse (quoted (text), "a number for " + std::string (what));

        return *value;
    }

    /** A frequency: a point or comma with exactly three digits behind it separates thousands, as in "1,038 Hz". */
    double frequency (std::string text) const
    {
        if (text.ends_with ("Hz"))
            text.resize (text.size() - 2);

        const bool thousands =
            text.size() >= 5 && text[text.size() - 4] == '.' && text.find_first_of ("eE") == text.npos;
        double value = number (text, "Fc");

        if (thousands)
            value *= 1000.0;

        if (! (value > 0.0))
            throw refuse ("Fc " + text, "a frequency above 0 Hz");

        return value;
    }

    void filter (std::string_view value)
    {
        anything = true;
        const auto text = withPoints (value);
        const auto words = wordsOf (text);

        if (words.empty() || words[0] != "ON" || words.size() < 2 || words[1] == "None" || ! selected)
            return;

        // A type may consist of several words: everything up to Fc.
        std::string type;
        std::optional<double> slope_dB;

        for (std::size_t i = 1; i < words.size() && words[i] != "Fc" && words[i] != "Order" && words[i] != "Gain"; ++i)
        {
            const auto word = words[i];
            const bool isSlope = word[0] >= '0' && word[0] <= '9' && type.size() >= 2;

            if (isSlope && (word.ends_with ("dB") || (i + 1 < words.size() && words[i + 1] == "dB")))
            {
                slope_dB = number (word, "the slope");
                i += word.ends_with ("dB") ? 0 : 1;
            }
            else
            {
                type += word;
            }
        }

        if (type == "IIR")
            return coefficients (words);

        addSection (type, slope_dB, words);
    }

    void addSection (const std::string& type, std::optional<double> slope_dB,
                     const std::vector<std::string_view>& words)
    {
        const auto is = [&] (std::initializer_list<const char*> names) {
            return std::ranges::find (names, type) != names.end();
        };
        const bool isPeak = is ({ "PK", "PEQ", "Modal" });
        const bool isLowShelf = is ({ "LS", "LSC", "LSQ" }), isHighShelf = is ({ "HS", "HSC", "HSQ" });
        const bool isShelf = isLowShelf || isHighShelf;
        const bool isPass = is ({ "LP", "LPQ", "HP", "HPQ", "BP" }), isNotch = is ({ "NO", "Notch", "NotchQ" });
        const bool isFirstOrder = is ({ "LP1", "HP1" }), isAllPass = is ({ "AP", "Allpass" });

        if (! isPeak && ! isShelf && ! isPass && ! isNotch && ! isFirstOrder && ! isAllPass)
            throw refuse ("the type " + quoted (type),
                          "PK, PEQ, Modal, LS, LSC, LSQ, HS, HSC, HSQ, LP, LPQ, LP1, HP, HPQ, HP1, BP, "
                          "NO, AP, IIR or None");

        const auto fc = textBehind (words, "Fc");

        if (! fc)
            throw refuse (type + " without Fc", "'Fc NUMBER Hz'");

        const double at_Hz = frequency (*fc);
        const auto gainText = textBehind (words, "Gain");

        if ((isPeak || isShelf) && ! gainText)
            throw refuse (type + " without Gain", "'Gain NUMBER dB'");

        const double gain_dB = gainText ? number (*gainText, "Gain") : 0.0;

        if (std::abs (gain_dB) > kMostGain_dB)
            throw refuse ("Gain " + *gainText, "a gain from -200 to 200 dB");

        std::optional<double> q, octaves;

        if (const auto text = textBehind (words, "Q"); text && *text != "Fc")
            q = number (*text, "Q");

        if (const auto text = textBehind (words, "Oct"))
            octaves = number (*text, "BW Oct");

        for (const auto& [name, given] :
             { std::pair ("Q", q), std::pair ("BW Oct", octaves), std::pair ("the slope", slope_dB) })
            if (given && ! (*given >= 0.0))
                throw refuse (std::string (name) + " below 0", "a number above 0");

        if (q == 0.0)
            q.reset();

        if (octaves == 0.0)
            octaves.reset();

        if ((isPeak || isAllPass) && ! q && ! octaves)
            throw refuse (type + " without Q", "'Q NUMBER' or 'BW Oct NUMBER'");

        if (isShelf)
            return addShelf (isLowShelf, type, at_Hz, gain_dB, q, slope_dB);

        const double usedQ = q.value_or (isNotch ? kNotchQ : std::numbers::sqrt2 / 2.0);
        add (at_Hz, [=, low = type[0] == 'L'] (double rate) {
            if (isFirstOrder)
                return low ? dsp::lowPass1 (at_Hz, rate) : dsp::highPass1 (at_Hz, rate);

            const auto place =
                octaves ? dsp::resonanceOfBandwidth (at_Hz, *octaves, rate) : dsp::resonanceOfQ (at_Hz, usedQ, rate);

            return isPeak         ? dsp::peaking (place, gain_dB)
                   : isNotch      ? dsp::notch (place)
                   : isAllPass    ? dsp::allPass (place)
                   : low          ? dsp::lowPass (place)
                   : type == "BP" ? dsp::bandPass (place)
                                  : dsp::highPass (place);
        });
    }

    /** LS and HS with a slope or a Q give the corner of the shelf, all others its centre. */
    void addShelf (bool isLow, const std::string& type, double at_Hz, double gain_dB, std::optional<double> q,
                   std::optional<double> slope_dB)
    {
        const double a = std::pow (10.0, gain_dB / 40.0), both = a + 1.0 / a;
        double slope = kShelfSlope;

        if (slope_dB && *slope_dB > 0.0)
            slope = *slope_dB / 12.0;
        else if (q)
            slope = 1.0 / ((1.0 / (*q * *q) - 2.0) / both + 1.0);

        const bool isCorner = type.size() == 2 && (slope_dB || q);

        if (isCorner)
        {
            if (! (slope > 0.0))
                throw refuse ("Q " + std::to_string (*q), "a Q that a shelf of this gain can have");

            const double shift = std::pow (10.0, std::abs (gain_dB) / (80.0 * slope));
            at_Hz = isLow ? at_Hz * shift : at_Hz / shift;
        }

        const bool useSlope = slope_dB || ! q;

        if (useSlope && both * (1.0 / slope - 1.0) + 2.0 <= 0.0)
            throw refuse ("a slope of " + std::to_string (12.0 * slope) + " dB",
                          "one that a shelf of this gain can have");

        add (at_Hz, [=] (double rate) {
            const auto place =
                useSlope ? dsp::resonanceOfSlope (at_Hz, slope, gain_dB, rate) : dsp::resonanceOfQ (at_Hz, *q, rate);
            return isLow ? dsp::lowShelf (place, gain_dB) : dsp::highShelf (place, gain_dB);
        });
    }

    void add (double at_Hz, std::function<dsp::Biquad (double)> make)
    {
        const auto where = file.string() + ", line " + std::to_string (line);
        chain.biquads.push_back ([at_Hz, where, make = std::move (make)] (double rate) {
            if (at_Hz >= 0.5 * rate)
                throw Failure (kExitInput, where + ": the filter's frequency, " + std::to_string (std::lround (at_Hz))
                                               + " Hz, is not below half of the sample rate "
                                               + std::to_string (std::lround (rate)) + " Hz.");

            return make (rate);
        });
    }

    /** "Order 2 Coefficients b0 b1 b2 a0 a1 a2". */
    void coefficients (const std::vector<std::string_view>& words)
    {
        const auto order = textBehind (words, "Order");
        const auto start = std::ranges::find (words, "Coefficients");
        std::vector<double> values;

        for (auto word = start; word != words.end() && std::next (word) != words.end(); ++word)
            values.push_back (number (*std::next (word), "a coefficient"));

        if (! order || (*order != "1" && *order != "2")
            || values.size() != 2 * (static_cast<std::size_t> ((*order)[0] - '0') + 1)
            || values[values.size() / 2] == 0.0)
            throw refuse ("an IIR filter of another form", "'IIR Order 1' or 'Order 2' with b0.. and a0.., a0 not 0");

        const double a0 = values[values.size() / 2];
        const dsp::Biquad biquad =
            order == "1"
                ? dsp::Biquad { values[0] / a0, values[1] / a0, 0.0, values[3] / a0, 0.0 }
                : dsp::Biquad { values[0] / a0, values[1] / a0, values[2] / a0, values[4] / a0, values[5] / a0 };

        if (! biquad.isStable())
            throw refuse ("an IIR filter that is not stable", "poles inside the unit circle");

        chain.biquads.push_back ([biquad] (double) { return biquad; });
    }

    void preamp (std::string_view value)
    {
        anything = true;
        const auto text = withPoints (value);
        const auto words = wordsOf (text);

        if (words.empty())
            throw refuse ("Preamp without a gain", "'Preamp: NUMBER dB'");

        const double gain_dB = number (words[0], "Preamp");

        if (std::abs (gain_dB) > kMostGain_dB)
            throw refuse (quoted (value), "a gain from -200 to 200 dB");

        if (selected)
            chain.gain *= std::pow (10.0, gain_dB / 20.0);
    }

    void delay (std::string_view value)
    {
        anything = true;
        const auto text = withPoints (value);
        const auto words = wordsOf (text);

        if (words.size() < 2 || ! equalsIgnoringCase (words[1], "ms"))
            throw refuse (quoted (value), "'Delay: NUMBER ms'; a number of samples depends on the rate");

        const double delay_ms = number (words[0], "Delay");

        if (! (delay_ms >= 0.0 && delay_ms <= 10000.0))
            throw refuse (quoted (value), "a delay from 0 to 10000 ms");

        if (selected)
            chain.delay_ms += delay_ms;
    }

    void graphic (std::string_view value)
    {
        anything = true;

        if (! selected)
            return;

        std::string text (value);

        if (text.find ('.') == text.npos)
            std::ranges::replace (text, ',', '.');

        std::ranges::replace (text, ';', ' ');
        const auto words = wordsOf (text);
        std::vector<GainNode> nodes;

        for (std::size_t i = 0; i + 1 < words.size(); i += 2)
        {
            nodes.push_back ({ number (words[i], "a frequency"), number (words[i + 1], "a gain") });

            if (! (nodes.back().frequency_Hz > 0.0) || std::abs (nodes.back().gain_dB) > kMostGain_dB)
                throw refuse (quoted (std::string (words[i]) + " " + std::string (words[i + 1])),
                              "a frequency above 0 Hz and a gain from -200 to 200 dB");
        }

        if (nodes.empty() || nodes.size() > kMostNodes)
            throw refuse (std::to_string (nodes.size()) + " points",
                          "1 to " + std::to_string (kMostNodes) + " of the form '20 -1.5;'");

        std::ranges::stable_sort (nodes, {}, &GainNode::frequency_Hz);
        chain.responses.push_back ([nodes] (double rate) { return graphicResponse (nodes, rate); });
    }

    const std::filesystem::path file;
    const std::string channel;
    std::vector<std::string>& notes;
    FilterChain chain;
    int line = 0;
    bool selected = true, hasChannelLines = false, channelSeen = false, anything = false;
};

}

FilterChain readEqualizerText (const std::filesystem::path& file, std::string_view channel,
                               std::vector<std::string>& notes)
{
    return Reader (file, channel, notes).read (readTextFile (file));
}

}
