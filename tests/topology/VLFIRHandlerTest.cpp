// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/Testing.h"
#include "tests/support/TestSource.h"
#include "topology/VLFIRBlobReader.h"

namespace {

using namespace veltra::topology;
using Eigen::Index;
using Eigen::VectorXf;
using veltra::test::Conversion;
using veltra::test::FIRTestSource;

using Lines = std::vector<std::string>;

Conversion convert (IFIRSource& source, const std::string& taps, const Conversion::Settings& settings = {},
                    unsigned sampleRate = 48000, const char* generation = "VLFIR2")
{
    return { generation, source, "nbroffirtaps=" + taps, sampleRate, settings };
}

VectorXf impulse (Index size, Index place, float height = 1.0f) { return height * VectorXf::Unit (size, place); }

veltra::test::TestChannel channel (std::uint32_t id, const char* name, VectorXf response)
{
    return { .response = std::move (response), .name = name, .id = id };
}

FIRTestSource twoChannels()
{
    return FIRTestSource ({ channel (7, "FL", impulse (8000, 400)), channel (2, "FR", impulse (8000, 416, 0.5f)) });
}

bool holds (const Lines& lines, const std::string& line) { return std::ranges::count (lines, line) == 1; }

TEST (VLFIRHandler, TheBlobHoldsTheChannelsOfTheSource)
{
    auto source = twoChannels();
    const auto conversion = convert (source, "1024");
    ASSERT_TRUE (conversion.result.wasOk());
    EXPECT_EQ (Lines { "2 VLFIR: SR = 48000, Channels = 2 (7,2), FIR length = 1024" }, source.logged);

    const auto contents = readVLFIRBlob (conversion.bytes(), VLFIRGeneration::second);
    ASSERT_TRUE (contents.problems.empty()) << contents.problems[0];
    EXPECT_EQ (48000u, contents.sampleRate);
    EXPECT_EQ (7u * 13u, contents.records[0].channelWord);
    EXPECT_EQ (2u * 13u, contents.records[1].channelWord);

    // An impulse at 400 on the grid: low-rate sample 25; and the high-rate window, whose apex is at 409, from 0 on.
    EXPECT_NEAR (1.0f, contents.channels[0].lowRateTaps[25], 1e-6f);
    EXPECT_NEAR (0.95837629f, contents.channels[0].highRateTaps[400], 1e-6f);
    EXPECT_EQ (298u, contents.channels[0].highRateDelay);
    EXPECT_NEAR (0.5f, contents.channels[1].lowRateTaps[26], 1e-6f);
    EXPECT_EQ (0x00800000u, contents.records[0].gain);
    EXPECT_EQ (0x00800000u, contents.records[1].stageGain2);
    EXPECT_EQ (0u, contents.records[1].reserved);
}

TEST (VLFIRHandler, TheFirstGenerationDiffersInItsRecordsOnly)
{
    auto source = twoChannels();
    const auto ofFirst = convert (source, "512", {}, 48000, "VLFIR");
    const auto ofSecond = convert (source, "512");
    EXPECT_EQ (9u * 7u, readVLFIRBlob (ofFirst.bytes(), VLFIRGeneration::first).records.at (0).channelWord);

    const auto tapsOf = [] (const Conversion& conversion) { return conversion.bytes().last (2 * 2 * 512 * 4); };
    EXPECT_TRUE (std::ranges::equal (tapsOf (ofFirst), tapsOf (ofSecond)));
}

TEST (VLFIRHandler, WhatIsMissingIsSaidAndNoChannelsGiveABareHeader)
{
    auto source = twoChannels();
    const Conversion conversion ("VLFIR2", source, "latency=3");
    EXPECT_EQ ("Required topology parameter not found", conversion.error());
    EXPECT_EQ (Lines { "4 VLFIR: Required parameter NbrOfFIRTaps not found" }, source.logged);

    source.channels[1].response.resize (0);
    EXPECT_EQ ("No filter response for channel FR at 44100 Hz", convert (source, "256", {}, 44100).error());

    FIRTestSource noChannels;
    EXPECT_EQ (12u, convert (noChannels, "256").blob.getSize());
}

TEST (VLFIRHandler, TapCountsThatCannotBeFailWithoutWork)
{
    auto source = twoChannels();

    for (const char* taps : { "0", "-5", "many" })
        EXPECT_EQ ("Required topology parameter out of range", convert (source, taps).error()) << taps;

    // 3 + 2 * 8 + 2 * 2 * T words of 132364, 3 + 2 * 12 + 2 * 2 * T words of 198220
    EXPECT_TRUE (convert (source, "33086", {}, 48000, "VLFIR").result.wasOk());
    EXPECT_TRUE (convert (source, "49548").result.wasOk());

    for (const char* taps : { "49549", "2147483647", "99999999999" })
    {
        source.logged.clear();
        EXPECT_TRUE (convert (source, taps).error().ends_with (" taps do not fit the device's buffer of 198220 words"))
            << taps;
        EXPECT_TRUE (holds (source.logged, "4 VLFIR: Failed to create BLOB"));
    }

    EXPECT_EQ ("2 channels with 33087 taps do not fit the device's buffer of 132364 words",
               convert (source, "33087", {}, 48000, "VLFIR").error());
}

TEST (VLFIRHandler, TheLargestBoostIsTakenFromAllChannels)
{
    for (const auto& [gain_dB, settings, attenuation_dB] :
         Rows<float, Conversion::Settings, double> { { 7.5f, {}, 7.5 },
                                                     { -2.0f, {}, 0.0 },
                                                     { std::numeric_limits<float>::quiet_NaN(), {}, 0.0 },
                                                     { 7.5f, { { "MaxFilterAttenuation", "3" } }, 3.0 },
                                                     { 7.5f, { { "MaxFilterAttenuation", "20.5" } }, 7.5 },
                                                     { 7.5f, { { "MaxFilterAttenuation", "0" } }, 0.0 },
                                                     { 7.5f, { { "MaxFilterAttenuation", "" } }, 0.0 } })
    {
        auto source = twoChannels();
        source.channels[1].maxGaindB = gain_dB;
        const auto conversion = convert (source, "512", settings);
        const auto contents = readVLFIRBlob (conversion.bytes(), VLFIRGeneration::second);
        const double gain = std::pow (10.0, attenuation_dB / -20.0);
        EXPECT_NEAR (gain, contents.channels.at (0).gain, 1e-6);
        EXPECT_NEAR (gain, contents.channels.at (1).gain, 1e-6);
        EXPECT_NEAR (gain, contents.channels.at (0).lowRateTaps[25], 1e-6);
    }
}

TEST (VLFIRHandler, ClippedCoefficientsAreCountedAndNoFailure)
{
    FIRTestSource source ({ channel (1, "C", impulse (8000, 400, 5.0f)) });
    const auto conversion = convert (source, "512");
    EXPECT_TRUE (conversion.result.wasOk());
    EXPECT_TRUE (holds (source.logged, "3 Total no of clipped coefficients: 2")); // 5 in one row, 4.79 in the other

    source.channels[0].response[100] = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE (convert (source, "512").result.wasOk());
    EXPECT_TRUE (holds (source.logged,
                        "3 Total no of clipped coefficients: 1012")); // all 512 and the 8000 / 16 low-rate ones
}

TEST (VLFIRHandler, ALateFilterIsWarnedOf)
{
    FIRTestSource source ({ channel (1, "C", impulse (8000, 4000)) });
    EXPECT_TRUE (convert (source, "1024").result.wasOk());
    EXPECT_TRUE (holds (source.logged, "3 VLFIR: Offset == maxoffset, HR filter cutout possibly failed"));
}

struct DumpFolder
{
    juce::File file = juce::File::createTempFile ("dump");
    ~DumpFolder() { file.deleteRecursively(); }
};

TEST (VLFIRHandler, TheDumpWritesWhatAPersonComparesAndChangesNothing)
{
    // One response that comes out well, one whose name tries to leave the folder and whose energy lies too late.
    FIRTestSource source ({ channel (7, "FL", impulse (4000, 400)), channel (2, "../up", impulse (4000, 3000)) });
    const DumpFolder folder;
    const auto plain = convert (source, "1024", {}, 4000);
    source.logged.clear();
    const auto dumped = convert (source, "1024", { { "BlobPath", folder.file.getFullPathName().toRawUTF8() } }, 4000);
    EXPECT_EQ (plain.blob, dumped.blob);
    EXPECT_EQ (plain.blob, convert (source, "1024", { { "BlobPath", "/dev/null/dump" } }, 4000).blob)
        << "where it cannot be written";
    EXPECT_TRUE (
        holds (source.logged, "2 VLFIR: Dumping files to path '" + folder.file.getFullPathName().toStdString() + "'"));

    juce::StringArray names;
    for (const auto& file : folder.file.findChildFiles (juce::File::findFiles, false))
        names.add (file.getFileName());
    names.sort (false);
    EXPECT_EQ (
        "FIR_HR_4000_..up.txt FIR_HR_4000_FL.txt FIR_HRfull_4000_..up.txt FIR_LR_4000_..up.txt FIR_LR_4000_FL.txt "
        "FIR_VLFIR_4000_..up.txt FIR_VLFIR_4000_FL.txt FIR_full_4000_..up.txt FIR_full_4000_FL.txt blob_4000_1024.bin "
        "sigIn_4000.txt sigOutMIMO_4000_..up.txt sigOutMIMO_4000_FL.txt sigOut_4000_..up.txt sigOut_4000_FL.txt",
        names.joinIntoString (" ").toStdString());

    const auto linesOf = [&] (const char* name) {
        juce::StringArray lines;
        lines.addLines (folder.file.getChildFile (name).loadFileAsString());
        return lines;
    };

    juce::MemoryBlock blob;
    folder.file.getChildFile ("blob_4000_1024.bin").loadFileAsData (blob);
    EXPECT_EQ (plain.blob, blob);
    EXPECT_EQ ("1,", linesOf ("FIR_full_4000_FL.txt")[400].toStdString());
    EXPECT_NEAR (1.0f, linesOf ("FIR_VLFIR_4000_FL.txt")[698].getFloatValue(), 1e-5f);

    // The sweep through the filter and through the model of the device, both 298 samples late.
    const auto wanted = linesOf ("sigOut_4000_FL.txt"), played = linesOf ("sigOutMIMO_4000_FL.txt");
    ASSERT_EQ (wanted.size(), played.size());
    float worst = 0.0f, highest = 0.0f;
    for (int i = 0; i < wanted.size(); ++i)
    {
        worst = std::max (worst, std::abs (wanted[i].getFloatValue() - played[i].getFloatValue()));
        highest = std::max (highest, wanted[i].getFloatValue());
    }
    EXPECT_NEAR (0.25f, highest, 0.01f);
    EXPECT_LT (worst, 3e-4f);
}

}
