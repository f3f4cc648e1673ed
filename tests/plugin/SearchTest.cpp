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

}
