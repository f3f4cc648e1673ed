// SPDX-License-Identifier: GPL-3.0-or-later

#include "common/Clock.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"
#include "protocol/TcpDeviceConnection.h"
#include "tests/protocol/TestPeer.h"
#include "tests/support/Envelope.h"
#include "tests/support/LogLines.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace veltraio;
using veltra::test::envelopeOf;

/** Collects what a connection hands to its raw callback. */
struct Blocks
{
    explicit Blocks (veltra::ipc::Connection& connection)
    {
        connection.setRawCallback ([this] (const juce::MemoryBlock& block) {
            const std::lock_guard guard (mutex);
            list.emplace_back (static_cast<const char*> (block.getData()), block.getSize());
        });
    }

    bool waitFor (const std::vector<std::string>& expected)
    {
        return eventually ([&] {
            const std::lock_guard guard (mutex);
            return list == expected;
        });
    }

    std::mutex mutex;
    std::vector<std::string> list;
};

/** A connection to a peer. */
struct Connected
{
    Connected()
    {
        EXPECT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
        device = peer.accept();
    }

    /** Gives the connection to a dispatcher. */
    std::unique_ptr<Dispatcher> dispatch()
    {
        return std::make_unique<Dispatcher> (std::move (owned), kEnvelopeMarkerText, true);
    }

    TestPeer peer;
    std::unique_ptr<TcpDeviceConnection> owned = std::make_unique<TcpDeviceConnection> ("127.0.0.1:1");
    TcpDeviceConnection& connection = *owned;
    std::unique_ptr<TestPeer::Socket> device;
};

const std::string acknowledge = envelopeOf ("veltraio.Acknowledge", { 0x08, 0x01 });

Ping ping;

TEST (TcpDeviceConnection, CarriesAnExchange)
{
    TcpDeviceConnection idle ("127.0.0.1:1");
    EXPECT_EQ (juce::String ("TCP:127.0.0.1:1"), idle.getName());
    EXPECT_FALSE (idle.isConnected());
    EXPECT_EQ (-1, idle.write ("x", 1));

    Connected pair;
    EXPECT_TRUE (pair.connection.isConnected());
    const auto dispatcher = pair.dispatch();
    AcknowledgeHandler handler (*dispatcher);
    EXPECT_EQ (0, dispatcher->Send (ping));
    EXPECT_EQ (envelopeOf ("veltraio.Ping", ""), pair.device->read (15));
    pair.device->send ("noise" + envelopeOf ("veltraio.Nothing", "abc") + acknowledge.substr (0, 9));
    pair.device->send (acknowledge.substr (9));
    EXPECT_EQ (ReplyState::acknowledged, handler.Wait (10000));
}

TEST (TcpDeviceConnection, AFailureLosesAMessageAndNotWhatCameWithIt)
{
    Connected pair;
    std::atomic<int> messages { 0 };
    pair.connection.setRawCallback ([&] (const juce::MemoryBlock&) {
        if (++messages == 2)
            throw std::bad_alloc();
    });

    std::string burst;

    for (int i = 0; i < 20; ++i)
        burst +=
            envelopeOf ("veltraio.Nothing", std::string (1024 - 15, 'x')); // as large as what the parser gets at once

    pair.device->send (burst);
    EXPECT_TRUE (eventually ([&] { return messages >= 19; })) << messages;
}

TEST (TcpDeviceConnection, ConnectingAgainDropsTheOldConnectionAlsoWhenItFails)
{
    auto peer = std::make_unique<TestPeer>();
    const auto port = peer->port();
    TcpDeviceConnection connection ("");
    Blocks blocks (connection);
    ASSERT_TRUE (connection.connect ("localhost", port, 2000)) << "a name is looked up";
    const auto first = peer->accept();
    ASSERT_TRUE (connection.connect ("127.0.0.1", port, 2000));
    const auto second = peer->accept();
    first->waitForEnd();
    second->send (acknowledge);
    EXPECT_TRUE (blocks.waitFor ({ acknowledge.substr (3 + 4) }));

    peer = nullptr;
    EXPECT_FALSE (connection.connect ("127.0.0.1", port, 2000)) << "nothing listens";
    EXPECT_FALSE (connection.isConnected());

    for (const int wrong : { 0, -1, 65536, port + 65536 })
        EXPECT_FALSE (connection.connect ("127.0.0.1", wrong, 2000)) << wrong;

    EXPECT_FALSE (connection.connect ("", port, 2000));
    EXPECT_FALSE (connection.connect ("no host of this name", port, 2000));
    connection.disconnect (true);
}

TEST (TcpDeviceConnection, APeerThatClosesOrResetsEndsTheReaderWithALineInTheLog)
{
    for (const bool isOrderly : { true, false })
    {
        const LogLines log;
        Connected pair;
        const auto dispatcher = pair.dispatch();
        pair.device->send (acknowledge + acknowledge.substr (0, 5));

        if (isOrderly)
            pair.device->close();
        else
            pair.device->reset();

        const auto* const line =
            isOrderly ? "TCP:127.0.0.1:1 closed the connection" : "TCP:127.0.0.1:1 reset the connection";
        EXPECT_TRUE (eventually ([&] { return log.contains ("DEBUG", line); }));
        EXPECT_EQ (1u, log.all().size()) << "an envelope that is cut short is dropped silently";
        EXPECT_TRUE (pair.connection.isConnected()) << "no listener is called";
        EXPECT_TRUE (eventually ([&] { return dispatcher->Send (ping) == -1; })) << "and no signal is raised";
    }
}

TEST (TcpDeviceConnection, SendingToAPeerThatTakesNothingFailsWithoutWaiting)
{
    Connected pair;
    const std::string large (16 * 1024 * 1024, 'x');
    const auto send = [&] { return pair.connection.write (large.data(), static_cast<int> (large.size())); };

    const auto start = veltra::steadyMilliseconds();
    const int taken = send();
    EXPECT_GT (taken, 0);
    EXPECT_LT (taken, static_cast<int> (large.size()));
    EXPECT_TRUE (eventually ([&] { return send() == -1; }));
    EXPECT_LT (veltra::steadyMilliseconds() - start, 5000);
}

TEST (TcpDeviceConnection, DisconnectingWhileOthersSendIsSafe)
{
    TestPeer peer;
    TcpDeviceConnection connection ("");
    std::vector<std::jthread> senders;

    for (int i = 0; i < 2; ++i)
        senders.emplace_back ([&] (const std::stop_token& stop) {
            while (! stop.stop_requested())
            {
                connection.write (acknowledge.data(), static_cast<int> (acknowledge.size()));
                connection.isConnected();
                connection.getName();
                std::this_thread::yield();
            }
        });

    for (int i = 0; i < 50; ++i)
    {
        ASSERT_TRUE (connection.connect ("127.0.0.1", peer.port(), 2000));
        const auto device = peer.accept();
        device->send (acknowledge);

        if (i % 2 == 0)
            device->close();

        connection.disconnect (true);
        EXPECT_FALSE (connection.isConnected());
    }
}

TEST (TcpDeviceConnection, AHandlerMayDisconnect)
{
    Connected pair;
    std::atomic<bool> handled { false };
    pair.connection.setRawCallback ([&] (const juce::MemoryBlock&) {
        pair.connection.disconnect (true);
        handled = true;
    });
    pair.device->send (acknowledge + acknowledge);
    EXPECT_TRUE (eventually ([&] { return handled.load(); }));
    pair.device->waitForEnd();
}

struct StreamConnection final : veltra::ipc::TcpConnection
{
    StreamConnection() : TcpConnection (5, 0) {}
    ~StreamConnection() override { disconnect (false); }
};

TEST (TcpConnection, TheGenericFramingCarriesMessagesBothWays)
{
    TestPeer peer;
    StreamConnection connection;
    Blocks blocks (connection);
    std::atomic<int> connects { 0 }, losses { 0 };
    connection.listeners.push_back ([&] (bool connected) { ++(connected ? connects : losses); });

    auto socket = std::make_unique<juce::StreamingSocket>();
    ASSERT_TRUE (socket->connect ("127.0.0.1", peer.port(), 2000));
    ASSERT_TRUE (connection.attach (std::move (socket)));
    EXPECT_EQ (juce::String ("127.0.0.1"), connection.getName());
    const auto device = peer.accept();

    juce::MemoryOutputStream stream;
    stream.writeRepeatedByte (0, static_cast<std::size_t> (connection.getHeaderSize()));
    stream.write ("hello", 5);
    EXPECT_TRUE (connection.send (stream));
    EXPECT_EQ ("\x2C\x9E\xB4\xF2\x05\x00\x00\x00hello"s, device->read (13));

    const std::string body (100000, 'y');
    device->send ("\x2C\x9E\xB4\xF2\xA0\x86\x01\x00"s + body + "\x2C\x9E\xB4\xF2\x00\x00\x00\x00"s
                  + "\x2C\x9E\xB4\xF2\x01\x00\x00\x00z"s);
    EXPECT_TRUE (blocks.waitFor ({ body, "z" }));

    // A peer that announces more than anybody sends is not given the memory.
    device->send ("\x2C\x9E\xB4\xF2\x00\x00\x00\x7F"s);
    EXPECT_TRUE (eventually ([&] { return losses == 1; }));
    EXPECT_EQ (1, connects);
}

}
