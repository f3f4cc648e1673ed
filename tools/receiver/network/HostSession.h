// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "protocol/EnvelopeParser.h"
#include "tools/receiver/device/DeviceModel.h"
#include "tools/receiver/device/FaultScript.h"
#include "tools/receiver/device/Recorder.h"
#include "tools/receiver/network/Sockets.h"

namespace veltra::receiver {

/** Kinds of log lines. */
enum class LogDetail
{
    events,  ///< sessions, refusals, faults
    messages ///< also each message and its answer
};

/** Parts of a receiver that its sessions share. */
struct SessionContext
{
    DeviceModel& model;
    FaultInjector& faults;
    Recorder& recorder;
    std::atomic<std::uint32_t>& messageLimit; ///< bytes of a whole envelope; 0 for none
    std::function<void (LogDetail, const std::string&)> log;
};

/** One connection of a host: reads envelopes, passes them to the model, answers, and applies the faults. A thread of
    its own runs from construction until the connection ends. */
class HostSession : private veltraio::VeltraIOEnvelopeParser
{
public:
    /** @param faults  those of the new connection */
    HostSession (std::uint32_t number, Descriptor socket, const SessionContext&, std::vector<Fault> faults);
    ~HostSession() override;

    /** Sends a message that is not a reply. Any thread.
        @returns false after the end of the connection */
    bool send (const google::protobuf::MessageLite&);

    enum class Ending
    {
        close, ///< in an orderly way
        reset
    };

    /** Ends the connection, as soon as its thread notices. Any thread. */
    void end (Ending);

    /** When the last bytes of the host arrived, or the connection. */
    std::chrono::steady_clock::time_point lastHeard() const { return heard; }

    /** The connection has ended; destruction does not wait. */
    bool isOver() const { return over; }

private:
    struct Outgoing;

    std::vector<Fault> nextFaults (const std::vector<std::string_view>& names);
    void run (const std::vector<Fault>& connectFaults);
    void onEnvelope (const juce::MemoryBlock&) override;
    void handle (const std::string& type, const std::string& body, const std::vector<Fault>&);
    void deliver (Outgoing, const std::vector<Fault>&);
    void transmit (std::string_view bytes, const std::vector<Fault>&);
    void log (LogDetail, const std::string&) const;

    const SessionContext shared;
    Conversation conversation;
    StopSignal stop;
    std::atomic<Ending> ending { Ending::close };
    std::atomic<bool> over { false };
    std::atomic<std::chrono::steady_clock::time_point> heard { std::chrono::steady_clock::now() };

    std::mutex sending; // one envelope at a time
    HostSocket connection;
    std::thread thread;
};

}
