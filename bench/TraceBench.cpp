// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What `veltra trace` adds to an exchange: the bare ping-pong of ExchangeBench.cpp by way of its proxy.
*/

#include <atomic>
#include <thread>

#include <benchmark/benchmark.h>

#include "bench/BarePeer.h"
#include "bench/Envelopes.h"
#include "bench/Placement.h"
#include "protocol/veltraio.pb.h"
#include "tools/veltra/trace/Proxy.h"

namespace veltra::bench {

namespace {

void BM_TracedExchange (benchmark::State& state)
{
    veltraio::Volume question;
    question.set_deviceindex (0);
    question.set_volume (0.7f);
    const OnProcessor here (0);
    const auto envelope = envelopeOf (question);
    const auto answer = acknowledgement();
    const BarePeer peer (answer, static_cast<int> (state.range (0)) - 1);

    trace::Tracer tracer (
        [] (std::string_view, const Json&, const std::string& line) { benchmark::DoNotOptimize (line); }, nullptr);
    check::Target receiver;
    receiver.host = "127.0.0.1";
    receiver.port = peer.port();
    trace::Proxy proxy (receiver, 0, tracer);
    std::atomic<bool> isEnough { false };
    std::thread serving ([&] { proxy.serve ([&] { return isEnough.load(); }); });

    {
        BareClient client (proxy.port());

        for (auto _ : state)
            if (! client.exchange (envelope, answer.size()))
                state.SkipWithError ("the proxy has gone");
    }

    isEnough = true;
    serving.join();
}

BENCHMARK (BM_TracedExchange)->Arg (2)->UseRealTime();

}

}
