// SPDX-License-Identifier: GPL-3.0-or-later
#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "tools/ExitStatus.h"
#include "tools/output/SignalWatch.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/TextFile.h"
#include "tools/veltra/report/LeadInNote.h"
#include "tools/veltra/session/FilterSlots.h"
#include "tools/veltra/terminal/Progress.h"

namespace veltra::host {

namespace {

constexpr std::uint32_t kSlotsOfModule = 8; // it loads no others, whatever the receiver has

struct DownloadOptions
{
    std::filesystem::path file;
    std::uint32_t slot = 0;
    bool replace = false;
};

/** How many chunks the receiver has acknowledged, and how fast: the module reports a fraction and no bytes. */
class TransferMeter
{
public:
    void begin() { startTime = Clock::now(); }

    void countChunk() noexcept { ++chunks; }

    std::string rate() const
    {
        const auto seconds = elapsed_s();
        return seconds > 0.0 ? std::to_string (static_cast<int> (chunks / seconds)) + " chunks/s" : std::string();
    }

    std::string summary() const
    {
        char time[32];
        std::snprintf (time, sizeof (time), "%.2f s", elapsed_s());
        return std::to_string (chunks) + " chunks in " + time + ", " + rate();
    }

private:
    using Clock = std::chrono::steady_clock;

    double elapsed_s() const { return std::chrono::duration<double> (Clock::now() - startTime).count(); }

    Clock::time_point startTime = Clock::now();
    std::uint64_t chunks = 0;
};

class DownloadFollower final : public veltratune_io::ProgressCallback
{
public:
    explicit DownloadFollower (Progress& progressToUse) : progress (progressToUse) {}

    void Reserved1() override {}

    void OnProgressText (const char* text, std::uint32_t length) override
    {
        if (length > 0)
        {
            std::printf ("%s\n", readable (std::string (text, length)).c_str());
            std::fflush (stdout);
            return;
        }

        // From here on the device is involved. Before, ending the program at once is the best way to cancel.
        cancel.emplace();
        meter.begin();
    }

    bool OnProgress (float fraction) override
    {
        meter.countChunk();
        cancelled = cancelled || (cancel && cancel->requested());

        progress.show (static_cast<double> (fraction),
                       [this] { return meter.rate() + (cancelled ? ", cancelling after this sample rate" : ""); });

        return ! cancelled;
    }

    bool transferBegun() const noexcept { return cancel.has_value(); }
    bool wasCancelled() const noexcept { return cancelled; }
    std::string summary() const { return meter.summary(); }

private:
    static std::string readable (const std::string& text)
    {
        return text == "#Preprocessing filters..." ? "Preparing the filters..." : text;
    }

    Progress& progress;
    TransferMeter meter;
    std::optional<CancelScope> cancel;
    bool cancelled = false;
};

Failure downloadFailure (veltratune_io::EResult result, bool transferBegun, DeviceSession& session,
                         const DownloadOptions& options)
{
    const auto slot = std::to_string (options.slot);

    switch (result)
    {
        case veltratune_io::kResultBadFilterText:
            return { kExitInput, options.file.string() + " is no filter description." };

        case veltratune_io::kResultChannelConflict:
            return { kExitSlotInUse, "Slot " + slot + " holds filters already; --replace removes them first." };

        default:
            return transferBegun
                       ? Failure (kExitReceiver, "The receiver did not take the filters: " + session.words() + ".")
                       : Failure (kExitConversion, "The filters do not fit this receiver: " + session.words() + ".");
    }
}

void download (const SessionOptions& sessionOptions, const DownloadOptions& options)
{
    const auto text = readTextFile (options.file);
    DeviceSession session (sessionOptions);
    checkSlot (session.device(), options.slot);

    if (options.slot >= kSlotsOfModule)
        throw Failure (kExitUsage, "Filters go to the slots 0 to " + std::to_string (kSlotsOfModule - 1) + " only.");

    std::cerr << leadInNote ("if this receiver runs its filters at two rates (VLFIR),", channelsThatNeedLeadIn (text));

    if (options.replace && emptySlot (session, options.slot))
        std::printf ("Slot %u emptied.\n", options.slot);

    Progress progress (stdout, isTerminal (stdout));
    DownloadFollower follower (progress);
    const auto result = session.device().DownloadFilterSet (options.slot, text.c_str(), 0, &follower);

    if (result == veltratune_io::kResultOk && ! follower.wasCancelled())
        progress.show (1.0, [&] { return follower.summary(); });

    progress.endLine();

    if (result != veltratune_io::kResultOk)
        throw downloadFailure (result, follower.transferBegun(), session, options);

    if (follower.wasCancelled())
        throw Failure (kExitCancelled,
                       "Cancelled; slot " + std::to_string (options.slot) + " of the receiver is incomplete.");

    for (auto* const set : setsIn (session.device(), options.slot))
        std::printf ("Slot %u holds \"%s\": %s\n", options.slot, set->GetName(), filterNames (*set).c_str());
}

}

void addDownloadCommand (CLI::App& program, const SessionOptions& session)
{
    const auto options = std::make_shared<DownloadOptions>();
    auto* const command =
        program.add_subcommand ("download", "Convert filters for a receiver and load them into a slot");

    command->add_option ("file", options->file, "The filter description (XML)")->required()->type_name ("FILE");
    command->add_option ("--slot", options->slot, "Number of the slot, as `veltra slots` lists it")
        ->required()
        ->type_name ("N");
    command->add_flag ("--replace", options->replace, "Empty the slot first");
    command->footer (
        "\nCtrl-C cancels when the data for one sample rate is through; a second Ctrl-C does not wait for that.\n");
    command->callback ([options, &session] { download (session, *options); });
}

}
