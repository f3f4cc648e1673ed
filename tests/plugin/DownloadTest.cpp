/** @file
    Downloads that arrive, and what they send.
*/

#include "tests/plugin/DownloadFixture.h"

#include <numeric>
#include <stdexcept>

#include "tests/plugin/Wire.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Download : public DownloadFixture
{
};

std::string utf8Repeated (const std::string& character, int count)
{
    std::string text;

    for (int i = 0; i < count; ++i)
        text += character;

    return text;
}

}

/** The whole conversation, from the first request to the last chunk, worked out from the rules. */
TEST_F (Download, PutsExactlyTheseBytesOnTheWire)
{
    using namespace wire;

    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);

    std::string expected;

    for (const auto type : { 8u, 0u, 6u, 7u })
        expected += envelope ("Request", number (1, type) + number (2, 0));

    expected += envelope ("LoadFilter", number (1, 0) + number (2, 2)
        + bytes (3, bytes (1, "Room") + bytes (2, "FIIR") + number (3, 2) + number (4, firBytes + fiirBytes)));
    expected += envelope ("FilterChannel", number (1, 0) + bytes (2, "FL") + real (3, -1.5f) + real (4, 2.25f) + real (5, 3.0f)
        + real (6, 1.0f) + number (7, 0));
    expected += envelope ("FilterChannel", number (1, 1) + bytes (2, "SW") + real (3, 4.0f) + real (4, 0.0f) + real (5, 10.0f)
        + real (6, 0.0f) + number (7, 1));

    std::string fir, fiir;

    // A FIR device takes the first taps, with zeros where the response is shorter.
    for (const float tap : { 1.0f, 0.5f, -0.25f, 0.125f, 2.0f, -1.0f, 0.75f, 0.1f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f })
        fir += littleEndian (tap);

    // A FIIR device takes taps and sections as they stand in the description.
    for (const float value : { 0.9f, 0.8f, 0.7f, 0.6f, 0.5f, 0.4f, 0.3f, 0.2f, -1.5f, 0.6f, 0.01f, 0.02f, 0.25f, 0.125f, 1.0f, -1.0f,
                               1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f, 8.0f, 0.5f, 0.25f, -0.5f, 0.75f, 0.0f, 0.0f, 0.1f, 0.0f })
        fiir += littleEndian (value);

    const std::size_t chunk = (fir.size() + fiir.size()) / 20;

    for (const auto& [rate, data] : { std::pair (44100u, fir), std::pair (48000u, fiir) })
    {
        expected += envelope ("FilterData", number (1, 0) + number (2, 2) + number (3, rate) + number (4, 0) + number (4, 1)
            + number (5, data.size()));

        for (std::size_t offset = 0; offset < data.size(); offset += chunk)
            expected += envelope ("FilterDataChunk", number (1, 0) + number (2, 2) + number (3, offset)
                + bytes (4, data.substr (offset, chunk)));
    }

    EXPECT_EQ (receiver->bytes (1), expected);
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
}

TEST_F (Download, ReportsWhatItDoes)
{
    auto& opened = open();
    log.clear();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (progress.texts, (std::vector<std::string> { "#Preprocessing filters.../25", "/0" }));

    // 64 bytes in chunks of 9, then 128: the share of the bytes before each chunk.
    std::vector<float> expected;

    for (const int start : { 0, 64 })
        for (int offset = 0; offset < (start == 0 ? 64 : 128); offset += 9)
            expected.push_back (static_cast<float> (start + offset) / 192.0f);

    EXPECT_EQ (progress.fractions, expected);

    EXPECT_EQ (log.lines(), (std::vector<std::string> {
        "TRACE Starting download to endpoint device",
        "INFO Sending FilterChannel idx 0, name 'FL', gain -1.5 dB (orig. -1.5 dB), max 3 dB, delay 2.25 ms, latency 1 ms, EQ YES",
        "INFO Sending FilterChannel idx 1, name 'SW', gain 4 dB (orig. 4 dB), max 10 dB, delay 0 ms, latency 0 ms, EQ NO",
        "TRACE Sending FilterData samplerate 44100 Hz, size 64 bytes",
        "TRACE Sending FilterData samplerate 48000 Hz, size 128 bytes" }));
}

TEST_F (Download, NeedsNoCallback)
{
    auto& opened = open();
    EXPECT_EQ (opened.DownloadFilterSet (2, smallText().c_str(), 0, nullptr), kResultOk);
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
}

TEST_F (Download, TheSetStaysInTheSlotUntilItIsRemoved)
{
    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (download (opened, smallText()), kResultChannelConflict);
    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (2, 0, &set));
    EXPECT_TRUE (opened.RemoveFilterSet (set));
    EXPECT_EQ (download (opened, smallText()), kResultOk);
}

TEST_F (Download, ChunksAdaptToTheMessageLimit)
{
    useFirOnly (40000);
    profile.protocolInfo.set_messagelimit (948); // 100 below the envelope of a chunk of 1024 at offset 0
    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);

    const auto sizes = chunkSizes();
    ASSERT_EQ (sizes.size(), 44u);
    EXPECT_TRUE (std::all_of (sizes.begin(), sizes.end() - 1, [] (auto size) { return size == 920; }));
    EXPECT_EQ (sizes.back(), 40000u - 43 * 920);
    EXPECT_TRUE (failuresLogged().empty()) << "too long is no failure";
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
}

TEST_F (Download, AtTheDefaultLimitAChunkHas432Bytes)
{
    useFirOnly (40000);
    profile.protocolInfo.clear_messagelimit();
    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (chunkSizes().front(), 432u);
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
}

/** The second rate profits from what the first one learned. */
TEST_F (Download, AShrunkChunkServesTheRestOfTheDownload)
{
    profile.topologyInfo.mutable_topologies (0)->set_information ("NbrOfFIRTaps=2000");
    profile.topologyInfo.mutable_topologies (1)->set_name ("FIR");
    profile.topologyInfo.mutable_topologies (1)->set_information ("NbrOfFIRTaps=2000");
    profile.protocolInfo.set_messagelimit (300);
    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    const auto sizes = chunkSizes();
    EXPECT_EQ (sizes.front(), 272u);
    EXPECT_EQ (*std::max_element (sizes.begin(), sizes.end()), 272u);
}

TEST_F (Download, AFewBytesGoInOneChunk)
{
    useFirOnly (16);
    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (chunkSizes(), (std::vector<std::size_t> { 16 }));
}

TEST_F (Download, ARateWithoutStructureIsSkipped)
{
    profile.topologyInfo.mutable_topologies (0)->set_samplerate (88200);
    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (received<veltraio::FilterData> ("FilterData"), (std::vector<std::string> {
        "deviceIndex: 0 slotIndex: 2 sampleRate: 48000 channelIndices: 0 channelIndices: 1 sizeBytes: 128" }));
}

TEST_F (Download, TheFirstStructureAndTheFirstConfigurationOfARateCount)
{
    auto& device = *profile.unit.mutable_devices (0);
    device.mutable_configurations (0)->clear_channels();
    device.mutable_configurations (0)->add_channels (1);
    *device.add_configurations() = device.configurations (0);
    device.mutable_configurations (1)->add_channels (0);
    auto& second = *profile.topologyInfo.add_topologies();
    second = profile.topologyInfo.topologies (0);
    second.set_samplerate (48000);

    auto& opened = open();
    ASSERT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (received<veltraio::FilterData> ("FilterData"), (std::vector<std::string> {
        "deviceIndex: 0 slotIndex: 2 sampleRate: 44100 channelIndices: 1 sizeBytes: 32",
        "deviceIndex: 0 slotIndex: 2 sampleRate: 48000 channelIndices: 1 sizeBytes: 64" }));
}

TEST_F (Download, TheOldestSetOfTheSlotGoesToTheDevice)
{
    auto filters = smallFilters();
    const auto first = filterText ("Older", "FIIR", { filters[0] });
    const auto second = filterText ("Newer", "FIIR", { filters[1] });

    auto& opened = open();
    ASSERT_EQ (opened.LoadFilterSet (2, first.c_str(), 0), kResultOk);
    ASSERT_EQ (download (opened, second), kResultOk);
    EXPECT_EQ (receiver->slots()[2].name, "Older");
    EXPECT_EQ (receiver->slots()[2].blocks[0].channelIndices, (std::vector<std::uint32_t> { 0 }));
}

TEST_F (Download, ALongNameIsCutByCharacters)
{
    auto& opened = open();
    ASSERT_EQ (download (opened, filterText (std::string (32, 'x'), "", smallFilters()), 0), kResultOk);
    EXPECT_EQ (receiver->slots()[0].name, std::string (32, 'x'));
    EXPECT_FALSE (log.has ("INFO Truncating filter name to max 32 chars"));

    ASSERT_EQ (download (opened, filterText (utf8Repeated ("ü", 33), "", smallFilters())), kResultOk);
    EXPECT_EQ (receiver->slots()[2].name, utf8Repeated ("ü", 32));
    EXPECT_EQ (log.count ("INFO Truncating filter name to max 32 chars"), 1u);
}

TEST_F (Download, GainsAreCompensatedWhenTheSettingSaysSo)
{
    struct Row
    {
        const char* limits;
        float withEq, withoutEq; // the gains sent; -1.5 and 4 as the description has them
    };

    for (const auto& row : { Row { "-3;6", 4.5f, 0.0f }, Row { "0;20", 8.5f, 4.0f }, Row { "0;-2", -3.5f, -8.0f },
                             Row { "6", -1.5f, 4.0f }, Row { "1;2;3", -1.5f, 4.0f }, Row { "", -1.5f, 4.0f },
                             Row { "0;loud", -1.5f, -6.0f }, Row { "0;nan", -1.5f, -6.0f }, Row { "0;6,5", 4.5f, 0.0f } })
    {
        startAfresh();
        settings["NoEqCompensateLimits"] = row.limits;
        ASSERT_EQ (download (open(), smallText()), kResultOk);
        EXPECT_EQ (receiver->slots()[2].channels[0].gain_db(), row.withEq) << row.limits;
        EXPECT_EQ (receiver->slots()[2].channels[1].gain_db(), row.withoutEq) << row.limits;
    }

    EXPECT_TRUE (log.has ("INFO Sending FilterChannel idx 0, name 'FL', gain 4.5 dB (orig. -1.5 dB), max 3 dB, delay 2.25 ms, "
                          "latency 1 ms, EQ YES"));
}

/** The compensation looks at the field's presence, the message at its value. */
TEST_F (Download, ANoEqOfFalseCountsAsAChannelWithoutEqForTheGain)
{
    settings["NoEqCompensateLimits"] = "-3;6";
    profile.unit.mutable_devices (0)->mutable_outputchannels (1)->set_noeq (false);
    ASSERT_EQ (download (open(), smallText()), kResultOk);
    EXPECT_EQ (receiver->slots()[2].channels[1].gain_db(), 0.0f);
    EXPECT_FALSE (receiver->slots()[2].channels[1].noeq());
}

/** More filters than the device has channels: the surplus ones count as channels without the field. */
TEST_F (Download, AFilterBeyondTheDevicesChannelsHasEq)
{
    settings["NoEqCompensateLimits"] = "-3;6";
    profile.unit.mutable_devices (0)->mutable_outputchannels()->DeleteSubrange (1, 1);
    profile.unit.mutable_devices (0)->mutable_configurations (0)->mutable_channels()->Truncate (1);
    auto& opened = open();
    setFaults ("answer LoadFilter * Acknowledge 'ok: true'\nanswer FilterChannel * Acknowledge 'ok: true'\nrefuse FilterData *");
    EXPECT_EQ (download (opened, smallText()), kResultFailed);
    EXPECT_EQ (received<veltraio::FilterChannel> ("FilterChannel").back(),
               "channelIndex: 1 name: \"SW\" gain_dB: 10 delay_ms: 0 maxGain_dB: 10 latency_ms: 0 noEq: false");
}

TEST_F (Download, CancellingTakesEffectAtTheEndOfTheRate)
{
    auto& opened = open();
    progress.onProgress = [] { return false; };
    EXPECT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (progress.fractions.size(), 8u) << "all chunks of the first rate, reported one by one";
    EXPECT_EQ (receiver->messageCount ("FilterData"), 1u);
    EXPECT_EQ (received<veltraio::DownloadCancelled> ("DownloadCancelled"), (std::vector<std::string> { "deviceIndex: 0 slotIndex: 0" }));
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::empty);

    FilterSet* set = nullptr;
    EXPECT_TRUE (opened.GetFilterSet (2, 0, &set)) << "the set stays";
    EXPECT_TRUE (opened.RemoveFilterSet (set));
}

/** One request to cancel is enough, whatever the callback says afterwards; a refused cancellation changes nothing. */
TEST_F (Download, TheRequestToCancelIsKept)
{
    auto& opened = open();
    setFaults ("refuse DownloadCancelled *");
    int calls = 0;
    progress.onProgress = [&calls] { return ++calls != 3; };
    EXPECT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (receiver->messageCount ("FilterData"), 1u);
    EXPECT_EQ (takeLastError (opened), "");
}

TEST_F (Download, ACallbackThatThrowsCancels)
{
    auto& opened = open();
    progress.onProgress = []() -> bool { throw std::runtime_error ("the window is gone"); };
    EXPECT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (receiver->messageCount ("DownloadCancelled"), 1u);
}

}
