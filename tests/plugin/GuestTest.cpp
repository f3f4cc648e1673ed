// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The module in processes that fork, are signalled, cancel threads, or end while one works. GuestHost.cpp has what they do.
*/

#include <chrono>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common/SettingKeys.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/Program.h"
#include "tools/receiver/network/Receiver.h"
#include "tools/veltra/session/ModuleFile.h"

namespace veltra::test {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/** A port whose queue is full: an attempt to connect is not answered at all. */
class FullListener
{
public:
    FullListener()
    {
        ::bind (listener, asSockaddr (address), size);
        ::listen (listener, 0);
        ::getsockname (listener, asSockaddr (address), &size);

        for (const int filler : fillers)
            ::connect (filler, asSockaddr (address), size);
    }

    ~FullListener()
    {
        for (const int socket : { listener, fillers[0], fillers[1], fillers[2] })
            ::close (socket);
    }

    FullListener (const FullListener&) = delete;
    FullListener& operator= (const FullListener&) = delete;

    int port() const { return ntohs (address.sin_port); }

private:
    static sockaddr* asSockaddr (sockaddr_in& address) { return reinterpret_cast<sockaddr*> (&address); }
    static int make (int flags) { return ::socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC | flags, 0); }

    sockaddr_in address { AF_INET, 0, { htonl (INADDR_LOOPBACK) }, {} };
    socklen_t size = sizeof (address);
    const int listener = make (0);
    const int fillers[3] { make (SOCK_NONBLOCK), make (SOCK_NONBLOCK), make (SOCK_NONBLOCK) };
};

class Guest : public host::Program
{
protected:
    void expectWell (const std::string& scenario, const std::map<std::string, std::string>& settings)
    {
        SCOPED_TRACE (scenario);
        const host::ModuleCopy copy (MODULE_FILE, settings);
        const auto start = steady_clock::now();
        const auto ending = run ({ "timeout", "-s", "KILL", "60", GUEST_HOST, copy.path().string(), scenario });
        EXPECT_EQ (0, ending.status) << "signal " << ending.signal;
        EXPECT_EQ ("", ending.out + ending.err);

        // A process that ends gives the module at most 3 s; loading and connecting take some time before.
        const auto longest = scenario.starts_with ("end ") ? 8s : 60s;
        EXPECT_LT (steady_clock::now() - start, longest);
    }
};

}

TEST_F (Guest, EndsWellInAProcessThatForksCancelsReleasesAndEnds)
{
    for (const auto& [scenario, profile] :
         std::initializer_list<std::pair<const char*, const char*>> { { "descriptors", "stereo" },
                                                                      { "forked child", "stereo" },
                                                                      { "end during download", "stereo" },
                                                                      { "end during capture", "stereo" },
                                                                      { "end during callback", "stereo" },
                                                                      { "release in progress", "stereo" },
                                                                      { "release in capture", "stereo" },
                                                                      { "cancelled threads", "stereo" },
                                                                      { "exports from many threads", "stereo" },
                                                                      { "session under a timer", "stereo" },
                                                                      { "host plans transforms", "twelve" } })
    {
        const receiver::Receiver receiver (receiver::shippedProfile (profile));
        expectWell (scenario, { { keys::kDevice, "TCP:" + receiver.address() } });
    }
}

/** Signals neither end a wait early nor start it anew. */
TEST_F (Guest, TakesItsTimeWhateverSignalsArriveAndEndsWhileItSearches)
{
    if (! NetworkNamespace::permitted())
        GTEST_SKIP() << "networks cannot be made here";

    const NetworkNamespace network;

    network.run ([this] {
        expectWell ("search under a timer", { { keys::kUPnPTimeout, "1500" } });
        expectWell ("end during search", { { keys::kUPnPTimeout, "30000" } });
        const FullListener silent;
        expectWell ("connect under a timer", { { keys::kDevice, "TCP:127.0.0.1:" + std::to_string (silent.port()) } });
    });
}

}
