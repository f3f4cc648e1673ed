// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/FilterImport.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <ostream>
#include <set>

#include "tools/ExitStatus.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/ImportFiles.h"
#include "tools/veltra/filters/PeakGain.h"

namespace veltra::host {

namespace {

constexpr std::size_t kLongestResponse = 1u << 22; // of a filter, one second counts

std::vector<ImpulseFile> filesOf (const ImportOptions& options)
{
    std::vector<ImpulseFile> files;

    for (const auto& path : options.files)
        files.push_back (impulseFileFromName (path));

    if (! options.mapping.empty())
        std::ranges::move (readMapping (options.mapping), std::back_inserter (files));

    if (files.empty())
        throw Failure (kExitUsage, "There is nothing to import: give WAV files or a mapping file.");

    return files;
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

/** Adds the file's response to its channel and reports it. */
void importFile (const ImpulseFile& file, unsigned leadIn, DescribedChannel& channel, std::ostream& report)
{
    auto audio = readMonoAudio (file.path);

    if (audio.sampleRate != file.sampleRate)
        throw Failure (kExitInput, file.path.string() + " was recorded at " + std::to_string (audio.sampleRate)
                                       + " Hz and not at " + std::to_string (file.sampleRate) + " Hz.");

    if (audio.samples.size() > kLongestResponse)
        throw Failure (kExitInput, file.path.string() + " is too long for an impulse response.");

    const auto gain_dB = peakGain_dB (audio.samples);

    if (! std::isfinite (gain_dB))
        throw Failure (kExitInput, file.path.string() + " is silent.");

    audio.samples.insert (audio.samples.begin(), leadIn, 0.0f);

    const auto peak = std::ranges::max_element (audio.samples, {}, [] (float sample) { return std::abs (sample); });
    const auto place = peak - audio.samples.begin();

    report << std::left << std::setw (4) << file.channel << std::right << std::setw (7) << file.sampleRate << " Hz"
           << std::setw (8) << audio.samples.size() << " samples, peak at " << std::setw (6) << place << " ("
           << std::fixed << std::setprecision (2) << 1000.0 * static_cast<double> (place) / file.sampleRate
           << " ms), largest gain " << std::showpos << gain_dB << std::noshowpos << " dB\n";

    channel.maxFilterGain_dB = channel.responses.empty()
                                   ? static_cast<float> (gain_dB)
                                   : std::max (channel.maxFilterGain_dB, static_cast<float> (gain_dB));
    channel.responses.push_back ({ file.sampleRate, std::move (audio.samples) });
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

FilterDescription importFilters (const ImportOptions& options, std::ostream& report, std::ostream& notes)
{
    auto files = filesOf (options);
    refuseTwice (files);

    FilterDescription description { options.project, options.technology, {} };
    const auto places = options.receiverChannels.empty()
                            ? numberChannels (files, options.channelOrder)
                            : placeChannels (files, options.receiverChannels, options.partial);
    std::ranges::stable_sort (files, {}, &ImpulseFile::sampleRate);

    for (const auto& place : places)
    {
        DescribedChannel channel;
        channel.name = place.name;
        channel.number = place.number;
        channel.subwoofer = isSubwooferName (place.name);

        for (const auto& file : files)
            if (file.channel == place.name)
                importFile (file, options.leadIn, channel, report);

        description.channels.push_back (std::move (channel));
    }

    noteOddities (description.channels, notes);
    return description;
}

}
