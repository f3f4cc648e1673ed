// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/Testing.h"
#include "tests/support/TestSource.h"

namespace {

using namespace veltra::topology;
using namespace veltra::test;

/** The blob as a row of bytes in hexadecimal. */
std::string bytesOf (const Conversion& conversion)
{
    return juce::String::toHexString (conversion.bytes().data(), static_cast<int> (conversion.bytes().size()), 0)
        .toStdString();
}

const std::string one = "0000803f", two = "00000040", minusHalf = "000000bf", zero = "00000000";

TEST (Topologies, AreFoundByTheirExactNames)
{
    std::string names;

    for (const auto& entry : topologies())
    {
        EXPECT_NE (nullptr, createTopology (entry.name, {})) << entry.name;
        EXPECT_EQ (entry.dualRate ? 298u : 0u, entry.delay);
        names += std::string (entry.name) + (entry.dualRate ? " dual-rate " : " ");
    }

    EXPECT_EQ ("FIIR FIR VLFIR dual-rate VLFIR2 dual-rate ", names);

    for (const char* name : { "fir", "FIR ", "FIRx", "F", "", "FII", "VLFIR3" })
        EXPECT_EQ (nullptr, createTopology (name, {})) << name;
}

TEST (Topologies, HaveALongestResponseAndALatency)
{
    const auto parameters = parseParameters ("NbrOfFIRTaps=1000;latency=256");
    EXPECT_EQ (1000u, createTopology ("FIR", {})->getMaxTaps (parameters, 44101));
    EXPECT_EQ (0u, createTopology ("FIR", {})->getMaxTaps ({}, 44101));
    EXPECT_EQ (0u, createTopology ("FIR", {})->getMaxTaps (parseParameters ("NbrOfFIRTaps=-1"), 44101));
    EXPECT_EQ (22050u, createTopology ("FIIR", {})->getMaxTaps (parameters, 44101));
    EXPECT_EQ (0.0f, createTopology ("FIR", {})->getLatencyMs (parameters, 44100));
    EXPECT_EQ (0.0f, createTopology ("FIIR", {})->getLatencyMs (parameters, 44100));
    EXPECT_FLOAT_EQ (256000.0f / 48000.0f, createTopology ("VLFIR2", {})->getLatencyMs ({}, 48000))
        << "in samples of the rate";
    EXPECT_FLOAT_EQ (1.0f, createTopology ("VLFIR2", {})->getLatencyMs (parseParameters ("Latency=96"), 96000));
    EXPECT_EQ (22050u, createTopology ("VLFIR2", {})->getMaxTaps (parameters, 44101));
}

TEST (ParameterString, KeepsItemsOfOneKeyAndOneValue)
{
    const auto pairs = [] (const juce::String& text) {
        const auto parameters = parseParameters (text);
        std::string all;

        for (int i = 0; i < parameters.size(); ++i)
            all += (parameters.getAllKeys()[i] + ":" + parameters.getAllValues()[i] + " ").toStdString();

        return all;
    };

    EXPECT_EQ ("NbrOfFIRTaps:1000 NbrOfIIRSections:30 ", pairs ("NbrOfFIRTaps=1000;NbrOfIIRSections=30"));
    EXPECT_EQ ("a:1 c:3 ", pairs ("a=1;b;c=3"));
    EXPECT_EQ ("b:2 ", pairs ("a=1=2;b=2;;=x=;"));
    EXPECT_EQ ("a: ", pairs ("a="));
    EXPECT_EQ ("a:2 ", pairs ("a=1;A=2"));
    EXPECT_EQ ("", pairs (""));
    EXPECT_EQ ("1000", parseParameters ("nbroffirtaps=1000")["NbrOfFIRTaps"].toStdString());
}

TEST (ParameterString, OnlySoManyItemsAreRead)
{
    juce::MemoryOutputStream text;

    for (int i = 0; i < 200000; ++i)
        text << i << "=1;";

    EXPECT_EQ (1024, parseParameters (text.toString()).size());
}

TEST (FIRTopology, WritesTheFirstTapsOfEachChannel)
{
    FIRTestSource source ({ { .response = vector ({ 1.0f, 2.0f, -0.5f }) }, { .response = vector ({ -0.5f }) } });

    const Conversion cut ("FIR", source, "NbrOfFIRTaps=2");
    EXPECT_TRUE (cut.result.wasOk());
    EXPECT_EQ (one + two + minusHalf + zero, bytesOf (cut)) << "a short response is filled up with zeros";

    FIRTestSource noChannels;

    for (const auto& nothing :
         { Conversion ("FIR", source, "NbrOfFIRTaps=0"), Conversion ("FIR", noChannels, "NbrOfFIRTaps=1000"),
           Conversion ("FIR", source, "NbrOfFIRTaps=none") })
        EXPECT_TRUE (nothing.result.wasOk() && nothing.blob.isEmpty());
}

TEST (FIRTopology, FailuresAreExplained)
{
    FIRTestSource source ({ { .response = vector ({ 1.0f }) }, { .name = "C\xf0" } });
    EXPECT_EQ ("Required topology parameter not found", Conversion ("FIR", source, "NbrOfTaps=2").error());
    EXPECT_EQ ("No filter response for channel C? at 96000 Hz",
               Conversion ("FIR", source, "NbrOfFIRTaps=2", 96000).error());

    FIRTestSource long1 ({ { .response = vector ({ 1.0f }) } });
    EXPECT_EQ (64u << 20, Conversion ("FIR", long1, "NbrOfFIRTaps=16777216").blob.getSize());

    for (const char* taps : { "-1", "16777217", "2147483647", "99999999999", "-99999999999" })
        EXPECT_EQ ("Required topology parameter out of range",
                   Conversion ("FIR", long1, "NbrOfFIRTaps=" + juce::String (taps)).error())
            << taps;
}

TEST (FIIRTopology, CopiesEachChannelIntoItsSlot)
{
    FIIRTestSource source ({ { .data = { vector ({ 1, 2 }), { { 1, 2, -0.5f, 1 } } } },
                             { .data = { vector ({ 2 }), { { 1, 1, 1, 1 } } } }, // sections straight behind the taps
                             {},                                                 // nothing at this rate
                             { .data = { vector ({ 1, 1, 1, 1, 1, 1, 2 }), {} } } }); // too many, beyond channel 0

    const Conversion conversion ("FIIR", source, "NbrOfFIRTaps=2;NbrOfIIRSections=1");
    EXPECT_TRUE (conversion.result.wasOk());
    EXPECT_EQ (one + two + one + two + minusHalf + one + two + one + one + one + one + zero + zero + zero + zero + zero
                   + zero + zero + one + one + one + one + one + one,
               bytesOf (conversion));
}

TEST (FIIRTopology, FailuresAreExplained)
{
    FIIRTestSource source (
        { { .data = { Eigen::VectorXf::Zero (1200), std::vector<veltra::dsp::FIIRSection> (24) } } });
    EXPECT_EQ ("Required topology parameters not found", Conversion ("FIIR", source, "NbrOfFIRTaps=1000").error());
    EXPECT_EQ ("Required topology parameters not found", Conversion ("FIIR", source, "NbrOfIIRSections=30").error());
    EXPECT_EQ ("FIIR taps/sections mismatch: FIIR(1200/24) vs. Device (1000/30)",
               Conversion ("FIIR", source, "NbrOfFIRTaps=1000;NbrOfIIRSections=30").error());
    EXPECT_EQ ("FIIR taps/sections mismatch: FIIR(1200/24) vs. Device (2000/23)",
               Conversion ("FIIR", source, "NbrOfFIRTaps=2000;NbrOfIIRSections=23").error());
    EXPECT_TRUE (Conversion ("FIIR", source, "NbrOfFIRTaps=1200;NbrOfIIRSections=24").result.wasOk());

    for (const char* parameters :
         { "NbrOfFIRTaps=-1;NbrOfIIRSections=30", "NbrOfFIRTaps=1200;NbrOfIIRSections=-30",
           "NbrOfFIRTaps=16777216;NbrOfIIRSections=30", "NbrOfFIRTaps=2147483647;NbrOfIIRSections=2147483647" })
        EXPECT_EQ ("Required topology parameter out of range", Conversion ("FIIR", source, parameters).error())
            << parameters;

    FIIRTestSource noChannels;
    EXPECT_TRUE (Conversion ("FIIR", noChannels, "NbrOfFIRTaps=1000;NbrOfIIRSections=30").result.wasOk());
}

TEST (DeviceResponse, BytesThatDoNotFitAreRefused)
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
