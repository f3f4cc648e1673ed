// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

/** @file
    Files, standard output and private folders, as far as operating systems differ in them and the tools need them.
    Failures are std::system_error unless a function says otherwise. Any thread.
*/

namespace veltra::platform {

/** Makes a new empty file with an unpredictable name in a folder. Only this user can open it.
    @returns  its path */
std::filesystem::path makeUniqueFile (const std::filesystem::path& folder);

/** Gives a file the mode and owner of another, or those of any new file if that does not exist. */
void copyAttributes (const std::filesystem::path& model, const std::filesystem::path& file);

/** Whether this user may write to an existing file. */
bool isWritable (const std::filesystem::path& file) noexcept;

/** Writes the bytes of a file to one that exists, or to a device or pipe. Waits for a pipe's reader. */
void writeInto (const std::filesystem::path& source, const std::filesystem::path& target);

/** Whether a path names the file or pipe that standard output is connected to. Never for a device, such as /dev/null. */
bool isStandardOutput (const std::filesystem::path& file) noexcept;

/** From the first call on, what the program prints on standard output goes to standard error: standard output then
    carries only what writeToStandardOutput writes. */
void reserveStandardOutput();
void writeToStandardOutput (const std::filesystem::path& source);

/** Makes a folder for this process that only this user can open, and removes those that processes left behind that did
    not end in order. The name begins with the given prefix.
    @returns  its path; releaseFolder gives up the mark that keeps other processes from removing it */
std::filesystem::path makePrivateFolder (const std::filesystem::path& parent, const std::string& prefix);
void releaseFolder (const std::filesystem::path& folder) noexcept;

}
