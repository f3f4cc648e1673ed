#include "tests/discovery/ChildProcess.h"

#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

ChildProcess::ChildProcess (std::vector<std::string> words, const std::string& output)
{
    std::vector<char*> arguments;

    for (auto& word : words)
        arguments.push_back (word.data());

    arguments.push_back (nullptr);

    // A group of its own, so that what a shell has started ends with it.
    ::posix_spawnattr_t attributes;
    ::posix_spawnattr_init (&attributes);
    ::posix_spawnattr_setflags (&attributes, POSIX_SPAWN_SETPGROUP);

    ::posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init (&files);
    ::posix_spawn_file_actions_addopen (&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::posix_spawn_file_actions_addopen (&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int failure = ::posix_spawnp (&process, arguments[0], &files, &attributes, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy (&files);
    ::posix_spawnattr_destroy (&attributes);

    if (failure != 0)
        throw std::runtime_error (words[0] + " cannot be started");
}

ChildProcess::~ChildProcess()
{
    ::kill (-process, SIGTERM);
    ::waitpid (process, nullptr, 0);
}
