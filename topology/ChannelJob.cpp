#include "topology/ChannelJob.h"

#include <exception>
#include <utility>

#include "common/Utf8.h"

namespace veltra::topology {

ChannelJob::ChannelJob (const juce::String& name, FloatSlot channelSlot)
    : ThreadPoolJob (name), place (channelSlot)
{
}

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
    const auto report = [&] (float fraction) noexcept
    {
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

    juce::ThreadPool pool (juce::SystemStats::getNumCpus(), 0, juce::Thread::Priority::low);

    for (const auto& job : jobs)
        pool.addJob (job.get(), false);

    report (0.0f);
    const auto count = static_cast<int> (jobs.size());

    for (int last = count;;)
    {
        const int left = pool.getNumJobs();

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
