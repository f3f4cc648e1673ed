// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/GuestProcess.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"

/** @file
    The two forms of exchange with a device. Both block until the reply or the end of the time; one at a time on a
    dispatcher.
*/

namespace veltra::plugin {

/** What became of a command. */
struct CommandResult
{
    std::int32_t sent = 0;                              ///< as Dispatcher::Send returns it: 0 when it went out
    std::int32_t state = veltraio::ReplyState::pending; ///< pending after a time-out, and when it did not go out
    std::string refusal;                                ///< the device's words when it refused; may be empty

    bool isAcknowledged() const noexcept { return sent == 0 && state == veltraio::ReplyState::acknowledged; }
    bool isRefused() const noexcept { return sent == 0 && state == veltraio::ReplyState::refused; }
};

/** Sends a message that a device answers with Acknowledge. */
template <class Message>
CommandResult sendCommand (veltraio::Dispatcher& dispatcher, const Message& message, std::uint32_t timeout_ms)
{
    veltraio::AcknowledgeHandler handler (dispatcher);
    CommandResult result;
    result.sent = dispatcher.Send (message);

    if (result.sent == 0)
    {
        result.state = handler.Wait (timeout_ms);
        result.refusal = handler.getErrorText().toStdString();
        cancellationPoint();
    }

    return result;
}

/** Sends a request and waits for the message that answers it.
    @returns  nothing when the request did not go out, was refused, or was not answered in time */
template <class Answer>
std::optional<Answer> query (veltraio::Dispatcher& dispatcher, const veltraio::Request& request,
                             std::uint32_t timeout_ms)
{
    veltraio::MessageHandler<Answer> handler (dispatcher);

    if (dispatcher.Send (request) != 0 || handler.Wait (timeout_ms) != veltraio::ReplyState::answered)
        return {};

    return handler.message();
}

/** A request without a channel. */
inline veltraio::Request makeRequest (veltraio::Request::RequestType type, std::uint32_t deviceIndex)
{
    veltraio::Request request;
    request.set_requesttype (type);
    request.set_deviceindex (deviceIndex);
    return request;
}

}
