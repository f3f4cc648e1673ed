// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tools/receiver/network/Sockets.h"

namespace veltra::receiver {

/** What a host asked in a recorded conversation, and all that came back until it asked again, byte by byte. */
struct RecordedExchange
{
    std::string question; ///< identifier and body of the envelope
    std::string reply;
};

/** The exchanges of each conversation of a capture (tools/capture/CaptureReader.h).
    @throws std::runtime_error */
std::vector<std::vector<RecordedExchange>> readExchanges (const std::filesystem::path& file);

/** A receiver that says what one said in a recording. The first session plays the first conversation, and so on; after the last
    it begins again. A message that is not the next one of the recording is reported, and looked for further on: its reply is
    the recorded one, or a refusal when there is none. */
class Replay
{
public:
    using Log = std::function<void (const std::string&)>;

    /** Starts listening.
        @param log  called on the sessions' threads, one at a time
        @throws     std::system_error; std::runtime_error for a file without conversations */
    Replay (const std::filesystem::path& file, const std::string& address, std::uint16_t port, Log log);

    /** Closes all connections. */
    ~Replay();

    std::uint16_t port() const noexcept { return listener.port(); }

private:
    class Session;

    void listen();
    void say (const std::string& text);

    const std::vector<std::vector<RecordedExchange>> conversations;
    const Log log;
    std::mutex logging;
    StopSignal stop;
    Listener listener;
    std::list<Session> sessions;
    std::thread thread;
};

}
