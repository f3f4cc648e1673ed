// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/Transient.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include "tools/ExitStatus.h"

#if defined(_WIN32)
#include <random>
#else
#include <cerrno>
#include <cstdlib>
#include <cstring>
#endif

namespace veltra::host {

namespace {

struct Registry
{
    std::mutex lock;
    std::vector<std::filesystem::path> paths;
};

Registry& registry()
{
    static Registry instance;
    return instance;
}

void removeQuietly (const std::filesystem::path& path) noexcept
{
    std::error_code ignored;
    std::filesystem::remove_all (path, ignored);
}

void forget (const std::filesystem::path& path)
{
    auto& paths = registry().paths;
    paths.erase (std::find (paths.begin(), paths.end(), path));
}

}

Transient::Transient (const std::function<std::filesystem::path()>& make)
{
    const std::scoped_lock hold (registry().lock);
    registry().paths.emplace_back(); // the room is there before the file is

    try
    {
        path_ = make();
        registry().paths.back() = path_;
    }
    catch (...)
    {
        registry().paths.pop_back();
        throw;
    }
}

Transient::~Transient()
{
    const std::scoped_lock hold (registry().lock);

    if (! path_.empty())
    {
        removeQuietly (path_);
        forget (path_);
    }
}

void Transient::renameTo (const std::filesystem::path& target)
{
    const std::scoped_lock hold (registry().lock);
    std::filesystem::rename (path_, target);
    forget (path_);
    path_.clear();
}

void Transient::removeAllForGood() noexcept
{
    registry().lock.lock(); // and never unlocked

    for (const auto& path : registry().paths)
        removeQuietly (path);
}

std::filesystem::path makePrivateFolder()
{
    std::error_code error;
    auto folder = std::filesystem::temp_directory_path (error);

    if (error)
        throw Failure (kExitOutput, "There is no folder for temporary files: " + error.message() + ".");

#if defined(_WIN32)
    // The temporary folder of a Windows account is private already.
    std::random_device random;
    folder /= "veltra-" + std::to_string (random()) + std::to_string (random());

    if (! std::filesystem::create_directory (folder, error))
        throw Failure (kExitOutput, "No folder could be made in " + folder.parent_path().string() + ".");

    return folder;
#else
    auto name = (folder / "veltra-XXXXXX").string();

    if (::mkdtemp (name.data()) == nullptr) // mode 0700
        throw Failure (kExitOutput,
                       "No folder could be made in " + folder.string() + ": " + std::strerror (errno) + ".");

    return name;
#endif
}

}
