// SPDX-License-Identifier: GPL-3.0-or-later
#include <array>
#include <string>

#include <gtest/gtest.h>

#include "dsp/BandSplitFilters.h"
#include "dsp/ResponseError.h"
#include "tests/support/ImpulseResponses.h"
#include "tests/support/TestSource.h"
#include "topology/VLFIRBlobReader.h"
#include "topology/VLFIRModel.h"

namespace {

using namespace veltra::topology;
using Eigen::VectorXf;

constexpr std::array<const char*, 8> channelNames { "FL", "FR", "C", "SL", "SR", "BL", "BR", "SW" };

/** Errors in dB by channel of what the device plays from the blob's own integers. */
std::array<double, 8> errorsOf (unsigned sampleRate, unsigned taps)
{
    veltra::test::FIRTestSource source;
    for (const char* name : channelNames)
    {
        VectorXf response = VectorXf::Zero (sampleRate); // one second, as a filter set would give it
        const auto filter = veltra::dsp::test::livingRoom (name + ("_" + std::to_string (sampleRate)));
        response.head (filter.size()) = filter;
        source.channels.push_back ({ .response = response, .name = name });
    }

    const veltra::test::Conversion conversion ("VLFIR2", source, "NbrOfFIRTaps=" + juce::String (taps), sampleRate);
    EXPECT_TRUE (conversion.result.wasOk());
    EXPECT_EQ (1u, source.logged.size()); // nothing clipped, no cut-out at its limit

    const auto contents = readVLFIRBlob (conversion.bytes(), VLFIRGeneration::second);
    std::array<double, 8> errors {};

    for (size_t i = 0; i < contents.channels.size(); ++i)
    {
        const auto& wanted = source.channels[i].response;
        const VectorXf played = simulate (VectorXf::Unit (wanted.size(), 0), contents.channels[i]);
        errors[i] = veltra::dsp::compareResponses (wanted, played, veltra::dsp::kBandSplitDelay, sampleRate).overall_dB;
    }

    return errors;
}

/** The figures of docs/dual-rate.md. They may get better, and worse by no more than 3 dB. */
TEST (VLFIRLivingRoom, TheErrorsStayWhereTheyWere)
{
    struct Figures
    {
        unsigned sampleRate, taps;
        std::array<double, 8> errors_dB;
    };

    for (const auto& wanted : { Figures { 44100, 1024, { -68.5, -68.5, -70.2, -70.7, -70.7, -71.5, -71.5, -61.4 } },
                                Figures { 44100, 2048, { -73.0, -73.0, -73.0, -74.3, -74.3, -74.4, -74.4, -63.5 } },
                                Figures { 48000, 1024, { -70.0, -70.1, -72.1, -71.7, -71.7, -71.0, -71.1, -61.6 } },
                                Figures { 48000, 2048, { -74.0, -74.0, -74.8, -75.2, -75.2, -76.3, -76.3, -63.7 } },
                                Figures { 96000, 2048, { -68.1, -68.2, -68.3, -68.7, -68.7, -69.3, -69.3, -62.6 } },
                                Figures { 96000, 4096, { -69.5, -69.5, -69.6, -69.8, -69.8, -70.8, -70.8, -63.5 } } })
    {
        const auto errors = errorsOf (wanted.sampleRate, wanted.taps);

        for (size_t i = 0; i < errors.size(); ++i)
            EXPECT_LT (errors[i], wanted.errors_dB[i] + 3.0)
                << channelNames[i] << " at " << wanted.sampleRate << " Hz with " << wanted.taps << " taps";
    }
}

}
