// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "tests/support/TestSource.h"
#include "topology/DeviceResponse.h"

namespace {

using namespace veltra::topology;
using namespace veltra::test;

/** How it sounds where the bytes do fit is heard in the measurements of the host program. */
TEST (DeviceResponse, BytesThatDoNotFitAreRefusedWithWords)
{
    FIRTestSource source ({ { .response = vector ({ 1, 2, 3 }) } });
    std::string problem;
    const auto problemOf = [&] (const char* topology, const juce::String& parameters,
                                std::span<const std::uint8_t> bytes, std::uint32_t channelCount) {
        const DeviceData data { .topologyName = topology,
                                .parameters = parseParameters (parameters),
                                .sampleRate = 8000,
                                .channelCount = channelCount,
                                .bytes = bytes };
        EXPECT_FALSE (deviceResponse (data, channelCount - 1, problem));
        return problem;
    };

    const Conversion fir ("FIR", source, "NbrOfFIRTaps=2", 8000), dualRate ("VLFIR2", source, "NbrOfFIRTaps=64", 8000);
    EXPECT_EQ ("8 bytes where its topology takes 24", problemOf ("FIR", "NbrOfFIRTaps=2", fir.bytes(), 3));
    EXPECT_EQ ("the blob has 1 channels instead of 2", problemOf ("VLFIR2", "NbrOfFIRTaps=64", dualRate.bytes(), 2));
    EXPECT_NE ("", problemOf ("VLFIR2", "NbrOfFIRTaps=64", dualRate.bytes().first (100), 1));
    EXPECT_EQ ("there is no topology IIR", problemOf ("IIR", "", fir.bytes(), 1));
}

}
