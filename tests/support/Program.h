#pragma once

#include <chrono>
#include <csignal>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Scratch.h"

namespace veltra::host {

/** How a program ended and what it printed. */
struct Ending
{
    int status = -1;  ///< exit status, or -1
    int signal = 0;   ///< the signal that ended it, or 0
    std::string out;
    std::string err;
};

/** A program running as a child of the test, its output going to files in the given folder. */
class Program : public ScratchTest
{
protected:
    using Environment = std::map<std::string, std::string>;

    ~Program() override
    {
        if (pid > 0) // a failed assertion left it running
        {
            ::kill (pid, SIGKILL);
            ::waitpid (pid, nullptr, 0);
        }
    }

    void start (const std::vector<std::string>& arguments, const Environment& changes = {})
    {
        std::map<std::string, std::string> environment = changes;

        for (char** entry = environ; *entry != nullptr; ++entry)
        {
            const std::string text = *entry;
            environment.emplace (text.substr (0, text.find ('=')), text.substr (text.find ('=') + 1));
        }

        std::vector<std::string> entries;
        std::vector<char*> argv, envp;

        for (const auto& [key, value] : environment)
            entries.push_back (key + "=" + value);

        for (auto& entry : entries)
            envp.push_back (entry.data());

        for (auto& argument : arguments)
            argv.push_back (const_cast<char*> (argument.c_str()));

        argv.push_back (nullptr);
        envp.push_back (nullptr);

        posix_spawn_file_actions_t files;
        posix_spawn_file_actions_init (&files);
        posix_spawn_file_actions_addopen (&files, STDOUT_FILENO, path ("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen (&files, STDERR_FILENO, path ("err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ASSERT_EQ (0, posix_spawn (&pid, argv[0], &files, nullptr, argv.data(), envp.data()));
        posix_spawn_file_actions_destroy (&files);
    }

    void sendSignal (int number) const { ::kill (pid, number); }

    /** Waits until a file holds a text; fails the test after 30 s. */
    void waitFor (const std::string& file, const std::string& text) const
    {
        for (int i = 0; i < 3000; ++i)
        {
            if (read (path (file)).find (text) != std::string::npos)
                return;

            std::this_thread::sleep_for (std::chrono::milliseconds (10));
        }

        FAIL() << "No '" << text << "' in " << file << ": " << read (path (file)) << read (path ("err"));
    }

    Ending finish()
    {
        int status = 0;
        ::waitpid (pid, &status, 0);
        pid = -1;
        return { WIFEXITED (status) ? WEXITSTATUS (status) : -1, WIFSIGNALED (status) ? WTERMSIG (status) : 0,
                 read (path ("out")), read (path ("err")) };
    }

    Ending run (const std::vector<std::string>& arguments, const Environment& changes = {})
    {
        start (arguments, changes);
        return finish();
    }

private:
    pid_t pid = -1;
};

}
