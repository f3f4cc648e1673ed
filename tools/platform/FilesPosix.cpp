// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Files.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/platform/DescriptorPosix.h"

namespace fs = std::filesystem;

namespace veltra::platform {

namespace {

void copy (const fs::path& source, int target)
{
    const auto from = open (source, O_RDONLY);
    readAll (from.get(), [target] (std::string_view bytes) { writeAll (target, bytes); });
}

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
