// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "protocol/Connection.h"
#include "protocol/EventHandler.h"
#include "protocol/veltraio.pb.h"
#include "veltratune_io/Callbacks.h"

namespace veltra::plugin {

/** Delivers the audio that a device captures to the host's callback.

    start and stop are the host's thread's; packets come on the connection's reader thread, under the connection's
    lock. Starting and stopping is registering and unregistering, which waits for that lock: that is how the fields
    are shared without a lock of their own, and why no packet is in the callback any more once stop has returned. A
    callback that calls stop itself, against its contract, gets no further call.
*/
class AudioCapture final : private veltraio::EventHandler<veltraio::AudioData>
{
public:
    explicit AudioCapture (veltra::ipc::Connection& connectionToUse) : connection (connectionToUse) {}

    /** Packets reach this callback from now on, and no other any more.
        @param newCallback  borrowed until the next start or stop has returned; null is the same as stop
        @throws             std::bad_alloc */
    void start (veltratune_io::CaptureCallback* newCallback);

    void stop() noexcept;

private:
    /** As the base class, but with the message of before: its samples keep their memory. */
    void handle (juce::InputStream& stream) override;

    void onEvent (const veltraio::AudioData& packet) override;
    void deliver (const veltraio::AudioData& packet);

    veltra::ipc::Connection& connection;

    // Written while unregistered, or on the reader thread.
    veltratune_io::CaptureCallback* callback = nullptr;
    std::uint64_t packetCount = 0;
    std::int64_t nextCaptureLog = 0; // steady milliseconds
    veltraio::AudioData received;

    veltra::ipc::HandlerRegistration registration; // last, see there
};

}
