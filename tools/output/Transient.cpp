// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/output/Transient.h"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <vector>

#include "tools/ExitStatus.h"
#include "tools/platform/Files.h"

namespace fs = std::filesystem;

namespace veltra {

namespace {

struct Registry
{
    std::mutex lock;
    std::vector<fs::path> paths;
};

Registry& registry()
{
    static Registry instance;
    return instance;
}

void removeQuietly (const fs::path& path) noexcept
{
    std::error_code ignored;
    fs::remove_all (path, ignored);
    platform::releaseFolder (path);
}

void forget (const fs::path& path)
{
    auto& paths = registry().paths;
    paths.erase (std::find (paths.begin(), paths.end(), path));
}

}

Transient::Transient (const std::function<fs::path()>& make)
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

void Transient::renameTo (const fs::path& target)
{
    const std::scoped_lock hold (registry().lock);
    fs::rename (path_, target);
    forget (path_);
    path_.clear();
}

void Transient::removeAllForGood() noexcept
{
    registry().lock.lock(); // and never unlocked

    for (const auto& path : registry().paths)
        removeQuietly (path);
}

fs::path makePrivateFolder()
{
    std::error_code error;
    const auto parent = fs::temp_directory_path (error);

    if (error)
        throw Failure (kExitOutput, "There is no folder for temporary files: " + error.message() + ".");

    try
    {
        return platform::makePrivateFolder (parent, "veltra-tmp-");
    }
    catch (const std::system_error& failure)
    {
        throw Failure (kExitOutput,
                       "No folder could be made in " + parent.string() + ": " + failure.code().message() + ".");
    }
}

}
