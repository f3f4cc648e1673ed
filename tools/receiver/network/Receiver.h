// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tools/receiver/device/DeviceModel.h"
#include "tools/receiver/device/FaultScript.h"
#include "tools/receiver/device/Profile.h"
#include "tools/receiver/device/Recorder.h"
#include "tools/receiver/network/HostSession.h"
#include "tools/receiver/network/Sockets.h"

namespace veltra::receiver {

/** A simulated receiver on a TCP port of its own: the device's side of the protocol, in full.

        Receiver receiver (shippedProfile ("stereo"));
        // ... let a host talk to receiver.address() ...
        EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 0; }));
        EXPECT_EQ (receiver.slots()[0].blocks[0].checksum(), expected);

    It takes any number of sessions, one after another and at once. What it holds and how it is set belongs to the
    receiver and not to a session. It answers a command that it cannot carry out by an Acknowledge with words that
    say why, and so an envelope above its message limit (460 bytes when the profile gives none, as hosts assume).
    Envelopes with a wrong checksum, and those of 32768 bytes and more, are dropped.

    All operations may be called from any thread but its callbacks.
*/
class Receiver
{
public:
    struct Options
    {
        std::string bindAddress = "127.0.0.1";
        std::uint16_t port = 0; ///< 0 picks a free one

        MeasurementOptions measurement;
        std::vector<Fault> faults;

        /** Where slots are written when they are complete (see SlotReport.h); empty for nowhere. */
        std::filesystem::path folder;

        /** Bytes of what hosts send that are remembered for messages() and bytes(), each. */
        std::size_t recordedBytes = std::size_t { 256 } << 20;

        /** Called on the sessions' threads, one at a time. */
        std::function<void (LogDetail, const std::string&)> log;

        /** Called on a session's thread when a slot has become complete, before the host is told. */
        DeviceModel::DownloadCallback onDownload;
    };

    /** Starts listening.
        @throws std::system_error when it cannot listen, std::runtime_error for options that cannot be followed */
    explicit Receiver (Profile profile, Options options);
    explicit Receiver (Profile profile);

    /** Closes all connections. */
    ~Receiver();

    Receiver (const Receiver&) = delete;
    Receiver& operator= (const Receiver&) = delete;

    std::uint16_t port() const { return listener.port(); }

    /** "127.0.0.1:4711", as the setting "Device" takes it. */
    std::string address() const;

    // What it holds and how it is set. `device` is a place in the profile's list of devices.
    std::vector<Slot> slots (std::uint32_t device = 0) const { return model.slots (device); }
    DeviceModel::Settings settings (std::uint32_t device = 0) const { return model.settings (device); }
    DeviceModel::MeasurementStatus measurement() const { return model.measurement(); }

    // What it has heard. Sessions are numbered from 1 in the order of their coming.
    std::vector<ReceivedMessage> messages() const { return recorder.messages(); }
    std::vector<ReceivedMessage> messages (std::string_view type) const;
    std::size_t messageCount (std::string_view type) const { return recorder.messageCount (type); }
    std::string bytes (std::uint32_t session) const { return recorder.bytes (session); }
    std::uint32_t sessionCount() const { return recorder.sessionCount(); }
    std::uint32_t openSessions() const { return recorder.openSessions(); }

    /** Waits until something that the operations above tell is so, without wasting time.
        @returns what the condition says at the end */
    bool waitFor (const std::function<bool()>& condition,
                  std::chrono::milliseconds timeout = std::chrono::seconds (10)) const;

    /** Puts these faults in place of the present ones. */
    void setFaults (std::vector<Fault>);
    void addFault (Fault);

    /** Refuses envelopes above so many bytes from now on; 0 for no limit. Hosts are not told. */
    void setMessageLimit (std::uint32_t bytes) { messageLimit = bytes; }

    /** Sends a message to all open sessions, unasked. */
    void broadcast (const google::protobuf::MessageLite&);

    /** Ends all open sessions from the receiver's side. */
    void endSessions (HostSession::Ending);

private:
    void listen();
    void downloadEnded (std::uint32_t device, std::uint32_t slotIndex, const Slot&);
    void log (LogDetail, const std::string&);

    /** More sessions than anybody needs; a peer must not be able to start threads without end. */
    static constexpr std::size_t kMaxSessions = 64;

    const Options options;
    std::atomic<std::uint32_t> messageLimit;
    Recorder recorder;
    FaultInjector faults;
    std::mutex logging;
    DeviceModel model;

    StopSignal stop;
    Listener listener;
    std::mutex sessionsLock;
    std::vector<std::unique_ptr<HostSession>> sessions;
    std::thread thread;
};

}
