// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Level 3: downloads into the slot that the user gives away, whole and broken off, with chunks in every order.
*/

#include <algorithm>
#include <optional>
#include <thread>

#include "tools/veltra/check/TrialFilter.h"

namespace veltra::check {

namespace {

using veltraio::Request;

constexpr Milliseconds kQuiet { 200 }; // in which a second acknowledgement would come

void expectOccupied (const Subject& subject, bool isOccupied, const std::string& after)
{
    const auto slot = slotNow (subject, slotToUse (subject));

    if (slot.isoccupied() != isOccupied)
        throw Finding { after + ", and the question for Unit",
                        isOccupied ? "an occupied slot" : "a slot that is not occupied", describe (slot) };
}

void downloads (Subject& subject)
{
    slotToUse (subject);
    const auto blocks = trialFilter (subject, true);
    Wire wire (subject.target);
    TrialDownload download (subject, wire, blocks);

    for (const auto& block : blocks)
    {
        download.announce (block);
        download.sendFrom (block, 0);
    }

    expectOccupied (subject, true, "a whole download");
}

void acknowledgesOnce (Subject& subject)
{
    slotToUse (subject);
    const auto block = trialFilter (subject, false).front();
    Wire wire (subject.target);
    TrialDownload download (subject, wire, block);
    const auto first = download.chunk (block, 0, 16);
    wire.command (first);
    wire.expectSilence (describe (first), kQuiet + wire.slack() / 20);
}

/** With the chunks of one short block; the check sends some of them. */
struct OneBlock
{
    explicit OneBlock (Subject& subject)
        : slot (slotToUse (subject)),
          block (trialFilter (subject, false).front()),
          wire (std::in_place, subject.target),
          download (subject, *wire, block)
    {
    }

    std::uint32_t slot;
    TrialBlock block;
    std::optional<Wire> wire;
    TrialDownload download;
};

void remembersSlots (Subject& subject)
{
    OneBlock trial (subject);
    trial.download.sendFrom (trial.block, 0);
    trial.wire.reset();
    std::this_thread::sleep_for (kQuiet);
    const auto held = slotNow (subject, trial.slot);

    if (! held.isoccupied() || held.name() != kTrialName)
        throw Finding { "a whole download, the end of its connection, and the question for Unit",
                        std::string ("an occupied slot \"") + kTrialName + "\"", describe (held) };
}

void takesFullEnvelopes (Subject& subject)
{
    if (subject.messageLimit() == 0)
        throw Skip { "the receiver has no message limit" };

    OneBlock trial (subject);
    const auto room = trial.download.room (0);

    if (room > trial.block.bytes.size())
        throw Skip { "the shortest block is shorter than the message limit" };

    trial.wire->command (trial.download.chunk (trial.block, 0, room));
}

void refusesLongerEnvelopes (Subject& subject)
{
    if (subject.messageLimit() == 0)
        throw Skip { "the receiver has no message limit" };

    OneBlock trial (subject);
    const auto room = trial.download.room (0) + 1;

    if (room > trial.block.bytes.size())
        throw Skip { "the shortest block is shorter than the message limit" };

    trial.wire->refusal (trial.download.chunk (trial.block, 0, room));
    trial.download.sendFrom (trial.block, 0); // the refusal has changed nothing
    expectOccupied (subject, true, "a chunk that was refused, then a whole download");
}

void takesChunksAgain (Subject& subject)
{
    OneBlock trial (subject);
    const auto first = trial.download.chunk (trial.block, 0, 16);
    trial.wire->command (first);
    trial.wire->command (first);
    trial.download.sendFrom (trial.block, 16);
    expectOccupied (subject, true, "a download with its first chunk twice");
}

void takesAnyOrder (Subject& subject)
{
    OneBlock trial (subject);
    const auto step = std::min<std::size_t> (trial.download.room (trial.block.bytes.size()), 1024);
    const auto last = (trial.block.bytes.size() - 1) / step * step;

    for (auto offset = last;; offset -= step) // each overlaps the one that came before
    {
        trial.wire->command (
            trial.download.chunk (trial.block, offset, std::min (step + 3, trial.download.room (offset))));

        if (offset == 0)
            break;
    }

    expectOccupied (subject, true, "a download from its end to its beginning");
}

void refusesWrongPlaces (Subject& subject)
{
    OneBlock trial (subject);
    auto outside = trial.download.chunk (trial.block, 0, 8);
    outside.set_dataoffset (static_cast<std::uint32_t> (trial.block.bytes.size() - 4));
    trial.wire->refusal (outside);
    outside.set_dataoffset (0xFFFFFFFCu);
    trial.wire->refusal (outside);

    Wire stranger (subject.target); // loads nothing
    stranger.refusal (trial.download.chunk (trial.block, 0, 8));
}

void cancels (Subject& subject)
{
    OneBlock trial (subject);
    const auto others = [&] {
        Wire wire (subject.target);
        auto unit = wire.ask<veltraio::Unit> (request (Request::RequestType_kGetUnit));
        auto& slots = *unit.mutable_devices (0)->mutable_filterslots();
        slots.DeleteSubrange (static_cast<int> (trial.slot), 1);
        return unit.devices (0).SerializeAsString();
    };
    trial.download.sendFrom (trial.block, 0);
    const auto before = others();
    veltraio::DownloadCancelled message; // the plug-in names slot 0, whatever it loads
    message.set_deviceindex (0);
    message.set_slotindex (0);
    trial.wire->command (message);
    expectOccupied (subject, false, "a download and DownloadCancelled");

    if (others() != before)
        throw Finding { describe (message), "that other slots stay as they are", "another slot" };
}

void countsUnfinishedAsEmpty (Subject& subject)
{
    OneBlock trial (subject);
    trial.wire->command (trial.download.chunk (trial.block, 0, 16));
    expectOccupied (subject, false, "a part of a download");
    trial.wire.reset();
    std::this_thread::sleep_for (kQuiet);
    expectOccupied (subject, false, "a part of a download, and the end of its connection");

    OneBlock afresh (subject);
    afresh.download.sendFrom (afresh.block, 0);
    expectOccupied (subject, true, "a download that was broken off, and a whole one");
}

void removes (Subject& subject)
{
    OneBlock trial (subject);
    trial.download.sendFrom (trial.block, 0);
    veltraio::RemoveFilter message;
    message.set_deviceindex (0);
    message.set_slotindex (trial.slot);

    for (int i = 0; i < 2; ++i) // the second time it is empty already
    {
        trial.wire->command (message);
        expectOccupied (subject, false, describe (message));
    }
}

}

void addDownloadChecks (std::vector<Check>& checks)
{
    const std::vector<const char*> described { "tells-protocol", "tells-unit", "tells-topology" };
    const std::vector<const char*> sound { "tells-protocol", "tells-unit", "tells-topology", "acknowledges-once",
                                           "downloads" };
    const std::vector<Check> downloadChecks {
        { "acknowledges-once", 3, "A download", described, acknowledgesOnce },
        { "downloads",
          3,
          "A download",
          { "tells-protocol", "tells-unit", "tells-topology", "acknowledges-once" },
          downloads },
        { "remembers-slots", 3, "A download", sound, remembersSlots },
        { "takes-full-envelopes", 3, "Sending", sound, takesFullEnvelopes },
        { "refuses-longer-envelopes", 3, "Sending", sound, refusesLongerEnvelopes },
        { "takes-chunks-again", 3, "A download", sound, takesChunksAgain },
        { "takes-chunks-in-any-order", 3, "A download", sound, takesAnyOrder },
        { "refuses-chunks-elsewhere", 3, "A download", sound, refusesWrongPlaces },
        { "cancels", 3, "A download", sound, cancels },
        { "counts-unfinished-as-empty", 3, "A download", sound, countsUnfinishedAsEmpty },
        { "removes", 3, "A download", sound, removes },
    };
    checks.insert (checks.end(), downloadChecks.begin(), downloadChecks.end());
}

}
