// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <string>
#include <vector>

#include "topology/FilterSource.h"
#include "topology/Topology.h"

namespace veltra::test {

struct TestChannel
{
    Eigen::VectorXf response {};
    topology::FIIRData data {};
    std::string name = "FL";
    float maxGaindB = 0.0f;
    std::uint32_t id = 100;
};

/** A source of given channels; Base is IFIRSource or IFIIRSource. Remembers what was logged. */
template <typename Base>
class TestSource : public Base
{
public:
    explicit TestSource (std::vector<TestChannel> sourceChannels = {}) : channels (std::move (sourceChannels)) {}

    const Eigen::VectorXf& getFIR (unsigned i) override { return channels.at (i).response; }
    float getMaxGaindB (unsigned i) override { return channels.at (i).maxGaindB; }
    std::uint32_t getChannelId (unsigned i) override { return channels.at (i).id; }
    std::string getChannelName (unsigned i) override { return channels.at (i).name; }
    std::uint32_t getChannelCount() override { return static_cast<std::uint32_t> (channels.size()); }
    void log (int level, const std::string& message) override
    {
        logged.push_back (std::to_string (level) + " " + message);
    }

    std::vector<std::string> logged;
    std::vector<TestChannel> channels;
};

using FIRTestSource = TestSource<topology::IFIRSource>;

class FIIRTestSource : public TestSource<topology::IFIIRSource>
{
public:
    using TestSource::TestSource;

    topology::FIIRData getFIIR (unsigned i) override { return channels.at (i).data; }
};

/** A conversion by name, into a block that holds rubbish to begin with. */
struct Conversion
{
    using Settings = std::vector<std::pair<const char*, const char*>>;

    Conversion (const char* topology, topology::IFIRSource& source, const juce::String& parameters,
                unsigned rate = 48000, const Settings& settings = {}, topology::ProgressFunction progress = {})
    {
        juce::PropertySet set;

        for (const auto& [key, value] : settings)
            set.setValue (key, value);

        blob.setSize (1000);
        blob.fillWith (0x55);
        topology::createTopology (topology, std::move (progress))
            ->createFilterData (result, source, topology::parseParameters (parameters), rate, blob, set);
    }

    std::span<const std::uint8_t> bytes() const
    {
        return { static_cast<const std::uint8_t*> (blob.getData()), blob.getSize() };
    }
    std::string error() const { return result.getErrorMessage().toStdString(); }

    juce::Result result = juce::Result::fail ("untouched");
    juce::MemoryBlock blob;
};

inline Eigen::VectorXf vector (std::initializer_list<float> values)
{
    Eigen::VectorXf result (static_cast<Eigen::Index> (values.size()));
    std::copy (values.begin(), values.end(), result.begin());
    return result;
}

}
