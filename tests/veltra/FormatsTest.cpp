// SPDX-License-Identifier: GPL-3.0-or-later
#include <cmath>
#include <complex>
#include <numbers>
#include <sstream>

#include "dsp/Biquad.h"
#include "tests/support/Program.h"
#include "tools/ExitStatus.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/filters/AudioFile.h"
#include "tools/veltra/filters/FilterImport.h"
#include "topology/DeviceFilter.h"

namespace veltra::host {

namespace {

const std::string kFormats = "examples/formats/";

class Formats : public Program
{
protected:
    Ending veltra (std::vector<std::string> words)
    {
        words.insert (words.begin(), VELTRA_PROGRAM);
        return run (words);
    }

    FilterDescription import (const ImportOptions& options)
    {
        report.str ({});
        notes.str ({});
        return importFilters (options, report, notes);
    }

    std::string refusal (const ImportOptions& options)
    {
        try
        {
            import (options);
            return "no refusal";
        }
        catch (const Failure& failure)
        {
            return failure.what();
        }
    }

    std::ostringstream report, notes;
};

/** The samples' response of the left channel: a quarter of it before the peak at 8. */
float leftSample (int i) { return static_cast<float> (std::exp2 (-std::abs (i - 8)) * (i >= 8 ? 1.0 : -0.25)); }

TEST_F (Formats, TheSameResponseComesOutOfEachFormThatCarriesSamples)
{
    const auto with = [] (auto set) {
        ImportOptions options;
        set (options);
        return options;
    };
    const struct
    {
        const char* what;
        ImportOptions options;
        int first; ///< sample of the response that comes first
        float tolerance;
    } cases[] {
        { "a channel of a file", with ([] (auto& o) { o.channelFiles = { "FL=" + kFormats + "stereo.wav:0" }; }), 0,
          5e-5f },
        { "a file of the channels", with ([] (auto& o) {
              o.files = { kFormats + "stereo.wav" };
              o.channelOrder = "FL,FR";
          }),
          0, 5e-5f },
        { "f32", with ([] (auto& o) {
              o.channelFiles = { "FL=" + kFormats + "filter-f32.pcm" };
              o.raw = parseRawFormat ("f32@48000");
          }),
          0, 0.0f },
        { "f64", with ([] (auto& o) {
              o.channelFiles = { "FL=" + kFormats + "filter-f64.dbl" };
              o.raw = parseRawFormat ("f64@48000");
          }),
          0, 0.0f },
        { "s16", with ([] (auto& o) {
              o.channelFiles = { "FL=" + kFormats + "filter-s16.raw" };
              o.raw = parseRawFormat ("s16@48000");
          }),
          0, 5e-5f },
        { "numbers", with ([] (auto& o) {
              o.channelFiles = { "FL=" + kFormats + "numbers.txt" };
              o.textRate = 48000;
          }),
          0, 1e-8f },
        { "REW from its time 0", with ([] (auto& o) { o.channelFiles = { "FL=" + kFormats + "rew-impulse.txt" }; }), 8,
          0.0f },
        { "REW with its times", with ([] (auto& o) {
              o.channelFiles = { "FL=" + kFormats + "rew-impulse.txt" };
              o.align = true;
          }),
          0, 0.0f },
    };

    for (const auto& [what, options, first, tolerance] : cases)
    {
        const auto description = import (options);
        const auto& response = description.channels.at (0).responses.at (0);
        EXPECT_EQ (48000u, response.sampleRate) << what;
        ASSERT_EQ (static_cast<std::size_t> (64 - first), response.taps.size()) << what;

        for (int i = first; i < 64; ++i)
            EXPECT_NEAR (leftSample (i), response.taps[static_cast<std::size_t> (i - first)], tolerance)
                << what << " " << i;
    }

    const auto both = import (cases[1].options);
    EXPECT_EQ ("FR", both.channels.at (1).name);
    EXPECT_NEAR (1.0f, both.channels[1].responses.at (0).taps.at (12), 1e-4f);
}

TEST_F (Formats, WhatIsWrongWithAFileIsSaidWithItsPlace)
{
    const struct
    {
        std::string equalizer, expected;
    } equalizers[] {
        { "Filter: ON PK Fc 100 Hz Q 2", "line 1: found PK without Gain; expected 'Gain NUMBER dB'" },
        { "\nFilter 1: ON PK Gain 3 dB Q 2", "line 2: found PK without Fc" },
        { "Filter 1: ON PK Fc 100 Hz Gain 3 dB", "PK without Q" },
        { "Filter 1: ON XX Fc 100 Hz Gain 3 dB", "the type 'XX'" },
        { "Filter 1: ON PK Fc hundred Hz Gain 3 dB Q 1", "'hundred'; expected a number for Fc" },
        { "Filter 1: ON PK Fc 30000 Hz Gain 3 dB Q 1", "30000 Hz, is not below half of the sample rate 48000 Hz" },
        { "Include: other.txt", "no 'Include', which is not read" },
        { "Filter 1: ON IIR Order 1 Coefficients 1 0 1 -2", "not stable" },
        { "GraphicEQ: 20 x", "'x'; expected a number" },
        { "Channel: R\nPreamp: -3 dB", "has no line for channel FL" },
        { "nothing", "has no filter" },
    };

    for (const auto& [text, expected] : equalizers)
    {
        write ("eq.txt", text);
        ImportOptions options;
        options.equalizers = { "FL=" + path ("eq.txt").string() };
        options.rates = { 48000 };
        EXPECT_NE (std::string::npos, refusal (options).find (expected)) << text << "\n" << refusal (options);
    }

    write ("odd.pcm", "12345");
    write ("words.txt", "1\n2 3\n");
    write ("short.txt", "3 // Response length\n1\n2\n");
    const struct
    {
        std::string file, expected;
    } files[] {
        { kFormats + "stereo.wav:2", "has no channel 2: its channels are 0 to 1" },
        { kFormats + "stereo.wav", "has 2 channels and should have one" },
        { kFormats + "filter-f32.pcm", "for example by --raw f32@48000" },
        { kFormats + "numbers.txt", "does not say its sample rate" },
        { path ("words.txt").string(), "line 2: found '2 3'; expected one number" },
        { path ("short.txt").string(), "holds 2 samples and says that it has 3" },
    };

    for (const auto& [file, expected] : files)
    {
        ImportOptions options;
        options.channelFiles = { "FL=" + file };
        EXPECT_NE (std::string::npos, refusal (options).find (expected)) << file << "\n" << refusal (options);
    }

    ImportOptions odd;
    odd.channelFiles = { "FL=" + path ("odd.pcm").string() };
    odd.raw = parseRawFormat ("f32@48000");
    EXPECT_NE (std::string::npos, refusal (odd).find ("is not a whole number of samples of 4 bytes"));

    for (const char* const format : { "f32", "f16@48000", "f32@0", "f32@x" })
        EXPECT_THROW (parseRawFormat (format), Failure) << format;
}

TEST_F (Formats, GainsDelaysAndNotesReachTheDescription)
{
    const auto ending = veltra ({ "import", "--eq", "FL=" + kFormats + "equalizers/apo-repeated.txt", "--eq",
                                  "SW=" + kFormats + "equalizers/apo-subwoofer.txt", "--rates", "48000,96000", "--gain",
                                  "FL=-3.5", "--delay", "SW=48smp@48000", "-o", path ("d.xml") });
    EXPECT_EQ (0, ending.status) << ending.err;
    const auto text = read (path ("d.xml"));

    for (const char* const part :
         { "Name=\"FL\" Number=\"1\" GaindB=\"-3.5\" Delayms=\"0\"",
           "Name=\"SW\" Number=\"2\" GaindB=\"0\" Delayms=\"5.2\"", "Topology=\"FIIR\" Fs=\"96000\"" })
        EXPECT_NE (std::string::npos, text.find (part)) << part << text.substr (0, 400);

    EXPECT_NE (std::string::npos, ending.err.find ("poles coincide or lie too close together")) << ending.err;

    for (const char* const value : { "FL", "FL=x", "XX=1" })
        EXPECT_EQ (kExitUsage, veltra ({ "import", "--eq", "FL=" + kFormats + "equalizers/apo-flat.txt", "--rates",
                                         "48000", "--gain", value, "-o", path ("never.xml") })
                                   .status)
            << value;

    EXPECT_FALSE (std::filesystem::exists (path ("never.xml")));
}

/** Held against the formulas, from the configuration to what is written: three channels, one of them with a file. */
TEST_F (Formats, ACamilladspConfigurationBecomesTheFiltersOfItsChannels)
{
    ImportOptions options;
    options.camilla = kFormats + "camilladsp.yml";
    options.channelOrder = "FL,FR,C";
    options.rates = { 48000 };
    const auto channels = import (options).channels;
    ASSERT_EQ (3u, channels.size());
    EXPECT_EQ (0.0f, channels[0].delay_ms);
    EXPECT_NEAR (5.0f, channels[1].delay_ms, 1e-4f);
    EXPECT_TRUE (channels[2].responses[0].sections.empty()) << "a convolution has a response";

    const double rate = 48000.0;
    std::vector<dsp::Biquad> wanted { dsp::lowShelf (dsp::resonanceOfSlope (80.0, 0.5, 4.0, rate), 4.0),
                                      dsp::peaking (dsp::resonanceOfBandwidth (250.0, 0.5, rate), -5.0),
                                      dsp::highPass (dsp::resonanceOfQ (18.0, 1.0, rate)),
                                      dsp::highPass1 (18.0, rate) };

    for (std::size_t channel = 0; channel < 2; ++channel)
    {
        const auto& made = channels[channel].responses[0];
        ASSERT_EQ (1u, made.taps.size());
        double most_dB = 0.0, mostPhase = 0.0;

        for (double f = 15.0; f < 21600.0; f *= 1.02)
        {
            const double omega = 2.0 * std::numbers::pi * f / rate;
            const auto late = std::polar (1.0, -omega);
            std::complex<double> sum = 0.0;

            for (const auto& section : made.sections)
                sum +=
                    (static_cast<double> (section.b0) + static_cast<double> (section.b1) * late)
                    / (1.0 + static_cast<double> (section.a1) * late + static_cast<double> (section.a2) * late * late);

            const auto played = static_cast<double> (made.taps[0]) + late * sum;
            const auto target = -std::pow (10.0, -0.3) * dsp::response (wanted, omega);
            most_dB = std::max (most_dB, std::abs (20.0 * std::log10 (std::abs (played / target))));
            mostPhase = std::max (mostPhase, std::abs (std::arg (played / target)));
        }

        EXPECT_LT (most_dB, 0.02) << channel;
        EXPECT_LT (mostPhase, 0.005) << channel << ", the sign";

        wanted.push_back (dsp::lowShelf (dsp::resonanceOfQ (110.0, 0.35, rate), -1.0));
        wanted.push_back (dsp::highShelf (dsp::resonanceOfQ (3500.0, 0.35, rate), 1.0));
    }

    const struct
    {
        const char *text, *expected;
    } refused[] {
        { "pipeline:\n  - {type: Mixer, name: m}\n", "line 2: found a pipeline step 'Mixer'" },
        { "devices: {resampler: {type: Synchronous}}\npipeline: []\n", "found a resampler" },
        { "filters:\n  v: {type: Volume, parameters: {}}\npipeline:\n  - {type: Filter, channel: 0, names: [v]}\n",
          "line 2: found a filter of type 'Volume'" },
        { "filters: {}\npipeline:\n  - {type: Filter, channel: 0, names: [x]}\n", "line 3: found the name 'x'" },
        { "filters:\n  g: {type: Gain, parameters: {gain: 1, colour: 2}}\npipeline:\n  - {type: Filter, channel: 0, names: [g]}\n",
          "the parameter 'colour'" },
        { "filters:\n  p: {type: Biquad, parameters: {type: Peaking, freq: 100, gain: 1}}\npipeline:\n  - {type: Filter, channel: 0, names: [p]}\n",
          "found no 'q'" },
        { "pipeline:\n  - {type: Filter, channel: 9, names: []}\n", "found channel 9" },
        { "a: [", "expected a camilladsp configuration" },
    };
    options.camilla = path ("c.yml");

    for (const auto& [text, expected] : refused)
    {
        write ("c.yml", text);
        EXPECT_NE (std::string::npos, refusal (options).find (expected)) << text << "\n" << refusal (options);
    }
}

/** All structures: what is played for an impulse is the response that the reader of the bytes gives. */
TEST_F (Formats, ABlockPlaysAnImpulseAsItsResponse)
{
    const std::string room = "examples/living-room/FL_48000.wav";
    ASSERT_EQ (0, veltra ({ "import", "-o", path ("fir.xml"), room }).status);
    ASSERT_EQ (0, veltra ({ "import", "--eq", "FL=" + kFormats + "equalizers/apo-types.txt", "--rates", "48000", "-o",
                            path ("eq.xml") })
                      .status);
    OutputFile impulse (path ("one.wav"));
    writeFloatWav (impulse, 48000, std::vector<float> { 1.0f, 0.0f });
    impulse.complete();

    const struct
    {
        const char *name, *description, *taps, *sections;
    } cases[] { { "FIR", "fir.xml", "4000", "0" },
                { "FIIR", "eq.xml", "1", "40" },
                { "VLFIR", "fir.xml", "1024", "0" },
                { "VLFIR2", "fir.xml", "2048", "0" } };

    for (const auto& [name, description, taps, sections] : cases)
    {
        const std::string topology = name;
        ASSERT_EQ (0, veltra ({ "convert", path (description), "--topology", name, "--taps", taps, "--sections",
                                sections, "--rate", "48000", "--force", "-o", path ("block") })
                          .status)
            << name;
        const auto ending =
            veltra ({ "play", path ("block"), "--topology", name, "--taps", taps, "--sections", sections, "--channels",
                      "1", "--in", path ("one.wav"), "--force", "-o", path ("out.wav") });
        ASSERT_EQ (0, ending.status) << name << ending.err;
        const auto played = readMonoAudio (path ("out.wav")).samples;

        const auto bytes = read (path ("block"));
        topology::DeviceData data {
            juce::String (name), {}, 48000, 1, { reinterpret_cast<const std::uint8_t*> (bytes.data()), bytes.size() }
        };
        data.parameters.set ("NbrOfFIRTaps", taps);
        data.parameters.set ("NbrOfIIRSections", sections);
        std::string problem;
        const auto expected = topology::deviceResponse (data, 0, problem);
        ASSERT_TRUE (expected) << problem;
        const auto length = std::min<Eigen::Index> (expected->size(), static_cast<Eigen::Index> (played.size()));
        const auto difference = Eigen::Map<const Eigen::VectorXf> (played.data(), length) - expected->head (length);
        EXPECT_LT (difference.norm(), 1e-7f * expected->norm()) << name;

        EXPECT_EQ (0, veltra ({ "inspect", path ("block"), "--topology", name, "--channels", "1", "--sections",
                                sections, "--taps", path (std::string ("taps of ") + name) })
                          .status)
            << name;
    }

    EXPECT_EQ (4000u, readMonoAudio (path ("taps of FIR") / "channel_0.wav").samples.size());
    EXPECT_EQ (2, std::distance (std::filesystem::directory_iterator (path ("taps of VLFIR2")), {}));

    write ("floats", std::string (32000, '\0'));
    EXPECT_NE (std::string::npos, veltra ({ "inspect", path ("floats"), "--topology", "VLFIR2", "--channels", "2" })
                                      .out.find ("wrong: the file does not begin with BA BA CE CA"));
    const auto refused = [&] (const std::string& file, const char* topology, const char* channels) {
        return veltra ({ "play", path (file), "--topology", topology, "--channels", channels, "--in", path ("one.wav"),
                         "-o", path ("never.wav") })
            .err;
    };
    EXPECT_NE (
        std::string::npos,
        refused ("floats", "VLFIR2", "2").find ("no dual-rate magic; 32000 bytes would be 2 channels of 4000 taps"));
    EXPECT_NE (std::string::npos, refused ("block", "FIR", "1").find ("it is data of VLFIR2"));
    EXPECT_NE (std::string::npos, refused ("floats", "FIR", "3").find ("32000 bytes are not floats for 3 channels"));
}

}

}
