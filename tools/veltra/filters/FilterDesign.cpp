// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/FilterDesign.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "dsp/NumeratorFit.h"
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

/** What a design plays, as far as twice its response. */
Eigen::VectorXf playedBy (const dsp::FIIRDesign& design, Eigen::Index responseLength)
{
    Eigen::VectorXf played (2 * responseLength);
    played << design.fir, dsp::impulseResponse (design.sections, played.size() - design.fir.size()).cast<float>();
    return played;
}

void design (Task& task, const DesignSize& size)
{
    auto& response = *task.response;
    auto& outcome = task.outcome;
    const auto length = std::min<std::size_t> (response.taps.size(), response.sampleRate);
    Eigen::VectorXf wanted = Eigen::VectorXf::Zero (response.sampleRate);
    std::copy_n (response.taps.begin(), length, wanted.begin());
    outcome.taps = size.taps > 0 ? size.taps : response.sampleRate / 48;

    try
    {
        const auto start = std::chrono::steady_clock::now();
        const auto made =
            dsp::refitNumerators (wanted, dsp::designFIIR (wanted, outcome.taps, size.sections, response.sampleRate));
        outcome.seconds = std::chrono::duration<double> (std::chrono::steady_clock::now() - start).count();
        outcome.error = dsp::compareResponses (wanted, playedBy (made, wanted.size()), 0, response.sampleRate);

        for (const auto& section : made.sections)
            outcome.poleRadius = std::max (outcome.poleRadius, dsp::poleRadius (section.a1, section.a2));

        response.taps.assign (made.fir.begin(), made.fir.end());
        response.sections = made.sections;
    }
    catch (const std::exception& e)
    {
        task.refusal = e.what();
    }
}

/** Designs with several threads while this one reports their progress. */
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

    for (std::size_t reported = 0; reported < tasks.size();)
    {
        {
            std::unique_lock guard (lock);
            changed.wait (guard, [&] { return done != reported; });
            reported = done;
        }

        progress (static_cast<double> (reported) / static_cast<double> (tasks.size()));
    }
}

}

std::vector<DesignedResponse> designFilters (FilterDescription& description, const DesignSize& size,
                                             const std::function<void (double)>& progress)
{
    std::vector<Task> tasks;

    for (auto& channel : description.channels)
        for (auto& response : channel.responses)
            if (response.sections.empty())
                tasks.push_back (
                    { &response, { .channel = channel.name, .sampleRate = response.sampleRate, .error = {} }, {} });

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
