// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "veltratune_io/Device.h"

namespace veltra::test {

/** One operation that talks to a device, with what it should make of each outcome. */
struct Operation
{
    enum class Kind
    {
        query,        ///< answered by a message; leaves no words
        quietCommand, ///< answered by Acknowledge; leaves no words
        wordyCommand  ///< the same, and leaves the refusal or "Timeout" for GetLastError
    };

    std::string name;
    Kind kind;
    std::string type;                                         ///< of its message
    std::string fault;                                        ///< what a fault script calls that
    std::string message;                                      ///< what goes out, in protobuf's text form
    std::function<std::string (veltratune_io::Device2&)> run; ///< returns its result as text
    std::string success, failure;                             ///< what that should be

    /** The text form of a message of its type. */
    std::function<std::string (const std::string& body)> textOf;
};

/** All operations of measurement control that need the network, in an order in which each succeeds on the device of
    DeviceFixture. */
const std::vector<Operation>& operations();

}
