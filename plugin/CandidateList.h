// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <mutex>
#include <utility>
#include <vector>

#include <juce_core/juce_core.h>

namespace veltra::plugin {

/** A place where a receiver may be. */
struct Candidate
{
    juce::String address;      ///< as ConnectionManager::Connect takes it
    juce::String friendlyName; ///< for people; may be empty
};

/** The candidates of one search in the order of arrival. Threads of the scan add while the host's thread sleeps. */
class CandidateList
{
public:
    void add (Candidate candidate)
    {
        const std::lock_guard guard (lock);
        candidates.push_back (std::move (candidate));
    }

    /** All that have arrived, once. */
    std::vector<Candidate> take()
    {
        const std::lock_guard guard (lock);
        return std::exchange (candidates, {});
    }

private:
    std::mutex lock;
    std::vector<Candidate> candidates;
};

}
