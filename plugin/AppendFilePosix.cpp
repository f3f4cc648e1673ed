// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/AppendFile.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include "protocol/BlockedSigpipe.h"

namespace veltra::plugin {

namespace {

class PosixFile final : public AppendFile
{
public:
    explicit PosixFile (int descriptorToOwn) noexcept : descriptor (descriptorToOwn) {}
    ~PosixFile() override { ::close (descriptor); }

    PosixFile (const PosixFile&) = delete;
    PosixFile& operator= (const PosixFile&) = delete;

    bool write (std::string_view bytes) noexcept override
    {
        while (! bytes.empty())
        {
            const auto taken = ::write (descriptor, bytes.data(), bytes.size());

            if (taken > 0)
                bytes.remove_prefix (static_cast<std::size_t> (taken));
            else if (taken == 0 || errno != EINTR)
                return false;
        }

        return true;
    }

private:
    const int descriptor;
};

/** A pipe, whose reader may go. */
class PipeFile final : public AppendFile
{
public:
    explicit PipeFile (int descriptor) noexcept : file (descriptor) {}

    bool write (std::string_view bytes) noexcept override
    {
        try
        {
            const ipc::platform::BlockedSigpipe guard;
            return file.write (bytes);
        }
        catch (const std::bad_alloc&)
        {
            return false;
        }
    }

private:
    PosixFile file;
};

}

std::unique_ptr<AppendFile> AppendFile::open (const juce::File& file)
{
    int descriptor = -1;

    do
        descriptor = ::open (file.getFullPathName().toRawUTF8(),
                             O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0666);

    while (descriptor < 0 && errno == EINTR);

    if (descriptor < 0)
        return nullptr;

    // Whatever cannot be positioned: a pipe, a terminal.
    if (::lseek (descriptor, 0, SEEK_END) < 0)
        return std::make_unique<PipeFile> (descriptor);

    return std::make_unique<PosixFile> (descriptor);
}

}
