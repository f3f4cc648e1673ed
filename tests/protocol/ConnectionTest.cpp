// SPDX-License-Identifier: GPL-3.0-or-later

#include "protocol/Connection.h"
#include "common/Clock.h"
#include "tests/support/LocalConnection.h"
#include "tests/support/LogLines.h"
#include "tests/support/Testing.h"

namespace {

using Texts = std::vector<std::string>;

/** Notes the rest of the stream of each message. */
struct Handler final : veltra::ipc::EventHandlerBase
{
    Handler (veltra::ipc::Connection& owner, std::int32_t messageId, std::int32_t messageSubId = 0)
        : EventHandlerBase (messageId, messageSubId),
          registration (owner, { this })
    {
    }

    void handle (juce::InputStream& stream) override
    {
        received.push_back (stream.readEntireStreamAsString().toStdString());

        if (then)
            then();
    }

    Texts received;
    std::function<void()> then;
    veltra::ipc::HandlerRegistration registration;
};

/** As a connection without a raw callback reads it: identifier and sub-identifier in front. */
std::string block (char id, char subId, const std::string& body)
{
    return std::string { id, 0, 0, 0, subId, 0, 0, 0 } + body;
}

TEST (Connection, EveryHandlerOfTheIdentifierGetsTheMessageFromItsStart)
{
    LocalConnection connection;
    Handler any (connection, 0);

    // Without a handler of its identifier a message reaches not even the any-message handlers.
    connection.receive (block (7, 0, "x"));
    connection.receive (block (0, 0, "x"));
    connection.receive ("short");
    EXPECT_EQ (Texts {}, any.received);

    auto one = std::make_unique<Handler> (connection, 7);
    Handler two (connection, 7), other (connection, 8), sub (connection, 9, 1);
    EXPECT_TRUE (connection.isAwaited (7));
    connection.receive (block (7, 0, "hello"));
    EXPECT_EQ (Texts { "hello" }, one->received);
    one = nullptr;
    connection.receive (block (9, 1, "sub"));
    connection.receive (block (9, 0, "not sub"));

    EXPECT_EQ (Texts { "hello" }, two.received);
    EXPECT_EQ (Texts {}, other.received);
    EXPECT_EQ (Texts { "sub" }, sub.received);
    EXPECT_EQ ((Texts { "hello", "sub", "not sub" }), any.received);
    EXPECT_FALSE (connection.isAwaited (1));
}

TEST (Connection, HandlersMayComeAndGoWhileAMessageIsHandled)
{
    LocalConnection connection;
    Handler first (connection, 7), leaves (connection, 7), last (connection, 7);
    auto doomed = std::make_unique<Handler> (connection, 7);
    std::unique_ptr<Handler> late;

    first.then = [&] {
        late = std::make_unique<Handler> (connection, 7);
        doomed = nullptr;
    };
    leaves.then = [&] { leaves.registration.reset(); };
    connection.receive (block (7, 0, "a"));

    first.then = nullptr;
    connection.receive (block (7, 0, "b"));

    EXPECT_EQ ((Texts { "a", "b" }), first.received);
    EXPECT_EQ (Texts { "a" }, leaves.received);
    EXPECT_EQ ((Texts { "a", "b" }), last.received);
    EXPECT_EQ (Texts { "b" }, late->received);
}

TEST (Connection, AHandlerThatThrowsDoesNotKeepTheMessageFromTheOthers)
{
    LogLines log;
    LocalConnection connection;
    Handler bad (connection, 7), worse (connection, 7), good (connection, 7);
    bad.then = [] { throw std::runtime_error ("out of order"); };
    worse.then = [] { throw 5; };

    connection.receive (block (7, 0, "x"));
    EXPECT_EQ (Texts { "x" }, good.received);
    EXPECT_TRUE (log.contains ("ERROR", "VeltraIO: A message handler failed: out of order"));
    EXPECT_TRUE (log.contains ("ERROR", "VeltraIO: A message handler failed"));
}

TEST (Connection, ItsDestructorWaitsForHandlersButNotForEver)
{
    auto connection = std::make_unique<LocalConnection> (100);
    Handler left (*connection, 7), any (*connection, 0);

    const auto start = veltra::steadyMilliseconds();
    connection = nullptr;
    EXPECT_GE (veltra::steadyMilliseconds() - start, 100);

    // Unregistering the handlers now does nothing.
}

}
