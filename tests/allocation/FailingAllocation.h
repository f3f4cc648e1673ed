// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>

namespace veltra::test {

/** While one lives, chosen allocations of this program fail as they do when there is no memory: operator new throws
    std::bad_alloc, malloc and its kin give null. Counted are, over all threads, every operator new, and what our own
    code and the libraries inside the program take from malloc in blocks of at least smallestBlock bytes.

    Smaller blocks of malloc's are left alone: JUCE keeps the pointers of its arrays in them, and does not look at what
    it gets.
*/
class FailingAllocation
{
public:
    static constexpr std::size_t smallestBlock = 512;

    enum class Which
    {
        one,    ///< the nth one alone: there is memory again for whatever cleans up
        onwards ///< the nth one and all behind it
    };

    FailingAllocation (std::size_t nth, Which which);
    ~FailingAllocation();

    FailingAllocation (const FailingAllocation&) = delete;
    FailingAllocation& operator= (const FailingAllocation&) = delete;

    /** How many allocations have failed. */
    std::size_t failures() const;

    /** Lets allocations succeed, uncounted, while it lives: for what a test does in the midst of an operation. */
    class Pause
    {
    public:
        Pause();
        ~Pause();

        Pause (const Pause&) = delete;
        Pause& operator= (const Pause&) = delete;

    private:
        const bool wasArmed;
    };
};

/** While one lives, the program cannot start a thread. */
class NoThreads
{
public:
    NoThreads();
    ~NoThreads();

    NoThreads (const NoThreads&) = delete;
    NoThreads& operator= (const NoThreads&) = delete;
};

/** Blocks that the program has taken from operator new or malloc, of any size, and not given back. */
long long blocksInUse();

}
