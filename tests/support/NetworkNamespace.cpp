// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/NetworkNamespace.h"

#include <cerrno>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

void runCommand (const std::string& command)
{
    if (std::system (command.c_str()) != 0)
        throw std::runtime_error ("failed: " + command);
}

/** On a thread of its own, since a thread cannot leave a network again without privileges; exceptions come back. */
void runOnThread (const std::function<void()>& action) { std::async (std::launch::async, action).get(); }

}

NetworkNamespace::NetworkNamespace()
{
    runOnThread ([this] {
        if (::unshare (CLONE_NEWNET) != 0)
            throw std::runtime_error (std::string ("no private network: ") + std::strerror (errno));

        descriptor =
            ::open (("/proc/self/task/" + std::to_string (::gettid()) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
        runCommand ("ip link set lo up");
    });
}

NetworkNamespace::~NetworkNamespace() { ::close (descriptor); }

void NetworkNamespace::run (const std::function<void()>& action) const
{
    runOnThread ([&] {
        if (::setns (descriptor, CLONE_NEWNET) != 0)
            throw std::runtime_error (std::string ("cannot enter the private network: ") + std::strerror (errno));

        action();
    });
}

void NetworkNamespace::ip (const std::string& arguments) const
{
    run ([&] { runCommand ("ip " + arguments); });
}

void NetworkNamespace::connect (const std::string& here, const NetworkNamespace& other, const std::string& there) const
{
    ip ("link add name " + interfaceName (here) + " type veth peer name " + interfaceName (there) + " netns /proc/"
        + std::to_string (::getpid()) + "/fd/" + std::to_string (other.descriptor));

    for (const auto& [network, address] : { std::pair (this, here), std::pair (&other, there) })
    {
        network->ip ("address add " + address + "/24 dev " + interfaceName (address));
        network->ip ("link set " + interfaceName (address) + " up");
    }
}

std::string NetworkNamespace::interfaceName (const std::string& address)
{
    auto name = "v" + address;
    std::replace (name.begin(), name.end(), '.', '-');
    return name;
}

bool NetworkNamespace::runWithOwnMounts (const std::function<void()>& action)
{
    bool permitted = false;

    runOnThread ([&] {
        permitted = ::unshare (CLONE_NEWNS) == 0 && ::mount ("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;

        if (permitted)
            action();
    });
    return permitted;
}

bool NetworkNamespace::required() { return std::getenv ("VELTRA_REQUIRE_NETNS") != nullptr; }

bool NetworkNamespace::permitted()
{
    static const bool allowed = thrownBy ([] { NetworkNamespace attempt; }).empty();
    return allowed;
}
