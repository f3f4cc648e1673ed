// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What an acknowledged exchange costs through Dispatcher and AcknowledgeHandler, beside the bare ping-pong of the
    same bytes in the same process. The argument is the number of processors: on two, the peer has one to itself.
*/

#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/BarePeer.h"
#include "bench/Envelopes.h"
#include "bench/Latencies.h"
#include "bench/Placement.h"
#include "protocol/Dispatcher.h"
#include "protocol/ReplyHandlers.h"
#include "protocol/TcpDeviceConnection.h"

namespace veltra::bench {

namespace {

int peersProcessor (const benchmark::State& state) { return static_cast<int> (state.range (0)) - 1; }

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
    const OnProcessor here (0);
    const BarePeer peer (answer, peersProcessor (state));
    BareClient client (peer.port());
    Latencies latencies;

    for (auto _ : state)
    {
        const auto start = Latencies::Clock::now();

        if (! client.exchange (envelope, answer.size()))
            state.SkipWithError ("the peer has gone");

        latencies.add (Latencies::Clock::now() - start);
    }

    latencies.report (state);
}

void BM_Exchange (benchmark::State& state)
{
    const OnProcessor here (0);
    const BarePeer peer (acknowledgement(), peersProcessor (state));
    auto connection = std::make_unique<veltraio::TcpDeviceConnection> ("127.0.0.1:" + juce::String (peer.port()));

    if (! connection->connect ("127.0.0.1", peer.port(), 2000))
        return state.SkipWithError ("no connection");

    veltraio::Dispatcher dispatcher (std::move (connection), kEnvelopeMarkerText, true);
    const auto message = question();
    Latencies latencies;

    for (auto _ : state)
    {
        const auto start = Latencies::Clock::now();
        veltraio::AcknowledgeHandler handler (dispatcher);

        if (dispatcher.Send (message) != 0 || handler.Wait (500) != veltraio::ReplyState::acknowledged)
            state.SkipWithError ("no acknowledgement");

        latencies.add (Latencies::Clock::now() - start);
    }

    latencies.report (state);
}

BENCHMARK (BM_BareExchange)->Arg (1)->Arg (2)->UseRealTime();
BENCHMARK (BM_Exchange)->Arg (1)->Arg (2)->UseRealTime();

}

}
