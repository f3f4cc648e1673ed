// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/session/ReceiverDescription.h"

#include "common/Text.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/session/ConnectionLog.h"

namespace veltra::host {

namespace {

using veltraio::Request;

constexpr std::uint32_t kAnswerTime_ms = 5000;

/** A connection to a receiver for some questions. */
class Questions
{
public:
    Questions (veltraio::ConnectionManager& connections, const std::string& address)
    {
        if (auto connection = connections.Connect ("TCP:" + juce::String (address)))
            dispatcher =
                std::make_unique<veltraio::Dispatcher> (std::move (connection), veltraio::kEnvelopeMarkerText, true);
    }

    template <class Answer>
    std::optional<Answer> ask (Request::RequestType type)
    {
        if (dispatcher == nullptr)
            return std::nullopt;

        veltraio::MessageHandler<Answer> answer (*dispatcher);
        Request request;
        request.set_requesttype (type);
        request.set_deviceindex (0);

        if (dispatcher->Send (request) != 0 || answer.Wait (kAnswerTime_ms) != veltraio::ReplyState::answered)
            return std::nullopt;

        return answer.message();
    }

private:
    std::unique_ptr<veltraio::Dispatcher> dispatcher;
};

std::optional<veltraio::Unit::FilterSlot> slotNow (const std::string& address, std::uint32_t slot)
{
    const ConnectionLog silence ({}, 0);
    veltraio::ConnectionManager connections (0);
    const auto unit = readUnit (connections, address);

    if (! unit || unit->devices().empty() || slot >= static_cast<std::uint32_t> (unit->devices (0).filterslots_size()))
        return std::nullopt;

    return unit->devices (0).filterslots (static_cast<int> (slot));
}

}

std::optional<veltraio::Unit> readUnit (veltraio::ConnectionManager& connections, const std::string& address)
{
    return Questions (connections, address).ask<veltraio::Unit> (Request::RequestType_kGetUnit);
}

ReceiverDescription describeReceiver (const SessionOptions& options)
{
    const ConnectionLog log (options.log, options.logLevel);
    veltraio::ConnectionManager connections (0);
    Questions questions (connections, options.device);
    auto unit = questions.ask<veltraio::Unit> (Request::RequestType_kGetUnit);
    auto topologyInfo =
        unit ? questions.ask<veltraio::TopologyInfo> (Request::RequestType_kGetTopologyInfo) : std::nullopt;

    if (! topologyInfo || unit->devices().empty())
        throw noReceiver (options.device);

    return { std::move (*unit), std::move (*topologyInfo) };
}

std::string slotSentence (const std::string& address, std::uint32_t slot)
{
    const auto held = slotNow (address, slot);
    const auto name = "slot " + std::to_string (slot);

    if (! held)
        return "The receiver does not say what " + name + " holds now.";

    return held->isoccupied() ? "The receiver says that " + name + " holds \"" + logText (held->name()) + "\" now."
                              : "The receiver says that " + name + " is empty now.";
}

std::optional<bool> slotIsOccupied (const std::string& address, std::uint32_t slot)
{
    const auto held = slotNow (address, slot);
    return held ? std::optional (held->isoccupied()) : std::nullopt;
}

}
