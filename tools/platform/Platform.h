// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/** What operating systems do differently, as far as the tools need it: Posix.cpp and Windows.cpp implement it. Failures are
    std::system_error unless a function says otherwise. Any thread. */
namespace veltra::platform {

/** Whether a stream goes to a terminal. */
bool isTerminal (std::FILE* stream) noexcept;

/** The running program's file, links resolved; empty when the system does not know it. */
std::filesystem::path programFile();

/** @returns  the library, or null, after which libraryError has the system's reason */
void* loadLibrary (const std::filesystem::path& file);
void unloadLibrary (void* library);
void* findSymbol (void* library, const char* name);
std::string libraryError();

/** Runs a program that is found in PATH, gives it a text on its standard input and takes what it prints on its standard
    output. Its error output is discarded.
    @returns  nothing when it could not be started, or ended with another status than 0 */
std::optional<std::string> runProgram (std::vector<std::string> words, std::string_view input);

/** Passes SIGINT, SIGTERM and SIGHUP to a function, on a thread of its own, for as long as the object lives; all threads
    that are made meanwhile have them blocked. Signals that the process ignores stay ignored. Writing to a pipe without a
    reader becomes an error. On Windows this does nothing. */
class SignalThread
{
public:
    explicit SignalThread (void (*onSignal) (int number));
    ~SignalThread();

    SignalThread (const SignalThread&) = delete;
    SignalThread& operator= (const SignalThread&) = delete;

private:
    struct State;
    std::unique_ptr<State> state;
};

/** Ends the process as the signal does by default. */
[[noreturn]] void endBySignal (int number);

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
