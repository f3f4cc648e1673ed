// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/** @file
    Terminals, programs, libraries and signals, as far as operating systems differ in them and the tools need them.
    Failures are std::system_error unless a function says otherwise. Any thread.
*/

namespace veltra::platform {

/** The words of the command line as UTF-8, the program first. */
std::vector<std::string> commandLine (int count, const char* const* words);

/** Whether a stream goes to a terminal. */
bool isTerminal (std::FILE* stream) noexcept;

/** How many characters a line of the terminal has; nothing when the system does not say. */
std::optional<unsigned> terminalWidth (std::FILE* stream) noexcept;

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
    reader becomes an error. On Windows Ctrl-C and Ctrl-Break arrive as SIGINT, the end of the console or the session as
    SIGTERM, and the function is called on a thread of the system's. */
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

/** Writing to a pipe or a connection without a reader becomes an error. */
void ignoreBrokenPipes() noexcept;

/** Ends the process as the signal does by default. */
[[noreturn]] void endBySignal (int number);

}
