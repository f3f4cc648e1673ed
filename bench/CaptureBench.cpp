// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    How many captured packets reach the host's callback in a second, beside a bare socket that only takes the same
    bytes in and throws them away: the most that any capture could hold.
*/

#include <atomic>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "bench/BarePeer.h"
#include "bench/Envelopes.h"
#include "plugin/AudioCapture.h"
#include "protocol/Dispatcher.h"
#include "protocol/TcpDeviceConnection.h"

namespace veltra::bench {

namespace {

constexpr std::uint32_t kPacketsInABurst = 2000;
constexpr int kSamplesInAPacket = 512; // 11 ms at 48000 Hz

/** What asks the peer for its next burst: it answers any message with one. */
veltraio::Volume demand()
{
    veltraio::Volume message;
    message.set_deviceindex (0);
    message.set_volume (0.5f);
    return message;
}

std::string burst()
{
    std::string bytes;
    veltraio::AudioData packet;

    for (int i = 0; i < kSamplesInAPacket; ++i)
        packet.add_data (0.001f * static_cast<float> (i));

    for (std::uint32_t number = 1; number <= kPacketsInABurst; ++number)
    {
        packet.set_packetnumber (number);
        bytes += envelopeOf (packet);
    }

    return bytes;
}

class PacketCount final : public veltratune_io::CaptureCallback
{
public:
    void Reserved1() override {}
    void Reserved2() override {}
    void OnCaptureStart (std::int32_t) override {}

    void OnCaptureData (const float*, std::int32_t) override
    {
        if (++packets % kPacketsInABurst == 0)
        {
            bursts.fetch_add (1);
            bursts.notify_one();
        }
    }

    std::atomic<std::uint32_t> bursts { 0 };

private:
    std::uint32_t packets = 0;
};

void countPackets (benchmark::State& state) { state.SetItemsProcessed (state.iterations() * kPacketsInABurst); }

void BM_BareCapture (benchmark::State& state)
{
    const auto bytes = burst(), request = envelopeOf (demand());
    const BarePeer peer (bytes);
    BareClient client (peer.port());

    for (auto _ : state)
        if (! client.exchange (request, bytes.size()))
            state.SkipWithError ("the peer has gone");

    countPackets (state);
}

void BM_Capture (benchmark::State& state)
{
    const BarePeer peer (burst());
    auto connection = std::make_unique<veltraio::TcpDeviceConnection> ("127.0.0.1:" + juce::String (peer.port()));

    if (! connection->connect ("127.0.0.1", peer.port(), 2000))
        return state.SkipWithError ("no connection");

    PacketCount count;
    auto& wire = *connection;
    veltraio::Dispatcher dispatcher (std::move (connection), kEnvelopeMarkerText, true);
    plugin::AudioCapture capture (wire);
    capture.start (&count);

    for (auto _ : state)
    {
        const auto before = count.bursts.load();

        if (dispatcher.Send (demand()) != 0)
        {
            state.SkipWithError ("the peer has gone");
            break;
        }

        count.bursts.wait (before);
    }

    countPackets (state);
}

BENCHMARK (BM_BareCapture)->UseRealTime();
BENCHMARK (BM_Capture)->UseRealTime();

}

}
