// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdlib>
#include <vector>

#include <gtest/gtest.h>
#include <log4cplus/logger.h>
#include <unistd.h>

/** Only root may make networks, but where the system allows it everybody may be root of a namespace of users. A process
    has to become that before it has threads, so an ordinary user's run starts itself again by unshare. */
static void becomeRootOfOwnNamespace (char** argv)
{
    constexpr const char* mark = "VELTRA_TEST_USER_NAMESPACE";

    if (::geteuid() == 0 || std::getenv (mark) != nullptr
        || std::system ("unshare --user --map-root-user true 2>/dev/null") != 0)
        return;

    std::vector<char*> arguments;

    for (const auto* word : { "unshare", "--user", "--map-root-user", "--" })
        arguments.push_back (const_cast<char*> (word));

    for (; *argv != nullptr; ++argv)
        arguments.push_back (*argv);

    arguments.push_back (nullptr);
    ::setenv (mark, "1", 1);
    ::execvp (arguments[0], arguments.data());
}

int main (int argc, char** argv)
{
    becomeRootOfOwnNamespace (argv);
    log4cplus::Logger::getRoot().setLogLevel (log4cplus::OFF_LOG_LEVEL); // no appender, no words about that
    testing::InitGoogleTest (&argc, argv);
    return RUN_ALL_TESTS();
}
