// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/formats/ReceiverBlock.h"

#include "common/BigEndian.h"
#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/InputFile.h"
#include "topology/Conversion.h"
#include "topology/VLFIRBlobReader.h"

namespace veltra::host {

namespace {

using namespace topology;

bool hasDualRateMagic (const std::vector<std::uint8_t>& bytes)
{
    return bytes.size() >= 4 && getBigEndian (bytes.data()) == vlfir::magic;
}

/** "32000 bytes would be 2 channels of 4000 taps", for the number of channels that is known or a likely one. */
std::string asFloats (const ReceiverBlock& block)
{
    const auto floats = block.bytes.size() / 4;
    const std::uint32_t channels = block.channels > 0 ? block.channels
                                   : block.taps > 0 && floats % block.taps == 0 && floats > 0
                                       ? static_cast<std::uint32_t> (floats / block.taps)
                                       : 2;
    const auto size = std::to_string (block.bytes.size()) + " bytes ";

    if (block.bytes.size() % 4 != 0 || floats % channels != 0)
        return size + "are not floats for " + std::to_string (channels) + " channels";

    return size + "would be " + std::to_string (channels) + " channels of " + std::to_string (floats / channels)
           + " taps";
}

std::string dualRateName (const std::vector<std::uint8_t>& bytes)
{
    const auto generation = findVLFIRGeneration (bytes);

    for (const auto& entry : topologies())
        if (generation && entry.dualRate == generation)
            return entry.name;

    return "VLFIR or VLFIR2";
}

}

std::vector<std::uint8_t> readBlockFile (const std::filesystem::path& file)
{
    const auto bytes = readInput (file, kMaxBlobBytes);

    if (bytes.size() > kMaxBlobBytes)
        throw Failure (kExitInput, inputName (file) + " is larger than " + std::to_string (kMaxBlobBytes) + " bytes.");

    return { bytes.begin(), bytes.end() };
}

DeviceData deviceData (const ReceiverBlock& block, const std::filesystem::path& file)
{
    const auto* const entry = findTopology (juceText (block.topology));
    const auto refuse = [&] (const std::string& why) {
        return Failure (kExitInput,
                        inputName (file) + " is not the data of a structure " + block.topology + ": " + why + ".");
    };

    DeviceData data;
    data.topologyName = juceText (block.topology);
    data.sampleRate = block.sampleRate;
    data.channelCount = block.channels;
    data.bytes = block.bytes;

    if (entry->dualRate)
    {
        if (! hasDualRateMagic (block.bytes))
            throw refuse ("no dual-rate magic; " + asFloats (block));

        const auto contents = readVLFIRBlob (block.bytes, *entry->dualRate);

        if (! contents.problems.empty())
            throw refuse (contents.problems.front() + "; it looks like " + dualRateName (block.bytes));

        data.channelCount = contents.channelCount;
        data.sampleRate = contents.sampleRate;
        return data;
    }

    if (hasDualRateMagic (block.bytes))
        throw refuse ("it begins with the dual-rate magic; it is data of " + dualRateName (block.bytes));

    const auto floats = block.bytes.size() / 4;
    const auto others = 4 * std::uint64_t { entry->hasSections ? block.sections : 0 };

    if (data.channelCount == 0 && block.taps > 0)
        data.channelCount = static_cast<std::uint32_t> (floats / (block.taps + others));

    const auto each = data.channelCount == 0 ? 0 : floats / data.channelCount;
    const auto taps = block.taps > 0 ? std::uint64_t { block.taps } : each > others ? each - others : 0;

    if (data.channelCount == 0 || taps == 0 || data.channelCount * (taps + others) * 4 != block.bytes.size())
        throw refuse (data.channelCount == 0 && block.taps == 0
                          ? "give --channels; " + asFloats (block)
                          : asFloats (block) + (others > 0 ? " without sections" : ""));

    data.parameters.set ("NbrOfFIRTaps", juce::String (taps));
    data.parameters.set ("NbrOfIIRSections", juce::String (entry->hasSections ? block.sections : 0u));
    return data;
}

}
