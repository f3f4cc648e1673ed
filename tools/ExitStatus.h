// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <initializer_list>
#include <stdexcept>
#include <string>

namespace veltra {

/** What the programs end with. Their `--help` lists the statuses, with the texts of ExitStatus.cpp. */
enum ExitStatus
{
    kExitOk = 0,
    kExitInternal = 1,   ///< a fault of the program itself
    kExitUsage = 2,      ///< the command line cannot be carried out
    kExitModule = 3,     ///< the module was not found or could not be loaded
    kExitNoReceiver = 4, ///< no receiver opened a session, or several did
    kExitReceiver = 5,   ///< the receiver refused or did not answer
    kExitInput = 6,      ///< an input file cannot be read or is not what it should be
    kExitOutput = 7,     ///< an output file cannot be written
    kExitSlotInUse = 8,  ///< the filter slot holds other filters
    kExitConversion = 9, ///< the filters do not fit what the receiver can run
    kExitNetwork = 10,   ///< the address and port to listen at cannot be used
    kExitChannels = 11,  ///< the filters are not those of the receiver's channels
    kExitCancelled = 130 ///< Ctrl-C, as a shell reports it
};

/** Ends a program: one sentence for a person, and the exit status. */
class Failure : public std::runtime_error
{
public:
    Failure (ExitStatus statusToUse, const std::string& sentence) : std::runtime_error (sentence), status (statusToUse)
    {
    }

    const ExitStatus status;
};

/** The lines of a program's `--help` about the statuses that it can end with, 0 excepted. */
std::string exitStatusHelp (std::initializer_list<ExitStatus> statuses);

}
