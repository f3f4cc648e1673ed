// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Writes the seeds that are no text, for the targets envelope and messages:

        fuzz_seeds fuzz/corpus
*/

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "protocol/Envelope.h"
#include "protocol/veltraio.pb.h"
#include "tools/receiver/device/ProtoText.h"

namespace {

using namespace veltraio;

std::filesystem::path corpus;

void write (const std::string& name, const std::string& bytes)
{
    std::filesystem::create_directories ((corpus / name).parent_path());
    std::ofstream (corpus / name, std::ios::binary) << bytes;
}

template <class Message>
Message make (const char* text)
{
    Message message;
    std::string error;

    if (! veltra::receiver::readText (text, message, error))
    {
        std::cerr << message.GetTypeName() << ": " << error << '\n';
        std::exit (EXIT_FAILURE);
    }

    return message;
}

template <class Message>
std::string envelope (const Message& message)
{
    juce::MemoryOutputStream stream;
    const juce::MemoryBlock marker (kDefaultEnvelopeMarker.data(), kDefaultEnvelopeMarker.size());
    putEnvelope (stream, marker, IdType<Message>::value, message);
    return { static_cast<const char*> (stream.getData()), stream.getDataSize() };
}

/** One message for both targets; the kind is its place in the table of MessagesFuzz.cpp. */
template <class Message>
std::string seed (const char* name, char kind, const char* text)
{
    const auto message = make<Message> (text);
    write (std::string ("messages/") + name, kind + message.SerializeAsString());
    const auto bytes = envelope (message);
    write (std::string ("envelope/") + name, '\xff' + bytes);
    return bytes;
}

}

int main (int argc, char** argv)
{
    if (argc != 2)
        return EXIT_FAILURE;

    corpus = argv[1];

    seed<ProtocolInfo> ("protocol_info", 0, "versionInfo: 8 messageLimit: 1400");
    const auto unit = seed<Unit> ("unit", 1, R"(
        manufacturer: "Morvane" name: "Stereo 2" serialNumber: "MV2-000117" capabilities: 10 maxChannelAttenuation_dB: 12
        devices {
          name: "Main"
          configurations { name: "2.0" sampleRates: [44100, 48000] channels: [0, 1] defaultSampleRate: 48000 }
          filterSlots { isOccupied: false }
          filterSlots { name: "Cinema" isOccupied: true }
          outputChannels { name: "FL" type: Type_kLarge channelIndex: 0 xoverFrequency_Hz: 80 }
          outputChannels { name: "SW" type: Type_kSubWoofer channelIndex: 1 noEq: true }
        })");
    const auto topologies = seed<TopologyInfo> ("topology_info", 2, R"(
        topologies { name: "FIR" sampleRate: 44100 information: "NbrOfFIRTaps=8" }
        topologies { name: "FIIR" sampleRate: 48000 information: "NbrOfFIRTaps=8;NbrOfIIRSections=2" })");
    seed<StimulusInfo> ("stimulus_info", 3, R"(
        stimulusInformation { stimulus: Stimulus_kNoise sampleRate: 48000 information: "Seconds=1;Level_dBFS=-20" }
        stimulusLatencyMilliseconds: 21)");
    const auto volume = seed<Volume> ("volume", 4, "deviceIndex: 0 volume: 35.5 description: '-34.5 dB'");
    seed<ChannelAttenuation> ("channel_attenuation", 5, "deviceIndex: 0 channel: 1 attenuation: 0.25");
    seed<ActiveFilterSlot> ("active_filter_slot", 6, "deviceIndex: 0 slotIndex: 2");
    seed<StimulusState> ("stimulus_state", 7, "isPlaying: true progress: 0.5");
    seed<FilteringState> ("filtering_state", 8, "deviceIndex: 0 isFiltering: true");
    const auto refusal = seed<Acknowledge> ("refusal", 9, "ok: false errorMessage: 'The slot is in use'");
    seed<AudioData> ("audio_data", 10, "packetNumber: 7 data: [0.5, -0.25, 1e-30, 0]");
    const auto pong = seed<Pong> ("pong", 11, "");

    // Text that is none, a body that ends too early, and an empty one.
    write ("messages/refusal_bad_utf8", std::string ("\x09\x08\x00\x12\x04"
                                                     "a\xe2\x82"
                                                     "\0",
                                                     9));
    write ("messages/unit_cut",
           '\x01'
               + make<Unit> (
                     "manufacturer: 'M' name: 'N' capabilities: 8 maxChannelAttenuation_dB: 12 devices { name: 'D' }")
                     .SerializeAsString()
                     .substr (0, 17));
    write ("messages/unit_empty", "\x01");

    // Streams: several in one, in single bytes, noise in front, a marker that begins twice, a length beyond the
    // buffer, a wrong checksum.
    auto wrong = volume;
    wrong[11] ^= 1;
    write ("envelope/stream", '\x07' + unit + topologies + refusal + pong + volume);
    write ("envelope/single_bytes", '\x00' + refusal + pong);
    write ("envelope/noise", "\x0f"
                             "GET / HTTP/1.1\r\n!!"
                                 + pong + "!" + refusal);
    write ("envelope/too_long", std::string ("\xff!\x01\xff\x00\x00\x7f\xf1", 8) + volume);
    write ("envelope/longest_length", std::string ("\xff!\x01\xff\xff\xff\xff\xff", 8) + volume);
    write ("envelope/wrong_checksum", '\xff' + wrong + refusal);
    return EXIT_SUCCESS;
}
