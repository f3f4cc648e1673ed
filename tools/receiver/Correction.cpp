#include "tools/receiver/Correction.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <string>

#include "protocol/PeerText.h"
#include "topology/Topology.h"
#include "tools/receiver/Refusal.h"

namespace veltra::receiver {

namespace {

/** Seconds of the response of a bank of sections that are kept. */
constexpr std::uint32_t kSectionSeconds = 1;

constexpr double kMaxDelay_ms = 1000.0;

float readFloat (std::string_view bytes, std::size_t place)
{
    std::uint32_t word = 0;
    for (std::size_t i = 4; i-- > 0;)
        word = word << 8 | static_cast<unsigned char> (bytes[place * 4 + i]);
    return std::bit_cast<float> (word);
}

/** The sizes of one channel's coefficients, as the topology's parameter string says. */
struct Layout
{
    std::size_t taps = 0, sections = 0;

    std::size_t floats() const { return taps + 4 * sections; }
};

std::size_t readCount (const juce::StringPairArray& parameters, const char* key)
{
    const auto value = parameters[key].getIntValue();
    if (value < 0)
        throw Refusal (std::string ("The topology's ") + key + " is negative");
    return static_cast<std::size_t> (value);
}

Layout readLayout (const veltraio::TopologyInfo& info, std::uint32_t sampleRate)
{
    const auto entry = std::find_if (info.topologies().begin(), info.topologies().end(),
                                     [&] (const auto& candidate) { return candidate.samplerate() == sampleRate; });
    if (entry == info.topologies().end() || (entry->name() != "FIR" && entry->name() != "FIIR"))
        throw Refusal ("The simulation cannot apply filters of the topology "
                       + (entry == info.topologies().end() ? std::string ("at this rate") : entry->name()));

    const auto parameters = topology::parseParameters (veltraio::peerText (entry->information()));
    Layout layout { readCount (parameters, "NbrOfFIRTaps"), 0 };
    if (entry->name() == "FIIR")
        layout.sections = readCount (parameters, "NbrOfIIRSections");
    return layout;
}

/** Adds the impulse response of (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2) in double precision: a pole close to the
    unit circle must not lose its decay in rounding. */
void addSection (Eigen::Ref<Eigen::VectorXf> response, double a1, double a2, double b0, double b1)
{
    double before = 0.0, last = 0.0;
    for (Eigen::Index n = 0; n < response.size(); ++n)
    {
        const auto now = (n == 0 ? b0 : n == 1 ? b1 : 0.0) - a1 * last - a2 * before;
        response[n] += static_cast<float> (now);
        before = last;
        last = now;
    }
}

Eigen::VectorXf equaliser (std::string_view coefficients, const Layout& layout, std::uint32_t sampleRate)
{
    const auto taps = static_cast<Eigen::Index> (layout.taps);
    const auto tail = layout.sections > 0 ? static_cast<Eigen::Index> (kSectionSeconds * sampleRate) : 0;
    Eigen::VectorXf response = Eigen::VectorXf::Zero (std::max<Eigen::Index> (taps + tail, 1));
    for (Eigen::Index n = 0; n < taps; ++n)
        response[n] = readFloat (coefficients, static_cast<std::size_t> (n));

    for (std::size_t section = 0; section < layout.sections; ++section)
    {
        const auto place = layout.taps + 4 * section;
        addSection (response.tail (tail), readFloat (coefficients, place), readFloat (coefficients, place + 1),
                    readFloat (coefficients, place + 2), readFloat (coefficients, place + 3));
    }
    return response;
}

}

std::optional<Eigen::VectorXf> correctionResponse (const Slot& slot, const veltraio::TopologyInfo& topologyInfo,
                                                   std::uint32_t channelIndex, std::uint32_t sampleRate)
{
    const auto* block = slot.findBlock (sampleRate);
    if (block == nullptr)
        return {};
    const auto& indices = block->channelIndices;
    const auto found = std::find (indices.begin(), indices.end(), channelIndex);
    if (found == indices.end())
        return {};
    const auto place = static_cast<std::size_t> (found - indices.begin());

    const auto channel = std::find_if (slot.channels.begin(), slot.channels.end(),
                                       [&] (const auto& candidate) { return candidate.channelindex() == place; });
    if (channel == slot.channels.end())
        return {};

    Eigen::VectorXf response = Eigen::VectorXf::Ones (1);
    if (! channel->noeq())
    {
        const auto layout = readLayout (topologyInfo, sampleRate);
        const auto size = layout.floats() * 4;
        if (block->bytes.size() != size * indices.size())
            throw Refusal ("The filter at " + std::to_string (sampleRate) + " Hz has "
                           + std::to_string (block->bytes.size()) + " bytes, its topology takes "
                           + std::to_string (size * indices.size()));
        response = equaliser (std::string_view (block->bytes).substr (place * size, size), layout, sampleRate);
    }

    const auto gain = static_cast<float> (std::pow (10.0, channel->gain_db() / 20.0));
    const auto delay_ms = std::clamp<double> (channel->delay_ms(), 0.0, kMaxDelay_ms);
    const auto delay = static_cast<Eigen::Index> (std::lround (delay_ms * sampleRate / 1000.0));
    Eigen::VectorXf result = Eigen::VectorXf::Zero (delay + response.size());
    result.tail (response.size()) = gain * response;
    return result;
}

}
