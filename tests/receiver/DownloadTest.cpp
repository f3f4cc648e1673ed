// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/receiver/ModelHost.h"
#include "tests/support/Scratch.h"
#include "tools/receiver/device/SlotReport.h"

namespace veltra::receiver {
namespace {

class ReceiverDownload : public host::ScratchTest
{
protected:
    static std::string load (const std::string& filter)
    {
        return "LoadFilter deviceIndex: 0 slotIndex: 1 filter { " + filter + " }";
    }

    static std::string channel (int index, const std::string& gain_dB = "0")
    {
        return "FilterChannel channelIndex: " + std::to_string (index) + " name: 'C" + std::to_string (index)
               + "' gain_dB: " + gain_dB + " delay_ms: 0 maxGain_dB: 3.5 latency_ms: 0 noEq: false";
    }

    static std::string data (int rate, std::uint32_t bytes, const std::string& channels = "0, 1")
    {
        return "FilterData deviceIndex: 0 slotIndex: 1 sampleRate: " + std::to_string (rate) + " channelIndices: ["
               + channels + "] sizeBytes: " + std::to_string (bytes);
    }

    static std::string chunk (std::uint32_t offset, const std::string& bytes)
    {
        return "FilterDataChunk deviceIndex: 0 slotIndex: 1 dataOffset: " + std::to_string (offset) + " data: '" + bytes
               + "'";
    }

    /** Each of these messages is acknowledged. */
    static void expectOk (ModelHost& speaker, const std::vector<std::string>& messages)
    {
        for (const auto& message : messages)
            EXPECT_EQ ("ok", speaker.say (message)) << message;
    }

    Slot slot() const { return model.slots (0).at (1); }

    Slot completed;
    DeviceModel model { shippedProfile ("stereo"), {}, [this] (auto, auto, const Slot& complete) {
                           completed = complete;
                       } };
    ModelHost host { model };
    const std::vector<std::string> beginning { load ("name: 'A \"quote\"' noOfChannels: 2 totalNoOfBytes: 24"),
                                               channel (0, "-1.5"), channel (1) };
};

TEST_F (ReceiverDownload, FillsASlotByOffsetsWithRepeatsAndOverlapsAndIsWrittenToAFolder)
{
    expectOk (host, beginning);
    expectOk (host, { data (44100, 16), chunk (8, "ijkl"), chunk (14, "op"), chunk (0, "abcd"), chunk (0, "abcd") });
    EXPECT_EQ ("abcd", slot().blocks[0].bytes);
    expectOk (host, { chunk (2, "cdefghij") });
    EXPECT_EQ ("abcdefghijkl", slot().blocks[0].bytes);
    EXPECT_FALSE (slot().blocks[0].isComplete());
    expectOk (host, { chunk (11, "lmnop") });
    EXPECT_TRUE (slot().blocks[0].isComplete());
    EXPECT_EQ (Slot::State::loading, slot().state) << "8 of the filter's 24 bytes are missing";
    expectOk (host, { data (96000, 8, "1"), chunk (0, "12345678") });
    EXPECT_EQ (Slot::State::occupied, slot().state);
    const auto unit = host.say ("Request requestType: RequestType_kGetUnit deviceIndex: 0");
    EXPECT_NE (unit.npos, unit.find ("isOccupied: false\n  }\n  filterSlots {\n    name: \"A")) << unit;

    write ("slot1_48000.bin", "left by a download before");
    std::string error;
    EXPECT_TRUE (writeSlot (folder.path(), 0, 1, completed, error)) << error;
    EXPECT_EQ ("abcdefghijklmnop", read (path ("slot1_44100.bin")));
    EXPECT_EQ ("12345678", read (path ("slot1_96000.bin")));
    EXPECT_FALSE (std::filesystem::exists (path ("slot1_48000.bin")));
    EXPECT_EQ ("slot 1 name \"A ?quote?\" technology \"\" channels 2 rates 2 bytes 24 complete\n"
               "slot 1 rate 44100 channels 0,1 bytes 16 crc32 943ac093 complete\n"
               "slot 1 rate 96000 channels 1 bytes 8 crc32 9ae0daaf complete\n"
               "slot 1 channel 0 name \"C0\" gain_dB -1.5 delay_ms 0 maxGain_dB 3.5 latency_ms 0 noEq 0\n"
               "slot 1 channel 1 name \"C1\" gain_dB 0 delay_ms 0 maxGain_dB 3.5 latency_ms 0 noEq 0\n",
               read (path ("slot1.txt")));
    EXPECT_FALSE (writeSlot (path ("slot1.txt"), 0, 1, completed, error)) << "a file in place of the folder";
}

TEST_F (ReceiverDownload, RefusesEverythingThatIsOutOfOrder)
{
    const std::string umlauts = "\\303\\244\\303\\244\\303\\244\\303\\244\\303\\244\\303\\244\\303\\244\\303\\244";
    const std::pair<std::string, const char*> exchanges[] {
        { channel (0), "Filter channel before a filter was loaded" },
        { data (44100, 8), "Filter data before a filter was loaded" },
        { chunk (0, "a"), "Filter data chunk before a filter was loaded" },
        { "DownloadCancelled deviceIndex: 0 slotIndex: 0", "No download is under way" },
        { "RemoveFilter deviceIndex: 0 slotIndex: 2", "No filter slot 2, the device has 2" },
        { load ("name: '' noOfChannels: 0"), "Filter without channels" },
        { load ("name: '' noOfChannels: 3"), "Filter with 3 channels, the device has 2" },
        { load ("name: '" + std::string (33, 'x') + "' noOfChannels: 2"), "Filter name longer than 32 characters" },
        { load ("name: '' noOfChannels: 2 totalNoOfBytes: 300000000"),
          "Filter of 300000000 bytes, a slot holds 268435456" },
        { load ("name: '" + umlauts + umlauts + umlauts + umlauts + "' noOfChannels: 2 totalNoOfBytes: 24"), "ok" },
        { channel (2), "Filter channel 2 of a filter with 2 channels" },
        { channel (0, "inf"), "Filter channel 0 has a value that is not finite" },
        { channel (0), "ok" },
        { channel (0), "Filter channel 0 was described twice" },
        { data (44100, 8), "Filter data after 1 of 2 filter channels" },
        { channel (1), "ok" },
        { chunk (0, "a"), "Filter data chunk before any filter data was announced" },
        { data (88200, 8), "Filter data at 88200 Hz, which no configuration of the device offers" },
        { data (44100, 8, "0, 2"), "Filter data for channel 2, which the device does not have" },
        { data (44100, 28), "Filter data of 28 bytes at 44100 Hz exceeds the filter's total of 24 bytes" },
        { data (44100, 8), "ok" },
        { data (44100, 8), "Filter data at 44100 Hz was announced twice" },
        { data (48000, 8), "Filter data at 48000 Hz before that at 44100 Hz is complete" },
        { chunk (0, ""), "Filter data chunk without data" },
        { chunk (8, "a"), "Filter data chunk of 1 bytes at offset 8 lies outside the announced 8 bytes" },
        { chunk (4294967295, "ab"),
          "Filter data chunk of 2 bytes at offset 4294967295 lies outside the announced 8 bytes" },
        { "FilterDataChunk deviceIndex: 0 slotIndex: 0 dataOffset: 0",
          "Filter slot 0 was not opened by this download" },
        { chunk (0, "abcdefgh"), "ok" },
        { data (48000, 20), "Filter data of 20 bytes at 48000 Hz exceeds the filter's total of 24 bytes" },
    };

    for (const auto& [message, reply] : exchanges)
        EXPECT_EQ (reply, host.say (message)) << message;
}

TEST_F (ReceiverDownload, BelongsToItsSessionUntilItIsCancelledOrAnotherTakesTheSlot)
{
    ModelHost other (model, 2);
    expectOk (host, beginning);
    expectOk (other, beginning);
    EXPECT_EQ ("Filter slot 1 was not opened by this download", host.say (data (44100, 24)));
    expectOk (other, { data (44100, 24), chunk (0, std::string (24, 'x')) });
    EXPECT_EQ (Slot::State::occupied, slot().state);

    // Hosts send 0 for both numbers of a cancellation.
    expectOk (other, { "DownloadCancelled deviceIndex: 0 slotIndex: 0" });
    EXPECT_EQ (Slot::State::empty, slot().state);
    EXPECT_EQ ("Filter data chunk before a filter was loaded", other.say (chunk (0, "a")));

    expectOk (host, beginning);
    expectOk (host, { "RemoveFilter deviceIndex: 0 slotIndex: 1", "RemoveFilter deviceIndex: 0 slotIndex: 1" });
    EXPECT_EQ (Slot::State::empty, slot().state);
    EXPECT_EQ ("Filter slot 1 was not opened by this download", host.say (data (44100, 8)));
}

TEST_F (ReceiverDownload, MemoryGrowsWithTheBytesThatArriveAndGapsAreBounded)
{
    constexpr auto kSize = FilterMemory::kSlotBytes;
    expectOk (host, { load ("name: '' noOfChannels: 1"), channel (0), data (44100, kSize), chunk (kSize - 1, "z") });
    EXPECT_LT (slot().blocks[0].bytes.capacity(), 1000u);
    std::uint32_t offset = 1;

    while (offset < 5000 && host.say (chunk (offset, "a")) == "ok")
        offset += 2;

    EXPECT_EQ (2047u, offset) << "1024 gaps with the one before the end";
    expectOk (host, { chunk (2, "b") });
}

}
}
