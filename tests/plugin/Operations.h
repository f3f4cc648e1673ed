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
        query,         ///< answered by a message; leaves no words
        command,       ///< answered by Acknowledge; leaves no words
        wordyCommand   ///< the same, and leaves the refusal or "Timeout" for GetLastError
    };

    std::string name;
    std::string fault;    ///< what a fault script calls its message
    std::string type;     ///< of its message
    std::string message;  ///< that goes out, in protobuf's text form on one line
    Kind kind;
    std::function<std::string (veltratune_io::Device2&)> run; ///< returns its result as text
    std::string success;
    std::string failure;
    std::string logged;   ///< line of a failure; empty for none
};

/** All operations of measurement control that need the network. The device is that of smallProfile(), on which
    SetVolume (0.5), SetChannelAttenuation (1, 3) and SetActiveFilterSlot (2) have been called. */
const std::vector<Operation>& operations();

}
