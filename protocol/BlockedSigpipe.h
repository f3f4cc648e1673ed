// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

namespace veltra::ipc::platform {

/** Blocks SIGPIPE on the calling thread for as long as it lives, and discards what was raised meanwhile. For libraries that
    write to sockets without MSG_NOSIGNAL. Nothing where there is no such signal. Implemented in SocketPlatform.cpp. */
class BlockedSigpipe
{
public:
    BlockedSigpipe();
    ~BlockedSigpipe();

    BlockedSigpipe (const BlockedSigpipe&) = delete;
    BlockedSigpipe& operator= (const BlockedSigpipe&) = delete;

private:
    struct State;
    std::unique_ptr<State> state;
};

}
