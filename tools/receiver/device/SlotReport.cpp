// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/SlotReport.h"

#include <charconv>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "tools/output/OutputFile.h"

namespace veltra::receiver {

namespace {

std::string inQuotes (std::string_view text)
{
    std::string result ("\"");

    for (const char c : text)
        result += (c == '"' || c == '\\' || (static_cast<unsigned char> (c) < 0x20) || c == 0x7F) ? '?' : c;

    return result + '"';
}

/** The shortest text that reads back as the same number, whatever the locale. */
std::string number (float value)
{
    char text[32];
    const auto [end, error] = std::to_chars (text, text + sizeof (text), value);
    return { text, error == std::errc {} ? end : text };
}

std::string slotName (std::uint32_t device, std::uint32_t slotIndex)
{
    return (device == 0 ? "" : "device " + std::to_string (device) + " ") + "slot " + std::to_string (slotIndex);
}

std::string fileName (std::uint32_t device, std::uint32_t slotIndex)
{
    return (device == 0 ? "" : "device" + std::to_string (device) + "_") + "slot" + std::to_string (slotIndex);
}

std::string describeBlock (const SlotBlock& block)
{
    std::ostringstream line;
    line << " rate " << block.sampleRate << " channels ";

    for (std::size_t i = 0; i < block.channelIndices.size(); ++i)
        line << (i == 0 ? "" : ",") << block.channelIndices[i];

    line << " bytes " << block.bytes.size() << " crc32 " << std::hex << std::setw (8) << std::setfill ('0')
         << block.checksum() << (block.isComplete() ? " complete" : " incomplete");
    return line.str();
}

std::string describeChannel (const veltraio::FilterChannel& channel)
{
    return " channel " + std::to_string (channel.channelindex()) + " name " + inQuotes (channel.name()) + " gain_dB "
           + number (channel.gain_db()) + " delay_ms " + number (channel.delay_ms()) + " maxGain_dB "
           + number (channel.maxgain_db()) + " latency_ms " + number (channel.latency_ms()) + " noEq "
           + (channel.noeq() ? "1" : "0");
}

}

std::vector<std::string> describeSlot (std::uint32_t device, std::uint32_t slotIndex, const Slot& slot)
{
    if (slot.state == Slot::State::empty)
        return {};

    std::size_t bytes = 0;

    for (const auto& block : slot.blocks)
        bytes += block.bytes.size();

    const auto name = slotName (device, slotIndex);
    std::vector<std::string> lines { name + " name " + inQuotes (slot.name) + " technology "
                                     + inQuotes (slot.technology) + " channels " + std::to_string (slot.channelCount)
                                     + " rates " + std::to_string (slot.blocks.size()) + " bytes "
                                     + std::to_string (bytes)
                                     + (slot.state == Slot::State::occupied ? " complete" : " incomplete") };

    for (const auto& block : slot.blocks)
        lines.push_back (name + describeBlock (block));

    return lines;
}

Json slotObject (std::uint32_t device, std::uint32_t slotIndex, const Slot& slot)
{
    auto blocks = Json::array();
    std::size_t bytes = 0;

    for (const auto& block : slot.blocks)
    {
        char checksum[16];
        std::snprintf (checksum, sizeof (checksum), "%08x", block.checksum());
        bytes += block.bytes.size();
        blocks.push_back ({ { "sample_rate_Hz", block.sampleRate },
                            { "channels", block.channelIndices },
                            { "bytes", block.bytes.size() },
                            { "crc32", checksum },
                            { "complete", block.isComplete() } });
    }

    return { { "device", device },
             { "slot", slotIndex },
             { "name", slot.name },
             { "technology", slot.technology },
             { "channels", slot.channelCount },
             { "bytes", bytes },
             { "complete", slot.state == Slot::State::occupied },
             { "blocks", std::move (blocks) } };
}

bool writeSlot (const std::filesystem::path& folder, std::uint32_t device, std::uint32_t slotIndex, const Slot& slot,
                std::string& error)
try
{
    const auto name = fileName (device, slotIndex);
    const auto removeFiles = [&] {
        std::filesystem::remove (folder / (name + ".txt"));

        for (const auto& entry : std::filesystem::directory_iterator (folder))
            if (const auto file = entry.path().filename().string();
                file.starts_with (name + "_") && file.ends_with (".bin"))
                std::filesystem::remove (entry.path());
    };

    removeFiles(); // of the slot's earlier contents

    const auto write = [&] (const std::string& file, const std::string& content) {
        OutputFile output (folder / file);
        output.stream() << content;
        output.complete();
    };
    std::string text;

    for (const auto& line : describeSlot (device, slotIndex, slot))
        text += line + '\n';

    for (const auto& channel : slot.channels)
        text += slotName (device, slotIndex) + describeChannel (channel) + '\n';

    try
    {
        for (const auto& block : slot.blocks)
            write (name + "_" + std::to_string (block.sampleRate) + ".bin", block.bytes);

        write (name + ".txt", text);
    }
    catch (const Failure&)
    {
        removeFiles(); // a part of a slot would pass for all of it
        throw;
    }

    return true;
}
catch (const std::exception& failure)
{
    error = failure.what();
    return false;
}

}
