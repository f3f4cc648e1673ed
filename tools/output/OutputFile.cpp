// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/output/OutputFile.h"

#include <cstdio>
#include <iostream>
#include <mutex>
#include <set>
#include <system_error>

#include "tools/ExitStatus.h"
#include "tools/output/SignalWatch.h"
#include "tools/platform/Files.h"

namespace fs = std::filesystem;

namespace veltra {

namespace {

constexpr int kMaxLinks = 40;

/** "/dev/stdout" means something else once standard output is reserved, so names that meant it are kept. */
bool meansStandardOutput (const fs::path& file)
{
    static std::mutex lock;
    static std::set<fs::path> names { "-" };
    const std::scoped_lock hold (lock);

    if (platform::isStandardOutput (file))
        names.insert (file);

    return names.contains (file);
}

bool isDeviceOrPipe (const fs::path& file)
{
    std::error_code ignored;
    return fs::exists (file, ignored) && ! fs::is_regular_file (file, ignored) && ! fs::is_directory (file, ignored);
}

/** The end of a chain of symbolic links, which need not exist. */
fs::path withoutLinks (fs::path file)
{
    std::error_code error;

    for (int i = 0; i < kMaxLinks && fs::is_symlink (file, error); ++i)
        file = file.parent_path() / fs::read_symlink (file, error);

    return file;
}

fs::path folderOf (const fs::path& file) { return file.has_parent_path() ? file.parent_path() : fs::path ("."); }

}

Failure OutputFile::notWritable (const std::string& reason) const
{
    return { kExitOutput, name.string() + " cannot be written: " + reason + "." };
}

/** Makes the temporary file beside the target. */
bool OutputFile::canRename()
{
    const bool exists = fs::exists (target);

    try
    {
        transient = std::make_unique<Transient> ([this] { return platform::makeUniqueFile (folderOf (target)); });
        platform::copyAttributes (target, transient->path());
        temporary = transient->path();
        return true;
    }
    catch (const std::system_error& error)
    {
        transient.reset();

        if (! exists)
            throw notWritable (error.code().message());

        return false;
    }
}

OutputFile::OutputFile (const fs::path& file) : name (file)
{
    try
    {
        if (fs::is_directory (name))
            throw notWritable ("it is a folder");

        if (meansStandardOutput (name))
            way = Way::standardOutput;
        else if (isDeviceOrPipe (name))
            way = Way::writeInto;
        else
            target = withoutLinks (name);

        if (way == Way::standardOutput)
            platform::reserveStandardOutput();
        else if (fs::exists (name) && ! platform::isWritable (name))
            throw notWritable (std::make_error_code (std::errc::permission_denied).message());

        if (way == Way::rename && ! canRename())
            way = Way::writeInto;
    }
    catch (const std::system_error& error)
    {
        throw notWritable (error.code().message());
    }

    if (way != Way::rename)
    {
        transient = std::make_unique<Transient> (makePrivateFolder);
        temporary = transient->path() / "output";
    }
}

std::ofstream& OutputFile::stream()
{
    if (! out.is_open())
        out.open (temporary, std::ios::binary);

    return out;
}

void OutputFile::complete()
try
{
    if (out.is_open())
        out.close();

    if (! out)
        throw notWritable ("the disk may be full");

    const UncancellableScope signalsEndTheProgram; // a pipe may never get a reader

    switch (way)
    {
        case Way::rename: transient->renameTo (target); break;
        case Way::writeInto: platform::writeInto (temporary, name); break;
        case Way::standardOutput: platform::writeToStandardOutput (temporary); break;
    }

    transient.reset();
}
catch (const std::system_error& error)
{
    throw notWritable (error.code().message());
}

void checkMayWrite (const fs::path& file, bool force)
{
    std::error_code ignored;

    if (meansStandardOutput (file))
        platform::reserveStandardOutput();
    else if (! force && fs::exists (file, ignored) && ! isDeviceOrPipe (file))
        throw Failure (kExitOutput, file.string() + " exists already; --force replaces it.");
}

void makeOutputFolder (const fs::path& folder)
{
    std::error_code error;

    if (! fs::is_directory (folder, error) && ! fs::create_directory (folder, error))
        throw Failure (kExitOutput, folder.string() + ": the folder cannot be created: "
                                        + (error ? error : std::make_error_code (std::errc::file_exists)).message()
                                        + ".");
}

void finishStandardOutput()
{
    std::cout.flush();

    if (std::fflush (stdout) != 0 || std::ferror (stdout) != 0 || ! std::cout)
        throw Failure (kExitOutput, "Standard output cannot be written.");
}

}
