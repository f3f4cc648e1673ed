// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/terminal/WireMeter.h"

#if defined(__linux__)

#include <charconv>
#include <cstddef>
#include <filesystem>

#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace veltra::host {

namespace {

std::optional<std::uint64_t> acknowledgedBytesOf (int handle)
{
    tcp_info info = {};
    socklen_t size = sizeof (info);
    constexpr auto needed = offsetof (tcp_info, tcpi_bytes_acked) + sizeof (info.tcpi_bytes_acked);

    if (getsockopt (handle, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 || size < needed)
        return {};

    return info.tcpi_bytes_acked;
}

}

std::optional<std::uint64_t> acknowledgedBytes()
{
    std::optional<std::uint64_t> sum;
    std::error_code error;

    for (std::filesystem::directory_iterator entry ("/proc/self/fd", error), end; ! error && entry != end;
         entry.increment (error))
    {
        const auto name = entry->path().filename().string();
        int handle = -1;
        std::from_chars (name.data(), name.data() + name.size(), handle);

        if (const auto bytes = acknowledgedBytesOf (handle))
            sum = sum.value_or (0) + *bytes;
    }

    return sum;
}

}

#else

namespace veltra::host {

std::optional<std::uint64_t> acknowledgedBytes() { return {}; }

}

#endif
