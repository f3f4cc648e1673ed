// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Files.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <system_error>

#include <fcntl.h>
#include <io.h>

namespace fs = std::filesystem;

namespace veltra::platform {

namespace {

[[noreturn]] void fail (std::errc reason) { throw std::system_error (std::make_error_code (reason)); }

std::string unpredictableText()
{
    std::random_device random;
    return std::to_string (random()) + std::to_string (random());
}

void copy (const fs::path& source, std::ostream& target)
{
    std::ifstream from (source, std::ios::binary);

    if (from.peek() != std::ifstream::traits_type::eof())
        target << from.rdbuf();

    if (! target.flush())
        fail (std::errc::io_error);
}

int reservedOutput = -1;

}

fs::path makeUniqueFile (const fs::path& folder)
{
    const auto file = folder / ("veltra-" + unpredictableText());

    if (! std::ofstream (file, std::ios::binary))
        fail (std::errc::permission_denied);

    return file;
}

void copyAttributes (const fs::path&, const fs::path&) {} // a new file inherits them from its folder

bool isWritable (const fs::path& file) noexcept { return _waccess (file.c_str(), 2) == 0; }

void writeInto (const fs::path& source, const fs::path& target)
{
    std::ofstream to (target, std::ios::binary);
    copy (source, to);
}

bool isStandardOutput (const fs::path&) noexcept { return false; }

void reserveStandardOutput()
{
    if (reservedOutput >= 0)
        return;

    std::fflush (stdout);
    reservedOutput = _dup (1);

    if (reservedOutput < 0 || _dup2 (2, 1) < 0)
        fail (std::errc::bad_file_descriptor);

    _setmode (reservedOutput, _O_BINARY);
}

void writeToStandardOutput (const fs::path& source)
{
    std::ifstream from (source, std::ios::binary);
    char buffer[65536];

    while (from.read (buffer, sizeof (buffer)) || from.gcount() > 0)
        if (const auto count = static_cast<unsigned> (from.gcount());
            _write (reservedOutput, buffer, count) != static_cast<int> (count))
            fail (std::errc::io_error);
}

fs::path makePrivateFolder (const fs::path& parent, const std::string& prefix)
{
    // The folder for temporary files of a Windows account is private already.
    const auto folder = parent / (prefix + unpredictableText());
    fs::create_directory (folder);
    return folder;
}

void releaseFolder (const fs::path&) noexcept {}

}
