// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <juce_core/juce_core.h>

/** What JUCE's sockets leave to the operating system; one source for each system. */
namespace veltra::ipc::platform {

/** A socket that programs which the host starts do not inherit, on Linux and Windows from its first instant.
    @returns  its handle, or -1 */
int openSocket (int family, int type, int protocol) noexcept;

/** Once for each connected stream socket: sending raises no signal, and a send that may block gives up after
    some seconds. */
void prepareSocket (int handle) noexcept;

/** Once for each socket that sends to multicast groups: they leave by the interface with this address, and what a
    stuck interface does not take at once is not sent. Where that fails the send fails too, and says so.
    @param localAddress  IPv4 in decimal with dots; nothing else changes the interface */
void prepareMulticastSocket (int handle, const char* localAddress) noexcept;

enum class Blocking
{
    no,
    yes
};

/** One send, without SIGPIPE. @returns bytes taken, or -1 */
int sendBytes (int handle, const void* data, int size, Blocking blocking) noexcept;

/** Waits for bytes and takes those that are there.
    @returns their number; 0 when the peer has closed its side or the socket has been shut down; -1 for a dead socket */
int receiveBytes (int handle, void* data, int size) noexcept;

/** Ends both directions, which wakes a thread that waits for the socket or is sending; the handle stays open. */
void shutDown (int handle) noexcept;

/** An IPv4 address of a network adapter. */
struct AdapterAddress
{
    juce::String adapter;
    juce::String address;
};

/** All IPv4 addresses of this machine's adapters in the system's order, whether the adapters are up or not.
    On failure, which is logged, none. */
std::vector<AdapterAddress> adapterAddresses();

}
