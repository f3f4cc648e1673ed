// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    Included into JUCE's core on Windows, ahead of everything else.

    JUCE waits for a connection until the socket can be written to. Windows reports a refused connection in another set of
    select, which JUCE does not give, so that a refusal took the whole time-out. Here it is given, and JUCE then finds the
    error on the socket.
*/

#define NOMINMAX 1
#define WIN32_LEAN_AND_MEAN 1

#include <winsock2.h>

inline int selectWithFailures (int count, fd_set* readable, fd_set* writable, fd_set* failed, const timeval* timeout)
{
    if (writable == nullptr || failed != nullptr)
        return ::select (count, readable, writable, failed, timeout);

    fd_set failures = *writable;
    return ::select (count, readable, writable, &failures, timeout);
}

#define select selectWithFailures
