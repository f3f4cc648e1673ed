#include <gtest/gtest.h>

#include "tests/topology/TestSource.h"
#include "topology/DeviceResponse.h"
#include "topology/Topology.h"

namespace {

using namespace veltra::topology;
using namespace veltra::test;

/** What the device plays with the bytes that a conversion of the source gives it. Which sound that is, is heard in the
    measurements of the host program. */
class Device
{
public:
    Device (const char* topology, const char* parameters, IFIRSource& source)
    {
        juce::PropertySet settings;
        auto result = juce::Result::ok();
        data.topologyName = topology;
        data.parameters = parseParameters (parameters);
        data.sampleRate = 8000;
        data.channelCount = source.getChannelCount();
        createTopology (topology, {})->createFilterData (result, source, data.parameters, data.sampleRate, blob, settings);
        EXPECT_TRUE (result.wasOk());
        data.bytes = { static_cast<const std::uint8_t*> (blob.getData()), blob.getSize() };
    }

    std::optional<Eigen::VectorXf> response (std::uint32_t channel) { return deviceResponse (data, channel, problem); }

    juce::MemoryBlock blob;
    DeviceData data;
    std::string problem;
};

TEST (DeviceResponse, BytesThatDoNotFitAreRefusedWithWords)
{
    FIRTestSource source ({ { .response = vector ({ 1, 2, 3 }) } });

    Device fir ("FIR", "NbrOfFIRTaps=2", source);
    fir.data.channelCount = 3;
    EXPECT_FALSE (fir.response (0));
    EXPECT_EQ ("8 bytes where its topology takes 24", fir.problem);
    EXPECT_FALSE (fir.response (3));

    Device dualRate ("VLFIR2", "NbrOfFIRTaps=64", source);
    dualRate.data.channelCount = 2;
    EXPECT_FALSE (dualRate.response (1));
    EXPECT_EQ ("the blob has 1 channels instead of 2", dualRate.problem);
    dualRate.data.bytes = dualRate.data.bytes.first (100);
    EXPECT_FALSE (dualRate.response (0));
    EXPECT_NE ("", dualRate.problem);

    dualRate.data.topologyName = "IIR";
    EXPECT_FALSE (dualRate.response (0));
    EXPECT_EQ ("there is no topology IIR", dualRate.problem);
}

}
