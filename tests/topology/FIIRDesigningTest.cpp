// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/FIIRDesign.h"
#include "tests/support/Testing.h"
#include "tests/support/TestSource.h"
#include "topology/ChannelJob.h"

/** @file The FIIR structure filled from impulse responses alone. */

namespace {

using namespace veltra::topology;
using namespace veltra::test;

constexpr unsigned taps = 100, sections = 6;

Eigen::VectorXf decayingNoise (unsigned seed, Eigen::Index size = 1500)
{
    std::mt19937 generator (seed);
    std::normal_distribution<float> normal;
    return Eigen::VectorXf::NullaryExpr (
        size, [&] (Eigen::Index i) { return normal (generator) * std::exp (-0.005f * static_cast<float> (i)); });
}

struct Designing : Conversion
{
    explicit Designing (IFIRSource& source, ProgressFunction progress = {})
        : Conversion ("FIIR", source, "NbrOfFIRTaps=100;NbrOfIIRSections=6", 48000, {}, std::move (progress))
    {
    }

    /** The values in a channel's slot. */
    std::vector<float> slot (size_t channel) const
    {
        std::vector<float> values (taps + 4 * sections);
        std::memcpy (values.data(), bytes().data() + channel * values.size() * sizeof (float),
                     values.size() * sizeof (float));
        return values;
    }
};

std::vector<float> slotOf (const Eigen::VectorXf& fir, const std::vector<veltra::dsp::FIIRSection>& designed)
{
    std::vector<float> values (fir.begin(), fir.end());

    for (const auto& section : designed)
        values.insert (values.end(), { section.a1, section.a2, section.b0, section.b1 });

    return values;
}

TEST (FIIRDesigning, EachChannelsDesignIsInItsOwnSlot)
{
    FIRTestSource source ({ { .response = decayingNoise (1) },
                            { .response = decayingNoise (2, 101) },
                            { .response = decayingNoise (3) } });
    std::vector<float> reports;

    const auto thread = juce::Thread::getCurrentThreadId();

    const Designing designing (source, [&] (float fraction, const juce::String& text) {
        EXPECT_EQ (thread, juce::Thread::getCurrentThreadId());
        EXPECT_TRUE (text.isEmpty());
        reports.push_back (fraction);
        return false; // of no consequence
    });

    ASSERT_TRUE (designing.result.wasOk()) << designing.error();
    ASSERT_EQ (3 * (taps + 4 * sections) * sizeof (float), designing.blob.getSize());

    for (unsigned i = 0; i < 3; ++i)
    {
        const auto design = veltra::dsp::designFIIR (source.getFIR (i), taps, sections, 48000.0);
        EXPECT_EQ (slotOf (design.fir, design.sections), designing.slot (i)) << i;
    }

    EXPECT_EQ (0.0f, reports.front());
    EXPECT_EQ (1.0f, reports.back());
    EXPECT_TRUE (std::is_sorted (reports.begin(), reports.end()));
    EXPECT_EQ (designing.blob, Designing (source).blob) << "without a progress function";
}

TEST (FIIRDesigning, AChannelThatCannotBeDesignedKeepsItsTapsAndIsNamed)
{
    auto spoilt = decayingNoise (2);
    spoilt[700] = std::nanf ("");
    FIRTestSource source ({ { .response = decayingNoise (1) },
                            { .response = spoilt, .name = "C" },
                            { .response = decayingNoise (3, 60), .name = "SW" } });

    const Designing designing (source);
    EXPECT_EQ ("No FIIR design for channel C at 48000 Hz: the response has samples that are not finite numbers",
               designing.error());
    EXPECT_EQ (slotOf (spoilt.head (taps), std::vector<veltra::dsp::FIIRSection> (sections)), designing.slot (1));
    EXPECT_NE (slotOf (source.getFIR (0).head (taps), std::vector<veltra::dsp::FIIRSection> (sections)),
               designing.slot (0))
        << "the other channels are designed all the same";

    std::vector<float> shortSlot (taps + 4 * sections);
    std::copy (source.getFIR (2).begin(), source.getFIR (2).end(), shortSlot.begin());
    EXPECT_EQ (shortSlot, designing.slot (2));

    FIRTestSource silent ({ { .response = decayingNoise (1) }, { .name = "C" } });
    EXPECT_EQ ("No filter response for channel C at 48000 Hz", Designing (silent).error());
    EXPECT_EQ ("No FIIR design for channel FL at 48000 Hz: cannot design 0 sections, only 1 to 256",
               Conversion ("FIIR", source, "NbrOfFIRTaps=0;NbrOfIIRSections=0").error());
}

class TestJob : public ChannelJob
{
public:
    explicit TestJob (std::function<void()> functionToRun)
        : ChannelJob ("test", FloatSlot ({})),
          function (std::move (functionToRun))
    {
    }

private:
    void convert (FloatSlot&) override { function(); }

    std::function<void()> function;
};

TEST (ChannelJobs, NeitherAnExceptionNorAProgressFunctionThatThrowsStopsTheOthers)
{
    std::vector<std::unique_ptr<ChannelJob>> jobs;
    std::atomic<int> ran { 0 };
    int reports = 0;
    const auto throwing = [&] (float, const juce::String&) -> bool {
        ++reports;
        throw std::runtime_error ("no");
    };

    EXPECT_TRUE (runOnPool (jobs, throwing).wasOk());
    EXPECT_EQ (1, std::exchange (reports, 0));

    jobs.push_back (std::make_unique<TestJob> ([&] { ++ran; }));
    jobs.push_back (std::make_unique<TestJob> ([] { throw 1; }));
    jobs.push_back (std::make_unique<TestJob> ([] { throw std::runtime_error ("no convergence"); }));
    jobs.push_back (std::make_unique<TestJob> ([&] { ++ran; }));
    EXPECT_EQ ("Unknown error", runOnPool (jobs, throwing).getErrorMessage().toStdString());
    EXPECT_EQ (2, ran);
    EXPECT_EQ (1, reports);

    jobs.erase (jobs.begin() + 1);
    EXPECT_EQ ("no convergence", runOnPool (jobs, {}).getErrorMessage().toStdString());
}

}
