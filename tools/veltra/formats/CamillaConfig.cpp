// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/formats/CamillaConfig.h"

#include "tools/ExitStatus.h"

#ifndef VELTRA_HAS_YAML

namespace veltra::host {

std::vector<FilterChain> readCamillaConfig (const std::filesystem::path&, unsigned)
{
    throw Failure (kExitUsage, "This program was built without libyaml-cpp, which reads camilladsp's configurations.");
}

}

#else

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <set>

#include <yaml-cpp/yaml.h>

#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/TextFile.h"

namespace veltra::host {

namespace {

constexpr double kSpeedOfSound_mm_per_ms = 343.0;
constexpr std::size_t kMostSections = 512;

class Reader
{
public:
    Reader (std::filesystem::path fileToRead, unsigned channelCount)
        : file (std::move (fileToRead)),
          chains (channelCount)
    {
    }

    std::vector<FilterChain> read()
    {
        const auto root = YAML::Load (readTextFile (file));

        if (! root.IsMap())
            throw refuse (root, "something else than a map", "the keys 'filters' and 'pipeline'");

        if (const auto devices = root["devices"]; devices && devices.IsMap())
        {
            if (given (devices["resampler"])
                || (given (devices["enable_resampling"]) && devices["enable_resampling"].as<bool>()))
                throw refuse (devices, "a resampler", "none: it is not read");

            if (given (devices["samplerate"]))
                sampleRate = devices["samplerate"].as<double>();
        }

        if (const auto defined = root["filters"])
            filters.reset (defined);

        const auto pipeline = root["pipeline"];

        if (! given (pipeline) || ! pipeline.IsSequence())
            throw refuse (root, "no pipeline", "a list 'pipeline'");

        for (const auto& step : pipeline)
            readStep (step);

        return std::move (chains);
    }

private:
    Failure refuse (const YAML::Node& node, const std::string& found, const std::string& expected) const
    {
        const auto mark = node.Mark();
        return { kExitInput, file.string() + (mark.is_null() ? "" : ", line " + std::to_string (mark.line + 1))
                                 + ": found " + found + "; expected " + expected + "." };
    }

    static bool given (const YAML::Node& node) { return node && ! node.IsNull(); }

    void readStep (const YAML::Node& step)
    {
        const auto type = text (step, "type");

        if (type != "Filter")
            throw refuse (step, "a pipeline step '" + type + "'",
                          "steps of type Filter only: mixers and processors are not read");

        if (given (step["bypassed"]) && step["bypassed"].as<bool>())
            return;

        std::vector<unsigned> numbers;

        if (given (step["channel"]))
            numbers.push_back (step["channel"].as<unsigned>());
        else if (given (step["channels"]))
            numbers = step["channels"].as<std::vector<unsigned>>();
        else
            for (unsigned i = 0; i < chains.size(); ++i)
                numbers.push_back (i);

        for (const auto number : numbers)
        {
            if (number >= chains.size())
                throw refuse (step, "channel " + std::to_string (number),
                              "one of the " + std::to_string (chains.size())
                                  + " channels that --channels names, from 0");

            for (const auto& name : step["names"])
                addFilter (name.as<std::string>(), step, chains[number]);
        }
    }

    void addFilter (const std::string& name, const YAML::Node& step, FilterChain& chain)
    {
        if (! given (filters) || ! given (filters[name]))
            throw refuse (step, "the name '" + name + "'", "one of the filters");

        const auto filter = filters[name];
        const auto type = text (filter, "type");
        parameters.reset (filter["parameters"]); // an assignment would change the document
        used.clear();

        if (type == "Gain")
            addGain (chain);
        else if (type == "Delay")
            addDelay (chain);
        else if (type == "Biquad")
            addBiquad (chain);
        else if (type == "BiquadCombo")
            addCombo (chain);
        else if (type == "Conv")
            addConvolution (chain);
        else
            throw refuse (filter, "a filter of type '" + type + "'", "Conv, Biquad, BiquadCombo, Gain or Delay");

        for (const auto& entry : parameters)
            if (const auto key = entry.first.as<std::string>(); ! used.contains (key))
                throw refuse (entry.first, "the parameter '" + key + "'", "only parameters of a " + type);

        if (chain.biquads.size() > kMostSections)
            throw refuse (filter, "more than " + std::to_string (kMostSections) + " sections", "fewer");
    }

    std::string text (const YAML::Node& map, const char* key) const
    {
        if (! map.IsMap() || ! given (map[key]))
            throw refuse (map, "no '" + std::string (key) + "'", "that key");

        return map[key].as<std::string>();
    }

    /** The filter's kind within its type. */
    std::string kind()
    {
        used.insert ("type");
        return text (parameters, "type");
    }

    /** A parameter that may be absent. */
    template <typename Value>
    std::optional<Value> optional (const char* key)
    {
        used.insert (key);
        return given (parameters[key]) ? std::optional (parameters[key].as<Value>()) : std::nullopt;
    }

    double number (const char* key, double above = -1e6, double most = 1e6)
    {
        const auto value = optional<double> (key);

        if (! value || ! (*value > above && *value <= most))
            throw refuse (parameters,
                          value ? std::string (key) + " " + std::to_string (*value) : "no '" + std::string (key) + "'",
                          "a number above " + std::to_string (above) + " and up to " + std::to_string (most));

        return *value;
    }

    double frequency (const char* key = "freq") { return number (key, 0.0); }

    /** Adds a section that is made for a rate below half of which all its frequencies must lie. */
    void add (FilterChain& chain, double highest_Hz, std::function<dsp::Biquad (double)> make) const
    {
        const auto where = file.string() + ", line " + std::to_string (parameters.Mark().line + 1);
        chain.biquads.push_back ([highest_Hz, where, make = std::move (make)] (double rate) {
            if (highest_Hz >= 0.5 * rate)
                throw Failure (kExitInput, where + ": found " + std::to_string (std::lround (highest_Hz))
                                               + " Hz; expected a frequency below half of the sample rate "
                                               + std::to_string (std::lround (rate)) + " Hz.");

            const auto biquad = make (rate);

            if (! biquad.isStable())
                throw Failure (kExitInput, where + ": found a filter that is not stable at "
                                               + std::to_string (std::lround (rate))
                                               + " Hz; expected poles inside the unit circle.");

            return biquad;
        });
    }

    /** Where a section lies, by its q or its bandwidth. */
    std::function<dsp::Resonance (double)> resonance (double at_Hz)
    {
        if (const auto octaves = optional<double> ("bandwidth"))
        {
            const double width = number ("bandwidth", 0.0, 100.0);
            return [=] (double rate) { return dsp::resonanceOfBandwidth (at_Hz, width, rate); };
        }

        const double q = number ("q", 0.0);
        return [=] (double rate) { return dsp::resonanceOfQ (at_Hz, q, rate); };
    }

    void addBiquad (FilterChain& chain)
    {
        const auto type = kind();

        if (type == "Free")
        {
            const dsp::Biquad biquad { number ("b0"), number ("b1"), number ("b2"), number ("a1"), number ("a2") };
            return add (chain, 0.0, [=] (double) { return biquad; });
        }

        if (type == "GeneralNotch")
        {
            const double zero = frequency ("freq_z"), pole = frequency ("freq_p"), q = number ("q_p", 0.0);
            const bool atDc = optional<bool> ("normalize_at_dc").value_or (false);
            return add (chain, std::max (zero, pole),
                        [=] (double rate) { return dsp::generalNotch (pole, zero, q, atDc, rate); });
        }

        if (type == "LinkwitzTransform")
        {
            const double now = frequency ("freq_act"), q = number ("q_act", 0.0), then = frequency ("freq_target"),
                         newQ = number ("q_target", 0.0);
            return add (chain, std::max (now, then),
                        [=] (double rate) { return dsp::linkwitzTransform (now, q, then, newQ, rate); });
        }

        const double at_Hz = frequency();

        if (type.ends_with ("FO"))
            return addFirstOrder (chain, type, at_Hz);

        if (type == "Lowshelf" || type == "Highshelf")
            return addShelf (chain, type == "Lowshelf", at_Hz);

        const double gain_dB = type == "Peaking" ? number ("gain", -150.0, 150.0) : 0.0;
        const auto place = resonance (at_Hz);
        add (chain, at_Hz, [&]() -> std::function<dsp::Biquad (double)> {
            if (type == "Peaking")
                return [=] (double rate) { return dsp::peaking (place (rate), gain_dB); };

            if (type == "Lowpass")
                return [=] (double rate) { return dsp::lowPass (place (rate)); };

            if (type == "Highpass")
                return [=] (double rate) { return dsp::highPass (place (rate)); };

            if (type == "Notch")
                return [=] (double rate) { return dsp::notch (place (rate)); };

            if (type == "Bandpass")
                return [=] (double rate) { return dsp::bandPass (place (rate)); };

            if (type == "Allpass")
                return [=] (double rate) { return dsp::allPass (place (rate)); };

            throw refuse (parameters, "a Biquad of type '" + type + "'", "one that camilladsp documents");
        }());
    }

    void addFirstOrder (FilterChain& chain, const std::string& type, double at_Hz)
    {
        const bool isShelf = type == "LowshelfFO" || type == "HighshelfFO";
        const double gain_dB = isShelf ? number ("gain", -150.0, 150.0) : 0.0;

        if (! isShelf && type != "LowpassFO" && type != "HighpassFO" && type != "AllpassFO")
            throw refuse (parameters, "a Biquad of type '" + type + "'", "one that camilladsp documents");

        add (chain, at_Hz, [=] (double rate) {
            return type == "LowpassFO"    ? dsp::lowPass1 (at_Hz, rate)
                   : type == "HighpassFO" ? dsp::highPass1 (at_Hz, rate)
                   : type == "AllpassFO"  ? dsp::allPass1 (at_Hz, rate)
                   : type == "LowshelfFO" ? dsp::lowShelf1 (at_Hz, gain_dB, rate)
                                          : dsp::highShelf1 (at_Hz, gain_dB, rate);
        });
    }

    void addShelf (FilterChain& chain, bool isLow, double at_Hz)
    {
        const double gain_dB = number ("gain", -150.0, 150.0);
        const auto slope = optional<double> ("slope");
        const double steepness = slope ? number ("slope", 0.0, 12.0) / 12.0 : 0.0, q = slope ? 0.0 : number ("q", 0.0);
        addShelf (chain, isLow, at_Hz, gain_dB, [=] (double rate) {
            return slope ? dsp::resonanceOfSlope (at_Hz, steepness, gain_dB, rate) : dsp::resonanceOfQ (at_Hz, q, rate);
        });
    }

    void addShelf (FilterChain& chain, bool isLow, double at_Hz, double gain_dB,
                   std::function<dsp::Resonance (double)> place) const
    {
        add (chain, at_Hz, [=, place = std::move (place)] (double rate) {
            return isLow ? dsp::lowShelf (place (rate), gain_dB) : dsp::highShelf (place (rate), gain_dB);
        });
    }

    void addShelf (FilterChain& chain, bool isLow, double at_Hz, double gain_dB, double q) const
    {
        addShelf (chain, isLow, at_Hz, gain_dB, [=] (double rate) { return dsp::resonanceOfQ (at_Hz, q, rate); });
    }

    void addCombo (FilterChain& chain)
    {
        const auto type = kind();

        if (type.starts_with ("Butterworth") || type.starts_with ("LinkwitzRiley"))
            addSteep (chain, type);
        else if (type == "Tilt")
        {
            const double gain_dB = number ("gain", -100.001, 100.0);
            addShelf (chain, true, 110.0, -0.5 * gain_dB, 0.35);
            addShelf (chain, false, 3500.0, 0.5 * gain_dB, 0.35);
        }
        else if (type == "FivePointPeq")
            addFivePoints (chain);
        else if (type == "GraphicEqualizer")
            addGraphic (chain);
        else
            throw refuse (parameters, "a BiquadCombo of type '" + type + "'", "one that camilladsp documents");
    }

    void addSteep (FilterChain& chain, const std::string& type)
    {
        const bool isLow = type.ends_with ("Lowpass"), isTwice = type.starts_with ("Linkwitz");
        const auto at_Hz = frequency();
        const auto order = static_cast<int> (number ("order", 0.0, 64.0));

        if ((! isLow && ! type.ends_with ("Highpass")) || (isTwice && order % 2 != 0))
            throw refuse (parameters, type + " of order " + std::to_string (order),
                          "Lowpass or Highpass, Linkwitz-Riley of even order");

        const int half = isTwice ? order / 2 : order;
        const auto second = [&] (double q) {
            add (chain, at_Hz, [=] (double rate) {
                const auto place = dsp::resonanceOfQ (at_Hz, q, rate);
                return isLow ? dsp::lowPass (place) : dsp::highPass (place);
            });
        };

        for (int n = 0; n < half / 2; ++n)
            for (int times = isTwice ? 2 : 1; times > 0; --times)
                second (1.0 / (2.0 * std::sin (std::numbers::pi * (n + 0.5) / half)));

        if (half % 2 != 0 && isTwice)
            second (0.5);
        else if (half % 2 != 0)
            add (chain, at_Hz,
                 [=] (double rate) { return isLow ? dsp::lowPass1 (at_Hz, rate) : dsp::highPass1 (at_Hz, rate); });
    }

    void addFivePoints (FilterChain& chain)
    {
        const auto point = [&] (const std::string& name, auto make) {
            const double at_Hz = frequency (("f" + name).c_str()),
                         gain_dB = number (("g" + name).c_str(), -150.0, 150.0);
            const double q = number (("q" + name).c_str());

            if (std::abs (q) > 0.001)
                make (at_Hz, gain_dB, q);
        };

        point ("ls", [&] (double f, double g, double q) { addShelf (chain, true, f, g, q); });

        for (const char* const name : { "p1", "p2", "p3" })
            point (name, [&] (double f, double g, double q) {
                add (chain, f, [=] (double rate) { return dsp::peaking (dsp::resonanceOfQ (f, q, rate), g); });
            });

        point ("hs", [&] (double f, double g, double q) { addShelf (chain, false, f, g, q); });
    }

    void addGraphic (FilterChain& chain)
    {
        const auto gains = optional<std::vector<double>> ("gains").value_or (std::vector<double>());
        const double lowest = optional<double> ("freq_min").value_or (20.0),
                     highest = optional<double> ("freq_max").value_or (20000.0);

        if (gains.empty() || gains.size() > kMostSections || ! (lowest > 0.0 && highest > lowest))
            throw refuse (parameters, "no usable bands", "gains, and freq_min below freq_max");

        const double width = std::log2 (highest / lowest) / static_cast<double> (gains.size());

        for (std::size_t i = 0; i < gains.size(); ++i)
            if (std::abs (gains[i]) > 0.001)
                add (chain, lowest * std::exp2 ((static_cast<double> (i) + 0.5) * width),
                     [=, at_Hz = lowest * std::exp2 ((static_cast<double> (i) + 0.5) * width),
                      gain_dB = gains[i]] (double rate) {
                         return dsp::peaking (dsp::resonanceOfBandwidth (at_Hz, width, rate), gain_dB);
                     });
    }

    void addGain (FilterChain& chain)
    {
        const auto scale = optional<std::string> ("scale").value_or ("dB");
        const bool isLinear = scale == "linear";

        if (! isLinear && scale != "dB")
            throw refuse (parameters, "the scale '" + scale + "'", "dB or linear");

        const double gain = isLinear ? number ("gain", -10.001, 10.0) : number ("gain", -150.001, 150.0);
        const double sign = optional<bool> ("inverted").value_or (false) ? -1.0 : 1.0;

        if (optional<bool> ("mute").value_or (false))
            throw refuse (parameters, "a muted gain", "a filter that plays something");

        chain.gain *= sign * (isLinear ? gain : std::pow (10.0, gain / 20.0));
    }

    void addDelay (FilterChain& chain)
    {
        const auto unit = optional<std::string> ("unit").value_or ("ms");
        const double delay = number ("delay", -1e-9, 1e6);
        optional<bool> ("subsample"); // the receiver rounds

        if (unit == "samples" && ! sampleRate)
            throw refuse (parameters, "a delay in samples", "devices.samplerate, or a delay in ms, us or mm");

        if (unit == "samples")
            chain.delay_ms += 1000.0 * delay / *sampleRate;
        else if (unit == "ms" || unit == "us" || unit == "mm")
            chain.delay_ms += unit == "ms" ? delay : unit == "us" ? 0.001 * delay : delay / kSpeedOfSound_mm_per_ms;
        else
            throw refuse (parameters, "the unit '" + unit + "'", "ms, us, mm or samples");
    }

    void addConvolution (FilterChain& chain)
    {
        const auto type = kind();

        if (type == "Values")
        {
            const auto values = optional<std::vector<double>> ("values").value_or (std::vector<double>());

            if (values.empty())
                throw refuse (parameters, "no values", "one at least");

            addResponse (chain,
                         Eigen::Map<const Eigen::VectorXd> (values.data(), static_cast<Eigen::Index> (values.size())),
                         {});
        }
        else if (type == "Dummy")
        {
            number ("length", 0.0);
        }
        else if (type == "Wav" || type == "Raw")
        {
            addFile (chain, type == "Wav");
        }
        else
        {
            throw refuse (parameters, "a Conv of type '" + type + "'", "Raw, Wav, Values or Dummy");
        }
    }

    void addResponse (FilterChain& chain, Eigen::VectorXd response, std::optional<unsigned> rate) const
    {
        const auto where = file.string() + ", line " + std::to_string (parameters.Mark().line + 1);
        chain.responses.push_back ([response = std::move (response), rate, where] (double asked) {
            if (rate && *rate != asked)
                throw Failure (kExitInput, where + ": found a file of " + std::to_string (*rate)
                                               + " Hz; expected one of " + std::to_string (std::lround (asked))
                                               + " Hz.");

            return response;
        });
    }

    void addFile (FilterChain& chain, bool isWav)
    {
        std::filesystem::path source = optional<std::string> ("filename").value_or ("");

        if (source.empty() || source.string().find ('$') != std::string::npos)
            throw refuse (parameters, "the file name '" + source.string() + "'", "one without placeholders");

        if (source.is_relative() && exists (file.parent_path() / source))
            source = file.parent_path() / source;

        AudioSelection selection;

        if (isWav)
            selection.channel = optional<unsigned> ("channel").value_or (0);
        else
            selection.raw = rawFormat();

        const auto audio = readMonoAudio (source, selection);
        addResponse (
            chain,
            Eigen::Map<const Eigen::VectorXf> (audio.samples.data(), static_cast<Eigen::Index> (audio.samples.size()))
                .cast<double>(),
            isWav ? std::optional (audio.sampleRate) : std::nullopt);
    }

    /** Of the rate only the samples' number matters here. */
    RawFormat rawFormat()
    {
        const auto format = optional<std::string> ("format").value_or ("TEXT");

        for (const char* const key : { "skip_bytes_lines", "read_bytes_lines" })
            if (optional<unsigned> (key).value_or (0) != 0)
                throw refuse (parameters, std::string (key), "whole files");

        const auto isOneOf = [&] (std::initializer_list<const char*> names) {
            return std::ranges::find (names, format) != names.end();
        };

        if (isOneOf ({ "S16LE", "S16_LE" }))
            return parseRawFormat ("s16@48000");

        if (isOneOf ({ "S24LE3", "S24_3_LE" }))
            return parseRawFormat ("s24@48000");

        if (isOneOf ({ "S32LE", "S32_LE" }))
            return parseRawFormat ("s32@48000");

        if (isOneOf ({ "FLOAT32LE", "F32_LE" }))
            return parseRawFormat ("f32@48000");

        if (isOneOf ({ "FLOAT64LE", "F64_LE" }))
            return parseRawFormat ("f64@48000");

        throw refuse (parameters, "the format '" + format + "'", "S16, S24 in 3 bytes, S32, F32 or F64, little-endian");
    }

    const std::filesystem::path file;
    std::vector<FilterChain> chains;
    std::optional<double> sampleRate;
    YAML::Node filters, parameters;
    std::set<std::string> used;
};

}

std::vector<FilterChain> readCamillaConfig (const std::filesystem::path& file, unsigned channelCount)
try
{
    return Reader (file, channelCount).read();
}
catch (const YAML::Exception& error)
{
    throw Failure (kExitInput, file.string() + ", line "
                                   + std::to_string (error.mark.is_null() ? 1 : error.mark.line + 1)
                                   + ": found something that is not read (" + error.msg
                                   + "); expected a camilladsp configuration.");
}

}

#endif
