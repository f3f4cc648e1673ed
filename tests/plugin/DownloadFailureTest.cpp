/** @file
    Downloads that fail, stage by stage: the result, the words, the log, and that the device and the slot can be used
    again. Stages that fail by waiting for seconds stand in WaitsTest.cpp.
*/

#include "tests/plugin/DownloadFixture.h"

#include "plugin/ChunkSender.h"
#include "plugin/Progress.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;
using Lines = std::vector<std::string>;

class DownloadFailure : public DownloadFixture
{
protected:
    /** A download that must fail like this; then the slot is free and the next download works. */
    void expectFailure (Device2& opened, const std::string& words, const Lines& logged = {})
    {
        log.clear();
        EXPECT_EQ (download (opened, smallText()), kResultFailed);
        EXPECT_EQ (failuresLogged(), logged);
        EXPECT_EQ (takeLastError (opened), words);
        FilterSet* set = nullptr;
        EXPECT_FALSE (opened.GetFilterSet (2, 0, &set)) << "the set was taken out";
    }

    void expectWorks (Device2& opened)
    {
        setFaults ("");
        EXPECT_EQ (download (opened, smallText()), kResultOk);
        EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
    }

    /** Leaves words of an earlier failure, which the next ones add to or replace. */
    void leaveWords (Device2& opened)
    {
        receiver->addFault ({ .action = receiver::Fault::Action::refuse, .type = "OperationModeInfo", .text = "earlier; ", .body = {} });
        EXPECT_FALSE (opened.LeaveMeasurementMode());
    }
};

const std::string kFatalTimeout = "FATAL Fatal error sending FilterDataChunk message 'Filter data send failed, timeout'";

}

TEST_F (DownloadFailure, TextAndSlotThatCannotBeLoaded)
{
    auto& opened = open();
    leaveWords (opened);
    const auto before = receiver->messages().size();
    EXPECT_EQ (download (opened, "no XML"), kResultBadFilterText);
    EXPECT_EQ (download (opened, smallText(), 1), kResultChannelConflict) << "occupied since before the session";
    EXPECT_EQ (download (opened, smallText(), 8), kResultFailed);
    EXPECT_EQ (opened.DownloadFilterSet (2, nullptr, 0, &progress), kResultBadArgument);
    EXPECT_EQ (takeLastError (opened), "earlier; ");
    EXPECT_EQ (receiver->messages().size(), before);
    expectWorks (opened);
}

TEST_F (DownloadFailure, NoChannelOfARateHasAFilter)
{
    profile.unit.mutable_devices (0)->mutable_configurations (0)->clear_channels();
    auto& opened = open();
    leaveWords (opened);
    expectFailure (opened, "earlier; No supported filters");
    EXPECT_EQ (receiver->messageCount ("LoadFilter"), 0u);
}

TEST_F (DownloadFailure, AStructureThatNobodyKnows)
{
    profile.topologyInfo.mutable_topologies (0)->set_name ("WARP");
    auto& opened = open();
    leaveWords (opened);
    expectFailure (opened, "earlier; Topology WARP not supported");
}

TEST_F (DownloadFailure, AConversionThatFails)
{
    profile.topologyInfo.mutable_topologies (0)->set_information ("");
    auto& opened = open();
    leaveWords (opened);
    expectFailure (opened, "earlier; Required topology parameter not found");
}

TEST_F (DownloadFailure, NoRateHasAStructure)
{
    profile.topologyInfo.clear_topologies();
    auto& opened = open();
    leaveWords (opened);
    expectFailure (opened, "earlier; No topology supported");
}

TEST_F (DownloadFailure, AStructureWithoutDataIsNothingToSend)
{
    profile.topologyInfo.mutable_topologies (0)->set_information ("NbrOfFIRTaps=0");
    profile.topologyInfo.mutable_topologies (1)->set_name ("");
    expectFailure (open(), "No topology supported");
}

TEST_F (DownloadFailure, ADeviceWithEndlessRates)
{
    auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);
    configuration.clear_samplerates();
    profile.topologyInfo.clear_topologies();

    for (std::uint32_t i = 0; i < 200; ++i)
    {
        configuration.add_samplerates (100 + i);
        auto& topology = *profile.topologyInfo.add_topologies();
        topology.set_name ("FIIR");
        topology.set_samplerate (100 + i);
        topology.set_information ("NbrOfFIRTaps=1;NbrOfIIRSections=0");
    }

    expectFailure (open(), "Too many sample rates");
}

TEST_F (DownloadFailure, ADeviceThatListsAChannelWithoutEnd)
{
    auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);

    for (int i = 0; i < 5000; ++i)
        configuration.add_channels (0);

    expectFailure (open(), "Too many channels");
}

TEST_F (DownloadFailure, ARefusedLoadFilter)
{
    auto& opened = open();
    leaveWords (opened);
    receiver->addFault ({ .action = receiver::Fault::Action::refuse, .type = "LoadFilter", .text = "slot is locked", .body = {} });
    expectFailure (opened, "slot is locked", { "ERROR Error sending LoadFilter to endpoint device. slot is locked" });
    EXPECT_EQ (receiver->messageCount ("FilterChannel"), 0u);
    expectWorks (opened);
}

/** What a device says cannot pass for lines of the log. */
TEST_F (DownloadFailure, ARefusalWithLineEnds)
{
    auto& opened = open();
    receiver->addFault ({ .action = receiver::Fault::Action::refuse, .type = "LoadFilter", .text = "a\nb\x1b[2J", .body = {} });
    expectFailure (opened, "a\nb\x1b[2J", { "ERROR Error sending LoadFilter to endpoint device. a\\nb\\x1b[2J" });
}

TEST_F (DownloadFailure, ARefusedFilterChannel)
{
    auto& opened = open();
    leaveWords (opened);
    receiver->addFault ({ .action = receiver::Fault::Action::refuse, .type = "FilterChannel", .first = 2, .text = "no such channel", .body = {} });
    expectFailure (opened, "earlier; no such channel");
    EXPECT_EQ (receiver->messageCount ("FilterChannel"), 2u);
    EXPECT_EQ (receiver->messageCount ("FilterData"), 0u);
    expectWorks (opened);
}

TEST_F (DownloadFailure, ARefusedFilterData)
{
    auto& opened = open();
    leaveWords (opened);
    receiver->addFault ({ .action = receiver::Fault::Action::refuse, .type = "FilterData", .text = "too much", .body = {} });
    expectFailure (opened, "earlier; too much");
    EXPECT_EQ (chunks(), 0u);
    expectWorks (opened);
}

/** A LoadFilter above the message limit cannot be sent; nothing is left to say about it. */
TEST_F (DownloadFailure, ALoadFilterThatCannotBeSent)
{
    auto& opened = open();
    leaveWords (opened);
    EXPECT_EQ (download (opened, filterText ("Room", std::string (1400, 't'), smallFilters())), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "earlier; ");
    EXPECT_EQ (receiver->messageCount ("LoadFilter"), 0u);
    expectWorks (opened);
}

TEST_F (DownloadFailure, AFilterChannelThatCannotBeSent)
{
    auto& opened = open();
    auto filters = smallFilters();
    filters[1].name = std::string (1400, 'n');
    leaveWords (opened);
    EXPECT_EQ (download (opened, filterText ("Room", "", filters)), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "earlier; ");
    EXPECT_EQ (receiver->messageCount ("FilterChannel"), 1u);
    expectWorks (opened);
}

TEST_F (DownloadFailure, FilterDataThatCannotBeSent)
{
    // The numbers of all channels do not fit into a message that a single channel fits into.
    constexpr std::uint32_t count = 40;
    useFirOnly (16);
    profile.protocolInfo.set_messagelimit (100);
    auto& device = *profile.unit.mutable_devices (0);
    auto filters = smallFilters();

    for (std::uint32_t i = 2; i < count; ++i)
    {
        auto& channel = *device.add_outputchannels();
        channel = device.outputchannels (0);
        channel.set_channelindex (i);
        device.mutable_configurations (0)->add_channels (i);
        filters.push_back (filters[1]);
        filters.back().number = static_cast<int> (i + 1);
    }

    auto& opened = open();
    EXPECT_EQ (download (opened, filterText ("Room", "", filters)), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "");
    EXPECT_EQ (receiver->messageCount ("FilterChannel"), count);
    EXPECT_EQ (receiver->messageCount ("FilterData"), 0u);
    expectWorks (opened);
}

TEST_F (DownloadFailure, ALostChunkIsSentAgain)
{
    settings["FilterDataChunkTimeout"] = "50";
    auto& opened = open();
    setFaults ("lose FilterDataChunk 3");
    log.clear();
    EXPECT_EQ (download (opened, smallText()), kResultOk);
    EXPECT_EQ (failuresLogged(), (Lines { "WARN Timeout sending FilterDataChunk error = 3, offset 18 bytes, size 9 bytes" }));
    EXPECT_EQ (chunks(), 8u + 15u + 1u);
    EXPECT_EQ (takeLastError (opened), "");
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
}

TEST_F (DownloadFailure, AttemptsThatAllTimeOut)
{
    settings["FilterDataChunkTimeout"] = "50";
    settings["FilterDataChunkRetries"] = "2";
    auto& opened = open();
    setFaults ("lose FilterDataChunk *");
    const std::string timeout = "WARN Timeout sending FilterDataChunk error = 3, offset 0 bytes, size 9 bytes";
    expectFailure (opened, "Filter data send failed, timeout", { timeout, timeout, kFatalTimeout });
    EXPECT_EQ (chunks(), 2u);
    expectWorks (opened);
}

/** One attempt is made however few are allowed. */
TEST_F (DownloadFailure, WithOneRetryOrNoneTheFirstTimeOutIsFatal)
{
    for (const auto* retries : { "1", "0", "-7" })
    {
        plugin = nullptr;
        settings["FilterDataChunkTimeout"] = "50";
        settings["FilterDataChunkRetries"] = retries;
        auto& opened = open();
        setFaults ("lose FilterDataChunk *");
        const auto before = chunks();
        EXPECT_EQ (download (opened, smallText()), kResultFailed);
        EXPECT_EQ (chunks(), before + 1) << retries;
    }
}

TEST_F (DownloadFailure, ARefusalOutlastsALaterTimeOut)
{
    settings["FilterDataChunkTimeout"] = "50";
    settings["FilterDataChunkRetries"] = "2";
    auto& opened = open();
    leaveWords (opened);
    setFaults ("refuse FilterDataChunk 2 'flash is busy'\nlose FilterDataChunk 3");
    expectFailure (opened, "flash is busy", {
        "ERROR Error sending FilterDataChunk error = 0, offset 9 bytes, size 9 bytes", "ERROR Error message 'flash is busy'",
        "WARN Timeout sending FilterDataChunk error = 3, offset 9 bytes, size 9 bytes",
        "FATAL Fatal error sending FilterDataChunk message 'flash is busy'" });
    expectWorks (opened);
}

TEST_F (DownloadFailure, ARefusalWithoutWords)
{
    settings["FilterDataChunkRetries"] = "1";
    auto& opened = open();
    setFaults ("refuse FilterDataChunk *");
    expectFailure (opened, "Filter data send failed, timeout",
                   { "ERROR Error sending FilterDataChunk error = 0, offset 0 bytes, size 9 bytes", kFatalTimeout });
}

TEST_F (DownloadFailure, ChunksThatCannotBeSent)
{
    settings["FilterDataChunkTimeout"] = "50";
    settings["FilterDataChunkRetries"] = "2";
    auto& opened = open();
    progress.onProgress = [this] { breakConnections(); return true; };
    EXPECT_EQ (download (opened, smallText()), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "Filter data send failed, timeout");
    EXPECT_TRUE (log.has (kFatalTimeout));
    EXPECT_EQ (chunks(), 1u);
    FilterSet* set = nullptr;
    EXPECT_FALSE (opened.GetFilterSet (2, 0, &set));
}

/** No device has a limit so small that the messages before the chunks would fit and these would not. */
TEST_F (DownloadFailure, AMessageLimitWithoutRoomForASample)
{
    open();
    veltraio::ConnectionManager manager (0);
    veltraio::Dispatcher dispatcher (manager.Connect ("TCP:" + receiver->address()), "2101FF", true);
    dispatcher.setMessageLimit (15 + 2 + 2 + 2 + 2 + 3);
    juce::PropertySet none;
    std::string words = "earlier";
    const veltraio::Unit::Device device;
    const veltraio::TopologyInfo info;
    const plugin::DownloadTarget target { dispatcher, 0, device, info, none, words };
    plugin::Progress silent (nullptr);
    juce::MemoryBlock blob (1000, true);

    plugin::ChunkSender sender (target, 0, blob.getSize(), silent);
    EXPECT_THROW (sender.send (blob), EResult);
    EXPECT_EQ (words, "Message limit too small for filter data");
    EXPECT_TRUE (log.has ("FATAL Fatal error sending FilterDataChunk message 'Message limit too small for filter data'"));
    EXPECT_EQ (chunks(), 0u);
}

}
