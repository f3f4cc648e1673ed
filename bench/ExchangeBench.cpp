// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What an acknowledged exchange costs through Dispatcher and AcknowledgeHandler, beside the bare ping-pong of the
    same bytes in the same process.
*/

#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/BarePeer.h"
#include "bench/Envelopes.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"
#include "protocol/TcpDeviceConnection.h"

namespace veltra::bench {

namespace {

veltraio::Volume question()
{
    veltraio::Volume message;
    message.set_deviceindex (0);
    message.set_volume (0.7f);
    return message;
}

void BM_BareExchange (benchmark::State& state)
{
    const auto envelope = envelopeOf (question());
    const auto answer = acknowledgement();
    const BarePeer peer (answer);
    BareClient client (peer.port());

    for (auto _ : state)
        if (! client.exchange (envelope, answer.size()))
            state.SkipWithError ("the peer has gone");
}

void BM_Exchange (benchmark::State& state)
{
    const BarePeer peer (acknowledgement());
    auto connection = std::make_unique<veltraio::TcpDeviceConnection> ("127.0.0.1:" + juce::String (peer.port()));

    if (! connection->connect ("127.0.0.1", peer.port(), 2000))
        return state.SkipWithError ("no connection");

    veltraio::Dispatcher dispatcher (std::move (connection), kEnvelopeMarkerText, true);
    const auto message = question();

    for (auto _ : state)
    {
        veltraio::AcknowledgeHandler handler (dispatcher);

        if (dispatcher.Send (message) != 0 || handler.Wait (500) != veltraio::ReplyState::acknowledged)
            state.SkipWithError ("no acknowledgement");
    }
}

BENCHMARK (BM_BareExchange)->UseRealTime();
BENCHMARK (BM_Exchange)->UseRealTime();

}

}
