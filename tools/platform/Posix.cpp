// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Platform.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

namespace fs = std::filesystem;

extern char** environ;

namespace veltra::platform {

namespace {

[[noreturn]] void fail (int error = errno) { throw std::system_error (error, std::generic_category()); }

/** A file descriptor with one owner. */
class Descriptor
{
public:
    explicit Descriptor (int openFile = -1) noexcept : fd (openFile) {}
    Descriptor (Descriptor&& other) noexcept : fd (std::exchange (other.fd, -1)) {}
    ~Descriptor() { close(); }

    Descriptor& operator= (Descriptor&& other) noexcept
    {
        std::swap (fd, other.fd);
        return *this;
    }

    int get() const noexcept { return fd; }
    bool isOpen() const noexcept { return fd >= 0; }

    /** @returns  whether the system could still write what it had buffered */
    bool close() noexcept { return fd < 0 || ::close (std::exchange (fd, -1)) == 0; }

private:
    int fd;
};

Descriptor open (const fs::path& file, int flags)
{
    Descriptor opened;

    do
        opened = Descriptor (::open (file.c_str(), flags | O_CLOEXEC));
    while (! opened.isOpen() && errno == EINTR);

    if (! opened.isOpen())
        fail();

    return opened;
}

void writeAll (int fd, std::string_view bytes)
{
    while (! bytes.empty())
    {
        const auto written = ::write (fd, bytes.data(), bytes.size());

        if (written < 0 && errno != EINTR)
            fail();

        bytes.remove_prefix (static_cast<std::size_t> (std::max<ssize_t> (written, 0)));
    }
}

/** Hands what a descriptor yields to a function until its end. */
template <typename Take>
void readAll (int fd, Take&& take)
{
    std::array<char, 65536> buffer;

    for (;;)
    {
        const auto count = ::read (fd, buffer.data(), buffer.size());

        if (count < 0 && errno != EINTR)
            fail();

        if (count == 0)
            return;

        take (std::string_view (buffer.data(), static_cast<std::size_t> (std::max<ssize_t> (count, 0))));
    }
}

void copy (const fs::path& source, int target)
{
    const auto from = open (source, O_RDONLY);
    readAll (from.get(), [target] (std::string_view bytes) { writeAll (target, bytes); });
}

}

bool isTerminal (std::FILE* stream) noexcept { return ::isatty (::fileno (stream)) != 0; }

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

        if (::pipe (ends) != 0)
            fail();

        readEnd = Descriptor (ends[0]);
        writeEnd = Descriptor (ends[1]);

        for (const int end : ends)
            ::fcntl (end, F_SETFD, FD_CLOEXEC);
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

fs::path makeUniqueFile (const fs::path& folder)
{
    auto name = (folder / ".veltra-XXXXXX").string();
    const Descriptor file (::mkstemp (name.data())); // mode 0600

    if (! file.isOpen())
        fail();

    return name;
}

void copyAttributes (const fs::path& model, const fs::path& file)
{
    struct stat wanted = {};

    if (::stat (model.c_str(), &wanted) != 0)
    {
        static const mode_t mask = [] {
            const auto current = ::umask (077);
            ::umask (current);
            return current;
        }();

        if (::chmod (file.c_str(), 0666 & ~mask) != 0)
            fail();

        return;
    }

    struct stat present = {};

    // The owner first, since a change of owner takes away some bits of the mode.
    if (::stat (file.c_str(), &present) != 0
        || ((present.st_uid != wanted.st_uid || present.st_gid != wanted.st_gid)
            && ::chown (file.c_str(), wanted.st_uid, wanted.st_gid) != 0)
        || ::chmod (file.c_str(), wanted.st_mode & 07777) != 0)
        fail();
}

bool isWritable (const fs::path& file) noexcept { return ::access (file.c_str(), W_OK) == 0; }

void writeInto (const fs::path& source, const fs::path& target)
{
    auto to = open (target, O_WRONLY | O_TRUNC | O_NOCTTY);
    copy (source, to.get());

    if (! to.close())
        fail();
}

namespace {

int& reservedOutput()
{
    static int fd = -1;
    return fd;
}

}

bool isStandardOutput (const fs::path& file) noexcept
{
    struct stat named = {}, output = {};
    const int fd = reservedOutput() >= 0 ? reservedOutput() : STDOUT_FILENO;
    return ::stat (file.c_str(), &named) == 0 && ::fstat (fd, &output) == 0 && ! S_ISCHR (named.st_mode)
           && named.st_dev == output.st_dev && named.st_ino == output.st_ino;
}

void reserveStandardOutput()
{
    if (reservedOutput() >= 0)
        return;

    std::fflush (stdout);
    std::cout.flush();
    const int copied = ::fcntl (STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);

    if (copied < 0 || ::dup2 (STDERR_FILENO, STDOUT_FILENO) < 0)
        fail();

    reservedOutput() = copied;
}

void writeToStandardOutput (const fs::path& source) { copy (source, reservedOutput()); }

namespace {

std::mutex& folderLock()
{
    static std::mutex lock;
    return lock;
}

/** The open folders of this process; a lock on each says that it is in use. */
std::map<fs::path, Descriptor>& openFolders()
{
    static std::map<fs::path, Descriptor> folders;
    return folders;
}

/** Opens a folder and marks it as used by this process.
    @returns  nothing when another process uses it, or it is not a folder of this user */
Descriptor claimFolder (const fs::path& folder)
{
    Descriptor opened (::open (folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {}, named = {};

    if (! opened.isOpen() || ::fstat (opened.get(), &status) != 0 || status.st_uid != ::geteuid()
        || (status.st_mode & 077) != 0 || ::flock (opened.get(), LOCK_EX | LOCK_NB) != 0)
        return Descriptor();

    // Another process may have removed it, and one may have made it anew.
    if (::lstat (folder.c_str(), &named) != 0 || named.st_ino != status.st_ino || named.st_dev != status.st_dev)
        return Descriptor();

    return opened;
}

void removeAbandonedFolders (const fs::path& parent, const std::string& prefix)
{
    std::error_code error;

    for (fs::directory_iterator entry (parent, error), end; ! error && entry != end; entry.increment (error))
    {
        const auto name = entry->path().filename().string();

        if (name.size() != prefix.size() + 6 || ! name.starts_with (prefix))
            continue;

        std::error_code ignored;

        if (const auto claimed = claimFolder (entry->path()); claimed.isOpen())
            fs::remove_all (entry->path(), ignored);
    }
}

}

fs::path makePrivateFolder (const fs::path& parent, const std::string& prefix)
{
    const std::scoped_lock hold (folderLock());
    removeAbandonedFolders (parent, prefix);

    for (int attempt = 0;; ++attempt)
    {
        auto name = (parent / (prefix + "XXXXXX")).string();

        if (::mkdtemp (name.data()) == nullptr) // mode 0700
            fail();

        // Between the two calls another process may have taken it for abandoned. Where folders cannot be locked, none
        // is ever taken for that.
        auto claimed = claimFolder (name);

        if (claimed.isOpen() || attempt == 10)
        {
            openFolders()[name] = std::move (claimed);
            return name;
        }

        ::rmdir (name.c_str());
    }
}

void releaseFolder (const fs::path& folder) noexcept
{
    const std::scoped_lock hold (folderLock());
    openFolders().erase (folder);
}

}
