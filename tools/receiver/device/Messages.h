// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/veltraio.pb.h"

namespace veltra::receiver {

/** Thrown by an operation that a message asks for; its text goes back in an Acknowledge with ok false. */
class Refusal : public std::runtime_error
{
public:
    explicit Refusal (const std::string& text) : std::runtime_error (text) {}
};

/** Name of the message with an identifier of the wire, without its package ("LoadFilter"); empty when the
    schema has no such message. */
std::string_view messageName (std::uint32_t messageId);

/** An empty message by its name without the package; null when the schema has no such message. */
std::unique_ptr<google::protobuf::MessageLite> createMessage (std::string_view name);

/** Names of the messages that a host sends. */
const std::vector<std::string_view>& hostMessages();

/** Name of a kind of Request as faults use it ("GetUnit"); empty for a value that the schema does not have. */
std::string_view requestName (int requestType);

/** All kinds of Request, by that name. */
std::vector<std::string_view> requestNames();

/** A message's name without its package. */
std::string nameOf (const google::protobuf::MessageLite& message);

}
