// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/allocation/FailingAllocation.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include <pthread.h>

// The linker sends all calls of malloc and its kin from inside the program here (--wrap), and our own to the real ones.
extern "C"
{
    void* __real_malloc (std::size_t size);
    void* __real_memalign (std::size_t alignment, std::size_t size);
    void* __real_calloc (std::size_t count, std::size_t size);
    void* __real_realloc (void* block, std::size_t size);
    void __real_free (void* block);
    int __real_pthread_create (pthread_t* thread, const pthread_attr_t* attributes, void* (*function) (void*),
                               void* argument);
}

namespace veltra::test {

namespace {

std::atomic<bool> isArmed { false };
std::atomic<bool> failsOnwards { false };
std::atomic<std::size_t> untilFailure { 0 };
std::atomic<std::size_t> failed { 0 };
std::atomic<long long> inUse { 0 };
std::atomic<bool> hasThreads { true };

bool fails()
{
    if (! isArmed)
        return false;

    const auto left = untilFailure.load();
    const bool isTheOne = left == 1;

    if (left > 0)
        --untilFailure;

    if (! isTheOne && ! (left == 0 && failsOnwards))
        return false;

    ++failed;
    return true;
}

/** Counts a block that was taken, unless there was none. */
void* counted (void* block)
{
    if (block != nullptr)
        ++inUse;

    return block;
}

void give (void* block)
{
    if (block != nullptr)
        --inUse;

    __real_free (block);
}

bool failsForSize (std::size_t size) { return size >= FailingAllocation::smallestBlock && fails(); }

void* take (std::size_t size)
{
    if (void* const block = fails() ? nullptr : counted (__real_malloc (size)))
        return block;

    throw std::bad_alloc();
}

}

FailingAllocation::FailingAllocation (std::size_t nth, Which which)
{
    failed = 0;
    untilFailure = nth;
    failsOnwards = which == Which::onwards;
    isArmed = true;
}

FailingAllocation::~FailingAllocation() { isArmed = false; }

std::size_t FailingAllocation::failures() const { return failed; }

FailingAllocation::Pause::Pause() : wasArmed (isArmed.exchange (false)) {}

FailingAllocation::Pause::~Pause() { isArmed = wasArmed; }

NoThreads::NoThreads() { hasThreads = false; }

NoThreads::~NoThreads() { hasThreads = true; }

long long blocksInUse() { return inUse; }

}

using namespace veltra::test;

extern "C"
{
    void* __wrap_malloc (std::size_t size);
    void* __wrap_memalign (std::size_t alignment, std::size_t size);
    void* __wrap_calloc (std::size_t count, std::size_t size);
    void* __wrap_realloc (void* block, std::size_t size);
    void __wrap_free (void* block);
    int __wrap_pthread_create (pthread_t* thread, const pthread_attr_t* attributes, void* (*function) (void*),
                               void* argument);

    void* __wrap_malloc (std::size_t size) { return failsForSize (size) ? nullptr : counted (__real_malloc (size)); }

    void* __wrap_memalign (std::size_t alignment, std::size_t size)
    {
        return counted (__real_memalign (alignment, size));
    }

    void* __wrap_calloc (std::size_t count, std::size_t size)
    {
        return failsForSize (count * size) ? nullptr : counted (__real_calloc (count, size));
    }

    void* __wrap_realloc (void* block, std::size_t size)
    {
        if (failsForSize (size))
            return nullptr;

        return block == nullptr ? counted (__real_realloc (nullptr, size)) : __real_realloc (block, size);
    }

    void __wrap_free (void* block) { give (block); }

    int __wrap_pthread_create (pthread_t* thread, const pthread_attr_t* attributes, void* (*function) (void*),
                               void* argument)
    {
        return hasThreads ? __real_pthread_create (thread, attributes, function, argument) : EAGAIN;
    }
}

void* operator new (std::size_t size) { return take (size); }
void* operator new[] (std::size_t size) { return take (size); }
void operator delete (void* block) noexcept { give (block); }
void operator delete[] (void* block) noexcept { give (block); }
void operator delete (void* block, std::size_t) noexcept { give (block); }
void operator delete[] (void* block, std::size_t) noexcept { give (block); }
