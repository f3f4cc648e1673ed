// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#if defined(_WIN32)
#include <windows.h>
#define ENABLE_SNDFILE_WINDOWS_PROTOTYPES 1
#endif

#include <sndfile.h>

namespace veltra::platform {

/** sf_open for any name that a file can have. */
inline SNDFILE* openSoundFile (const std::filesystem::path& file, int mode, SF_INFO& info)
{
#if defined(_WIN32)
    return ::sf_wchar_open (file.c_str(), mode, &info);
#else
    return ::sf_open (file.c_str(), mode, &info);
#endif
}

}
