// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Downloads that fail, stage by stage: the result, the words, the log, and that the device and the slot can be used
    again. Stages that fail by waiting for seconds are in WaitsTest.cpp.
*/

#include "tests/support/DeviceFixture.h"

#include "common/SettingKeys.h"
#include "plugin/ChunkSender.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class DownloadFailure : public DeviceFixture
{
protected:
    void refuse (const std::string& type, const std::string& text)
    {
        receiver->addFault ({ .action = receiver::Fault::Action::refuse, .type = type, .text = text, .body = {} });
    }

    /** Opens a device that keeps words of an earlier failure, which the next ones add to or replace. */
    Device2& openWithWords()
    {
        auto& opened = open();
        refuse ("OperationModeInfo", "earlier; ");
        EXPECT_FALSE (opened.LeaveMeasurementMode());
        log.emplace();
        return opened;
    }

    /** A download that must fail like this, after which the slot is free and another one works. */
    void expectFailure (Device2& opened, const std::string& words, const Lines& lines = {},
                        const std::string& xml = description().text())
    {
        EXPECT_EQ (download (opened, xml), kResultFailed);
        EXPECT_EQ (failuresLogged(), lines);
        EXPECT_EQ (takeLastError (opened), words);
        EXPECT_EQ (setsIn (opened, 2), 0u) << "the set was taken out";
        EXPECT_TRUE (opened.SetVolume (0.5f)) << "the next exchange works";
    }

    void expectWorks (Device2& opened)
    {
        setFaults ("");
        EXPECT_EQ (download (opened), kResultOk);
        EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
    }

    std::size_t chunks() const { return receiver->messageCount ("FilterDataChunk"); }
};

const std::string kNotStarted = "ERROR Download failed before the transfer: ";
const std::string kFatalTimeout =
    "FATAL Fatal error sending FilterDataChunk message 'Filter data send failed, timeout'";

}

TEST_F (DownloadFailure, TextAndSlotThatCannotBeLoaded)
{
    auto& opened = openWithWords();
    const auto before = receiver->messages().size();
    EXPECT_EQ (download (opened, "no XML"), kResultBadFilterText);
    EXPECT_EQ (download (opened, description().text(), 1), kResultChannelConflict)
        << "occupied since before the session";
    EXPECT_EQ (download (opened, description().text(), 8), kResultFailed);
    EXPECT_EQ (opened.DownloadFilterSet (2, nullptr, 0, &progress), kResultBadArgument);
    EXPECT_EQ (failuresLogged(),
               (Lines { "ERROR Error in filter description, line 1: XML syntax: expected <",
                        kNotStarted + "the slot holds a filter for one of the channels, slot 1",
                        kNotStarted + "no such slot, slot 8", kNotStarted + "no filter description, slot 2" }));
    EXPECT_EQ (takeLastError (opened), "earlier; ");
    EXPECT_EQ (receiver->messages().size(), before);
    EXPECT_EQ (setsIn (opened, 1), 1u) << "what the slot held stays";
    expectWorks (opened);
}

/** Nothing goes to the device when its own descriptions leave nothing to send. */
TEST_F (DownloadFailure, DescriptionsThatCannotBeServed)
{
    using Device = veltraio::Unit::Device;
    using Topologies = veltraio::TopologyInfo;

    struct Row
    {
        std::function<void (Device&, Topologies&)> change;
        const char* words;
    };

    const auto addRates = [] (Device& device, Topologies& info) {
        for (std::uint32_t rate = 100; rate < 300; ++rate)
        {
            device.mutable_configurations (0)->add_samplerates (rate);
            *info.add_topologies() = info.topologies (1);
            info.mutable_topologies()->rbegin()->set_samplerate (rate);
        }
    };
    const auto addChannels = [] (Device& device, Topologies&) {
        for (int i = 0; i < 5000; ++i)
            device.mutable_configurations (0)->add_channels (0);
    };

    const Row rows[] = {
        { [] (Device& d, Topologies&) { d.mutable_configurations (0)->clear_channels(); }, "No supported filters" },
        { [] (Device&, Topologies& t) { t.mutable_topologies (0)->set_name ("WARP"); }, "Topology WARP not supported" },
        { [] (Device&, Topologies& t) { t.mutable_topologies (0)->set_information (""); },
          "Required topology parameter not found" },
        { [] (Device&, Topologies& t) { t.clear_topologies(); }, "No topology supported" },
        { [] (Device&, Topologies& t) {
             t.mutable_topologies (0)->set_information ("NbrOfFIRTaps=0");
             t.mutable_topologies (1)->set_name ("");
         },
          "No topology supported" },
        { addRates, "Too many sample rates" },
        { addChannels, "Too many channels" },
    };

    for (const auto& row : rows)
    {
        startAfresh();
        profile = smallProfile();
        row.change (*profile.unit.mutable_devices (0), profile.topologyInfo);
        expectFailure (openWithWords(), std::string ("earlier; ") + row.words, { kNotStarted + row.words });
        EXPECT_EQ (receiver->messageCount ("LoadFilter"), 0u);
    }
}

/** What a device says cannot pass for lines of the log. */
TEST_F (DownloadFailure, RefusedStages)
{
    struct Row
    {
        const char* stage;
        std::string words;
        Lines lines;
    };

    const Row rows[] = {
        { "LoadFilter", "slot\nis locked", { "ERROR Error sending LoadFilter to endpoint device. slot\\nis locked" } },
        { "FilterChannel",
          "earlier; slot\nis locked",
          { "ERROR Error sending FilterChannel idx 0. slot\\nis locked" } },
        { "FilterData",
          "earlier; slot\nis locked",
          { "ERROR Error sending FilterData samplerate 44100 Hz. slot\\nis locked" } }
    };

    for (const auto& row : rows)
    {
        startAfresh();
        auto& opened = openWithWords();
        refuse (row.stage, "slot\nis locked");
        log.emplace();
        expectFailure (opened, row.words, row.lines);
        EXPECT_EQ (chunks(), 0u);
        expectWorks (opened);
    }
}

/** A message above the limit cannot be sent. */
TEST_F (DownloadFailure, StagesThatCannotBeSent)
{
    auto& opened = openWithWords();
    expectFailure (opened, "earlier; ", { "ERROR Error sending LoadFilter to endpoint device. Too long by 36 bytes" },
                   description ("Room", std::string (1400, 't')).text());
    EXPECT_EQ (receiver->messageCount ("LoadFilter"), 0u);
    const auto longName = DescriptionBuilder().channel (std::string (1400, 'n'), 1).fir (44100, { 1.0f }).text();
    log.emplace();
    expectFailure (opened, "", { "ERROR Error sending FilterChannel idx 0. Too long by 42 bytes" }, longName);
    EXPECT_EQ (receiver->messageCount ("FilterData"), 0u);
    expectWorks (opened);

    // The numbers of all channels do not fit into a message that a single channel fits into.
    startAfresh();
    useFirOnly (16);
    profile.protocolInfo.set_messagelimit (100);
    auto& info = *profile.unit.mutable_devices (0);
    auto xml = description();

    for (std::uint32_t i = 2; i < 40; ++i)
    {
        *info.add_outputchannels() = info.outputchannels (0);
        info.mutable_outputchannels()->rbegin()->set_channelindex (i);
        info.mutable_configurations (0)->add_channels (i);
        xml.channel ("C", static_cast<int> (i + 1)).fir (44100, { 1.0f });
    }

    auto& many = openWithWords();
    expectFailure (many, "earlier; ", { "ERROR Error sending FilterData samplerate 44100 Hz. Too long by 6 bytes" },
                   xml.text());
    EXPECT_EQ (receiver->messageCount ("FilterChannel"), 40u);
    EXPECT_EQ (receiver->messageCount ("FilterData"), 0u);
    expectWorks (many);
}

TEST_F (DownloadFailure, ALostChunkIsSentAgain)
{
    settings[keys::kFilterDataChunkTimeout] = "50";
    auto& opened = open();
    setFaults ("lose FilterDataChunk 3");
    EXPECT_EQ (download (opened), kResultOk);
    EXPECT_EQ (failuresLogged(),
               (Lines { "WARN Timeout sending FilterDataChunk error = 3, offset 18 bytes, size 9 bytes" }));
    EXPECT_EQ (chunks(), 8u + 15u + 1u);
    EXPECT_EQ (takeLastError (opened), "");
    EXPECT_EQ (receiver->slots()[2].state, receiver::Slot::State::occupied);
}

TEST_F (DownloadFailure, ChunksWhoseAttemptsAreUsedUp)
{
    const std::string timeout = "WARN Timeout sending FilterDataChunk error = 3, offset 0 bytes, size 9 bytes";
    const std::string refusal = "ERROR Error sending FilterDataChunk error = 0, offset 0 bytes, size 9 bytes";
    const std::string busy = "ERROR Error message 'flash is busy'";
    const std::string fatalBusy = "FATAL Fatal error sending FilterDataChunk message 'flash is busy'";

    struct Row
    {
        const char* retries;
        const char* fault;
        const char* words;
        Lines lines;
    };

    const Row rows[] = {
        { "2", "lose FilterDataChunk *", "Filter data send failed, timeout", { timeout, timeout, kFatalTimeout } },
        { "1", "lose FilterDataChunk *", "Filter data send failed, timeout", { timeout, kFatalTimeout } },
        { "0", "lose FilterDataChunk *", "Filter data send failed, timeout", { timeout, kFatalTimeout } },
        { "-7", "refuse FilterDataChunk *", "Filter data send failed, timeout", { refusal, kFatalTimeout } },
        { "2",
          "refuse FilterDataChunk 1 'flash is busy'\nlose FilterDataChunk 2",
          "flash is busy",
          { refusal, busy, timeout, fatalBusy } }
    };

    for (const auto& row : rows)
    {
        startAfresh();
        settings[keys::kFilterDataChunkTimeout] = "50";
        settings[keys::kFilterDataChunkRetries] = row.retries;
        auto& opened = open();
        setFaults (row.fault);
        log.emplace();
        expectFailure (opened, row.words, row.lines);
        expectWorks (opened);
    }
}

/** No device has a limit so small that the messages before the chunks would fit and these would not. */
TEST_F (DownloadFailure, AMessageLimitWithoutRoomForASample)
{
    open();
    veltraio::ConnectionManager manager (0);
    veltraio::Dispatcher dispatcher (manager.Connect ("TCP:" + receiver->address()), veltraio::kEnvelopeMarkerText,
                                     true);
    dispatcher.setMessageLimit (15 + 2 + 2 + 2 + 2 + 3);
    juce::PropertySet none;
    std::string words = "earlier";
    const plugin::DownloadTarget target { dispatcher, 0, profile.unit.devices (0), profile.topologyInfo, none, words };
    plugin::ProgressReport silent (nullptr);
    const juce::MemoryBlock blob (1000, true);

    EXPECT_THROW (plugin::ChunkSender (target, 0, blob.getSize(), silent).send (blob), EResult);
    EXPECT_EQ (words, "Message limit too small for filter data");
    EXPECT_EQ (failuresLogged(), (Lines { "FATAL Fatal error sending FilterDataChunk message '" + words + "'" }));
    EXPECT_EQ (chunks(), 0u);
}

}
