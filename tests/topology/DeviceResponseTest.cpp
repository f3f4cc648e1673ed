#include <cmath>

#include <gtest/gtest.h>

#include "tests/topology/TestSource.h"
#include "topology/DeviceResponse.h"
#include "topology/Topology.h"

namespace {

using namespace veltra::topology;
using namespace veltra::test;
using Eigen::VectorXf;

/** What the device plays on the channel at a place, with the bytes that a conversion of the source gives it. */
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

    std::optional<VectorXf> response (std::uint32_t channel) { return deviceResponse (data, channel, problem); }

    juce::MemoryBlock blob;
    DeviceData data;
    std::string problem;
};

TEST (DeviceResponse, FIRPlaysItsTaps)
{
    FIRTestSource source ({ { .response = vector ({ 1, 2, 3 }) }, { .response = vector ({ 4, 5, 6 }) } });
    Device device ("FIR", "NbrOfFIRTaps=2", source);
    EXPECT_EQ (vector ({ 4, 5 }), device.response (1));
    EXPECT_EQ (0u, deviceDelay ("FIR"));
}

TEST (DeviceResponse, FIIRPlaysItsSectionsBehindItsTaps)
{
    // b0 + b1 z^-1 over 1 + a1 z^-1: 1 + 0.5 z^-1 over 1 - 0.5 z^-1
    FIIRTestSource source ({ { .data = { vector ({ 7, 8 }), { { .a1 = -0.5f, .a2 = 0.0f, .b0 = 1.0f, .b1 = 0.5f } } } } });
    Device device ("FIIR", "NbrOfFIRTaps=2;NbrOfIIRSections=1", source);
    const auto played = device.response (0);
    ASSERT_TRUE (played);
    EXPECT_EQ (2 + 8000, played->size());
    EXPECT_EQ (vector ({ 7, 8, 1, 1, 0.5f, 0.25f, 0.125f }), VectorXf (played->head (7)));
}

TEST (DeviceResponse, BothDualRateGenerationsPlayTheFilterLate)
{
    FIRTestSource source ({ { .response = VectorXf::Unit (8000, 480) } });

    for (const char* topology : { "VLFIR", "VLFIR2" })
    {
        Device device (topology, "NbrOfFIRTaps=1024", source);
        const auto played = device.response (0);
        ASSERT_TRUE (played) << device.problem;
        EXPECT_LT ((played->segment (deviceDelay (topology), 8000) - source.channels[0].response).norm(), 1e-6f);
    }
}

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
