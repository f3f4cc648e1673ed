// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/Testing.h"
#pragma once

/** A private network of its own, with nothing but a loopback interface to begin with. Whatever happens in it stays in
    it: no search of a test ever reaches the network that this machine is connected to. */
class NetworkNamespace
{
public:
    NetworkNamespace();
    ~NetworkNamespace();

    NetworkNamespace (const NetworkNamespace&) = delete;
    NetworkNamespace& operator= (const NetworkNamespace&) = delete;

    /** Runs something on a thread inside this network and waits for its end. The sockets that are made there belong to
        this network for ever, and so do the threads. */
    void run (const std::function<void()>& action) const;

    /** Runs "ip" with these arguments inside this network. */
    void ip (const std::string& arguments) const;

    /** Makes a cable between this network and another.
        @param here, there  addresses of the two ends, of one /24; the interfaces are named after them */
    void connect (const std::string& here, const NetworkNamespace& other, const std::string& there) const;

    /** The name of the interface that connect made for an address. */
    static std::string interfaceName (const std::string& address);

    /** Runs something on a thread with mounts of its own, which nothing but that thread and what it starts sees.
        @returns  false when that is not permitted; then nothing was run */
    static bool runWithOwnMounts (const std::function<void()>& action);

    /** Whether this process may make networks. */
    static bool permitted();

    /** Whether the environment variable VELTRA_REQUIRE_NETNS asks for a failure of what cannot run. */
    static bool required();

private:
    int descriptor = -1;
};

/** Fixture of tests that need private networks; they are skipped where those are neither permitted nor required. */
template <typename Fixture>
class InPrivateNetwork : public Fixture
{
protected:
    void SetUp() override
    {
        Fixture::SetUp();

        if (NetworkNamespace::permitted())
        {
            home.emplace();
            return;
        }

        if (NetworkNamespace::required())
            FAIL() << "private network namespaces are required and not permitted here";

        GTEST_SKIP() << "private network namespaces are not permitted here";
    }

    std::optional<NetworkNamespace> home; // the first of them
};

using PrivateNetworkTest = InPrivateNetwork<testing::Test>;
