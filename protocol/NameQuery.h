// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace veltra {

/** One question to the system's name service, which answers it on a thread of the system's or the C library's. Each kind
    of operating system has a source of its own. Only lookUpHost uses it. */
class NameQuery
{
public:
    /** Begins the look-up. */
    explicit NameQuery (const std::string& name);

    /** Only after the end: the system may write into this object until then. */
    ~NameQuery();

    NameQuery (const NameQuery&) = delete;
    NameQuery& operator= (const NameQuery&) = delete;

    /** @returns  whether the look-up has ended */
    bool waitForEnd (std::chrono::nanoseconds patience);

    /** Asks for the end. Most look-ups cannot be stopped, and end when the name server answers, or never. */
    void cancel() noexcept;

    /** In text form, best first; none for an unknown name. After the end. */
    std::vector<std::string> addresses() const;

    /** Whether a text is the number of an address. */
    static bool isNumber (const std::string& host);

private:
    struct State;
    std::unique_ptr<State> state;
};

}
