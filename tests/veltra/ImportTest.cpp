// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <limits>
#include <numbers>
#include <sstream>

#include "filters/FilterDescriptionParser.h"
#include "filters/FilterSetsImpl.h"
#include "tests/support/Scratch.h"
#include "tools/ExitStatus.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/FilterDescription.h"
#include "tools/veltra/filters/FilterImport.h"
#include "tools/veltra/filters/ImportFiles.h"
#include "tools/veltra/filters/PeakGain.h"

namespace veltra::host {

namespace {

/** The sentence of the failure that a call ends with, or "no failure". */
template <typename Call>
std::string failureOf (Call&& call, ExitStatus expected)
{
    try
    {
        call();
        return "no failure";
    }
    catch (const Failure& failure)
    {
        EXPECT_EQ (expected, failure.status) << failure.what();
        return failure.what();
    }
}

class Import : public ScratchTest
{
protected:
    void writeWav (const std::string& name, std::uint32_t rate, const std::vector<float>& samples) const
    {
        OutputFile wav (path (name));
        writeFloatWav (wav, rate, samples);
        wav.complete();
    }

    FilterDescription import (const std::vector<std::string>& names, ImportOptions options = {})
    {
        for (const auto& name : names)
            options.files.push_back (path (name));

        report.str ({});
        notes.str ({});
        return importFilters (options, report, notes);
    }

    std::ostringstream report, notes;
};

TEST_F (Import, ChannelsAreNumberedAsTheyAppearAndTheirLoudestRateCounts)
{
    writeWav ("SW_48000.wav", 48000, { 0.0f, 0.25f });
    writeWav ("FL_48000.wav", 48000, { 0.0f, 0.0f, -2.0f, 0.0f });
    writeWav ("FL_44100.wav", 44100, { 0.5f, 0.5f });

    EXPECT_EQ (std::string::npos, read (path ("FL_48000.wav")).find ("PEAK")) << "which holds the time";
    const auto description = import ({ "SW_48000.wav", "FL_48000.wav", "FL_44100.wav" });
    ASSERT_EQ (2u, description.channels.size());

    const auto& sub = description.channels[0];
    EXPECT_TRUE (sub.name == "SW" && sub.number == 1 && sub.subwoofer);
    EXPECT_NEAR (20.0 * std::log10 (0.25), sub.maxFilterGain_dB, 1e-4);

    const auto& left = description.channels[1];
    EXPECT_TRUE (left.name == "FL" && left.number == 2 && ! left.subwoofer);
    EXPECT_NEAR (20.0 * std::log10 (2.0), left.maxFilterGain_dB, 1e-4);
    ASSERT_EQ (2u, left.responses.size());
    EXPECT_EQ (44100u, left.responses[0].sampleRate);
    EXPECT_EQ ((std::vector<float> { 0.0f, 0.0f, -2.0f, 0.0f }), left.responses[1].taps);

    EXPECT_NE (std::string::npos, report.str().find ("4 samples, peak at      2 (0.04 ms), largest gain +6.02 dB"))
        << report.str();
    EXPECT_EQ ("Note: channel SW has no response at 44100 Hz, others have.\n", notes.str());
}

TEST_F (Import, AnOrderNumbersTheChannelsWhateverTheOrderOfTheFiles)
{
    const std::vector<ImpulseFile> files {
        { "SW", 48000, "a" }, { "FL", 48000, "b" }, { "SW", 44100, "c" }, { "C", 48000, "d" }
    };

    std::string places;

    for (const auto& place : numberChannels (files, "FL, SW=12, C"))
        places += place.name + std::to_string (place.number) + " ";

    EXPECT_EQ ("FL1 SW12 C13 ", places);

    for (const char* const order :
         { "FL,SW", "FL,SW,C,X", "FL,FL,SW,C", "FL=2,SW=2,C", "FL=0,SW,C", "FL=x,SW,C", "FL,,SW,C", "FL,SW,=3" })
        EXPECT_NE ("no failure", failureOf ([&] { numberChannels (files, order); }, kExitUsage)) << order;
}

TEST_F (Import, NamesAndMappingsTellChannelAndRate)
{
    const auto file = impulseFileFromName ("some_folder/Front left_2_192000.wav");
    EXPECT_EQ ("Front left_2", file.channel);
    EXPECT_EQ (192000u, file.sampleRate);

    for (const char* const name :
         { "FL.wav", "FL_.wav", "_48000.wav", "FL_48k.wav", "FL_0.wav", "FL_99999999.wav", "FL-48000.wav" })
        EXPECT_NE ("no failure", failureOf ([&] { impulseFileFromName (name); }, kExitInput)) << name;

    writeWav ("left at 48.wav", 48000, { 1.0f });
    write ("map.txt", "# a comment\r\n\r\n  FL\t48000   left at 48.wav  \r\n");
    ImportOptions options;
    options.mapping = path ("map.txt");
    EXPECT_EQ ("FL", import ({}, options).channels.at (0).name);

    write ("map.txt", "FL 48000 delay=480smp@48000 gain=-3.5 left at 48.wav");
    const auto channel = import ({}, options).channels.at (0);
    EXPECT_EQ (-3.5f, channel.gain_dB);
    EXPECT_EQ (10.0f, channel.delay_ms);

    for (const char* const line : { "FL", "FL 48000", "FL x left.wav", "FL 48000.5 left.wav",
                                    "FL 48000 gain=loud left.wav", "FL 48000 delay=3 left.wav", "FL 48000 gain=3" })
    {
        write ("map.txt", line);
        EXPECT_NE (std::string::npos, failureOf ([&] { import ({}, options); }, kExitInput).find ("Line 1 of")) << line;
    }

    options.mapping = path ("no such file");
    failureOf ([&] { import ({}, options); }, kExitInput);
    failureOf ([&] { import ({}); }, kExitUsage);
}

TEST_F (Import, FilesThatAreNoImpulseResponseAreRefusedByName)
{
    writeWav ("FL_48000.wav", 48000, { 1.0f });
    std::filesystem::create_directory (path ("b"));
    writeWav ("b/FL_48000.wav", 48000, { 0.5f });
    writeWav ("wrongrate_48000.wav", 44100, { 1.0f });
    writeWav ("empty_48000.wav", 48000, {});
    writeWav ("nan_48000.wav", 48000, { 1.0f, std::numeric_limits<float>::quiet_NaN() });
    writeWav ("infinite_48000.wav", 48000, { std::numeric_limits<float>::infinity() });
    writeWav ("silent_48000.wav", 48000, { 0.0f, 0.0f });
    write ("text_48000.wav", "This is no sound.");

    auto stereo = read (path ("FL_48000.wav"));
    stereo[22] = 2; // channels of the header
    stereo[32] = 8; // bytes of both
    write ("stereo_48000.wav", stereo);

    for (const std::string name : { "wrongrate", "stereo", "empty", "nan", "infinite", "silent", "text", "missing" })
    {
        const auto sentence = failureOf ([&] { import ({ name + "_48000.wav" }); }, kExitInput);
        EXPECT_NE (std::string::npos, sentence.find (name + "_48000.wav")) << sentence;
    }

    const auto twice = failureOf ([&] { import ({ "FL_48000.wav", "b/FL_48000.wav" }); }, kExitInput);
    EXPECT_NE (std::string::npos, twice.find ("FL at 48000 Hz is given twice")) << twice;
    EXPECT_EQ (std::string::npos, twice.find ("no failure"));
}

TEST (PeakGain, IsThePeakOfTheResponseAlsoBetweenTheBins)
{
    EXPECT_NEAR (0.0, peakGain_dB (std::vector<float> { 0.0f, -1.0f }), 1e-5);
    EXPECT_NEAR (6.0206, peakGain_dB (std::vector<float> { 1.0f, -1.0f }), 1e-4); // at the Nyquist frequency
    EXPECT_EQ (-std::numeric_limits<double>::infinity(), peakGain_dB (std::vector<float> { 0.0f, 0.0f, 0.0f }));

    // A sine under a Hann window of length N peaks at N / 4. Frequencies half a bin apart are the hard ones.
    constexpr int length = 1000;

    for (const double cycles : { 100.0, 100.25, 100.5, 100.0 + 1.0 / 16.0 })
    {
        std::vector<float> response (length);

        for (int i = 0; i < length; ++i)
        {
            const double turn = 2.0 * std::numbers::pi * i / length;
            response[static_cast<std::size_t> (i)] =
                static_cast<float> ((0.5 - 0.5 * std::cos (turn)) * std::sin (cycles * turn));
        }

        EXPECT_NEAR (20.0 * std::log10 (length / 4.0), peakGain_dB (response), 0.02) << cycles;
    }
}

TEST_F (Import, ADescriptionReadsBackAsWhatItWas)
{
    // Among the taps the ends of the range, and 7.038531e-26f, whose shortest text is read as a neighbour by way of double.
    const std::vector<float> taps { 0.1f,          -1.0f / 3.0f, 1e-45f, 1.17549435e-38f, 3.40282347e+38f, 16777217.0f,
                                    7.038531e-26f, -0.0f,        1.0f,   123456.789f };
    FilterDescription description { "A & \"B\" <c>\n",
                                    "FIR",
                                    { { "L'1", 3, 1.0f / 3.0f, true, { { 44100, { 2.0f } }, { 48000, taps } } } } };

    std::ostringstream stream;
    writeFilterDescription (stream, description);

    filters::FilterSetsImpl set;
    ASSERT_EQ (parser::FIIR::Success, parser::FIIR::parse (stream.str().c_str(), &set, "Veltra"));
    EXPECT_EQ (description.project, set.GetName());
    EXPECT_STREQ ("FIR", set.GetTechnology());
    ASSERT_EQ (1u, set.getFilterCount());

    const auto& filter = *set.getFilterImpl (0);
    EXPECT_STREQ ("L'1", filter.GetName());
    EXPECT_EQ (2u, filter.GetChannel());
    EXPECT_EQ (1, filter.getAttributes().subwoofer);
    EXPECT_EQ (1.0f / 3.0f, filter.getMaxFilterGaindB());
    EXPECT_EQ (2u, filter.getCoefficientSets().size());

    const auto* const read = filter.findCoefficientSet ({ 48000, false });
    ASSERT_NE (nullptr, read);
    EXPECT_EQ (taps, std::vector<float> (read->taps.begin(), read->taps.end()));

    description.project = "\x01";
    failureOf ([&] { writeFilterDescription (stream, description); }, kExitUsage);
}

TEST_F (Import, AnOutputFileAppearsCompleteOrNotAtAll)
{
    write ("out.xml", "old");
    failureOf ([&] { checkMayWrite (path ("out.xml"), false); }, kExitOutput);
    checkMayWrite (path ("out.xml"), true);

    {
        OutputFile abandoned (path ("out.xml"));
        abandoned.stream() << "half";
    }

    EXPECT_EQ ("old", read (path ("out.xml")));

    OutputFile finished (path ("out.xml"));
    finished.stream() << "new";
    finished.complete();
    EXPECT_EQ ("new", read (path ("out.xml")));
    EXPECT_EQ (1, std::distance (std::filesystem::directory_iterator (folder.path()), {}));

    failureOf ([&] { OutputFile nowhere (path ("no folder/out.xml")); }, kExitOutput);
}

}

}
