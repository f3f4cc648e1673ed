#include <cmath>

#include "tests/support/Program.h"
#include "tools/veltra/DesignReport.h"
#include "tools/veltra/ExitStatus.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

/** A design whose parts are known: taps that are a decaying tone, and no sections. */
dsp::FIIRDesign tone (float gain)
{
    return { Eigen::VectorXf::NullaryExpr (1000, [gain] (Eigen::Index i)
             {
                 return gain * std::exp (-0.02f * static_cast<float> (i)) * std::cos (0.13f * static_cast<float> (i));
             }),
             {} };
}

TEST (DesignReport, TellsHowFarADesignIsOffOverallAndInEachOctave)
{
    const auto wanted = tone (1.0f), tenPercentMore = tone (1.1f);
    const auto report = examineDesign (std::span (wanted.fir.data(), 1000), tenPercentMore, 48000);

    EXPECT_NEAR (-20.0, report.error_dB, 1e-3);
    ASSERT_EQ (10u, report.octaves.size());
    EXPECT_EQ ("31", octaveName (report.octaves.front().frequency));
    EXPECT_EQ ("16k", octaveName (report.octaves.back().frequency));

    for (const auto& octave : report.octaves)
    {
        EXPECT_NEAR (-20.0, octave.error_dB, 0.01) << octave.frequency;
        EXPECT_NEAR (20.0 * std::log10 (1.1), octave.designed_dB - octave.wanted_dB, 0.01) << octave.frequency;
    }

    // The tone lies at 993 Hz.
    for (const auto& octave : report.octaves)
        EXPECT_LE (octave.wanted_dB, report.octaves[5].wanted_dB);
}

TEST (DesignReport, WhatRingsOnBehindTheResponseIsAnError)
{
    auto design = tone (1.0f);
    const auto wanted = design.fir;
    EXPECT_LT (examineDesign (std::span (wanted.data(), 1000), design, 48000).error_dB, -150.0);

    design.sections = { { -0.5f, 0.0f, 0.01f, 0.0f }, { 0.0f, 0.81f, 0.0f, 0.0f } };
    const auto report = examineDesign (std::span (wanted.data(), 1000), design, 48000);
    EXPECT_NEAR (10.0 * std::log10 (1e-4 / 0.75 / wanted.cast<double>().squaredNorm()), report.error_dB, 0.01);
    EXPECT_NEAR (0.9, report.poleRadius, 1e-6);
}

/** The built program, which needs no module for this. */
class Design : public Program
{
protected:
    Ending veltra (std::vector<std::string> words)
    {
        words.insert (words.begin(), VELTRA_PROGRAM);
        return run (words);
    }

    const std::string left = "examples/living-room/FL_48000.wav", sub = "examples/living-room/SW_48000.wav";
};

// Once the design is made beforehand and copied, once it is made in the conversion, from a description of FIR sets.
TEST_F (Design, BothRoadsToADeviceGiveTheSameBytes)
{
    const auto convert = [this] (const std::string& description, const std::string& output)
    {
        const auto ending = veltra ({ "convert", path (description), "--topology", "FIIR", "--rate", "48000", "--taps", "1000",
                                      "--sections", "12", "-o", path (output) });
        EXPECT_EQ (0, ending.status) << ending.err;
        return read (path (output));
    };

    const auto designing = veltra ({ "design", left, sub, "-o", path ("designed.xml"), "--taps", "1000", "--sections", "12" });
    ASSERT_EQ (0, designing.status) << designing.err;
    EXPECT_NE (std::string::npos, designing.out.find ("FL at 48000 Hz: error -")) << designing.out;
    EXPECT_NE (std::string::npos, designing.out.find ("     31     62    125    250    500     1k     2k     4k     8k    16k  Hz\n"))
        << designing.out;
    ASSERT_EQ (0, veltra ({ "import", left, sub, "-o", path ("imported.xml") }).status);

    const auto copied = convert ("designed.xml", "copied");
    EXPECT_EQ (2 * (1000 + 4 * 12) * sizeof (float), copied.size());
    EXPECT_TRUE (copied == convert ("imported.xml", "converted"));
}

TEST_F (Design, ThePictureIsDrawnAndNothingIsOverwrittenUnasked)
{
    const auto ending = veltra ({ "design", left, "-o", path ("designed.xml"), "--sections", "4", "--plot", path ("it's.svg") });
    ASSERT_EQ (0, ending.status) << ending.err;
    const auto picture = read (path ("it's.svg"));
    EXPECT_NE (std::string::npos, picture.find ("</svg>"));
    EXPECT_LT (picture.size(), 200000u);

    const auto again = veltra ({ "design", left, "-o", path ("designed.xml"), "--sections", "4" });
    EXPECT_EQ (kExitOutput, again.status);
    EXPECT_NE (std::string::npos, again.err.find ("--force")) << again.err;
}

TEST_F (Design, WhatCannotBeDesignedIsSaid)
{
    auto ending = veltra ({ "design", left, "-o", path ("designed.xml"), "--taps", "48000" });
    EXPECT_EQ (kExitConversion, ending.status);
    EXPECT_EQ ("veltra: No FIIR design for channel FL at 48000 Hz: the response has 48000 samples, which does not exceed the 48000 "
               "taps to keep.\n", ending.err);
    EXPECT_FALSE (fs::exists (path ("designed.xml")));

    EXPECT_EQ (kExitUsage, veltra ({ "design", left, "-o", path ("designed.xml"), "--sections", "300" }).status);
}

}

}
