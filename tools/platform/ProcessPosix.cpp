// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tools/platform/DescriptorPosix.h"

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

namespace fs = std::filesystem;

extern char** environ;

namespace veltra::platform {

std::vector<std::string> commandLine (int count, const char* const* words) { return { words, words + count }; }

bool isTerminal (std::FILE* stream) noexcept { return ::isatty (::fileno (stream)) != 0; }

std::optional<unsigned> terminalWidth (std::FILE* stream) noexcept
{
    struct winsize size = {};
    const bool isKnown = ::ioctl (::fileno (stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? std::optional<unsigned> (size.ws_col) : std::nullopt;
}

fs::path programFile()
{
    std::error_code error;

#if defined(__APPLE__)
    char name[4096];
    std::uint32_t size = sizeof (name);
    const fs::path program = _NSGetExecutablePath (name, &size) == 0 ? fs::path (name) : fs::path();
#else
    const fs::path program = "/proc/self/exe";
#endif

    const auto real = fs::canonical (program, error);
    return error ? fs::path() : real;
}

void* loadLibrary (const fs::path& file) { return ::dlopen (file.c_str(), RTLD_NOW | RTLD_LOCAL); }
void unloadLibrary (void* library) { ::dlclose (library); }
void* findSymbol (void* library, const char* name) { return ::dlsym (library, name); }

std::string libraryError()
{
    const char* const words = ::dlerror();
    return words != nullptr ? words : "unknown reason";
}

std::optional<std::string> runProgram (std::vector<std::string> words, std::string_view input)
{
    const auto makePipe = [] (Descriptor& readEnd, Descriptor& writeEnd) {
        int ends[2];

#if defined(__linux__)
        if (::pipe2 (ends, O_CLOEXEC) != 0)
            fail();
#else
        if (::pipe (ends) != 0)
            fail();

        for (const int end : ends)
            ::fcntl (end, F_SETFD, FD_CLOEXEC);
#endif

        readEnd = Descriptor (ends[0]);
        writeEnd = Descriptor (ends[1]);
    };

    Descriptor childInput, toChild, fromChild, childOutput;
    makePipe (childInput, toChild);
    makePipe (fromChild, childOutput);

    std::vector<char*> arguments;

    for (auto& word : words)
        arguments.push_back (word.data());

    arguments.push_back (nullptr);

    // The signals that this process blocks or ignores must reach the child.
    sigset_t none, defaults;
    ::sigemptyset (&none);
    ::sigemptyset (&defaults);
    ::sigaddset (&defaults, SIGPIPE);
    ::posix_spawnattr_t attributes;
    ::posix_spawnattr_init (&attributes);
    ::posix_spawnattr_setflags (&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    ::posix_spawnattr_setsigmask (&attributes, &none);
    ::posix_spawnattr_setsigdefault (&attributes, &defaults);

    ::posix_spawn_file_actions_t files;
    ::posix_spawn_file_actions_init (&files);
    ::posix_spawn_file_actions_adddup2 (&files, childInput.get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2 (&files, childOutput.get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen (&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    const int failure = ::posix_spawnp (&process, arguments[0], &files, &attributes, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy (&files);
    ::posix_spawnattr_destroy (&attributes);
    childInput.close();
    childOutput.close();

    if (failure != 0)
        return {};

    // On a thread of its own, since the child may print before it has read everything.
    std::thread writer ([input, pipe = std::move (toChild)] {
        try
        {
            writeAll (pipe.get(), input);
        }
        catch (const std::system_error&)
        {
            // The child has ended early, which its status tells.
        }
    });

    std::string output;
    std::optional<int> readError;

    try
    {
        readAll (fromChild.get(), [&output] (std::string_view bytes) { output += bytes; });
    }
    catch (const std::system_error& error)
    {
        readError = error.code().value();
    }

    fromChild.close();
    writer.join();
    int status = -1;

    while (::waitpid (process, &status, 0) < 0 && errno == EINTR)
    {
    }

    if (status != 0 || readError)
        return {};

    return output;
}

struct SignalThread::State
{
    static constexpr int kEnd = SIGUSR1;

    std::thread thread;
};

SignalThread::SignalThread (void (*onSignal) (int)) : state (std::make_unique<State>())
{
    std::signal (SIGPIPE, SIG_IGN);

    sigset_t set;
    ::sigemptyset (&set);
    ::sigaddset (&set, State::kEnd);

    for (const int number : { SIGINT, SIGTERM, SIGHUP })
    {
        struct sigaction action = {};

        if (::sigaction (number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) // ignored ones: nohup
            ::sigaddset (&set, number);
    }

    ::pthread_sigmask (SIG_BLOCK, &set, nullptr); // inherited by all threads that are made from here on
    state->thread = std::thread ([set, onSignal] {
        for (int number = 0; number != State::kEnd;)
            if (::sigwait (&set, &number) == 0 && number != State::kEnd)
                onSignal (number);
    });
}

SignalThread::~SignalThread()
{
    ::pthread_kill (state->thread.native_handle(), State::kEnd);
    state->thread.join();
}

void ignoreBrokenPipes() noexcept { std::signal (SIGPIPE, SIG_IGN); }

void endBySignal (int number)
{
    std::signal (number, SIG_DFL);

    sigset_t set;
    ::sigemptyset (&set);
    ::sigaddset (&set, number);
    ::pthread_sigmask (SIG_UNBLOCK, &set, nullptr);
    std::raise (number);
    std::_Exit (128 + number); // not reached
}

}
