// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Process.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include <io.h>
#include <windows.h>

#include <shellapi.h>

#include "tools/platform/Files.h"

namespace fs = std::filesystem;

namespace veltra::platform {

namespace {

std::string utf8Of (const std::wstring& text)
{
    const auto bytes = fs::path (text).u8string();
    return { bytes.begin(), bytes.end() };
}

}

std::vector<std::string> commandLine (int count, const char* const* words)
{
    // What main is given has lost the letters that the account's code page does not have.
    int wideCount = 0;
    wchar_t** const wide = CommandLineToArgvW (GetCommandLineW(), &wideCount);
    std::vector<std::string> result (words, words + count);

    for (int i = 0; wide != nullptr && wideCount == count && i < count; ++i)
        result[static_cast<std::size_t> (i)] = utf8Of (wide[i]);

    LocalFree (wide);
    return result;
}

bool isTerminal (std::FILE* stream) noexcept { return _isatty (_fileno (stream)) != 0; }

std::optional<unsigned> terminalWidth (std::FILE* stream) noexcept
{
    CONSOLE_SCREEN_BUFFER_INFO info = {};
    const auto handle = reinterpret_cast<HANDLE> (_get_osfhandle (_fileno (stream)));
    const bool isKnown = GetConsoleScreenBufferInfo (handle, &info) != 0 && info.srWindow.Right >= info.srWindow.Left;
    return isKnown ? std::optional<unsigned> (info.srWindow.Right - info.srWindow.Left + 1) : std::nullopt;
}

fs::path programFile()
{
    wchar_t name[32768];
    const auto length = GetModuleFileNameW (nullptr, name, 32768);
    return fs::path (std::wstring (name, length));
}

void* loadLibrary (const fs::path& file) { return LoadLibraryW (file.c_str()); }
void unloadLibrary (void* library) { FreeLibrary (static_cast<HMODULE> (library)); }

void* findSymbol (void* library, const char* name)
{
    return reinterpret_cast<void*> (GetProcAddress (static_cast<HMODULE> (library), name));
}

std::string libraryError()
{
    const auto error = static_cast<int> (GetLastError());
    return std::system_category().message (error) + " (" + std::to_string (error) + ")";
}

std::optional<std::string> runProgram (std::vector<std::string> words, std::string_view input)
{
    // The input goes by way of a file, since _popen connects one direction only.
    const auto script = makeUniqueFile (fs::temp_directory_path());
    std::ofstream (script, std::ios::binary) << input;

    std::string command, output;

    for (const auto& word : words)
        command += "\"" + word + "\" ";

    std::FILE* const pipe = _popen ((command + "< \"" + script.string() + "\" 2> NUL").c_str(), "rb");
    char buffer[4096];

    for (std::size_t count; pipe != nullptr && (count = std::fread (buffer, 1, sizeof (buffer), pipe)) > 0;)
        output.append (buffer, count);

    const bool succeeded = pipe != nullptr && _pclose (pipe) == 0;
    std::error_code ignored;
    fs::remove (script, ignored);
    return succeeded ? std::optional (output) : std::nullopt;
}

struct SignalThread::State
{
};

namespace {

std::atomic<void (*) (int)> signalReceiver { nullptr };

BOOL WINAPI onConsoleEvent (DWORD event)
{
    const auto receive = signalReceiver.load();

    if (receive == nullptr)
        return FALSE;

    const bool isKey = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
    receive (isKey ? SIGINT : SIGTERM);

    // When this returns after one of the other events, Windows ends the process; it is given some seconds to end in order.
    if (! isKey)
        Sleep (5000);

    return TRUE;
}

}

SignalThread::SignalThread (void (*onSignal) (int))
{
    signalReceiver.store (onSignal);
    SetConsoleCtrlHandler (onConsoleEvent, TRUE);
}

SignalThread::~SignalThread()
{
    SetConsoleCtrlHandler (onConsoleEvent, FALSE);
    signalReceiver.store (nullptr);
}

void ignoreBrokenPipes() noexcept {} // there are no signals

void endBySignal (int number) { std::_Exit (128 + number); }

}
