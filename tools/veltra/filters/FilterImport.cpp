// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/FilterImport.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iterator>
#include <ostream>
#include <set>
#include <tuple>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "tools/veltra/filters/ImportFiles.h"
#include "tools/veltra/filters/PeakGain.h"
#include "tools/veltra/formats/CamillaConfig.h"
#include "tools/veltra/formats/EqualizerText.h"
#include "tools/veltra/formats/SampleText.h"

namespace veltra::host {

namespace {

constexpr std::size_t kLongestResponse = 1u << 22; // of a filter, one second counts

enum class FileKind
{
    audio,
    raw,
    text
};

FileKind kindOf (const std::filesystem::path& file)
{
    const auto ending = file.extension().string();
    const auto isOneOf = [&] (std::initializer_list<const char*> endings) {
        return std::ranges::any_of (endings,
                                    [&] (const char* candidate) { return equalsIgnoringCase (ending, candidate); });
    };
    return isOneOf ({ ".pcm", ".raw", ".dbl" })   ? FileKind::raw
           : isOneOf ({ ".txt", ".csv", ".dat" }) ? FileKind::text
                                                  : FileKind::audio;
}

/** What a file holds for one channel. */
struct Samples
{
    MonoAudio audio;
    double start_s = 0.0; ///< time of the first sample
};

Samples readText (const ImpulseFile& file, const ImportOptions& options)
{
    auto text = readSampleText (file.path);
    const auto rate = text.sampleRate ? *text.sampleRate : static_cast<double> (options.textRate.value_or (0));

    if (! (rate > 0.0))
        throw Failure (kExitUsage, file.path.string() + " does not say its sample rate; give it by --text 48000.");

    return { { static_cast<unsigned> (std::lround (rate)), std::move (text.samples) }, text.start_s.value_or (0.0) };
}

Samples readSamples (const ImpulseFile& file, const ImportOptions& options)
{
    const auto kind = kindOf (file.path);

    if (kind == FileKind::text)
        return readText (file, options);

    if (kind == FileKind::raw && ! options.raw)
        throw Failure (kExitUsage,
                       file.path.string()
                           + " holds bare samples; give their format and rate, for example by --raw f32@48000.");

    return { readMonoAudio (file.path, { file.part, kind == FileKind::raw ? options.raw : std::nullopt }), 0.0 };
}

void addNamedFile (const std::filesystem::path& path, const ImportOptions& options, std::vector<ImpulseFile>& files)
{
    const bool mayHoldSeveral = ! options.channelOrder.empty() && kindOf (path) == FileKind::audio;
    const auto channels = mayHoldSeveral ? audioChannels (path) : 1u;

    if (channels == 1)
    {
        files.push_back (impulseFileFromName (path));
        return;
    }

    const auto names = namesInOrder (options.channelOrder);

    if (names.size() != channels)
        throw Failure (kExitUsage, path.string() + " has " + std::to_string (channels)
                                       + " channels, and --channels names " + std::to_string (names.size()) + ".");

    for (unsigned i = 0; i < channels; ++i)
    {
        ImpulseFile file { names[i], 0, path, i };
        file.sampleRate = readSamples (file, options).audio.sampleRate;
        files.push_back (std::move (file));
    }
}

void addEqualizer (const std::string& text, const ImportOptions& options, std::vector<ImpulseFile>& files,
                   std::ostream& notes)
{
    if (options.rates.empty())
        throw Failure (kExitUsage, "An equaliser has no sample rate of its own; give --rates 44100,48000,96000.");

    auto file = channelFile (text);
    std::vector<std::string> remarks;
    file.chain = std::make_shared<const FilterChain> (readEqualizerText (file.path, file.channel, remarks));

    for (const auto& remark : remarks)
        notes << "Note: " << remark << "\n";

    for (const auto rate : options.rates)
    {
        file.sampleRate = rate;
        files.push_back (file);
    }
}

void addCamilla (const ImportOptions& options, std::vector<ImpulseFile>& files)
{
    const auto names = namesInOrder (options.channelOrder);

    if (names.empty() || options.rates.empty())
        throw Failure (kExitUsage,
                       "A camilladsp configuration needs the names of its channels and the rates to make it at: "
                       "give --channels FL,FR and --rates 48000.");

    auto chains = readCamillaConfig (options.camilla, static_cast<unsigned> (names.size()));

    for (std::size_t i = 0; i < names.size(); ++i)
    {
        const auto chain = std::make_shared<const FilterChain> (std::move (chains[i]));

        for (const auto rate : options.rates)
            files.push_back ({ names[i], rate, options.camilla, {}, chain });
    }
}

/** Adds the gains and delays of a mapping to those of the options. */
std::vector<ImpulseFile> mappedFiles (ImportOptions& options)
{
    auto files = readMapping (options.mapping);

    for (const auto& file : files)
        for (const auto& [what, value, values] : { std::tuple { "gain", file.gain_dB, &options.gains_dB },
                                                   std::tuple { "delay", file.delay_ms, &options.delays_ms } })
            if (value)
                if (const auto [known, isNew] = values->emplace (file.channel, *value);
                    ! isNew && known->second != *value)
                    throw Failure (kExitInput, inputName (options.mapping) + " gives channel " + file.channel
                                                   + " another " + what + " than it has already.");

    return files;
}

/** @param options  gains and delays of the mapping are added */
std::vector<ImpulseFile> filesOf (ImportOptions& options, std::ostream& notes)
{
    std::vector<ImpulseFile> files;

    for (const auto& path : options.files)
        addNamedFile (path, options, files);

    for (const auto& text : options.channelFiles)
    {
        auto file = channelFile (text);
        file.sampleRate = readSamples (file, options).audio.sampleRate;
        files.push_back (std::move (file));
    }

    if (! options.mapping.empty())
        std::ranges::move (mappedFiles (options), std::back_inserter (files));

    for (const auto& text : options.equalizers)
        addEqualizer (text, options, files, notes);

    if (! options.camilla.empty())
        addCamilla (options, files);

    if (files.empty())
        throw Failure (kExitUsage,
                       "There is nothing to import: give files, --channel, --eq, --camilladsp or a mapping file.");

    return files;
}

/** What a response amounts to with its sections. */
std::vector<float> wholeResponse (const DescribedResponse& described)
{
    auto samples = described.taps;

    if (! described.sections.empty())
    {
        const auto tail = dsp::impulseResponse (described.sections, described.sampleRate);
        std::transform (tail.begin(), tail.end(), std::back_inserter (samples),
                        [] (double x) { return static_cast<float> (x); });
    }

    return samples;
}

void refuseTwice (const std::vector<ImpulseFile>& files)
{
    for (auto file = files.begin(); file != files.end(); ++file)
        for (auto earlier = files.begin(); earlier != file; ++earlier)
            if (earlier->channel == file->channel && earlier->sampleRate == file->sampleRate)
                throw Failure (kExitInput, "Channel " + file->channel + " at " + std::to_string (file->sampleRate)
                                               + " Hz is given twice: by " + earlier->path.string() + " and by "
                                               + file->path.string() + ".");
}

/** The samples of a response that was measured, with its beginning where the options want it.
    @param earliest_s  the earliest of all first samples */
std::vector<float> alignedSamples (const ImpulseFile& file, const ImportOptions& options, double earliest_s)
{
    auto [audio, start_s] = readSamples (file, options);

    if (audio.sampleRate != file.sampleRate)
        throw Failure (kExitInput, file.path.string() + " was recorded at " + std::to_string (audio.sampleRate)
                                       + " Hz and not at " + std::to_string (file.sampleRate) + " Hz.");

    const auto later = std::lround ((start_s - (options.align ? earliest_s : 0.0)) * file.sampleRate);

    if (std::abs (later) > static_cast<long> (kLongestResponse)
        || (later < 0 && static_cast<std::size_t> (-later) >= audio.samples.size()))
        throw Failure (kExitInput, file.path.string() + " begins " + std::to_string (start_s)
                                       + " s from time 0, so that nothing of it is left; see --align.");

    if (later < 0)
        audio.samples.erase (audio.samples.begin(), audio.samples.begin() - later);
    else
        audio.samples.insert (audio.samples.begin(), static_cast<std::size_t> (later), 0.0f);

    if (audio.samples.size() > kLongestResponse)
        throw Failure (kExitInput, file.path.string() + " is too long for an impulse response.");

    return std::move (audio.samples);
}

/** Adds the file's response to its channel and reports it. */
void importFile (const ImpulseFile& file, const ImportOptions& options, double earliest_s, DescribedChannel& channel,
                 std::ostream& report, std::ostream& notes)
{
    DescribedResponse described { file.sampleRate, {} };
    std::string remark;

    if (file.chain)
        described = realise (*file.chain, file.sampleRate, options.sectionTaps, remark);
    else
        described.taps = alignedSamples (file, options, earliest_s);

    if (! remark.empty())
        notes << "Note: " << file.path.string() << " at " << file.sampleRate << " Hz: " << remark << ".\n";

    described.taps.insert (described.taps.begin(), options.leadIn, 0.0f);
    const auto samples = wholeResponse (described);
    const auto gain_dB = peakGain_dB (samples);

    if (! std::isfinite (gain_dB))
        throw Failure (kExitInput, file.path.string() + " is silent.");

    const auto peak = std::ranges::max_element (samples, {}, [] (float sample) { return std::abs (sample); });
    const auto place = peak - samples.begin();

    report << std::left << std::setw (4) << file.channel << std::right << std::setw (7) << file.sampleRate << " Hz"
           << std::setw (8) << described.taps.size() << " samples, ";

    if (! described.sections.empty())
        report << described.sections.size() << " sections, ";

    report << "peak at " << std::setw (6) << place << " (" << std::fixed << std::setprecision (2)
           << 1000.0 * static_cast<double> (place) / file.sampleRate << " ms), largest gain " << std::showpos << gain_dB
           << std::noshowpos << " dB\n";

    channel.maxFilterGain_dB = channel.responses.empty()
                                   ? static_cast<float> (gain_dB)
                                   : std::max (channel.maxFilterGain_dB, static_cast<float> (gain_dB));
    channel.responses.push_back (std::move (described));
}

/** The earliest first sample of the texts, in seconds. */
double earliestStart (const std::vector<ImpulseFile>& files, const ImportOptions& options)
{
    double earliest_s = 0.0;

    for (const auto& file : files)
        if (! file.chain && kindOf (file.path) == FileKind::text)
            earliest_s = std::min (earliest_s, readText (file, options).start_s);

    return earliest_s;
}

std::map<std::string, double> boostsOf (const std::vector<DescribedChannel>& channels)
{
    std::map<std::string, double> boosts_dB;

    for (const auto& channel : channels)
        if (const double gain_dB = channel.maxFilterGain_dB + channel.gain_dB; gain_dB > kNotableBoost_dB)
            boosts_dB[channel.name] = gain_dB;

    return boosts_dB;
}

/** Gives a channel what the options say about its gain and delay, and its equalisers' delay. */
void setGainAndDelay (DescribedChannel& channel, const ImportOptions& options, const std::vector<ImpulseFile>& files)
{
    if (const auto gain = options.gains_dB.find (channel.name); gain != options.gains_dB.end())
        channel.gain_dB = static_cast<float> (gain->second);

    double delay_ms = 0.0;

    if (const auto delay = options.delays_ms.find (channel.name); delay != options.delays_ms.end())
        delay_ms = delay->second;

    for (const auto& file : files)
        if (file.channel == channel.name && file.chain)
        {
            delay_ms += file.chain->delay_ms;
            break; // the same at each rate
        }

    channel.delay_ms = static_cast<float> (delay_ms);
}

void refuseUnknownNames (const std::map<std::string, double>& values, const std::vector<DescribedChannel>& channels,
                         const char* option)
{
    for (const auto& [name, value] : values)
        if (std::ranges::find (channels, name, &DescribedChannel::name) == channels.end())
            throw Failure (kExitUsage, std::string (option) + " names channel " + name + ", which is not imported.");
}

void noteOddities (const std::vector<DescribedChannel>& channels, std::ostream& notes)
{
    std::set<unsigned> rates;

    for (const auto& channel : channels)
        for (const auto& response : channel.responses)
            rates.insert (response.sampleRate);

    for (const auto& channel : channels)
    {
        for (const auto rate : rates)
            if (std::ranges::find (channel.responses, rate, &DescribedResponse::sampleRate) == channel.responses.end())
                notes << "Note: channel " << channel.name << " has no response at " << rate << " Hz, others have.\n";

        for (const auto& response : channel.responses)
            if (response.taps.size() > response.sampleRate)
                notes << "Note: of channel " << channel.name << " at " << response.sampleRate
                      << " Hz only the first second reaches a receiver.\n";
    }
}

}

FilterDescription importFilters (const ImportOptions& given, std::ostream& report, std::ostream& notes)
{
    auto options = given;
    auto files = filesOf (options, notes);
    refuseTwice (files);

    FilterDescription description { options.project, options.technology, {} };
    const auto places = options.receiverChannels.empty()
                            ? numberChannels (files, options.channelOrder)
                            : placeChannels (files, options.receiverChannels, options.partial);
    std::ranges::stable_sort (files, {}, &ImpulseFile::sampleRate);
    const double earliest_s = options.align ? earliestStart (files, options) : 0.0;

    for (const auto& place : places)
    {
        DescribedChannel channel;
        channel.name = place.name;
        channel.number = place.number;
        channel.subwoofer = isSubwooferName (place.name);

        for (const auto& file : files)
            if (file.channel == place.name)
                importFile (file, options, earliest_s, channel, report, notes);

        setGainAndDelay (channel, options, files);
        description.channels.push_back (std::move (channel));
    }

    refuseUnknownNames (options.gains_dB, description.channels, "--gain");
    refuseUnknownNames (options.delays_ms, description.channels, "--delay");
    report << boostNote (boostsOf (description.channels));
    noteOddities (description.channels, notes);
    return description;
}

}
