// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What the transfer of a download costs beside as many bare exchanges of as many bytes, and how much memory a
    download takes. The device is an object of the module; the receiver is the least that acknowledges.
*/

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/BarePeer.h"
#include "bench/Envelopes.h"
#include "bench/Latencies.h"
#include "bench/Placement.h"
#include "bench/ProcessMemory.h"
#include "plugin/DeviceImpl.h"
#include "protocol/Dispatcher.h"
#include "protocol/TcpDeviceConnection.h"

namespace veltra::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned sampleRate = 48000;
constexpr unsigned channelCount = 16;
constexpr unsigned tapCount = 16384; // 16 channels of 16384 taps of 4 bytes are 1 MiB
constexpr std::size_t downloadSize = std::size_t { channelCount } * tapCount * sizeof (float);
constexpr std::size_t largestChunk = 1024; // whatever the message limit is

std::string description()
{
    std::string text = "<Veltra><Tune ProjectName=\"Bench\" Technology=\"FIR\">";
    std::string taps;

    for (unsigned i = 0; i < tapCount; ++i)
        taps += std::to_string (std::sin (0.01 * i) * std::exp (-0.001 * i)) + " ";

    for (unsigned channel = 1; channel <= channelCount; ++channel)
        text += "<Channel Name=\"CH\" Number=\"" + std::to_string (channel) + "\"><Coefficients Topology=\"FIR\" Fs=\""
                + std::to_string (sampleRate) + "\"><FIR NbrOfTaps=\"" + std::to_string (tapCount) + "\"><taps>" + taps
                + "</taps></FIR></Coefficients></Channel>";

    return text + "</Tune></Veltra>";
}

plugin::Descriptions receiverWithSixteenChannels()
{
    plugin::Descriptions descriptions;
    auto& device = *descriptions.unit.add_devices();
    auto& configuration = *device.add_configurations();
    configuration.add_samplerates (sampleRate);
    device.set_name ("Bench");
    device.add_filterslots()->set_isoccupied (false);

    for (unsigned channel = 0; channel < channelCount; ++channel)
    {
        auto& info = *device.add_outputchannels();
        info.set_name ("CH");
        info.set_channelindex (channel);
        configuration.add_channels (channel);
    }

    auto& topology = *descriptions.topologyInfo.add_topologies();
    topology.set_name ("FIR");
    topology.set_samplerate (sampleRate);
    topology.set_information ("NbrOfFIRTaps=" + std::to_string (tapCount));
    return descriptions;
}

/** Notes when the conversion is over and the transfer begins, which the device says with an empty text. */
class TransferStart final : public veltratune_io::ProgressCallback
{
public:
    void Reserved1() override {}
    void OnProgressText (const char*, std::uint32_t length) override { time = length == 0 ? Clock::now() : time; }
    bool OnProgress (float) override { return true; }

    Clock::time_point time;
};

/** A device on a connection of its own to a peer that acknowledges everything. */
class DeviceOnBarePeer
{
public:
    /** @param peersProcessor  see BarePeer */
    DeviceOnBarePeer (int messageLimit, int peersProcessor) : peer (acknowledgement(), peersProcessor)
    {
        auto connection = std::make_unique<veltraio::TcpDeviceConnection> ("127.0.0.1:" + juce::String (peer.port()));

        if (! connection->connect ("127.0.0.1", peer.port(), 2000))
            throw std::runtime_error ("no connection to the benchmark's peer");

        dispatcher = std::make_unique<veltraio::Dispatcher> (std::move (connection), kEnvelopeMarkerText, true);
        dispatcher->setMessageLimit (messageLimit);
        device = std::make_unique<plugin::DeviceImpl> (*dispatcher, receiverWithSixteenChannels(), settings, 0, "");
    }

    /** @returns the time that the transfer took, in seconds; negative when it failed */
    double download (const std::string& text)
    {
        TransferStart start;
        const auto result = device->DownloadFilterSet (0, text.c_str(), 0, &start);
        const std::chrono::duration<double> taken = Clock::now() - start.time;

        veltratune_io::FilterSet* set = nullptr;

        if (result != veltratune_io::kResultOk || ! device->GetFilterSet (0, 0, &set)
            || ! device->RemoveFilterSet (set))
            return -1.0;

        return taken.count();
    }

private:
    const BarePeer peer;
    juce::PropertySet settings;
    std::unique_ptr<veltraio::Dispatcher> dispatcher;
    std::unique_ptr<plugin::DeviceImpl> device;
};

veltraio::FilterDataChunk chunkOf (std::size_t size)
{
    veltraio::FilterDataChunk chunk;
    chunk.set_deviceindex (0);
    chunk.set_slotindex (0);
    chunk.set_dataoffset (downloadSize / 2); // as long on the wire as most offsets are
    chunk.add_data (std::string (size, '\x55'));
    return chunk;
}

/** The bytes of data in one envelope that just keeps to the limit. */
std::size_t chunkSizeFor (int messageLimit)
{
    const auto overhead = envelopeOf (chunkOf (128)).size() - 128; // 128: from there on the length takes two bytes
    return std::min (largestChunk, static_cast<std::size_t> (messageLimit) - overhead);
}

/** The arguments are the message limit and the number of processors: on two, the peer has one to itself. */
int peersProcessor (const benchmark::State& state) { return static_cast<int> (state.range (1)) - 1; }

void BM_BareDownload (benchmark::State& state)
{
    const auto chunkSize = chunkSizeFor (static_cast<int> (state.range (0)));
    const auto envelope = envelopeOf (chunkOf (chunkSize));
    const auto answer = acknowledgement();
    const OnProcessor here (0);
    const BarePeer peer (answer, peersProcessor (state));
    BareClient client (peer.port());
    Latencies latencies;

    for (auto _ : state)
    {
        const auto start = Clock::now();

        for (std::size_t sent = 0; sent < downloadSize; sent += chunkSize)
            if (! client.exchange (envelope, answer.size()))
                state.SkipWithError ("the peer has gone");

        latencies.add (Clock::now() - start);
    }

    latencies.report (state);
}

void BM_Download (benchmark::State& state)
{
    const OnProcessor here (0);
    DeviceOnBarePeer target (static_cast<int> (state.range (0)), peersProcessor (state));
    Latencies latencies;
    const auto text = description();

    // The first download of a session takes 10 ms more for each kind of message, see ReplyLedger.
    target.download (text);

    for (auto _ : state)
    {
        const auto seconds = target.download (text);

        if (seconds < 0.0)
            state.SkipWithError ("the download failed");
        else
            state.SetIterationTime (seconds);

        latencies.add (std::chrono::duration<double> (seconds));
    }

    latencies.report (state);
}

/** Peak of resident memory during one download above what was resident before it. */
void BM_DownloadMemory (benchmark::State& state)
{
    DeviceOnBarePeer target (1400, -1);
    const auto text = description();
    double peak = 0.0;

    for (auto _ : state)
    {
        const PeakMemory memory;

        if (target.download (text) < 0.0)
            state.SkipWithError ("the download failed");

        peak = std::max (peak, memory.growth_MiB());
    }

    state.counters["description_MiB"] = static_cast<double> (text.size()) / (1024.0 * 1024.0);
    state.counters["peak_MiB"] = peak;
}

BENCHMARK (BM_BareDownload)->ArgsProduct ({ { 460, 1400 }, { 1, 2 } })->UseRealTime()->Iterations (10);
BENCHMARK (BM_Download)->ArgsProduct ({ { 460, 1400 }, { 1, 2 } })->UseManualTime()->Iterations (10);
BENCHMARK (BM_DownloadMemory)->Iterations (1);

}

}
