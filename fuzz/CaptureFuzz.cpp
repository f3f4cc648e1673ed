// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A recording that somebody else has made: the reader of `veltra-receiver --replay`.
*/

#include <sstream>
#include <stdexcept>
#include <string>

#include "fuzz/FuzzTarget.h"
#include "tools/capture/CaptureReader.h"

extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size)
{
    using namespace veltra;
    std::istringstream stream { std::string (fuzz::asText (data, size)) };
    std::size_t bytes = 0;

    try
    {
        for (const auto& conversation : capture::readCapture (stream))
            for (const auto& piece : conversation.pieces)
                bytes += piece.bytes.size();
    }
    catch (const std::runtime_error&)
    {
    }

    fuzz::require (bytes <= size, "no more is read than there is");
    return 0;
}
