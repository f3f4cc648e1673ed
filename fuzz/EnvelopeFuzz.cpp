// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A receiver's byte stream: the envelope parser, and the dispatcher with handlers that wait for replies.

    The input is the stream as it comes from the network, behind one byte that says into pieces of which size it is cut.
*/

#include <vector>

#include "fuzz/FuzzTarget.h"
#include "protocol/EnvelopeParser.h"
#include "protocol/PingHandler.h"
#include "protocol/ReplyHandlers.h"
#include "tests/support/LocalConnection.h"

namespace {

using namespace veltraio;

/** Keeps each envelope, and hands it to a connection when it has one. */
class Stream final : public VeltraIOEnvelopeParser
{
public:
    explicit Stream (veltra::ipc::Connection* connectionOrNull)
        : VeltraIOEnvelopeParser ([] { return std::int64_t { 0 }; }),
          connection (connectionOrNull)
    {
    }

    std::vector<juce::MemoryBlock> envelopes;

private:
    void onEnvelope (const juce::MemoryBlock& block) override
    {
        envelopes.push_back (block);

        if (connection != nullptr)
            connection->onData (block);
    }

    veltra::ipc::Connection* const connection;
};

}

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using veltra::fuzz::require;

    if (size == 0)
        return 0;

    const std::size_t pieceSize = *data++ + std::size_t { 1 };
    --size;

    Dispatcher dispatcher (std::make_unique<LocalConnection>(), kEnvelopeMarkerText, true);
    AcknowledgeHandler acknowledge (dispatcher);
    MessageHandler<Unit> unit (dispatcher);
    MessageHandler<Volume> volume (dispatcher);
    MessageHandler<TopologyInfo> topologies (dispatcher);

    Stream pieces (&dispatcher.getConnection());

    for (std::size_t i = 0; i < size; i += pieceSize)
        pieces.feed (data + i, static_cast<std::uint32_t> (std::min (pieceSize, size - i)));

    // The network cuts a stream where it likes.
    Stream whole (nullptr);
    whole.feed (data, static_cast<std::uint32_t> (size));
    require (pieces.envelopes == whole.envelopes, "a stream holds the same envelopes however it is cut");

    for (const auto& block : whole.envelopes)
        require (block.getSize() >= 8 && block.getSize() + 3 + 4 < VeltraIOEnvelopeParser::kBufferSize,
                 "an envelope holds identifier and checksum, and fits the buffer");

    // What arrived is read as after any exchange.
    acknowledge.Wait (0);
    acknowledge.getErrorText();
    require (unit.Wait (0) != ReplyState::answered
                 || unit.message().ByteSizeLong() < VeltraIOEnvelopeParser::kBufferSize,
             "a message is no larger than what it came in");
    return 0;
}
