// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/FilterDesign.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tools/ExitStatus.h"

namespace veltra::host {

namespace {

/** One response with its outcome. */
struct Task
{
    DescribedResponse* response;
    DesignedResponse outcome;
    std::string refusal;
};

void design (Task& task, const DesignSize& size)
{
    auto& response = *task.response;
    std::vector<float> wanted = response.taps;
    wanted.resize (response.sampleRate); // what the module designs from: one second
    auto& outcome = task.outcome;
    outcome.taps = size.taps > 0 ? size.taps : response.sampleRate / 48;

    try
    {
        const auto start = std::chrono::steady_clock::now();
        const Eigen::Map<const Eigen::VectorXf> samples (wanted.data(), static_cast<Eigen::Index> (wanted.size()));
        const auto made = dsp::designFIIR (samples, outcome.taps, size.sections, response.sampleRate);
        outcome.seconds = std::chrono::duration<double> (std::chrono::steady_clock::now() - start).count();
        outcome.report = examineDesign (wanted, made, response.sampleRate);
        response.taps.assign (made.fir.begin(), made.fir.end());
        response.sections = made.sections;
    }
    catch (const std::exception& e)
    {
        task.refusal = e.what();
    }
}

/** Designs with several threads while this one tells how far they are. */
void runAll (std::vector<Task>& tasks, const DesignSize& size, const std::function<void (double)>& progress)
{
    std::atomic<std::size_t> next { 0 };
    std::size_t done = 0;
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::jthread> threads;

    const auto count = std::min<std::size_t> (std::max (1u, std::thread::hardware_concurrency()), tasks.size());

    for (std::size_t t = 0; t < count; ++t)
        threads.emplace_back ([&] {
            for (std::size_t i = next++; i < tasks.size(); i = next++)
            {
                design (tasks[i], size);
                const std::lock_guard guard (lock);
                ++done;
                changed.notify_one();
            }
        });

    for (std::size_t told = 0; told < tasks.size();)
    {
        {
            std::unique_lock guard (lock);
            changed.wait (guard, [&] { return done != told; });
            told = done;
        }

        progress (static_cast<double> (told) / static_cast<double> (tasks.size()));
    }
}

}

std::vector<DesignedResponse> designFilters (FilterDescription& description, const DesignSize& size,
                                             const std::function<void (double)>& progress)
{
    std::vector<Task> tasks;

    for (auto& channel : description.channels)
        for (auto& response : channel.responses)
            tasks.push_back (
                { &response, { .channel = channel.name, .sampleRate = response.sampleRate, .report = {} }, {} });

    runAll (tasks, size, progress);
    std::vector<DesignedResponse> outcomes;

    for (auto& task : tasks)
    {
        if (! task.refusal.empty())
            throw Failure (kExitConversion, "No FIIR design for channel " + task.outcome.channel + " at "
                                                + std::to_string (task.outcome.sampleRate) + " Hz: " + task.refusal
                                                + ".");

        outcomes.push_back (std::move (task.outcome));
    }

    return outcomes;
}

}
