// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Each message that a receiver sends, through the handler that the plug-in has for it.

    The first byte of the input picks the message, the rest is its body: the checksum always fits.
*/

#include "fuzz/FuzzTarget.h"
#include "plugin/AudioCapture.h"
#include "protocol/Envelope.h"
#include "protocol/ReplyHandlers.h"
#include "protocol/TextForm.h"
#include "tests/support/LocalConnection.h"

namespace {

using namespace veltraio;
using veltra::fuzz::require;

/** Delivers a body as the dispatcher gets it from the parser. */
void deliver (Dispatcher& dispatcher, std::int32_t messageId, std::string_view body)
{
    juce::MemoryOutputStream block;
    block.writeIntBigEndian (messageId);
    block.writeIntBigEndian (static_cast<int> (envelopeHash (body.data(), body.size())));
    block.write (body.data(), body.size());
    dispatcher.getConnection().onData (block.getMemoryBlock());
}

template <class Message>
void answer (Dispatcher& dispatcher, std::string_view body)
{
    MessageHandler<Message> handler (dispatcher);
    deliver (dispatcher, IdType<Message>::value, body);
    require (handler.Wait (0) == ReplyState::answered, "each body answers, whatever can be read of it");
    toText (handler.message()); // the log shows what came, lacking fields or not
}

void acknowledge (Dispatcher& dispatcher, std::string_view body)
{
    AcknowledgeHandler handler (dispatcher);
    deliver (dispatcher, IdType<Acknowledge>::value, body);
    require (handler.Wait (0) != ReplyState::pending, "each body is a reply");
    const auto text = handler.getErrorText();
    require (juce::CharPointer_UTF8::isValidString (text.toRawUTF8(), static_cast<int> (text.getNumBytesAsUTF8())),
             "a text of the peer's is valid from here on");
}

void capture (Dispatcher& dispatcher, std::string_view body)
{
    struct Callback final : veltratune_io::CaptureCallback
    {
        void Reserved1() override {}
        void Reserved2() override {}
        void OnCaptureStart (std::int32_t) override {}

        void OnCaptureData (const float* samples, std::int32_t count) override
        {
            for (std::int32_t i = 0; i < count; ++i)
                sum = sum + samples[i];
        }

        volatile float sum = 0;
    };

    Callback callback;
    veltra::plugin::AudioCapture audio (dispatcher.getConnection());
    audio.start (&callback);
    deliver (dispatcher, IdType<AudioData>::value, body);
}

void anyMessage (Dispatcher& dispatcher, std::string_view body)
{
    using PongHandler = EventHandler<Pong>;
    using AnyHandler = EventHandler<AnyMessage>;

    struct Handler final : PongHandler,
                           AnyHandler
    {
        explicit Handler (veltra::ipc::Connection& peer)
            : registration (peer, { static_cast<PongHandler*> (this), static_cast<AnyHandler*> (this) })
        {
        }

        void onEvent (const Pong&) override { ++pongs; }
        void onEvent (const AnyMessage&) override { ++all; }

        int pongs = 0, all = 0;
        veltra::ipc::HandlerRegistration registration;
    };

    Handler handler (dispatcher.getConnection());
    deliver (dispatcher, IdType<Pong>::value, body);
    require (handler.pongs == 1 && handler.all == 1, "a Pong keeps the connection alive, whatever it holds");
}

constexpr void (*kinds[]) (Dispatcher&, std::string_view) { answer<ProtocolInfo>,
                                                            answer<Unit>,
                                                            answer<TopologyInfo>,
                                                            answer<StimulusInfo>,
                                                            answer<Volume>,
                                                            answer<ChannelAttenuation>,
                                                            answer<ActiveFilterSlot>,
                                                            answer<StimulusState>,
                                                            answer<FilteringState>,
                                                            acknowledge,
                                                            capture,
                                                            anyMessage };

}

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;

    Dispatcher dispatcher (std::make_unique<LocalConnection>(), kEnvelopeMarkerText, true);
    kinds[data[0] % std::size (kinds)](dispatcher, veltra::fuzz::asText (data + 1, size - 1));
    return 0;
}
