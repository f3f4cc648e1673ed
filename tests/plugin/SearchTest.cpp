// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginImpl.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/LogLines.h"
#include "tests/support/NetworkNamespace.h"
#include "tools/receiver/network/Receiver.h"
#include "veltratune_io/Device.h"

namespace veltra {

namespace {

using std::chrono::steady_clock;

/** The plug-in object without the setting "Device", in a network of its own. */
class Search : public PrivateNetworkTest
{
protected:
    static std::unique_ptr<plugin::PluginImpl> makePlugin (const juce::String& values)
    {
        const juce::TemporaryFile file (".settings");
        file.getFile().replaceWithText ("<PROPERTIES>" + values + "</PROPERTIES>");
        return std::make_unique<plugin::PluginImpl> (file.getFile());
    }

    /** Something that answers searches. Inside the network. */
    void announce (const std::string& name, int port)
    {
        announcements.push_back (std::make_unique<FakeDevice> (FakeDevice::Options {
            .address = "127.0.0.1", .usn = "uuid:" + name, .description = FakeDevice::ours (name, port) }));
    }

    void addReceiver (const std::string& name)
    {
        receivers.push_back (std::make_unique<receiver::Receiver> (receiver::shippedProfile ("stereo")));
        announce (name, receivers.back()->port());
    }

    static std::ptrdiff_t threads()
    {
        const std::filesystem::directory_iterator tasks ("/proc/self/task");
        return std::distance (begin (tasks), end (tasks));
    }

    std::vector<std::unique_ptr<receiver::Receiver>> receivers;
    std::vector<std::unique_ptr<FakeDevice>> announcements;
    LogLines log;
};

}

TEST_F (Search, EveryReceiverOfTheNetworkGivesADeviceAndNoThreadIsLeftBehind)
{
    home->run ([this] {
        addReceiver ("Lounge");
        announce ("Gone", 1);
        addReceiver ("Cinema");
        const auto threadsBefore = threads();

        {
            const auto plugin =
                makePlugin ("<VALUE name=\"UPnPTimeout\" val=\"1500\"/><VALUE name=\"ST\" val=\"urn:x\"/>");
            const auto start = steady_clock::now();
            EXPECT_TRUE (plugin->FindDevices());
            EXPECT_GE (steady_clock::now() - start, std::chrono::milliseconds (1500)); // however early they answer

            veltratune_io::Device *first = nullptr, *second = nullptr, *third = nullptr;
            EXPECT_TRUE (plugin->GetDevice (0, &first) && plugin->GetDevice (1, &second));
            EXPECT_FALSE (plugin->GetDevice (2, &third));
            ASSERT_TRUE (receivers[0]->waitFor (
                [this] { return receivers[0]->openSessions() == 1 && receivers[1]->openSessions() == 1; }));
        }

        // The receivers' sessions end behind the module's connections, on threads of this process.
        for (const auto end = steady_clock::now() + std::chrono::seconds (10);
             threads() > threadsBefore && steady_clock::now() < end;)
            std::this_thread::sleep_for (std::chrono::milliseconds (10));

        EXPECT_LE (threads(), threadsBefore);
        EXPECT_NE (announcements[0]->searches().at (0).bytes.find ("\r\nST:upnp:rootdevice\r\n"),
                   std::string::npos); // not that of the settings
        EXPECT_TRUE (log.contains ("DEBUG", "Start device scan (filter='urn:x')"));
        EXPECT_TRUE (log.contains ("DEBUG", "Device added: VeltraIO (TCP:127.0.0.1:"
                                                + std::to_string (receivers[0]->port()) + ") friendlyName = Lounge"));
        EXPECT_TRUE (log.contains ("WARN", "Connection to device @ 'TCP:127.0.0.1:1' failed"))
            << "which spoils no other";
        EXPECT_TRUE (log.contains ("DEBUG", "Device scanning started..."));
        EXPECT_TRUE (log.contains ("DEBUG", "Device scanning ended..."));
    });
}

TEST_F (Search, ReceiversThatAnswerLateAreOpenedAtOnceAndKeepTheirOrder)
{
    // Each of them needs 1.7 s for each of three descriptions, or says nothing at all.
    home->run ([this] {
        for (const bool isSilent : { false, true, false, true, false, false })
        {
            receiver::Receiver::Options options;
            std::string error;
            options.faults = receiver::parseFaults (isSilent ? "lose * *"
                                                             : "delay GetUnit * 1700\n"
                                                               "delay GetTopologyInfo * 1700\n"
                                                               "delay GetStimulusInfo * 1700",
                                                    error)
                                 .value();
            auto profile = receiver::shippedProfile ("stereo");
            const auto name = "R" + std::to_string (receivers.size() + 1);
            profile.unit.mutable_devices (0)->set_name (name);
            receivers.push_back (std::make_unique<receiver::Receiver> (profile, options));
            announce (name, receivers.back()->port());
        }

        const auto plugin = makePlugin ("<VALUE name=\"UPnPTimeout\" val=\"1500\"/>");
        const auto start = steady_clock::now();
        EXPECT_TRUE (plugin->FindDevices());
        EXPECT_LT (steady_clock::now() - start, std::chrono::seconds (15)); // 7 s; 27 s one after the other

        std::vector<std::string> opened, found;

        for (const auto& line : log.all())
            if (const auto name = line.text.find ("friendlyName = R"); name != std::string::npos)
                if (const auto number = line.text[name + 16]; number != '2' && number != '4')
                    found.push_back (std::string ("R") + number);

        veltratune_io::Device* device = nullptr;

        for (std::uint32_t i = 0; plugin->GetDevice (i, &device); ++i)
            opened.push_back (std::string (device->GetName()).substr (std::string (device->GetName()).rfind ('|') + 1));

        EXPECT_EQ (4u, opened.size());
        EXPECT_EQ (found, opened) << "the order of the search";
    });
}

TEST_F (Search, TheLogTellsTheStepsInTheirOrder)
{
    home->run ([this] {
        addReceiver ("Lounge");
        const auto plugin = makePlugin ("<VALUE name=\"UPnPTimeout\" val=\"1500\"/>");
        ASSERT_TRUE (plugin->FindDevices());
        const auto at = "TCP:127.0.0.1:" + std::to_string (receivers[0]->port());
        std::vector<std::string> steps;

        for (const auto& line : log.all())
            if (line.level != "TRACE")
                steps.push_back (line.level + " " + line.text.substr (0, line.text.find ('\n')));

        EXPECT_EQ (
            (std::vector<std::string> {
                "DEBUG Start device scan (filter='')", "DEBUG ScanHandler::ScanHandler",
                "DEBUG UPnP scanning thread started", "DEBUG Device scanning started...",
                "DEBUG Starting UPnP handler for IP 127.0.0.1", "DEBUG Added job entry " + announcements[0]->location(),
                "DEBUG Getting device XML from " + announcements[0]->location(), "INFO Found VeltraIO protocol handler",
                "DEBUG Device added: VeltraIO (" + at + ") friendlyName = Lounge", "DEBUG ScanHandler::~ScanHandler",
                "DEBUG Device scanning ended...", "DEBUG UPnP scanning thread stopped",
                "DEBUG Connecting to device @ '" + at + "'...", "DEBUG Connected! Querying ProtocolInfo...",
                "DEBUG Got device protocol info:", "DEBUG Querying Unit...",
                "DEBUG Got device unit info:", "DEBUG Got device topology info:", "DEBUG Got device stimulus info:" }),
            steps);
    });
}

}
