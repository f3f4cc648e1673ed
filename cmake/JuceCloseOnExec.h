// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

/** @file
    Compiled in front of JUCE: programs that the host starts must not inherit its sockets, not even when another thread starts
    them between the making of a socket and a change of its flags.
*/

#if defined(__linux__)
#include <sys/socket.h>

#define socket(family, type, protocol) socket (family, (type) | SOCK_CLOEXEC, protocol)
#endif
