// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include <juce_core/juce_core.h>

#include "protocol/Connection.h"
#include "protocol/Envelope.h"
#include "protocol/ReplyLedger.h"
#include "protocol/veltraio.pb.h"

namespace veltraio {

using ByteVector = std::vector<std::uint8_t>;

/** Sends messages over a connection in envelopes, and hands received envelopes to the connection's handlers.

    There is one exchange at a time on a device, because no message carries a number that ties an answer to its question:

        MessageHandler<Unit> handler (dispatcher);   // before sending, so that a fast reply is not lost

        if (dispatcher.Send (request) == 0 && handler.Wait (2000) == ReplyState::answered)
            use (handler.message());

    Send may be called from several threads at once: each envelope goes out in one write.
*/
class Dispatcher
{
public:
    /** @param connection   not null
        @param markerText   the envelope's marker in hexadecimal, kEnvelopeMarkerText
        @param useTimeouts  false makes every reply handler wait without limit */
    Dispatcher (std::unique_ptr<veltra::ipc::Connection> connection, const juce::String& markerText, bool useTimeouts);

    /** Closes the connection. All handlers on it should have gone. Not from a handler or a keep-alive callback. */
    virtual ~Dispatcher();

    virtual const juce::MemoryBlock& getMarkerData() const;

    Dispatcher (const Dispatcher&) = delete;
    Dispatcher& operator= (const Dispatcher&) = delete;

    veltra::ipc::Connection& getConnection() const noexcept { return *connection; }
    bool usesTimeouts() const noexcept { return useTimeouts; }

    /** Waits until what the receiver may still say to the last exchange has come; at once when that is known. The
        handlers of replies call it before they register.
        @param isQuery  the next message is one that no late acknowledgement can mislead */
    void settle (bool isQuery = false);

    /** The same, and never at once: looks for a quiet stretch, or for the time that is given when that is shorter.
        @returns the replies since the session began that no handler waited for */
    StrayReplies lookForStrays (std::int64_t longest_ms = ReplyLedger::kLongestLook_ms);

    /** Shared with the handlers, which may outlive the dispatcher. */
    const std::shared_ptr<ReplyLedger>& getLedger() const noexcept { return ledger; }

    /** The largest whole envelope that may be sent, header included; 0 or below means no limit, as at the start. */
    void setMessageLimit (std::int32_t bytes) noexcept { messageLimit = bytes; }

    /** Sends one message of the schema.
        @param clearOnSuccess  emptied when the message has gone out; may be null
        @returns 0 when it went out; a positive number when the envelope exceeds the message limit by so many bytes and
                 was not sent; -1 when the connection did not take all of it, or when it lacks a required field
    */
    template <class T>
    std::int32_t Send (const T& message, ByteVector* clearOnSuccess = nullptr)
    {
        return sendMessage (message, IdType<T>::value, clearOnSuccess);
    }

    /** The connection's raw callback. An envelope with a wrong checksum is dropped, silently. */
    void onData (const juce::MemoryBlock& block);

private:
    std::int32_t sendMessage (const google::protobuf::MessageLite& message, std::int32_t messageId,
                              ByteVector* clearOnSuccess);

    juce::MemoryBlock frameMarker;
    const bool useTimeouts;
    std::atomic<std::int32_t> messageLimit { -1 };
    const std::shared_ptr<ReplyLedger> ledger = std::make_shared<ReplyLedger>();

    // Declared last, destroyed first: its threads may use all the rest until they have been stopped.
    const std::unique_ptr<veltra::ipc::Connection> connection;
};

}
