// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/AppendFile.h"

#include <windows.h>

namespace veltra::plugin {

namespace {

class WindowsFile final : public AppendFile
{
public:
    explicit WindowsFile (HANDLE handleToOwn) noexcept : handle (handleToOwn) {}
    ~WindowsFile() override { ::CloseHandle (handle); }

    WindowsFile (const WindowsFile&) = delete;
    WindowsFile& operator= (const WindowsFile&) = delete;

    bool write (std::string_view bytes) noexcept override
    {
        while (! bytes.empty())
        {
            DWORD taken = 0;

            if (! ::WriteFile (handle, bytes.data(), static_cast<DWORD> (bytes.size()), &taken, nullptr) || taken == 0)
                return false;

            bytes.remove_prefix (taken);
        }

        return true;
    }

private:
    const HANDLE handle;
};

}

std::unique_ptr<AppendFile> AppendFile::open (const juce::File& file)
{
    const auto& path = file.getFullPathName();
    const HANDLE handle = ::CreateFileW (path.toWideCharPointer(), FILE_APPEND_DATA,
                                         FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                                         FILE_ATTRIBUTE_NORMAL, nullptr);
    return handle != INVALID_HANDLE_VALUE ? std::make_unique<WindowsFile> (handle) : nullptr;
}

}
