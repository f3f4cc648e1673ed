// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>
#include <zlib.h>

#include "tests/receiver/Sender.h"
#include "tests/support/Scratch.h"
#include "tools/receiver/device/SlotReport.h"
#include "tools/receiver/network/Receiver.h"

namespace veltra::receiver {
namespace {

using namespace veltraio;

class ReceiverDownload : public ::testing::Test
{
protected:
    Slot slot() const { return receiver.slots().at (1); }

    Receiver receiver { shippedProfile ("stereo") };
    Sender sender { receiver.port(), 1 };
};

TEST_F (ReceiverDownload, FillsASlotByOffsetsWithRepeatsAndOverlaps)
{
    sender.begin();
    EXPECT_EQ (sender.data (44100, 16), "ok");
    EXPECT_EQ (sender.chunk (8, "ijklmnop"), "ok");
    EXPECT_EQ (sender.chunk (0, "abcd"), "ok");
    EXPECT_EQ (sender.chunk (0, "abcd"), "ok");
    EXPECT_FALSE (slot().blocks[0].isComplete());
    EXPECT_EQ (sender.chunk (2, "cdefghij"), "ok");
    EXPECT_TRUE (slot().blocks[0].isComplete());
    EXPECT_EQ (slot().state, Slot::State::loading);

    EXPECT_EQ (sender.data (96000, 8, { 1 }), "ok");
    EXPECT_EQ (sender.chunk (0, "12345678"), "ok");
    const auto filled = slot();
    EXPECT_EQ (filled.state, Slot::State::occupied);
    ASSERT_EQ (filled.blocks.size(), 2u);
    EXPECT_EQ (filled.blocks[0].bytes, "abcdefghijklmnop");
    EXPECT_EQ (filled.blocks[0].checksum(), crc32 (0, reinterpret_cast<const Bytef*> ("abcdefghijklmnop"), 16));
    EXPECT_EQ (filled.blocks[1].channelIndices, std::vector<std::uint32_t> { 1 });
    EXPECT_EQ (filled.channels[1].maxgain_db(), 3.5f);

    Request request;
    request.set_requesttype (Request::RequestType_kGetUnit);
    request.set_deviceindex (0);
    sender.host.send (request);
    const auto unit = sender.host.receiveA<Unit>();
    EXPECT_TRUE (unit->devices (0).filterslots (1).isoccupied());
    EXPECT_EQ (unit->devices (0).filterslots (1).name(), "Mine");
    EXPECT_FALSE (unit->devices (0).filterslots (0).isoccupied());
}

TEST_F (ReceiverDownload, RefusesEverythingThatIsOutOfOrder)
{
    EXPECT_EQ (sender.channel (0), "Filter channel before a filter was loaded");
    EXPECT_EQ (sender.data (44100, 8), "Filter data before a filter was loaded");
    EXPECT_EQ (sender.chunk (0, "abcd"), "Filter data chunk before a filter was loaded");
    EXPECT_EQ (sender.cancel(), "No download is under way");

    sender.slot = 2;
    EXPECT_EQ (sender.load(), "No filter slot 2, the device has 2");
    EXPECT_EQ (sender.remove(), "No filter slot 2, the device has 2");
    sender.slot = 1;
    EXPECT_EQ (sender.load (0), "Filter without channels");
    EXPECT_EQ (sender.load (3), "Filter with 3 channels, the device has 2");
    EXPECT_EQ (sender.load (2, 24, std::string (33, 'x')), "Filter name longer than 32 characters");
    EXPECT_EQ (sender.load (2, 0xFFFFFFFF), "Filter of 4294967295 bytes, a slot holds 268435456");

    std::string umlauts;

    for (int i = 0; i < 32; ++i)
        umlauts += "\xC3\xA4";

    EXPECT_EQ (sender.load (2, 24, umlauts), "ok");
    EXPECT_EQ (sender.channel (2), "Filter channel 2 of a filter with 2 channels");
    EXPECT_EQ (sender.channel (0, std::numeric_limits<float>::infinity()),
               "Filter channel 0 has a value that is no number");
    EXPECT_EQ (sender.channel (0), "ok");
    EXPECT_EQ (sender.channel (0), "Filter channel 0 was described twice");
    EXPECT_EQ (sender.data (44100, 8), "Filter data after 1 of 2 filter channels");
    EXPECT_EQ (sender.channel (1), "ok");

    EXPECT_EQ (sender.chunk (0, "abcd"), "Filter data chunk before any filter data was announced");
    EXPECT_EQ (sender.data (88200, 8), "Filter data at 88200 Hz, which no configuration of the device offers");
    EXPECT_EQ (sender.data (44100, 8, { 0, 2 }), "Filter data for channel 2, which the device does not have");
    EXPECT_EQ (sender.data (44100, 28), "Filter data of 28 bytes at 44100 Hz exceeds the filter's total of 24 bytes");
    EXPECT_EQ (sender.data (44100, 8), "ok");
    EXPECT_EQ (sender.data (44100, 8), "Filter data at 44100 Hz was announced twice");
    EXPECT_EQ (sender.data (48000, 8), "Filter data at 48000 Hz before that at 44100 Hz is complete");

    EXPECT_EQ (sender.chunk (0, ""), "Filter data chunk without data");
    EXPECT_EQ (sender.chunk (8, "a"), "Filter data chunk of 1 bytes at offset 8 lies outside the announced 8 bytes");
    EXPECT_EQ (sender.chunk (0xFFFFFFFF, "abcd"),
               "Filter data chunk of 4 bytes at offset 4294967295 lies outside the announced 8 bytes");
    sender.slot = 0;
    EXPECT_EQ (sender.chunk (0, "abcd"), "Filter slot 0 was not opened by this download");
    sender.slot = 1;
    EXPECT_EQ (sender.chunk (0, "abcdefgh"), "ok");
    EXPECT_EQ (sender.data (48000, 20), "Filter data of 20 bytes at 48000 Hz exceeds the filter's total of 24 bytes");
}

TEST_F (ReceiverDownload, BelongsToItsSessionUntilAnotherTakesTheSlot)
{
    sender.begin();
    Sender other (receiver.port(), 1);
    EXPECT_EQ (other.data (44100, 8), "Filter data before a filter was loaded");
    other.begin();
    EXPECT_EQ (sender.data (44100, 24), "Filter slot 1 was not opened by this download");
    EXPECT_EQ (other.data (44100, 24), "ok");
    EXPECT_EQ (other.chunk (0, std::string (24, 'x')), "ok");
    EXPECT_EQ (slot().state, Slot::State::occupied);
}

TEST_F (ReceiverDownload, IsCancelledWhateverNumbersTheHostGivesAndASlotCanBeEmptied)
{
    sender.begin();
    EXPECT_EQ (sender.data (44100, 24), "ok");
    EXPECT_EQ (sender.chunk (0, std::string (24, 'x')), "ok");
    sender.slot = 0;
    EXPECT_EQ (sender.cancel(), "ok");
    sender.slot = 1;
    EXPECT_EQ (slot().state, Slot::State::empty);
    EXPECT_EQ (sender.chunk (0, "abcd"), "Filter data chunk before a filter was loaded");

    sender.begin();
    EXPECT_EQ (sender.remove(), "ok");
    EXPECT_EQ (sender.remove(), "ok");
    EXPECT_EQ (slot().state, Slot::State::empty);
    EXPECT_EQ (sender.data (44100, 8), "Filter slot 1 was not opened by this download");
}

TEST_F (ReceiverDownload, BoundsTheGapsThatAPeerCanMake)
{
    EXPECT_EQ (sender.load (1, 100000), "ok");
    EXPECT_EQ (sender.channel (0), "ok");
    EXPECT_EQ (sender.data (44100, 100000), "ok");
    std::uint32_t offset = 0;

    while (offset < 5000 && sender.chunk (offset, "a") == "ok")
        offset += 2;

    EXPECT_EQ (offset, 2048u);
    EXPECT_EQ (sender.chunk (1, "b"), "ok");
}

using ReceiverFolder = host::ScratchTest;

TEST_F (ReceiverFolder, HoldsTheBytesOfEachRateAndAManifest)
{
    write ("slot1_48000.bin", "left by a download before");
    std::vector<std::string> told;
    Receiver::Options options;
    options.folder = folder.path();
    options.onDownload = [&] (auto device, auto slotIndex, const Slot& slot) {
        told = describeSlot (device, slotIndex, slot);
    };
    Receiver receiver (shippedProfile ("stereo"), options);
    Sender sender (receiver.port(), 1);
    sender.load (2, 24, "A \"quote\"\n");
    sender.channel (0, -1.5f);
    sender.channel (1);
    sender.data (44100, 24);
    EXPECT_EQ (sender.chunk (0, "abcdefghijklmnopqrstuvwx"), "ok");

    const auto manifest = read (path ("slot1.txt"));
    EXPECT_EQ (read (path ("slot1_44100.bin")), "abcdefghijklmnopqrstuvwx");
    EXPECT_EQ (manifest, "slot 1 name \"A ?quote??\" technology \"\" channels 2 rates 1 bytes 24 complete\n"
                         "slot 1 rate 44100 channels 0,1 bytes 24 crc32 21836df4 complete\n"
                         "slot 1 channel 0 name \"FL\" gain_dB -1.5 delay_ms 0 maxGain_dB 3.5 latency_ms 0 noEq 0\n"
                         "slot 1 channel 1 name \"FR\" gain_dB 0 delay_ms 0 maxGain_dB 3.5 latency_ms 0 noEq 0\n");
    ASSERT_EQ (told.size(), 2u);
    EXPECT_TRUE (manifest.starts_with (told[0] + "\n" + told[1] + "\n"));
    EXPECT_FALSE (std::filesystem::exists (path ("slot1_48000.bin")));
}

}
}
