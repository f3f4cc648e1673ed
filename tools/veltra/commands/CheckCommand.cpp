// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>

#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/output/SignalWatch.h"
#include "tools/veltra/check/Report.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/commands/ReceiverTarget.h"
#include "tools/veltra/session/ConnectionLog.h"

namespace veltra::host {

namespace {

struct CheckOptions
{
    check::Subject subject;
    int level = 2;
    int slack_ms = 0;
    std::uint32_t slot = 0;
    std::filesystem::path junit, json;
    bool force = false;
};

/** A file that a report goes to, opened before the checks run. */
class ReportFile
{
public:
    ReportFile (const std::filesystem::path& name, bool force)
    {
        if (name.empty())
            return;

        checkMayWrite (name, force);
        file.emplace (name);
    }

    void write (const std::string& text)
    {
        if (! file)
            return;

        file->stream() << text;
        file->complete();
    }

private:
    std::optional<OutputFile> file;
};

void run (const SessionOptions& session, CheckOptions& options)
{
    ReportFile junit (options.junit, options.force), json (options.json, options.force);
    auto& target = options.subject.target;
    target = receiverTarget (session);
    const auto address = target.host + ":" + std::to_string (target.port);
    target.slack = check::Milliseconds (options.slack_ms);

    const CancelScope cancel;
    target.isCancelled = [&] { return cancel.requested(); };
    std::vector<check::Result> results;

    try
    {
        results = check::runChecks (options.subject, options.level, [] (const check::Result& result) {
            textOutput() << check::lineOf (result) << std::flush;
            printJson ("check", check::objectOf (result));
        });
    }
    catch (const check::Cancelled&)
    {
        throw Failure (kExitCancelled, "Cancelled; the receiver's settings have been put back.");
    }

    printResult (check::summaryObject (results, address), check::summaryOf (results));
    junit.write (check::junitOf (results, address));
    json.write (check::jsonOf (results, address));

    if (results.front().outcome != check::Outcome::passed)
        throw noReceiver (address);

    if (std::ranges::any_of (results, [] (const auto& one) { return one.outcome == check::Outcome::failed; }))
        throw Failure (kExitReceiver, "The receiver does not do all that docs/wire-format.md says.");
}

}

void addCheckCommand (CLI::App& program, const SessionOptions& session)
{
    const auto options = std::make_shared<CheckOptions>();
    auto* const command = program.add_subcommand ("check", "Check whether a receiver does what the protocol says");

    command->add_option ("--level", options->level, "How far to go, 1 to 5, see below")
        ->check (CLI::Range (1, 5).description (""))
        ->type_name ("N")
        ->capture_default_str();
    auto* const slot =
        command->add_option ("--slot", options->slot, "A slot that may be overwritten and is empty afterwards")
            ->type_name ("N");
    command->add_option ("--minutes", options->subject.minutes, "Length of level 5")
        ->check (CLI::Range (0.01, 10080.0).description (""))
        ->type_name ("MINUTES")
        ->capture_default_str();
    command->add_option ("--slack", options->slack_ms, "Milliseconds to wait in addition to what the plug-in waits")
        ->check (CLI::Range (0, 60000).description (""))
        ->type_name ("MS")
        ->capture_default_str();
    command->add_option ("--junit", options->junit, "Also write the results as JUnit's XML")->type_name ("FILE");
    auto* const json =
        command->add_option ("--json", options->json, "Print the results as JSON, or write them into a FILE")
            ->type_name ("[FILE]")
            ->expected (0, 1);
    command->add_flag ("--force", options->force, "Replace output files that exist");
    command->footer (
        "\nEach level contains those before it:\n"
        "  1  opens a session and asks everything\n"
        "  2  sets what can be set, and what has to be refused\n"
        "  3  downloads into the slot of --slot; without it these checks are skipped\n"
        "  4  envelopes cut and damaged, several hosts, hosts that vanish, measurement (quiet sounds are played)\n"
        "  5  all kinds of exchanges for some --minutes\n"
        "Volume, attenuations, active slot and filtering are put back at the end; the volume is never raised. The exit\n"
        "status is 0 when no check failed.\n");
    command->callback ([options, slot, json, &session] {
        outputForm().json = outputForm().json || (json->count() > 0 && options->json.empty());

        if (slot->count() > 0)
            options->subject.slot = options->slot;

        run (session, *options);
    });
}

}
