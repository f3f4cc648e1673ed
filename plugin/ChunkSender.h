// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>

#include <juce_core/juce_core.h>

#include "plugin/FilterDownload.h"
#include "plugin/ProgressReport.h"
#include "protocol/ReplyLedger.h"
#include "protocol/veltraio.pb.h"

namespace veltra::plugin {

/** Moves the blocks of one download chunk by chunk, each acknowledged by the device.

    Chunks begin as a twentieth of all data, at most 1024 bytes, and shrink to what fits into the device's message
    limit; what fits once is kept for the rest of the download. A chunk that the device refuses or does not
    acknowledge in time is sent again, by the settings "FilterDataChunkTimeout" and "FilterDataChunkRetries". When it
    cannot be known which chunk a refusal belongs to, the download fails.
*/
class ChunkSender
{
public:
    /** @param totalBytes  of all blocks, at least 1 */
    ChunkSender (const DownloadTarget& downloadTarget, std::uint32_t slotToFill, std::uint64_t totalBytes,
                 ProgressReport& progressToUse);

    /** Sends all of one block; it goes out whole, also when the host asks to cancel meanwhile.
        @returns  false when the host asked to cancel
        @throws   veltratune_io::EResult after setting the target's lastError; std::bad_alloc */
    bool send (const juce::MemoryBlock& blob);

private:
    std::uint32_t sendChunk (const veltraio::FilterDataChunk& message);
    void noteRefusal (const std::string& refusal, const veltraio::FilterDataChunk& message);
    void checkForMissedRefusal();
    void waitForNextAttempt (int attempts);
    void shrink (std::uint32_t excess_bytes);
    [[noreturn]] void fail();

    const DownloadTarget& target;
    const std::uint32_t slot;
    const std::uint64_t total;
    ProgressReport& progress;
    std::uint64_t chunkSize;
    std::uint64_t sent = 0;                              ///< bytes of all blocks that the device has acknowledged
    std::chrono::steady_clock::duration slowestReply {}; ///< of the last chunks; fades
    const veltraio::StrayReplies straysBefore;
    bool isDoubtful = false; ///< a chunk has been refused or not acknowledged in time
};

}
