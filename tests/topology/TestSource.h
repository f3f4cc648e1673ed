#pragma once

#include <string>
#include <vector>

#include "topology/FilterSource.h"

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
    void log (int level, const std::string& message) override { logged.push_back (std::to_string (level) + " " + message); }

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

inline Eigen::VectorXf vector (std::initializer_list<float> values)
{
    Eigen::VectorXf result (static_cast<Eigen::Index> (values.size()));
    std::copy (values.begin(), values.end(), result.begin());
    return result;
}

}
