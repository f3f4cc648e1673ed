// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "discovery/ScanHandler.h"
#include "tests/discovery/RecordingCallback.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/LogLines.h"
#include "tests/support/NetworkNamespace.h"

namespace {

using namespace std::chrono_literals;

/** UPnP libraries that insist on the empty line at the end of a request do not hear ours. So this passes on a search
    with that line, and brings the answer back as it is. */
std::vector<std::string> passOn (const std::string& address, const FakeDevice::Request& request)
{
    if (request.bytes.ends_with ("\r\n\r\n"))
        return {}; // passed on by ourselves

    return FakeDevice::search (address, request.bytes + "\r\n", 1, 1, 4s);
}

class RealDevice : public PrivateNetworkTest
{
protected:
    static constexpr const char* homeAddress = "10.83.1.1";
    static constexpr const char* deviceAddress = "10.83.1.2";

    void SetUp() override
    {
        PrivateNetworkTest::SetUp();

        if (IsSkipped() || HasFatalFailure())
            return;

        there.emplace();
        home->connect (homeAddress, *there, deviceAddress);
        there->run ([this] {
            relay = std::make_unique<FakeDevice> (FakeDevice::Options {
                .address = deviceAddress, .answers = [] (const FakeDevice&, const FakeDevice::Request& request) {
                    return passOn (deviceAddress, request);
                } });
        });
    }

    void startInDeviceNetwork (const std::vector<std::string>& words)
    {
        there->run ([&] { programs.push_back (std::make_unique<ChildProcess> (words)); });
    }

    static bool succeeds (const std::string& command)
    {
        return std::system ((command + " >/dev/null 2>&1").c_str()) == 0;
    }

    std::optional<NetworkNamespace> there;
    std::unique_ptr<FakeDevice> relay;
    std::vector<std::unique_ptr<ChildProcess>> programs;
    LogLines log;
    RecordingCallback callback;
};

}

TEST_F (RealDevice, AnotherMakersLampIsSeenAndIsNoneOfOurs)
{
    if (! NetworkNamespace::required() && ! succeeds ("command -v gupnp-network-light && command -v Xvfb"))
        GTEST_SKIP() << "gupnp-tools or xvfb is not installed";

    // The lamp has a window. Its X server's socket belongs to the network as well.
    const auto display = ":" + std::to_string (1000 + ::getpid() % 30000);
    startInDeviceNetwork ({ "Xvfb", display, "-screen", "0", "320x240x24", "-nolisten", "tcp" });
    startInDeviceNetwork ({ "sh", "-c",
                            "for i in $(seq 100); do DISPLAY=" + display + " gupnp-network-light -4 -i "
                                + NetworkNamespace::interfaceName (deviceAddress) + " && break; sleep 0.2; done" });

    home->run ([this] {
        const upnp::ScanHandler scan (&callback, "");

        for (int turns = 0; turns < 1500 && ! log.contains ("INFO", "Not a VeltraIO device!"); ++turns)
            std::this_thread::sleep_for (20ms);
    });

    EXPECT_EQ (log.count ("INFO", "Not a VeltraIO device!"), 1);
    EXPECT_EQ (callback.calls(), (RecordingCallback::Calls { "started", "ended" }));
}

TEST_F (RealDevice, OurExtensionIsFoundOnServersThatHaveNothingToDoWithUs)
{
    if (! NetworkNamespace::required()
        && ! succeeds ("/usr/bin/python3 -c 'import gi; gi.require_version (\"GSSDP\", \"1.6\")'"))
        GTEST_SKIP() << "gir1.2-gssdp-1.6 or python3-gi is not installed";

    const auto folder = std::filesystem::temp_directory_path() / ("veltra-announce-" + std::to_string (::getpid()));
    std::filesystem::create_directory (folder);
    std::ofstream (folder / "description.xml") << FakeDevice::ours ("Unrelated", 6001);
    startInDeviceNetwork ({ "/usr/bin/python3", "tests/discovery/announce.py",
                            NetworkNamespace::interfaceName (deviceAddress), deviceAddress, folder.string() });

    home->run ([this] {
        const upnp::ScanHandler scan (&callback, "");
        callback.waitForCalls (2);
    });

    programs.clear();
    std::filesystem::remove_all (folder);
    EXPECT_EQ (callback.calls(),
               (RecordingCallback::Calls { "started", "VeltraIO|TCP:10.83.1.2:6001|Unrelated", "ended" }));
}
