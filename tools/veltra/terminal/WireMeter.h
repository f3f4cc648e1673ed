// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

namespace veltra::host {

/** Number of bytes that the peers of this process's TCP connections have acknowledged so far, as the operating
    system counts them; nothing when it does not (only Linux does).

    The module does not say how many bytes it sends; the host's only TCP connections are the module's, so this
    is the traffic to the receiver, envelopes included. Any thread.
*/
std::optional<std::uint64_t> acknowledgedBytes();

}
