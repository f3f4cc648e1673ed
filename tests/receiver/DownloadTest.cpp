// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/receiver/ModelHost.h"
#include "tests/support/Scratch.h"
#include "tools/receiver/device/SlotReport.h"

namespace veltra::receiver {
namespace {

const std::string kSlot = " deviceIndex: 0 slotIndex: 1 ";
const std::string kLoad = "LoadFilter" + kSlot + "filter { name: 'A \"quote\"' noOfChannels: ";
const std::string kChannel =
    "FilterChannel delay_ms: 0 maxGain_dB: 3.5 latency_ms: 0 noEq: false name: 'C' channelIndex: ";
const std::string kData = "FilterData" + kSlot + "channelIndices: [0, 1] sampleRate: ";
const std::string kChunk = "FilterDataChunk" + kSlot + "dataOffset: ";

class ReceiverDownload : public host::ScratchTest
{
protected:
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
    const std::vector<std::string> beginning { kLoad + "2 totalNoOfBytes: 24 }", kChannel + "0 gain_dB: -1.5",
                                               kChannel + "1 gain_dB: 0" };
};

TEST_F (ReceiverDownload, FillsASlotByOffsetsWithRepeatsAndOverlapsAndIsWrittenToAFolder)
{
    expectOk (host, beginning);
    expectOk (host, { kData + "44100 sizeBytes: 16", kChunk + "8 data: 'ijkl'", kChunk + "14 data: 'op'",
                      kChunk + "0 data: 'abcd'", kChunk + "0 data: 'abcd'" });
    EXPECT_EQ ("abcd", slot().blocks[0].bytes);
    expectOk (host, { kChunk + "2 data: 'cdefghij'" });
    EXPECT_EQ ("abcdefghijkl", slot().blocks[0].bytes);
    EXPECT_FALSE (slot().blocks[0].isComplete());
    expectOk (host, { kChunk + "11 data: 'lmnop'" });
    EXPECT_TRUE (slot().blocks[0].isComplete());
    EXPECT_EQ (Slot::State::loading, slot().state) << "8 of the filter's 24 bytes are missing";
    expectOk (host, { kData + "96000 sizeBytes: 8", kChunk + "0 data: '12345678'" });
    EXPECT_EQ (Slot::State::occupied, slot().state);

    write ("slot1_48000.bin", "left by a download before");
    std::string error;
    EXPECT_TRUE (writeSlot (folder.path(), 0, 1, completed, error)) << error;
    EXPECT_EQ ("abcdefghijklmnop", read (path ("slot1_44100.bin")));
    EXPECT_FALSE (std::filesystem::exists (path ("slot1_48000.bin")));
    EXPECT_EQ ("slot 1 name \"A ?quote?\" technology \"\" channels 2 rates 2 bytes 24 complete\n"
               "slot 1 rate 44100 channels 0,1 bytes 16 crc32 943ac093 complete\n"
               "slot 1 rate 96000 channels 0,1 bytes 8 crc32 9ae0daaf complete\n"
               "slot 1 channel 0 name \"C\" gain_dB -1.5 delay_ms 0 maxGain_dB 3.5 latency_ms 0 noEq 0\n"
               "slot 1 channel 1 name \"C\" gain_dB 0 delay_ms 0 maxGain_dB 3.5 latency_ms 0 noEq 0\n",
               read (path ("slot1.txt")));
    EXPECT_FALSE (writeSlot (path ("slot1.txt"), 0, 1, completed, error));
}

TEST_F (ReceiverDownload, RefusesEverythingThatIsOutOfOrder)
{
    const std::pair<std::string, const char*> exchanges[] {
        { kChannel + "0 gain_dB: 0", "Filter channel before a filter was loaded" },
        { kData + "44100 sizeBytes: 8", "Filter data before a filter was loaded" },
        { "DownloadCancelled deviceIndex: 0 slotIndex: 0", "No download is under way" },
        { kChunk + "0 data: 'a'", "Filter data chunk before a filter was loaded" },
        { "LoadFilter deviceIndex: 0 slotIndex: 99 filter { name: 'A' noOfChannels: 1 }",
          "No filter slot 99, the device has 2" },
        { "LoadFilter" + kSlot + "filter { noOfChannels: 1 name: '"
              + std::string (FilterMemory::kMaxNameLength + 1, 'n') + "' }",
          "Filter name longer than 32 characters" },
        { kLoad + "0 }", "Filter without channels" },
        { kLoad + "3 }", "Filter with 3 channels, the device has 2" },
        { kLoad + "2 totalNoOfBytes: 300000000 }", "Filter of 300000000 bytes, a slot holds 268435456" },
        { kLoad + "2 totalNoOfBytes: 24 }", "ok" },
        { kChannel + "0 gain_dB: inf", "Filter channel 0 has a value that is not finite" },
        { kChannel + "0 gain_dB: 0", "ok" },
        { kChannel + "0 gain_dB: 0", "Filter channel 0 was described twice" },
        { kChannel + "2 gain_dB: 0", "Filter channel 2 of a filter with 2 channels" },
        { kData + "44100 sizeBytes: 8", "Filter data after 1 of 2 filter channels" },
        { kChannel + "1 gain_dB: 0", "ok" },
        { kChunk + "0 data: 'a'", "Filter data chunk before any filter data was announced" },
        { kData + "88200 sizeBytes: 8", "Filter data at 88200 Hz, which no configuration of the device offers" },
        { kData + "44100 sizeBytes: 8 channelIndices: 2", "Filter data for channel 2, which the device does not have" },
        { kData + "44100 sizeBytes: 8", "ok" },
        { kData + "44100 sizeBytes: 8", "Filter data at 44100 Hz was announced twice" },
        { kChunk + "0 data: ''", "Filter data chunk without data" },
        { kChunk + "0 data: 'a' data: 'b'", "Filter data chunk with 2 pieces of data" },
        { kData + "48000 sizeBytes: 8", "Filter data at 48000 Hz before that at 44100 Hz is complete" },
        { kChunk + "4294967295 data: 'ab'",
          "Filter data chunk of 2 bytes at offset 4294967295 lies outside the announced 8 bytes" },
        { "FilterDataChunk deviceIndex: 0 slotIndex: 0 dataOffset: 0",
          "Filter slot 0 was not opened by this download" },
        { kChunk + "0 data: 'abcdefgh'", "ok" },
        { kData + "48000 sizeBytes: 20", "Filter data of 20 bytes at 48000 Hz exceeds the filter's total of 24 bytes" },
    };

    for (const auto& [message, reply] : exchanges)
        EXPECT_EQ (reply, host.say (message)) << message;
}

TEST_F (ReceiverDownload, BelongsToItsSessionUntilItIsCancelledOrAnotherTakesTheSlot)
{
    ModelHost other (model, 2);
    expectOk (host, beginning);
    expectOk (other, beginning);
    EXPECT_EQ ("Filter slot 1 was not opened by this download", host.say (kData + "44100 sizeBytes: 24"));
    expectOk (other, { kData + "44100 sizeBytes: 24", kChunk + "0 data: '" + std::string (24, 'x') + "'" });
    EXPECT_EQ (Slot::State::occupied, slot().state);
    expectOk (other, { "DownloadCancelled deviceIndex: 0 slotIndex: 0" }); // hosts send 0 for both
    EXPECT_EQ (Slot::State::empty, slot().state);
}

TEST_F (ReceiverDownload, MemoryGrowsWithTheBytesThatArriveAndGapsAreBounded)
{
    constexpr auto kSize = FilterMemory::kSlotBytes;
    const auto size = std::to_string (kSize), last = std::to_string (kSize - 1);
    expectOk (host, { kLoad + "1 }", kChannel + "0 gain_dB: 0", kData + "44100 sizeBytes: " + size,
                      kChunk + last + " data: 'z'" });
    EXPECT_LT (slot().blocks[0].bytes.capacity(), 1000u);
    std::uint32_t offset = 1;

    while (offset < 5000 && host.say (kChunk + std::to_string (offset) + " data: 'a'") == "ok")
        offset += 2;

    EXPECT_EQ (2047u, offset) << "1024 gaps with the one before the end";
    expectOk (host, { kChunk + "2 data: 'b'" });
}

}
}
