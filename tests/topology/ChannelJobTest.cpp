#include <atomic>
#include <array>
#include <stdexcept>

#include <gtest/gtest.h>

#include "topology/ChannelJob.h"

namespace {

using namespace veltra::topology;

class TestJob : public ChannelJob
{
public:
    TestJob (std::span<char> bytes, std::function<void (FloatSlot&)> functionToRun)
        : ChannelJob ("test", FloatSlot (bytes)), function (std::move (functionToRun))
    {
    }

private:
    void convert (FloatSlot& slot) override { function (slot); }

    std::function<void (FloatSlot&)> function;
};

TEST (ChannelJobs, FillTheirSlotsAndReportFromZeroToOne)
{
    std::vector<float> blob (8);
    const std::span<char> bytes (reinterpret_cast<char*> (blob.data()), blob.size() * sizeof (float));
    std::vector<std::unique_ptr<ChannelJob>> jobs;

    for (size_t i = 0; i < 4; ++i)
        jobs.push_back (std::make_unique<TestJob> (bytes.subspan (8 * i, 8), [i] (FloatSlot& slot)
        {
            const float values[] { static_cast<float> (i), 0.5f, 99.0f }; // the last one does not fit
            slot.write (values);
        }));

    std::vector<float> reports;
    const auto thread = juce::Thread::getCurrentThreadId();

    EXPECT_TRUE (runOnPool (jobs, [&] (float fraction, const juce::String& text)
    {
        EXPECT_EQ (thread, juce::Thread::getCurrentThreadId());
        EXPECT_TRUE (text.isEmpty());
        reports.push_back (fraction);
        return false;
    }).wasOk());

    EXPECT_EQ ((std::vector<float> { 0, 0.5f, 1, 0.5f, 2, 0.5f, 3, 0.5f }), blob);
    ASSERT_GE (reports.size(), 2u);
    EXPECT_EQ (0.0f, reports.front());
    EXPECT_EQ (1.0f, reports.back());
    EXPECT_TRUE (std::is_sorted (reports.begin(), reports.end()));

    for (const float fraction : reports)
        EXPECT_EQ (fraction * 4, std::floor (fraction * 4));
}

TEST (ChannelJobs, AnExceptionBecomesAFailureAndTheOthersStillRun)
{
    std::vector<std::unique_ptr<ChannelJob>> jobs;
    std::atomic<int> ran { 0 };

    jobs.push_back (std::make_unique<TestJob> (std::span<char> {}, [&] (FloatSlot&) { ++ran; }));
    jobs.push_back (std::make_unique<TestJob> (std::span<char> {}, [] (FloatSlot&) { throw std::runtime_error ("no convergence"); }));
    jobs.push_back (std::make_unique<TestJob> (std::span<char> {}, [] (FloatSlot&) { throw 1; }));
    jobs.push_back (std::make_unique<TestJob> (std::span<char> {}, [&] (FloatSlot&) { ++ran; }));

    EXPECT_EQ ("no convergence", runOnPool (jobs, {}).getErrorMessage().toStdString());
    EXPECT_EQ (2, ran);
}

TEST (ChannelJobs, NoJobsAreDoneAtOnceAndAProgressFunctionThatThrowsIsCalledNoMore)
{
    int reports = 0;
    EXPECT_TRUE (runOnPool ({}, [&] (float fraction, const juce::String&) { ++reports; return fraction == 0.0f; }).wasOk());
    EXPECT_EQ (1, reports);

    reports = 0;
    std::vector<std::unique_ptr<ChannelJob>> jobs;
    jobs.push_back (std::make_unique<TestJob> (std::span<char> {}, [] (FloatSlot&) {}));
    EXPECT_TRUE (runOnPool (jobs, [&] (float, const juce::String&) -> bool { ++reports; throw std::runtime_error ("no"); }).wasOk());
    EXPECT_EQ (1, reports);
}

}
