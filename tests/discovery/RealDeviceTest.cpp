// SPDX-License-Identifier: GPL-3.0-or-later

#include <unistd.h>

#include "discovery/ScanHandler.h"
#include "tests/discovery/RecordingCallback.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/LogLines.h"
#include "tests/support/NetworkNamespace.h"

namespace {

using namespace std::chrono_literals;

/** Some UPnP libraries ignore a request that does not end with an empty line, as ours does not. This passes it on with
    that line, and brings the answer back unchanged. */
std::vector<std::string> passOn (const std::string& address, const FakeDevice::Request& request)
{
    if (request.bytes.ends_with ("\r\n\r\n"))
        return {}; // passed on by this function

    return FakeDevice::search (address, request.bytes + "\r\n", 1, 1, 4s);
}

using RealDevice = PrivateNetworkTest;

}

TEST_F (RealDevice, AnotherMakersLampIsLookedAtAndNotReported)
{
    if (! NetworkNamespace::required()
        && std::system ("command -v gupnp-network-light >/dev/null && command -v Xvfb >/dev/null") != 0)
        GTEST_SKIP() << "gupnp-tools or xvfb is not installed";

    const std::string address = "10.83.1.2", interface = NetworkNamespace::interfaceName (address);
    NetworkNamespace there;
    home->connect ("10.83.1.1", there, address);
    LogLines log;
    RecordingCallback callback;

    there.run ([&] {
        const FakeDevice relay ({ .address = address, .answers = [&] (const auto&, const auto& request) {
                                     return passOn (address, request);
                                 } });

        // The lamp has a window. Its X server's socket belongs to the network as well.
        const auto display = ":" + std::to_string (1000 + ::getpid() % 30000);
        const ChildProcess server ({ "Xvfb", display, "-screen", "0", "320x240x24", "-nolisten", "tcp" });
        const ChildProcess lamp ({ "sh", "-c",
                                   "for i in $(seq 100); do DISPLAY=" + display + " gupnp-network-light -4 -i "
                                       + interface + " && break; sleep 0.2; done" });

        home->run ([&] {
            const upnp::ScanHandler scan (&callback, "");

            eventually ([&] { return log.contains ("INFO", "Not a VeltraIO device!"); }, 30s);
        });
    });

    EXPECT_EQ (1, log.count ("INFO", "Not a VeltraIO device!"));
    EXPECT_EQ ((RecordingCallback::Calls { "started", "ended" }), callback.calls());
}
