// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/SocketPlatform.h"

#include <array>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "common/GuestProcess.h"

/** The host's timer interrupts calls of the system that wait, which then have to be made again. */
TEST (SocketPlatform, SignalsEndNeitherASendNorAReceiveNorTheirBounds)
{
    using namespace std::chrono_literals;
    using namespace veltra::ipc::platform;

    std::array<int, 2> ends {};
    ASSERT_EQ (0, ::socketpair (AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()));
    prepareSocket (ends[0]);
    constexpr timeval patience { 10, 0 };
    ::setsockopt (ends[0], SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof (patience));
    const std::string block (1 << 16, 'x');

    while (sendBytes (ends[0], block.data(), static_cast<int> (block.size()), Blocking::no) > 0)
        continue;

    struct sigaction without
    {
    }, before {};
    without.sa_handler = [] (int) {};
    ::sigaction (SIGALRM, &without, &before);
    constexpr itimerval often { { 0, 5000 }, { 0, 5000 } }, never {};

    std::jthread peer ([&] {
        veltra::HeldSignals::forThisThread();
        std::array<char, 1 << 16> bytes {};
        std::this_thread::sleep_for (100ms);

        for (ssize_t got = 1; got > 0 && bytes[static_cast<std::size_t> (got - 1)] != 'y';)
        {
            got = ::read (ends[1], bytes.data(), bytes.size());
            std::this_thread::sleep_for (1ms);
        }

        std::this_thread::sleep_for (100ms);
        EXPECT_EQ (1, ::send (ends[1], "z", 1, MSG_NOSIGNAL));
    });

    ::setitimer (ITIMER_REAL, &often, nullptr);
    char byte = 0;
    const auto message = std::string (1 << 21, 'x') + "y";
    const auto size = static_cast<int> (message.size());
    EXPECT_EQ (size, sendBytes (ends[0], message.data(), size, Blocking::yes));
    EXPECT_EQ (1, receiveBytes (ends[0], &byte, 1));

    // The peer takes nothing any more.
    const auto start = std::chrono::steady_clock::now();
    EXPECT_LT (sendBytes (ends[0], message.data(), size, Blocking::yes), size);
    EXPECT_GE (std::chrono::steady_clock::now() - start, 1900ms);
    EXPECT_LT (std::chrono::steady_clock::now() - start, 8s);
    ::setitimer (ITIMER_REAL, &never, nullptr);
    ::sigaction (SIGALRM, &before, nullptr);
    ::shutdown (ends[0], SHUT_RDWR);
    peer.join();

    for (const int end : ends)
        ::close (end);
}
