// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

/** @file
    Descriptors, for the POSIX sources of this folder alone. A failure is a std::system_error. Any thread.
*/

namespace veltra::platform {

[[noreturn]] inline void fail (int error = errno) { throw std::system_error (error, std::generic_category()); }

/** A file descriptor with one owner. */
class Descriptor
{
public:
    explicit Descriptor (int openFile = -1) noexcept : fd (openFile) {}
    Descriptor (Descriptor&& other) noexcept : fd (std::exchange (other.fd, -1)) {}
    ~Descriptor() { close(); }

    Descriptor& operator= (Descriptor&& other) noexcept
    {
        std::swap (fd, other.fd);
        return *this;
    }

    int get() const noexcept { return fd; }
    bool isOpen() const noexcept { return fd >= 0; }

    /** @returns  whether the system could still write what it had buffered */
    bool close() noexcept { return fd < 0 || ::close (std::exchange (fd, -1)) == 0; }

private:
    int fd;
};

inline Descriptor open (const std::filesystem::path& file, int flags)
{
    Descriptor opened;

    do
        opened = Descriptor (::open (file.c_str(), flags | O_CLOEXEC));
    while (! opened.isOpen() && errno == EINTR);

    if (! opened.isOpen())
        fail();

    return opened;
}

/** Writes all of a text, however many calls that takes. */
inline void writeAll (int fd, std::string_view bytes)
{
    while (! bytes.empty())
    {
        const auto written = ::write (fd, bytes.data(), bytes.size());

        if (written < 0 && errno != EINTR)
            fail();

        bytes.remove_prefix (static_cast<std::size_t> (std::max<ssize_t> (written, 0)));
    }
}

/** Hands what a descriptor yields to a function until its end. */
template <typename Take>
void readAll (int fd, Take&& take)
{
    std::array<char, 65536> buffer;

    for (;;)
    {
        const auto count = ::read (fd, buffer.data(), buffer.size());

        if (count < 0 && errno != EINTR)
            fail();

        if (count == 0)
            return;

        take (std::string_view (buffer.data(), static_cast<std::size_t> (std::max<ssize_t> (count, 0))));
    }
}

}
