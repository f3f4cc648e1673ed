// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <vector>

#include "topology/Conversion.h"
#include "topology/Topology.h"

namespace veltra::topology {

/** Conversion of one channel into its slot of a blob, on this thread (runJob) or on a pool (runOnPool).

    Jobs of a blob share nothing that is written: each has its own slot, its own data, and reads its own response.
    A job must end by itself in bounded time, since nothing interrupts it.
*/
class ChannelJob : public juce::ThreadPoolJob
{
public:
    ChannelJob (const juce::String& name, FloatSlot channelSlot);

    /** Converts; an exception becomes the failed result. */
    JobStatus runJob() final;

    /** How it went; read when the job has ended. */
    const juce::Result& getResult() const noexcept { return result; }

protected:
    virtual void convert (FloatSlot& slot) = 0;

private:
    FloatSlot place;
    juce::Result result = juce::Result::ok();
};

/** Runs jobs on as many threads of low priority as there are processors, or on this one where the system has no room for
    more, and returns when all have ended.

    Meanwhile the calling thread reports: 0 at the start, then the fraction of jobs that have ended, whenever a look
    every 100 ms finds it changed, up to 1; the texts are empty. A report that throws is the last one.

    @returns  the failure of the first job that failed, in the order given
*/
juce::Result runOnPool (const std::vector<std::unique_ptr<ChannelJob>>& jobs, ProgressFunction progress);

}
