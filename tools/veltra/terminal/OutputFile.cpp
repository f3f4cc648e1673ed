// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/OutputFile.h"

#include "tools/ExitStatus.h"

namespace fs = std::filesystem;

namespace veltra::host {

namespace {

Failure notWritable (const fs::path& file) { return { kExitOutput, file.string() + " cannot be written." }; }

/** Beside the target, since a rename is atomic within one file system only. */
fs::path makeTemporary (const fs::path& target)
{
    auto path = target;
    path += ".part";

    if (! std::ofstream (path, std::ios::binary))
        throw notWritable (target);

    return path;
}

}

OutputFile::OutputFile (const fs::path& file) : target (file), temporary ([&file] { return makeTemporary (file); }) {}

std::ofstream& OutputFile::stream()
{
    if (! out.is_open())
        out.open (temporary.path(), std::ios::binary);

    return out;
}

void OutputFile::complete()
{
    if (out.is_open())
        out.close();

    if (! out)
        throw notWritable (target);

    try
    {
        temporary.renameTo (target);
    }
    catch (const fs::filesystem_error&)
    {
        throw notWritable (target);
    }
}

void checkMayWrite (const fs::path& file, bool force)
{
    std::error_code ignored;

    if (! force && fs::exists (file, ignored))
        throw Failure (kExitOutput, file.string() + " exists already; --force replaces it.");
}

}
