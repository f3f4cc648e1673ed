// SPDX-License-Identifier: GPL-3.0-or-later
#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "protocol/PingHandler.h"
#include "tests/support/Envelope.h"
#include "tests/support/LocalConnection.h"

namespace {

using namespace std::chrono_literals;
using veltra::test::envelopeOf;

/** A keep-alive on a clock that the test sets. */
struct KeepAlive
{
    /** Sets the clock and gives the keep-alive's thread time to look at it. */
    void at (std::int64_t time)
    {
        now = time;
        const int before = looks;

        while (looks < before + 3)
            std::this_thread::sleep_for (1ms);
    }

    void receive (const char* messageName) { connection->receive (envelopeOf (messageName, "").substr (3 + 4)); }

    std::atomic<std::int64_t> now { 0 };
    std::atomic<int> looks { 0 };
    std::atomic<int> lost { 0 };
    LocalConnection* const connection = new LocalConnection;
    veltraio::Dispatcher dispatcher { std::unique_ptr<veltra::ipc::Connection> (connection), "2101FF", true };
    veltraio::PingHandler handler { dispatcher,
                                    [this] {
                                        ++looks;
                                        return now.load();
                                    },
                                    1 };
};

TEST (PingHandler, WithoutAPongTheCallbacksFireEveryFiveSecondsAfterTheFirstPing)
{
    KeepAlive keepAlive;
    keepAlive.handler.addCallback ([&] { ++keepAlive.lost; });

    const auto expect = [&] (std::int64_t time, std::size_t pings, int losses) {
        keepAlive.at (time);
        EXPECT_EQ (pings, keepAlive.connection->writes()) << "at " << time;
        EXPECT_EQ (losses, keepAlive.lost) << "at " << time;
    };

    expect (4999, 0, 0);
    expect (5000, 1, 0);
    expect (9999, 1, 0);
    expect (10000, 2, 1);
    expect (15000, 3, 2);
}

TEST (PingHandler, OnlyMessagesThatSomebodyHandlesPostponeTheCheckAndAPongKeepsTheConnectionAlive)
{
    KeepAlive keepAlive;
    keepAlive.handler.addCallback ([&] { ++keepAlive.lost; });
    keepAlive.at (4000);
    keepAlive.receive ("veltraio.AudioData"); // nobody has registered for it
    keepAlive.at (5000);
    EXPECT_EQ (1u, keepAlive.connection->writes());

    keepAlive.at (9000);
    keepAlive.receive ("veltraio.Pong");
    keepAlive.at (13999);
    EXPECT_EQ (1u, keepAlive.connection->writes());
    keepAlive.at (14000);
    EXPECT_EQ (2u, keepAlive.connection->writes());
    EXPECT_EQ (0, keepAlive.lost);
}

TEST (PingHandler, APingThatCannotBeSentFiresTheCallbacksOnce)
{
    KeepAlive keepAlive;
    keepAlive.handler.addCallback ([&] {
        ++keepAlive.lost;
        throw std::runtime_error ("contained");
    });
    keepAlive.dispatcher.setMessageLimit (14);

    keepAlive.at (5000);
    EXPECT_EQ (1, keepAlive.lost);
    keepAlive.at (10000);
    EXPECT_EQ (2, keepAlive.lost) << "no Pong and no Ping are one loss";
}

}
