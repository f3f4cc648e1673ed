// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <ostream>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/SignalWatch.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/filters/DescriptionFile.h"
#include "tools/veltra/filters/DownloadPlan.h"
#include "tools/veltra/filters/PeakGain.h"
#include "tools/veltra/report/LeadInNote.h"
#include "tools/veltra/session/FilterSlots.h"
#include "tools/veltra/session/ReceiverDescription.h"
#include "tools/veltra/terminal/Progress.h"

namespace veltra::host {

namespace {

constexpr std::uint32_t kSlotsOfModule = 8; // it loads no others, whatever the receiver has

struct DownloadOptions
{
    std::filesystem::path file;
    std::uint32_t slot = 0;
    bool replace = false;
    MatchOptions match;
};

/** How many bytes the receiver has acknowledged, and how fast. */
class TransferMeter
{
public:
    explicit TransferMeter (std::uint64_t bytesInAll) : totalBytes (static_cast<double> (bytesInAll)) {}

    void begin() { startTime = Clock::now(); }

    /** @param fraction  of all bytes, as the module reports it */
    std::string rate (double fraction) const
    {
        const auto seconds = elapsed_s();
        return seconds > 0.0 && fraction > 0.0 ? readableBytes (fraction * totalBytes / seconds) + "/s" : std::string();
    }

    std::string summary() const
    {
        char time[32];
        std::snprintf (time, sizeof (time), "%.2f s", elapsed_s());
        return readableBytes (totalBytes) + " in " + time + ", " + rate (1.0);
    }

private:
    using Clock = std::chrono::steady_clock;

    double elapsed_s() const { return std::chrono::duration<double> (Clock::now() - startTime).count(); }

    Clock::time_point startTime = Clock::now();
    const double totalBytes;
};

class DownloadFollower final : public veltratune_io::ProgressCallback
{
public:
    DownloadFollower (Progress& progressToUse, std::uint64_t totalBytes) : progress (progressToUse), meter (totalBytes)
    {
    }

    void Reserved1() override {}

    void OnProgressText (const char* text, std::uint32_t length) override
    {
        if (length > 0)
        {
            if (isWatched (stderr))
                notes() << readable (std::string (text, length)) << std::endl;

            return;
        }

        // From here on the device is involved. Before, ending the program at once is the best way to cancel.
        cancel.emplace();
        meter.begin();
    }

    bool OnProgress (float fraction) override
    {
        cancelled = cancelled || (cancel && cancel->requested());

        progress.show (static_cast<double> (fraction), [this, fraction] {
            return meter.rate (static_cast<double> (fraction))
                   + (cancelled ? ", cancelling after this sample rate" : "");
        });

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

/** What the download does, decided before anything is touched. */
struct PreparedDownload
{
    std::string text; ///< for the module
    std::string project;
    DownloadPlan plan;
};

bool isArranged (const std::vector<ArrangedChannel>& channels, const std::vector<NamedFilter>& filters)
{
    if (channels.size() != filters.size())
        return false;

    for (std::size_t i = 0; i < channels.size(); ++i)
        if (channels[i].place != i || filters[i].number != channels[i].number - 1)
            return false;

    return true;
}

/** Checks the description, and gives it the receiver's order and numbers. */
PreparedDownload prepare (DescriptionFile description, const DownloadOptions& options, const SessionOptions& session,
                          const ReceiverDescription& receiver)
{
    const auto rates = servedRates (receiver.device(), receiver.topologyInfo);
    const auto channels = channelsOfReceiver (receiver.device(), rates);
    const auto filters = namedFilters (*description.set);
    const auto match = matchChannels (filters, channels, options.match);

    textOutput() << matchTable (match, filters, channels) << std::flush;

    if (! match.problem.empty())
        throw Failure (kExitChannels, "The filters are not those of the receiver's channels: " + match.problem
                                          + "; see --by-number and --partial.");

    std::vector<ArrangedChannel> arranged;

    for (const auto& pair : match.pairs)
        arranged.push_back ({ pair.filter, channels[pair.channel].number + 1 });

    auto settings = propertySet (session.settings);
    settings.removeValue ("BlobPath"); // the module dumps; once is enough
    const auto set = arrangedSet (*description.set, arranged);
    auto plan = planDownload (*set, receiver.device(), rates, settings);

    for (const auto& warning : plan.warnings)
        notes() << "Warning: " << warning << "\n";

    textOutput() << boostNote (plan.boosts_dB);
    notes() << leadInNote ("this receiver runs its filters at two rates, so that", plan.needingLeadIn);

    auto text = isArranged (arranged, filters) ? std::move (description.text)
                                               : arrangedDescription (description.text, arranged);
    return { std::move (text), logText (description.set->GetName()), std::move (plan) };
}

/** Carries it out, with a session of its own.
    @returns  nothing, or how it failed */
std::optional<Failure> transfer (const PreparedDownload& download, const DownloadOptions& options,
                                 const SessionOptions& sessionOptions)
{
    DeviceSession session (sessionOptions);

    if (options.replace && emptySlot (session, options.slot))
        textOutput() << "Slot " << options.slot << " emptied." << std::endl;

    Progress progress;
    DownloadFollower follower (progress, download.plan.totalBytes);
    const auto result = session.device().DownloadFilterSet (options.slot, download.text.c_str(), 0, &follower);

    if (result == veltratune_io::kResultOk && ! follower.wasCancelled())
        progress.show (1.0, [] { return std::string(); });

    progress.endLine();

    if (result == veltratune_io::kResultOk && ! follower.wasCancelled())
        textOutput() << follower.summary() << "\n";

    if (follower.wasCancelled() && result == veltratune_io::kResultOk)
        return Failure (kExitCancelled,
                        "Cancelled; slot " + std::to_string (options.slot) + " of the receiver is incomplete.");

    if (result == veltratune_io::kResultOk)
        return std::nullopt;

    return follower.transferBegun()
               ? Failure (kExitReceiver, "The receiver did not take the filters: " + session.words() + ".")
               : Failure (kExitConversion, "The module refused the filters: " + session.words() + ".");
}

void download (const SessionOptions& sessionOptions, const DownloadOptions& options)
{
    if (options.slot >= kSlotsOfModule)
        throw Failure (kExitUsage, "Filters go to the slots 0 to " + std::to_string (kSlotsOfModule - 1) + " only.");

    auto description = readDescription (options.file);
    const auto session = withAddress (sessionOptions);
    const auto receiver = describeReceiver (session);
    checkSlot (static_cast<std::uint32_t> (receiver.device().filterslots_size()), options.slot);

    if (! options.replace && receiver.device().filterslots (static_cast<int> (options.slot)).isoccupied())
        throw Failure (kExitSlotInUse, "Slot " + std::to_string (options.slot)
                                           + " holds filters already; --replace removes them first.");

    const auto prepared = prepare (std::move (description), options, session, receiver);

    if (auto failure = transfer (prepared, options, session))
        throw Failure (failure->status,
                       std::string (failure->what()) + " " + slotSentence (session.device, options.slot));

    if (slotIsOccupied (session.device, options.slot) == false)
        throw Failure (kExitReceiver, "The receiver acknowledged all filters, but says that slot "
                                          + std::to_string (options.slot) + " is empty.");

    auto text = "Slot " + std::to_string (options.slot) + " holds \"" + prepared.project + "\":";

    for (const auto& name : prepared.plan.sentChannels)
        text += " " + name;

    printResult ({ { "slot", options.slot },
                   { "project", prepared.project },
                   { "channels", prepared.plan.sentChannels },
                   { "bytes", prepared.plan.totalBytes } },
                 text + "\n");
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
    command->add_flag ("--replace", options->replace, "Empty the slot before");
    command->add_flag ("--by-number", options->match.byNumber, "Match filters and channels by number instead of name");
    command->add_flag ("--partial", options->match.partial,
                       "Leave out filters without a channel and channels without a filter");
    command->footer (
        "\nA filter goes to the channel of the same name, whatever its case; order and numbers of the description do not\n"
        "matter. Everything is checked and converted before anything is sent or a slot is emptied.\n"
        "Ctrl-C cancels after the data of the current sample rate; a second Ctrl-C ends the program at once.\n");
    command->callback ([options, &session] { download (session, *options); });
}

}
