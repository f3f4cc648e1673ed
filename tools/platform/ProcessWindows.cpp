// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/platform/Process.h"

#include <cstdlib>
#include <fstream>

#include <io.h>
#include <windows.h>

#include "tools/platform/Files.h"

namespace fs = std::filesystem;

namespace veltra::platform {

bool isTerminal (std::FILE* stream) noexcept { return _isatty (_fileno (stream)) != 0; }

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

std::string libraryError() { return "error " + std::to_string (GetLastError()); }

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

SignalThread::SignalThread (void (*) (int)) {}
SignalThread::~SignalThread() = default;

void endBySignal (int number) { std::_Exit (128 + number); }

}
