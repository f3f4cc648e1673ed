// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/trace/Proxy.h"

#include <array>
#include <atomic>
#include <utility>

#include "protocol/HostLookup.h"
#include "protocol/SocketPlatform.h"
#include "tools/ExitStatus.h"

namespace veltra::trace {

namespace {

constexpr int kLook_ms = 100;
constexpr int kConnectWait_ms = 2000;

}

/** One host's connection and the one to the receiver, with a thread for each direction. */
class Proxy::Link
{
public:
    Link (Tracer& theTracer, unsigned theNumber, std::unique_ptr<juce::StreamingSocket> hostSide,
          std::unique_ptr<juce::StreamingSocket> receiverSide)
        : tracer (theTracer),
          number (theNumber),
          host (std::move (hostSide)),
          receiver (std::move (receiverSide))
    {
        for (const auto* const socket : { host.get(), receiver.get() })
            ipc::platform::prepareSocket (socket->getRawSocketHandle());

        tracer.opened (number);
        fromHost = std::thread ([this] { pass (*host, *receiver, Side::host); });
        fromReceiver = std::thread ([this] { pass (*receiver, *host, Side::receiver); });
    }

    ~Link()
    {
        end();
        fromHost.join();
        fromReceiver.join();
    }

    Link (const Link&) = delete;
    Link& operator= (const Link&) = delete;

    bool isOver() const noexcept { return running == 0; }

private:
    void end() noexcept
    {
        ipc::platform::shutDown (host->getRawSocketHandle());
        ipc::platform::shutDown (receiver->getRawSocketHandle());
    }

    static bool sendAll (int handle, std::string_view bytes)
    {
        while (! bytes.empty())
        {
            const auto sent = ipc::platform::sendBytes (handle, bytes.data(), static_cast<int> (bytes.size()),
                                                        ipc::platform::Blocking::yes);

            if (sent <= 0)
                return false;

            bytes.remove_prefix (static_cast<std::size_t> (sent));
        }

        return true;
    }

    void pass (const juce::StreamingSocket& from, const juce::StreamingSocket& to, Side sender)
    {
        std::array<char, 65536> buffer;

        for (;;)
        {
            const auto count =
                ipc::platform::receiveBytes (from.getRawSocketHandle(), buffer.data(), std::ssize (buffer));

            if (count <= 0)
                break;

            const std::string_view bytes (buffer.data(), static_cast<std::size_t> (count));
            tracer.passed (number, sender, bytes); // first: the answer may come before sendAll returns

            if (! sendAll (to.getRawSocketHandle(), bytes))
                break;
        }

        if (! hasEnded.exchange (true))
            first = sender;

        end();

        if (--running == 0)
            tracer.closed (number, first.load());
    }

    Tracer& tracer;
    const unsigned number;
    const std::unique_ptr<juce::StreamingSocket> host, receiver;
    std::atomic<int> running { 2 };
    std::atomic<bool> hasEnded { false };
    std::atomic<Side> first { Side::host }; ///< that has closed its connection
    std::thread fromHost, fromReceiver;
};

Proxy::Proxy (check::Target theReceiver, int port, Tracer& theTracer)
    : receiver (std::move (theReceiver)),
      tracer (theTracer)
{
    if (! listener.createListener (port, "127.0.0.1"))
        throw Failure (kExitNetwork, "127.0.0.1:" + std::to_string (port) + " cannot be listened at.");
}

Proxy::~Proxy() = default;

void Proxy::serve (const std::function<bool()>& isEnough)
{
    while (! isEnough())
    {
        if (listener.waitUntilReady (true, kLook_ms) <= 0)
            continue;

        std::unique_ptr<juce::StreamingSocket> host (listener.waitForNextConnection());

        if (host == nullptr)
            continue;

        links.remove_if ([] (const auto& link) { return link->isOver(); });
        auto socket = std::make_unique<juce::StreamingSocket>();
        const auto deadline = check::Clock::now() + check::Milliseconds (kConnectWait_ms);

        for (const auto& address : lookUpHost (receiver.host, deadline, [] { return false; }))
            if (socket->connect (juce::String (address), receiver.port, kConnectWait_ms))
                break;

        // A receiver that is not there closes the host's connection, as it would be without the proxy.
        if (socket->isConnected())
            links.push_back (std::make_unique<Link> (tracer, ++lastNumber, std::move (host), std::move (socket)));
    }
}

}
