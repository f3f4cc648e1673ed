// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/ChunkSender.h"

#include <algorithm>

#include "common/GuestProcess.h"
#include "common/Log.h"
#include "common/Text.h"
#include "plugin/Exchange.h"
#include "plugin/Settings.h"

namespace veltra::plugin {

namespace {

constexpr std::uint64_t kLargestChunk = 1024;
constexpr std::uint64_t kFewestChunks = 20; // so that the host's progress bar moves
constexpr std::uint64_t kSampleBytes = 4;   // a chunk that was shrunk holds whole samples
constexpr std::chrono::milliseconds kPause { 500 };
constexpr std::chrono::milliseconds kShortestLook { 2 };
constexpr const char* kUnknownRefusal = "Filter data send failed, refusal of an unknown chunk";

/** Where a chunk lies, for the log. */
std::string place (const veltraio::FilterDataChunk& message)
{
    return ", offset " + std::to_string (message.dataoffset()) + " bytes" + ", size "
           + std::to_string (message.data (0).size()) + " bytes";
}

}

ChunkSender::ChunkSender (const DownloadTarget& downloadTarget, std::uint32_t slotToFill, std::uint64_t totalBytes,
                          ProgressReport& progressToUse)
    : target (downloadTarget),
      slot (slotToFill),
      total (totalBytes),
      progress (progressToUse),
      chunkSize (totalBytes < kFewestChunks ? totalBytes : std::min (totalBytes / kFewestChunks, kLargestChunk)),
      straysBefore (downloadTarget.dispatcher.getLedger()->strays())
{
}

bool ChunkSender::send (const juce::MemoryBlock& blob)
{
    bool isCancelled = false;

    for (std::uint64_t offset = 0; offset < blob.getSize();)
    {
        const auto chunk = std::min<std::uint64_t> (chunkSize, blob.getSize() - offset);

        veltraio::FilterDataChunk message;
        message.set_deviceindex (target.deviceIndex);
        message.set_slotindex (slot);
        message.set_dataoffset (static_cast<std::uint32_t> (offset));
        message.add_data (blob.begin() + offset, chunk);

        if (const auto excess_bytes = sendChunk (message); excess_bytes > 0)
        {
            shrink (excess_bytes);
            continue;
        }

        if (! progress.report (static_cast<float> (sent) / static_cast<float> (total)))
            isCancelled = true;

        offset += chunk;
        sent += chunk;
    }

    checkForMissedRefusal();
    return ! isCancelled;
}

/** @returns  0 when the device has the chunk, or by how many bytes it is too long */
std::uint32_t ChunkSender::sendChunk (const veltraio::FilterDataChunk& message)
{
    for (int attempts = 1;; ++attempts)
    {
        const auto timeout_ms = readInt (target.settings, kChunkTimeout_ms);
        const auto start = std::chrono::steady_clock::now();
        const auto reply = sendCommand (target.dispatcher, message, static_cast<std::uint32_t> (timeout_ms));

        if (reply.sent > 0)
            return static_cast<std::uint32_t> (reply.sent);

        if (reply.isAcknowledged())
        {
            slowestReply = std::max (std::chrono::steady_clock::now() - start, slowestReply - slowestReply / 8);
            return 0;
        }

        isDoubtful = true;

        if (reply.isRefused())
            noteRefusal (reply.refusal, message);
        else if (reply.sent == 0)
            VELTRA_LOG (WARN, "Timeout sending FilterDataChunk error = " << reply.state << place (message));

        waitForNextAttempt (attempts);

        // A reply behind the refusal is the one to this chunk, and the refusal belongs to an earlier one.
        if (reply.isRefused() && target.dispatcher.getLedger()->hasStraysSinceLastExchange())
        {
            target.lastError = kUnknownRefusal;
            fail();
        }
    }
}

void ChunkSender::noteRefusal (const std::string& refusal, const veltraio::FilterDataChunk& message)
{
    target.lastError = refusal;
    VELTRA_LOG (ERROR, "Error sending FilterDataChunk error = " << veltraio::ReplyState::refused << place (message));

    if (! refusal.empty())
        VELTRA_LOG (ERROR, "Error message '" << logText (refusal) << "'");
}

/** A refusal that no exchange has reported belongs to a chunk that counted as acknowledged. When one reply was said twice
    unnoticed, that is the last chunk, whose own reply is then still to come. Behind any other block the next exchange
    gets it. */
void ChunkSender::checkForMissedRefusal()
{
    auto strays = target.dispatcher.getLedger()->strays();

    if (! isDoubtful && strays == straysBefore && sent == total)
    {
        const auto usual = std::chrono::ceil<std::chrono::milliseconds> (4 * slowestReply);
        strays = target.dispatcher.lookForStrays (std::max (usual, kShortestLook).count());
    }

    if (isDoubtful || strays != straysBefore)
        strays = target.dispatcher.lookForStrays();

    if (strays.refusals != straysBefore.refusals)
    {
        target.lastError = kUnknownRefusal;
        fail();
    }
}

void ChunkSender::waitForNextAttempt (int attempts)
{
    if (attempts < readInt (target.settings, kChunkAttempts) && pause (kPause))
        return;

    if (target.lastError.empty())
        target.lastError = "Filter data send failed, timeout";

    fail();
}

/** Leaves a sample's room for a longer offset in a later chunk. */
void ChunkSender::shrink (std::uint32_t excess_bytes)
{
    const auto unusable = std::uint64_t { excess_bytes } + kSampleBytes;
    chunkSize = chunkSize > unusable ? (chunkSize - unusable) / kSampleBytes * kSampleBytes : 0;

    if (chunkSize < kSampleBytes)
    {
        target.lastError = "Message limit too small for filter data";
        fail();
    }
}

void ChunkSender::fail()
{
    VELTRA_LOG (FATAL, "Fatal error sending FilterDataChunk message '" << logText (target.lastError) << "'");
    throw veltratune_io::kResultFailed;
}

}
