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

/** A simulated receiver on a TCP port of its own: the complete device's side of the protocol.

        Receiver receiver (shippedProfile ("stereo"));
        // ... let a host talk to receiver.address() ...
        EXPECT_TRUE (receiver.waitFor ([&] { return receiver.openSessions() == 0; }));
        EXPECT_EQ (receiver.slots()[0].blocks[0].checksum(), expected);

    Slots and settings belong to the receiver, not to a session. A command that cannot be carried out is answered by an
    Acknowledge with the reason, and so is an envelope above the message limit (460 bytes when the profile gives none, as
    hosts assume). Envelopes with a wrong checksum and those of 32768 bytes and more are dropped.

    All operations may be called on any thread, but not in a callback.
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

        /** How long a session must have been silent before a new one can replace it when there are 64. */
        std::chrono::milliseconds silence = std::chrono::seconds (30);

        /** Bytes to record for messages() and for bytes(), each. */
        std::size_t recordedBytes = std::size_t { 256 } << 20;

        /** Called on the sessions' threads, one at a time. */
        std::function<void (LogDetail, const std::string&)> log;

        /** Called on a session's thread when a slot has become complete, before that is acknowledged. */
        DeviceModel::DownloadCallback onDownload;
    };

    /** Starts listening.
        @throws std::system_error when it cannot listen, std::runtime_error for options out of range */
    explicit Receiver (Profile profile, Options options);
    explicit Receiver (Profile profile);

    /** Closes all connections. */
    ~Receiver();

    Receiver (const Receiver&) = delete;
    Receiver& operator= (const Receiver&) = delete;

    std::uint16_t port() const { return listener.port(); }

    /** "127.0.0.1:4711", as the setting "Device" takes it. */
    std::string address() const;

    // State. `device` is an index into the profile's list of devices.
    std::vector<Slot> slots (std::uint32_t device = 0) const { return model.slots (device); }
    DeviceModel::Settings settings (std::uint32_t device = 0) const { return model.settings (device); }
    DeviceModel::MeasurementStatus measurement() const { return model.measurement(); }

    // What hosts have sent. Sessions are numbered from 1 in the order of their arrival.
    std::vector<ReceivedMessage> messages() const { return recorder.messages(); }
    std::vector<ReceivedMessage> messages (std::string_view type) const;
    std::size_t messageCount (std::string_view type) const { return recorder.messageCount (type); }
    std::string bytes (std::uint32_t session) const { return recorder.bytes (session); }
    std::uint32_t sessionCount() const { return recorder.sessionCount(); }
    std::uint32_t openSessions() const { return recorder.openSessions(); }

    /** Waits until a condition on the state above holds.
        @returns the condition at the end */
    bool waitFor (const std::function<bool()>& condition,
                  std::chrono::milliseconds timeout = std::chrono::seconds (10)) const;

    /** Replaces all faults. */
    void setFaults (std::vector<Fault>);
    void addFault (Fault);

    /** Refuses envelopes above so many bytes from now on; 0 for no limit. The announced limit stays. */
    void setMessageLimit (std::uint32_t bytes) { messageLimit = bytes; }

    /** Sends a message to all open sessions. */
    void broadcast (const google::protobuf::MessageLite&);

    /** Whether a downloaded slot could not be written to the folder of the options. */
    bool hasWriteFailed() const noexcept { return writeFailed; }

    /** Ends all open sessions from the receiver's side. */
    void endSessions (HostSession::Ending);

private:
    void listen();
    bool makeRoom();
    void downloadEnded (std::uint32_t device, std::uint32_t slotIndex, const Slot&);
    void log (LogDetail, const std::string&);

    /** A peer must not be able to start threads without end. One more session ends the one that has been silent longest,
        if it has been silent for `silence` (see Options). */
    static constexpr std::size_t kMaxSessions = 64;

    const Options options;
    std::atomic<std::uint32_t> messageLimit;
    Recorder recorder;
    FaultInjector faults;
    std::mutex logging;
    std::atomic<bool> writeFailed { false };
    DeviceModel model;

    StopSignal stop;
    Listener listener;
    std::mutex sessionsLock;
    std::vector<std::unique_ptr<HostSession>> sessions;
    std::thread thread;
};

}
