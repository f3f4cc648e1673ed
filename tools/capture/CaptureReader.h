// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/capture/CaptureWriter.h"

namespace veltra::capture {

/** Bytes of one side of a conversation, in the order in which they were sent. */
struct Piece
{
    Side sender = Side::host;
    std::string bytes;
};

/** A TCP connection; the host is the side that opened it, or spoke first where the recording begins later. */
struct RecordedConversation
{
    std::vector<Piece> pieces;
};

/** Reads a pcapng file of TCP over IPv4: raw IP packets as CaptureWriter writes them, or Ethernet. Of a file that ends in the
    midst of a block, what is whole is read. Packets that were sent twice count once.
    @throws  std::runtime_error when the file cannot be read, is no pcapng file, or lacks bytes of a conversation */
std::vector<RecordedConversation> readCapture (const std::filesystem::path& file);
std::vector<RecordedConversation> readCapture (std::istream& stream);

}
