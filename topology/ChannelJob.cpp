// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/ChannelJob.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/GuestProcess.h"
#include "common/Text.h"
#include "common/Threads.h"

namespace veltra::topology {

ChannelJob::ChannelJob (const juce::String& name, FloatSlot channelSlot) : ThreadPoolJob (name), place (channelSlot) {}

juce::ThreadPoolJob::JobStatus ChannelJob::runJob()
{
    try
    {
        convert (place);
    }
    catch (const std::exception& e)
    {
        result = juce::Result::fail (juce::String::fromUTF8 (toValidUtf8 (e.what()).c_str()));
    }
    catch (...)
    {
        result = juce::Result::fail ("Unknown error");
    }

    return jobHasFinished;
}

juce::Result runOnPool (const std::vector<std::unique_ptr<ChannelJob>>& jobs, ProgressFunction progress)
{
    // A throw out of here would destroy the pool over running jobs.
    const auto report = [&] (float fraction) noexcept {
        try
        {
            if (progress)
                progress (fraction, {});
        }
        catch (...)
        {
            progress = nullptr;
        }
    };

    const NoCancellation untilTheJobsAreDone;
    ThreadPool pool (juce::SystemStats::getNumCpus(), juce::Thread::Priority::low);
    const bool hasThreads = pool.hasThreads();

    if (hasThreads)
        for (const auto& job : jobs)
            pool->addJob (job.get(), false);

    report (0.0f);

    if (! hasThreads)
        for (const auto& job : jobs)
            job->runJob();

    const auto count = static_cast<std::ptrdiff_t> (jobs.size());

    for (auto last = count;;)
    {
        const auto left =
            std::count_if (jobs.begin(), jobs.end(), [&] (const auto& job) { return pool->contains (job.get()); });

        if (left != last)
            report (static_cast<float> (count - left) / static_cast<float> (count));

        if (left == 0)
            break;

        last = left;
        juce::Thread::sleep (100);
    }

    for (const auto& job : jobs)
        if (job->getResult().failed())
            return job->getResult();

    return juce::Result::ok();
}

}
