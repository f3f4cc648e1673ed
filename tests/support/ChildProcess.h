// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

/** Another program, for as long as the object lives, in the network of the thread that makes it. */
class ChildProcess
{
public:
    /** @param words           the program, looked for in PATH, and its arguments
        @param output, errors  files for what it prints */
    explicit ChildProcess (std::vector<std::string> words, const std::string& output = "/dev/null",
                           const std::string& errors = "/dev/null")
    {
        std::vector<char*> arguments;

        for (auto& word : words)
            arguments.push_back (word.data());

        arguments.push_back (nullptr);

        // Tests end programs by signals, also where nohup or a shell's background makes this process ignore them.
        sigset_t none, defaults;
        ::sigemptyset (&none);
        ::sigemptyset (&defaults);

        for (const int number : { SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE })
            ::sigaddset (&defaults, number);

        // A group of its own, so that what a shell has started ends with it.
        ::posix_spawnattr_t attributes;
        ::posix_spawnattr_init (&attributes);
        ::posix_spawnattr_setflags (&attributes,
                                    POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        ::posix_spawnattr_setsigmask (&attributes, &none);
        ::posix_spawnattr_setsigdefault (&attributes, &defaults);

        ::posix_spawn_file_actions_t files;
        ::posix_spawn_file_actions_init (&files);
        ::posix_spawn_file_actions_addopen (&files, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::posix_spawn_file_actions_addopen (&files, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int failure = ::posix_spawnp (&process, arguments[0], &files, &attributes, arguments.data(), environ);
        ::posix_spawn_file_actions_destroy (&files);
        ::posix_spawnattr_destroy (&attributes);

        if (failure != 0)
            throw std::runtime_error (words[0] + " cannot be started");
    }

    /** Ends it, and what it has started. */
    ~ChildProcess()
    {
        signal (SIGTERM);
        wait();
    }

    ChildProcess (const ChildProcess&) = delete;
    ChildProcess& operator= (const ChildProcess&) = delete;

    void signal (int number) const
    {
        if (process > 0)
            ::kill (-process, number);
    }

    /** Waits for its end. @returns the status as waitpid gives it */
    int wait()
    {
        int status = 0;

        if (process > 0)
            ::waitpid (process, &status, 0);

        process = -1;
        return status;
    }

private:
    pid_t process = -1;
};
