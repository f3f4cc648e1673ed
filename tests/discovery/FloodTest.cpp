// SPDX-License-Identifier: GPL-3.0-or-later

#include <unistd.h>

#include "discovery/ScanHandler.h"
#include "tests/discovery/RecordingCallback.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/LogLines.h"
#include "tests/support/NetworkNamespace.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double maximumGrowth_MiB = 1024; // their shadows and quarantines
#else
constexpr double maximumGrowth_MiB = 64;
#endif

double residentMemory_MiB()
{
    long total = 0, resident = 0;
    std::ifstream ("/proc/self/statm") >> total >> resident;
    return static_cast<double> (resident * ::sysconf (_SC_PAGESIZE)) / (1024 * 1024);
}

/** The documents of a hostile device, by the first letter of the path. */
void serve (ScriptedHttpServer::Exchange& exchange)
{
    const auto header = "HTTP/1.1 200 OK\r\n\r\n";

    switch (exchange.path[1])
    {
        case 'e':
            exchange.send (header);

            while (exchange.send (std::string (65536, 'x')))
            {
            }

            break;

        case 's':
            exchange.send (header);

            while (exchange.wait (20) && exchange.send ("<s>"))
            {
            }

            break;

        case 'c': exchange.send (ScriptedHttpServer::reply (302, "", "Location: " + exchange.path + "x\r\n")); break;
        case 'd': exchange.send (header + repeated ("<d>", 1000)); break;
        case 'r': exchange.send (header + ("<r><device>" + repeated ("&", 900000))); break;
        case 'h':
            exchange.send ("HTTP/1.1 200 OK\r\n" + repeated ("X: " + std::string (1000, 'x') + "\r\n", 2000));
            break;
        default: exchange.send (ScriptedHttpServer::reply (200, FakeDevice::ours (exchange.path, 1)));
    }
}

class Flood : public PrivateNetworkTest
{
protected:
    RecordingCallback callback;
};

}

/** Sends fifty thousand answers in five seconds, each from another device, half of them with texts as long as a datagram
    allows, and deletes the scan while they come. */
TEST_F (Flood, HostileDescriptionsAndAddressesWithoutAServerNeitherGrowNorStopTheScan)
{
    home->run ([this] {
        constexpr int count = 50000;
        constexpr std::chrono::microseconds duration = 5s;

        FakeDevice device ({ .address = "127.0.0.1", .ignoredSearches = 1000, .script = serve });
        auto scan = std::make_unique<upnp::ScanHandler> (&callback, "");
        ASSERT_TRUE (device.waitForSearches (1));

        const int port = device.searches()[0].senderPort;
        const double before_MiB = residentMemory_MiB();
        double growth_MiB = 0;
        const auto start = steady_clock::now();

        for (int i = 0; i < count; ++i)
        {
            const auto number = std::to_string (i) + (i % 2 == 0 ? "" : std::string (1900, 'l'));
            const auto kind = "escdrhon"[i % 8];
            const auto location = kind == 'n' ? "http://127.0.0.1:1/" : device.url (std::string ("/") + kind);
            device.sendTo ("127.0.0.1", port, FakeDevice::answer ("uuid:" + number, location + number));

            if (i % 100 == 0)
            {
                growth_MiB = std::max (growth_MiB, residentMemory_MiB() - before_MiB);
                std::this_thread::sleep_until (start + duration * i / count);
            }
        }

        const auto stop = steady_clock::now();
        scan.reset();
        const auto needed = std::chrono::duration_cast<std::chrono::milliseconds> (steady_clock::now() - stop);

        EXPECT_LT (needed, 10s);
        EXPECT_LT (growth_MiB, maximumGrowth_MiB);
        EXPECT_EQ ("ended", callback.calls().back());

        std::cout << device.fetches().size() << " fetches, " << callback.calls().size() - 2
                  << " devices, memory grew by " << growth_MiB << " MiB, the scan ended within " << needed.count()
                  << " ms\n";
    });
}

TEST_F (Flood, AHundredReceiversAreNotAllReported)
{
    LogLines log;

    home->run ([&] {
        FakeDevice device ({ .address = "127.0.0.1", .answers = [] (const FakeDevice& self, const auto&) {
                                std::vector<std::string> answers;

                                for (int i = 0; i < 100; ++i)
                                    answers.push_back (FakeDevice::answer ("uuid:" + std::to_string (i),
                                                                           self.url ("/" + std::to_string (i))));

                                return answers;
                            } });

        const upnp::ScanHandler scan (&callback, "");
        ASSERT_TRUE (callback.waitForCalls (1 + upnp::ScanHandler::maximumDevices));

        eventually ([&] { return device.fetches().size() >= 100; });
    });

    EXPECT_EQ (callback.calls().size(), 2u + upnp::ScanHandler::maximumDevices);
    EXPECT_EQ (log.count ("WARN", "Too many devices, only the first of them are used"), 1);
}
