// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "protocol/TextForm.h"
#include "tools/receiver/device/DeviceModel.h"
#include "tools/receiver/device/Messages.h"
#include "tools/receiver/device/ProtoText.h"

namespace veltra::receiver {

/** A message from text: its name and then its fields, as "Volume deviceIndex: 0 volume: 0.5". */
inline std::unique_ptr<google::protobuf::MessageLite> messageOf (const std::string& text)
{
    const auto nameEnd = std::min (text.find (' '), text.size());
    auto message = createMessage (text.substr (0, nameEnd));
    std::string error;

    if (message == nullptr || (nameEnd < text.size() && ! readText (text.substr (nameEnd), *message, error)))
        throw std::invalid_argument (text + ": " + error);

    return message;
}

/** A host's conversation with a device model, without a network. */
struct ModelHost
{
    explicit ModelHost (DeviceModel& target, std::uint32_t session = 1) : model (target)
    {
        conversation.session = session;
        conversation.send = [] (const auto&) { return true; };
    }

    /** @returns the text form of the reply; "ok" for an acknowledgement, the reason for a refusal */
    std::string say (const std::string& text)
    try
    {
        const auto message = messageOf (text);
        const auto reply = model.handle (conversation, nameOf (*message), message->SerializePartialAsString());
        const auto answer = veltraio::toText (*reply);
        return answer == "ok: true\n" ? "ok" : answer;
    }
    catch (const Refusal& refusal)
    {
        return refusal.what();
    }

    DeviceModel& model;
    Conversation conversation;
};

}
