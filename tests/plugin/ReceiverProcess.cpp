#include "tests/plugin/ReceiverProcess.h"

#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace veltra::test {

ReceiverProcess::ReceiverProcess (const std::string& profile)
{
    int ends[2];

    if (pipe (ends) != 0)
        throw std::runtime_error ("no pipe");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init (&actions);
    posix_spawn_file_actions_adddup2 (&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose (&actions, ends[0]);

    std::string arguments[] = { RECEIVER_PROGRAM, "--port", "0", "--profile", profile, "--log", "nothing" };
    char* argv[std::size (arguments) + 1] = {};

    for (std::size_t i = 0; i < std::size (arguments); ++i)
        argv[i] = arguments[i].data();

    const int result = posix_spawn (&process, RECEIVER_PROGRAM, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy (&actions);
    close (ends[1]);

    const std::unique_ptr<FILE, int (*) (FILE*)> output (fdopen (ends[0], "r"), fclose);
    char line[128] = "";

    if (result != 0 || std::fgets (line, sizeof (line), output.get()) == nullptr)
        throw std::runtime_error ("the receiver did not start");

    const std::string text (line);
    const auto start = text.rfind (' ') + 1;
    listeningOn = text.substr (start, text.find ('\n') - start);
}

ReceiverProcess::~ReceiverProcess()
{
    kill (process, SIGTERM);
    waitpid (process, nullptr, 0);
}

}
