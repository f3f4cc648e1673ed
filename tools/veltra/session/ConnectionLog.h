// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

namespace veltra::host {

/** The log of this program's own connections, in the form of the module's, for as long as the object lives. The module
    must not be loaded at that time: it uses the same logger. */
class ConnectionLog
{
public:
    /** @param file   appended to; empty: nothing is logged
        @param level  of log4cplus
        @throws       Failure (kExitOutput) */
    ConnectionLog (const std::filesystem::path& file, int level);
    ~ConnectionLog();

    ConnectionLog (const ConnectionLog&) = delete;
    ConnectionLog& operator= (const ConnectionLog&) = delete;
};

}
