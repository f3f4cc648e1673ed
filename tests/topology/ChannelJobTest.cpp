// SPDX-License-Identifier: GPL-3.0-or-later
#include <atomic>
#include <stdexcept>

#include <gtest/gtest.h>

#include "topology/ChannelJob.h"

namespace {

using namespace veltra::topology;

/** What the jobs make of their slots, and what is reported meanwhile, shows in the FIIR structure. */
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

TEST (ChannelJobs, AnExceptionBecomesAFailureAndTheOthersStillRun)
{
    std::vector<std::unique_ptr<ChannelJob>> jobs;
    std::atomic<int> ran { 0 };

    jobs.push_back (std::make_unique<TestJob> ([&] { ++ran; }));
    jobs.push_back (std::make_unique<TestJob> ([] { throw std::runtime_error ("no convergence"); }));
    jobs.push_back (std::make_unique<TestJob> ([] { throw 1; }));
    jobs.push_back (std::make_unique<TestJob> ([&] { ++ran; }));

    EXPECT_EQ ("no convergence", runOnPool (jobs, {}).getErrorMessage().toStdString());
    EXPECT_EQ (2, ran);
}

TEST (ChannelJobs, NoJobsAreDoneAtOnceAndAProgressFunctionThatThrowsIsCalledNoMore)
{
    int reports = 0;
    EXPECT_TRUE (runOnPool ({}, [&] (float fraction, const juce::String&) {
                     ++reports;
                     return fraction == 0.0f;
                 }).wasOk());
    EXPECT_EQ (1, reports);

    reports = 0;
    std::vector<std::unique_ptr<ChannelJob>> jobs;
    jobs.push_back (std::make_unique<TestJob> ([] {}));
    EXPECT_TRUE (runOnPool (jobs, [&] (float, const juce::String&) -> bool {
                     ++reports;
                     throw std::runtime_error ("no");
                 }).wasOk());
    EXPECT_EQ (1, reports);
}

}
