// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    What nearly every test needs: the usual headers of the standard library, and a few small tools.
*/

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iostream>
#include <limits>
#include <map>
#include <memory>
#include <numbers>
#include <numeric>
#include <optional>
#include <random>
#include <set>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

/** The rows of a table, to be read as `const auto& [input, expected]`. */
template <class... Columns>
using Rows = std::vector<std::tuple<Columns...>>;

/** Waits for what happens elsewhere. @returns false after the given time without it */
template <class Condition>
bool eventually (Condition&& condition, std::chrono::milliseconds patience = std::chrono::seconds (20))
{
    for (const auto end = std::chrono::steady_clock::now() + patience; std::chrono::steady_clock::now() < end;)
    {
        if (condition())
            return true;

        std::this_thread::sleep_for (std::chrono::milliseconds (2));
    }

    return condition();
}

/** The words of the exception that a call ends with; empty without one. */
template <class Exception = std::exception, class Call>
std::string thrownBy (Call&& call)
{
    try
    {
        call();
        return {};
    }
    catch (const Exception& exception)
    {
        return exception.what();
    }
}

inline bool contains (const std::string& text, const std::string& part) { return text.find (part) != text.npos; }

/** A text so many times. */
inline std::string repeated (const std::string& text, int count)
{
    std::string all;

    for (int i = 0; i < count; ++i)
        all += text;

    return all;
}

inline std::ptrdiff_t entriesIn (const std::filesystem::path& folder)
{
    return std::distance (std::filesystem::directory_iterator (folder), {});
}

/** Threads of this process. */
inline std::ptrdiff_t threadCount() { return entriesIn ("/proc/self/task"); }
