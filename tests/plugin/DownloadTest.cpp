// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Downloads that arrive, and what they send.
*/

#include "tests/support/DeviceFixture.h"

#include <stdexcept>

#include "common/SettingKeys.h"
#include "tests/plugin/Wire.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Download : public DeviceFixture
{
protected:
    /** The sizes of all chunks that the receiver got. */
    std::vector<std::size_t> chunkSizes() const
    {
        std::vector<std::size_t> sizes;

        for (const auto& entry : receiver->messages ("FilterDataChunk"))
        {
            veltraio::FilterDataChunk chunk;
            EXPECT_TRUE (chunk.ParseFromString (entry.body));
            sizes.push_back (chunk.data (0).size());
        }

        return sizes;
    }

    bool slotIsFull() const { return receiver->slots()[2].state == receiver::Slot::State::occupied; }
};

}

/** The whole conversation, from the first request to the last chunk, worked out from the rules. */
TEST_F (Download, PutsExactlyTheseBytesOnTheWire)
{
    using namespace wire;

    auto& opened = open();
    ASSERT_EQ (download (opened), kResultOk);

    // A FIR device takes the first taps, with zeros where the response is shorter; a FIIR device takes taps and
    // sections as the description gives them.
    const auto fir = floats (
        { 1.0f, 0.5f, -0.25f, 0.125f, 2.0f, -1.0f, 0.75f, 0.1f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f });
    const auto fiir = floats ({ 0.9f,  0.8f,  0.7f,   0.6f,  0.5f,  0.4f,  0.3f, 0.2f, -1.5f, 0.6f, 0.01f,
                                0.02f, 0.25f, 0.125f, 1.0f,  -1.0f, 1.0f,  2.0f, 3.0f, 4.0f,  5.0f, 6.0f,
                                7.0f,  8.0f,  0.5f,   0.25f, -0.5f, 0.75f, 0.0f, 0.0f, 0.1f,  0.0f });
    const std::size_t total = fir.size() + fiir.size();
    std::string expected;

    for (const auto type : { 8u, 0u, 6u, 7u })
        expected += envelope ("Request", number (1, type) + number (2, 0));

    expected += envelope ("LoadFilter",
                          number (1, 0) + number (2, 2)
                              + bytes (3, bytes (1, "Room") + bytes (2, "FIIR") + number (3, 2) + number (4, total)));
    expected += envelope ("FilterChannel", number (1, 0) + bytes (2, "FL") + real (3, -1.5f) + real (4, 2.25f)
                                               + real (5, 3.0f) + real (6, 1.0f) + number (7, 0));
    expected += envelope ("FilterChannel", number (1, 1) + bytes (2, "SW") + real (3, 4.0f) + real (4, 0.0f)
                                               + real (5, 10.0f) + real (6, 0.0f) + number (7, 1));

    for (const auto& [rate, data] : { std::pair (44100u, fir), std::pair (48000u, fiir) })
    {
        expected += envelope ("FilterData", number (1, 0) + number (2, 2) + number (3, rate) + number (4, 0)
                                                + number (4, 1) + number (5, data.size()));

        for (std::size_t offset = 0; offset < data.size(); offset += total / 20)
            expected += envelope ("FilterDataChunk", number (1, 0) + number (2, 2) + number (3, offset)
                                                         + bytes (4, data.substr (offset, total / 20)));
    }

    EXPECT_EQ (receiver->bytes (1), expected);
    EXPECT_TRUE (slotIsFull());
}

TEST_F (Download, ReportsWhatItDoes)
{
    auto& opened = open();
    log.emplace();
    ASSERT_EQ (download (opened), kResultOk);
    EXPECT_EQ (progress.texts, (Lines { "#Preprocessing filters.../25", "/0" }));

    // 64 bytes in chunks of 9, then 128: the share of the bytes before each chunk.
    std::vector<float> expected;

    for (const auto& [start, size] : { std::pair (0, 64), std::pair (64, 128) })
        for (int offset = 0; offset < size; offset += 9)
            expected.push_back (static_cast<float> (start + offset) / 192.0f);

    EXPECT_EQ (progress.fractions, expected);
    EXPECT_EQ (
        logged(),
        (Lines {
            "TRACE Starting download to endpoint device",
            "INFO Sending FilterChannel idx 0, name 'FL', gain -1.5 dB (orig. -1.5 dB), max 3 dB, delay 2.25 ms, latency 1 ms, "
            "EQ YES",
            "INFO Sending FilterChannel idx 1, name 'SW', gain 4 dB (orig. 4 dB), max 10 dB, delay 0 ms, latency 0 ms, EQ NO",
            "TRACE Sending FilterData samplerate 44100 Hz, size 64 bytes",
            "TRACE Sending FilterData samplerate 48000 Hz, size 128 bytes" }));
}

TEST_F (Download, TheSetStaysInTheSlotUntilItIsRemovedAndTheOldestOneIsSent)
{
    auto& opened = open();
    ASSERT_EQ (opened.LoadFilterSet (2, description ("Older").text().c_str(), 0), kResultOk);
    const auto newer = DescriptionBuilder ("Newer").channel ("C", 3).fir (48000, { 1.0f }).text();
    EXPECT_EQ (opened.DownloadFilterSet (2, newer.c_str(), 0, nullptr), kResultOk) << "without a callback";
    EXPECT_EQ (receiver->slots()[2].name, "Older");
    EXPECT_EQ (download (opened), kResultChannelConflict);

    for (FilterSet* set = nullptr; opened.GetFilterSet (2, 0, &set);)
        ASSERT_TRUE (opened.RemoveFilterSet (set));

    EXPECT_EQ (download (opened), kResultOk);
}

/** Filters go to channels by their place, and only their names can show that this was not meant. */
TEST_F (Download, WarnsWhenAFilterHasTheNameOfAnotherChannel)
{
    const auto inOrder = [] (const std::string& first, const std::string& second) {
        DescriptionBuilder xml;

        for (const auto& [name, number] : { std::pair (first, 2), std::pair (second, 1) })
            xml.channel (name, number).fir (44100, { 1.0f }).fir (48000, { 1.0f });

        return xml.text();
    };

    auto& opened = open();
    EXPECT_EQ (download (opened, inOrder ("sw", "Left")), kResultOk);
    EXPECT_EQ (failuresLogged(), (Lines { "WARN Filter 'sw' goes to channel 0 'FL': filters go by their place in the "
                                          "description, not by name" }));
    log.emplace();
    EXPECT_EQ (download (opened, inOrder ("fl", "Subwoofer"), 0), kResultOk);
    EXPECT_TRUE (failuresLogged().empty()) << "by number it would be wrong, by place it is right";
}

TEST_F (Download, ChunksAdaptToTheMessageLimit)
{
    // An envelope has 24 bytes beside a chunk at offset 0, so at the limit of 948 one of 1024 is 100 bytes too long.
    // Later offsets take up to two bytes more.
    struct Row
    {
        std::uint32_t limit;
        std::size_t chunk;
    };

    useFirOnly (16);
    ASSERT_EQ (download (open()), kResultOk);
    EXPECT_EQ (chunkSizes(), (std::vector<std::size_t> { 16 })) << "a few bytes go in one chunk";

    for (const auto& row : { Row { 0, 1024 }, Row { 1050, 1024 }, Row { 948, 920 }, Row { 460, 432 } })
    {
        startAfresh();
        useFirOnly (40000);
        profile.protocolInfo.set_messagelimit (row.limit);
        ASSERT_EQ (download (open()), kResultOk);

        auto sizes = chunkSizes();
        EXPECT_EQ (sizes.back(), (40000 - 1) % row.chunk + 1);
        sizes.pop_back();
        EXPECT_EQ (sizes, std::vector<std::size_t> (39999 / row.chunk, row.chunk)) << row.limit;
        EXPECT_TRUE (failuresLogged().empty()) << "too long is no failure";
        EXPECT_TRUE (slotIsFull());
    }

    // The second rate profits from what the first one learned.
    startAfresh();
    profile = smallProfile();

    for (auto& topology : *profile.topologyInfo.mutable_topologies())
        topology.set_information ("NbrOfFIRTaps=2000;NbrOfIIRSections=2");

    profile.protocolInfo.set_messagelimit (300);
    ASSERT_EQ (download (open()), kResultOk);
    const auto sizes = chunkSizes();
    EXPECT_EQ (*std::max_element (sizes.begin(), sizes.end()), 272u);
}

TEST_F (Download, TheFirstStructureAndTheFirstConfigurationOfARateCountAndOneWithoutAStructureIsSkipped)
{
    auto& info = *profile.unit.mutable_devices (0);
    *info.add_configurations() = info.configurations (0);
    info.mutable_configurations (0)->set_channels (0, 1);
    info.mutable_configurations (0)->mutable_channels()->Truncate (1);
    *profile.topologyInfo.add_topologies() = profile.topologyInfo.topologies (0);
    profile.topologyInfo.mutable_topologies (2)->set_samplerate (48000);
    profile.topologyInfo.mutable_topologies (0)->set_samplerate (88200);

    ASSERT_EQ (download (open()), kResultOk);
    EXPECT_EQ (received<veltraio::FilterData>(),
               (Lines { "deviceIndex: 0 slotIndex: 2 sampleRate: 48000 channelIndices: 1 sizeBytes: 64" }));
}

TEST_F (Download, ALongNameIsCutByCharacters)
{
    std::string name;

    for (int i = 0; i < 32; ++i)
        name += "ü";

    auto& opened = open();
    ASSERT_EQ (download (opened, description (name).text(), 0), kResultOk);
    EXPECT_EQ (receiver->slots()[0].name, name);
    EXPECT_FALSE (log->contains ("INFO", "Truncating filter name to max 32 chars"));

    ASSERT_EQ (download (opened, description (name + "x").text()), kResultOk);
    EXPECT_EQ (receiver->slots()[2].name, name);
    EXPECT_EQ (log->count ("INFO", "Truncating filter name to max 32 chars"), 1);
}

TEST_F (Download, GainsAreCompensatedWhenTheSettingSaysSo)
{
    // The gains of a channel with and one without EQ; -1.5 and 4 in the description, whose greatest filter gain is 10.
    struct Row
    {
        const char* limits;
        float withEq, withoutEq;
    };

    for (const auto& row :
         { Row { "-3;6", 4.5f, 0.0f }, Row { "0;20", 8.5f, 4.0f }, Row { "0;-2", -3.5f, -8.0f },
           Row { "6", -1.5f, 4.0f }, Row { "1;2;3", -1.5f, 4.0f }, Row { "", -1.5f, 4.0f },
           Row { "0;loud", -1.5f, -6.0f }, Row { "0;nan", -1.5f, -6.0f }, Row { "0;6,5", 4.5f, 0.0f } })
    {
        startAfresh();
        settings[keys::kNoEqCompensateLimits] = row.limits;
        ASSERT_EQ (download (open()), kResultOk);
        EXPECT_EQ (
            log->contains ("INFO", "Setting NoEqCompensateLimits is '0;nan', of which the second number counts as 0"),
            row.limits == std::string ("0;nan"));
        EXPECT_EQ (receiver->slots()[2].channels[0].gain_db(), row.withEq) << row.limits;
        EXPECT_EQ (receiver->slots()[2].channels[1].gain_db(), row.withoutEq) << row.limits;
    }

    // The field's presence decides over the gain, its value over what is sent.
    startAfresh();
    settings[keys::kNoEqCompensateLimits] = "-3;6";
    profile.unit.mutable_devices (0)->mutable_outputchannels (1)->set_noeq (false);
    ASSERT_EQ (download (open()), kResultOk);
    EXPECT_TRUE (
        log->contains ("INFO", "Sending FilterChannel idx 1, name 'SW', gain 0 dB (orig. 4 dB), max 10 dB, delay 0 ms, "
                               "latency 0 ms, EQ YES"));

    // More filters than the device has channels: the surplus ones count as channels without the field.
    startAfresh();
    profile.unit.mutable_devices (0)->mutable_outputchannels()->DeleteSubrange (1, 1);
    profile.unit.mutable_devices (0)->mutable_configurations (0)->mutable_channels()->Truncate (1);
    setFaults ("answer LoadFilter * Acknowledge 'ok: true'\nanswer FilterChannel * Acknowledge 'ok: true'");
    EXPECT_EQ (download (open()), kResultFailed);
    EXPECT_EQ (received<veltraio::FilterChannel>().back(),
               "channelIndex: 1 name: \"SW\" gain_dB: 10 delay_ms: 0 maxGain_dB: 10 latency_ms: 0 noEq: false");
}

TEST_F (Download, CancellingTakesEffectAtTheEndOfTheRate)
{
    int calls = 0;
    progress.onProgress = [&calls] { return ++calls != 3; }; // one request to cancel is enough
    EXPECT_EQ (download (open()), kResultOk);
    EXPECT_EQ (progress.fractions.size(), 8u) << "all chunks of the first rate, reported one by one";
    EXPECT_EQ (receiver->messageCount ("FilterData"), 1u);
    EXPECT_EQ (received<veltraio::DownloadCancelled>(), (Lines { "deviceIndex: 0 slotIndex: 0" }));
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::empty);
    EXPECT_EQ (setsIn (device (0), 2), 1u) << "the set stays";

    startAfresh();
    progress.onProgress = []() -> bool { throw std::runtime_error ("the window is gone"); };
    setFaults ("refuse DownloadCancelled * 'too late'");
    EXPECT_EQ (download (open()), kResultOk) << "a refused cancellation is no failure";
    EXPECT_EQ (receiver->messageCount ("DownloadCancelled"), 1u) << "an exception cancels";
    EXPECT_EQ (takeLastError (device (0)), "");
}

}
