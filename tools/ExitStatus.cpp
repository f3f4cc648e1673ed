// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/ExitStatus.h"

#include <map>

namespace veltra {

namespace {

const std::map<ExitStatus, const char*> kMeanings {
    { kExitInternal, "fault of this program" },
    { kExitUsage, "the command line is wrong" },
    { kExitModule, "the module cannot be loaded" },
    { kExitNoReceiver, "no receiver found, or several" },
    { kExitReceiver, "the receiver refused or did not answer" },
    { kExitInput, "an input file cannot be read or is not what it should be" },
    { kExitOutput, "an output file cannot be written" },
    { kExitSlotInUse, "the filter slot holds other filters" },
    { kExitConversion, "the filters do not fit the receiver" },
    { kExitNetwork, "the address and port to listen at cannot be used" },
    { kExitChannels, "the filters are not those of the receiver's channels" },
    { kExitCancelled, "cancelled by Ctrl-C" },
};

}

std::string exitStatusHelp (std::initializer_list<ExitStatus> statuses)
{
    std::string lines;

    for (const auto status : statuses)
    {
        const auto number = std::to_string (status);
        lines += std::string (4, ' ') + number + std::string (5 - number.size(), ' ') + kMeanings.at (status) + "\n";
    }

    return lines;
}

}
