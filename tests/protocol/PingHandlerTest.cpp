// SPDX-License-Identifier: GPL-3.0-or-later

#include "protocol/PingHandler.h"
#include "tests/support/Envelope.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::chrono_literals;
using veltra::test::envelopeOf;

/** A keep-alive on a clock that the test sets. */
struct KeepAlive
{
    KeepAlive()
    {
        handler.addCallback ([this] { ++lost; });
    }

    /** Sets the clock and gives the keep-alive's thread time to look at it. */
    void at (std::int64_t time)
    {
        now = time;
        const int before = looks;

        while (looks < before + 3)
            std::this_thread::sleep_for (1ms);
    }

    void expect (std::int64_t time, std::size_t pings, int losses)
    {
        at (time);
        EXPECT_EQ (pings, connection->writes()) << "at " << time;
        EXPECT_EQ (losses, lost) << "at " << time;
    }

    void receive (const char* messageName) { connection->receive (envelopeOf (messageName, "").substr (3 + 4)); }

    std::atomic<std::int64_t> now { 0 };
    std::atomic<int> looks { 0 };
    std::atomic<int> lost { 0 };
    LocalConnection* const connection = new LocalConnection;
    veltraio::Dispatcher dispatcher { std::unique_ptr<veltra::ipc::Connection> (connection),
                                      veltraio::kEnvelopeMarkerText, true };
    veltraio::PingHandler handler { dispatcher,
                                    [this] {
                                        ++looks;
                                        return now.load();
                                    },
                                    1 };
};

TEST (PingHandler, WithoutAPongTheCallbacksFireEveryFiveSecondsAfterTheFirstPing)
{
    KeepAlive silent, alive;
    silent.expect (4999, 0, 0);
    silent.expect (5000, 1, 0);
    silent.expect (9999, 1, 0);
    silent.expect (10000, 2, 1);
    silent.expect (15000, 3, 2);

    // A message that no handler is registered for postpones nothing; a Pong does, and shows that the peer is there.
    alive.at (4000);
    alive.receive ("veltraio.AudioData");
    alive.expect (5000, 1, 0);
    alive.at (9000);
    alive.receive ("veltraio.Pong");
    alive.expect (13999, 1, 0);
    alive.expect (14000, 2, 0);
}

TEST (PingHandler, APingThatCannotBeSentFiresTheCallbacksOnce)
{
    KeepAlive keepAlive;
    keepAlive.handler.addCallback ([] { throw std::runtime_error ("contained"); });
    keepAlive.dispatcher.setMessageLimit (14);

    keepAlive.at (5000);
    EXPECT_EQ (1, keepAlive.lost);
    keepAlive.at (10000);
    EXPECT_EQ (2, keepAlive.lost) << "no Pong and no Ping are one loss";
}

}
