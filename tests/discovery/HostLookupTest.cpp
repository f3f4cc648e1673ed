// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/HostLookup.h"

#include <arpa/inet.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "discovery/HttpGet.h"
#include "discovery/ScanHandler.h"
#include "tests/discovery/RecordingCallback.h"
#include "tests/support/FakeDevice.h"
#include "tests/support/NetworkNamespace.h"
#include "tools/output/Transient.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/** A network whose only name server answers no question. */
class SilentNameServer : public PrivateNetworkTest
{
protected:
    void SetUp() override
    {
#if defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "the C library's helper threads are unknown to the thread sanitizer, which crashes on them";
#else
        PrivateNetworkTest::SetUp();
#endif
    }

    /** Runs something that asks that server. */
    void run (const std::function<void()>& action) const
    {
        const veltra::Transient folder (veltra::makePrivateFolder);
        const auto configuration = folder.path() / "resolv.conf";
        std::ofstream (configuration) << "nameserver 127.0.0.1\n";

        home->run ([&] {
            EXPECT_TRUE (NetworkNamespace::runWithOwnMounts ([&] {
                EXPECT_EQ (0, ::mount (configuration.c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr));

                sockaddr_in name {};
                name.sin_family = AF_INET;
                name.sin_port = htons (53);
                name.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
                const int server = ::socket (AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
                EXPECT_EQ (0, ::bind (server, reinterpret_cast<const sockaddr*> (&name), sizeof (name)));
                action();

                char question[512];
                EXPECT_GT (::recv (server, question, sizeof (question), MSG_DONTWAIT), 0)
                    << "the name server was not even asked";
                ::close (server);
            }));
        });
    }
};

}

TEST_F (SilentNameServer, ALookUpIsGivenUpAtItsDeadline)
{
    run ([] {
        const auto start = steady_clock::now();
        EXPECT_TRUE (veltra::lookUpHost ("receiver.test", start + 300ms, [] { return false; }).empty());
        EXPECT_TRUE (veltra::lookUpHost ("receiver.test", start + 60s, [start] {
                         return steady_clock::now() - start > 500ms;
                     }).empty());
        EXPECT_FALSE (upnp::httpGet ("http://receiver.test/", [] { return false; }));
        EXPECT_LT (steady_clock::now() - start, 4500ms); // the C library alone would take 5 s for the first of them
    });
}

TEST_F (SilentNameServer, AScanEndsInTimeWhileItLooksUpANameThatALocationNames)
{
    run ([] {
        RecordingCallback callback;
        FakeDevice device ({ .address = "127.0.0.1", .answers = [] (const FakeDevice& self, const auto&) {
                                return std::vector { FakeDevice::answer ("a", self.url ("/")),
                                                     FakeDevice::answer ("b", "http://receiver.test/"),
                                                     FakeDevice::answer ("c", "http://other.test/") };
                            } });
        auto scan = std::make_unique<upnp::ScanHandler> (&callback, "");
        EXPECT_TRUE (callback.waitForCalls (2));
        std::this_thread::sleep_for (100ms);

        const auto start = steady_clock::now();
        scan.reset();
        EXPECT_LT (steady_clock::now() - start, 4s);
        EXPECT_EQ (callback.calls().back(), "ended");
    });
}
