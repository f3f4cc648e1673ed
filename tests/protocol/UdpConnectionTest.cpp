// SPDX-License-Identifier: GPL-3.0-or-later

#include "protocol/UdpConnection.h"
#include "tests/support/Testing.h"

namespace {

/** The test feeds it datagrams, or lets it read. */
struct Datagrams final : veltra::ipc::UdpConnection
{
    explicit Datagrams (int threadPriority = -1) : UdpConnection (0, threadPriority, "127.0.0.1")
    {
        setRawCallback ([this] (const juce::MemoryBlock& block) {
            messages.emplace_back (static_cast<const char*> (block.getData()), block.getSize());
            received.signal();
        });
    }

    ~Datagrams() override { stopReading(); }

    using UdpConnection::startReading;

    bool take (const std::string& datagram)
    {
        return handleDatagram (datagram.data(), static_cast<int> (datagram.size()), "127.0.0.1", 1);
    }

    void sendTo (Datagrams& there, const std::string& body)
    {
        juce::MemoryOutputStream stream;
        stream.writeRepeatedByte (0, static_cast<std::size_t> (getHeaderSize()));
        stream.write (body.data(), body.size());
        EXPECT_TRUE (send (stream, { "127.0.0.1", there.socket.getBoundPort() }));
    }

    /** The next datagram that arrives, as it is. */
    std::string next()
    {
        std::vector<char> bytes (kMaximumDatagramSize);
        const int size =
            socket.waitUntilReady (true, 10000) > 0 ? socket.read (bytes.data(), kMaximumDatagramSize, false) : 0;
        return { bytes.data(), static_cast<std::size_t> (size) };
    }

    std::vector<std::string> messages;
    juce::WaitableEvent received;
};

TEST (UdpConnection, CarriesMessagesInOneDatagramOrSeveralAndDropsAllElse)
{
    Datagrams here, there;
    ASSERT_TRUE (here.isConnected());
    EXPECT_THROW (here.write ("x", 1), std::logic_error);

    here.sendTo (there, "hello, world");
    const auto good = there.next();
    ASSERT_EQ (16u + 12, good.size());
    auto wrongBody = good, wrongCheck = good, huge = good;
    wrongBody.back() ^= 1;
    wrongCheck[4] ^= 1;
    huge.replace (8, 4, "\xff\xff\xff\xff");

    for (const auto& datagram :
         { wrongBody, wrongCheck, good + "x", huge, std::string(), std::string ("short"), good.substr (16) })
        EXPECT_FALSE (there.take (datagram));

    EXPECT_FALSE (there.take (good.substr (0, 20)));
    EXPECT_TRUE (there.take (good)) << "a new header begins a new message";

    const std::string large (100000, 'x');
    here.sendTo (there, large);
    EXPECT_FALSE (there.take (there.next()));
    EXPECT_TRUE (there.take (there.next()));
    EXPECT_EQ ((std::vector<std::string> { "hello, world", large }), there.messages);
}

TEST (UdpConnection, ItsThreadReadsAndStops)
{
    Datagrams here, there (5);
    there.startReading();
    here.sendTo (there, "x");
    EXPECT_TRUE (there.received.wait (10000));
}

}
