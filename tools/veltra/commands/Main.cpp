// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <cstring>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/output/Completion.h"
#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/output/SignalWatch.h"
#include "tools/veltra/commands/Commands.h"

using namespace veltra;
using namespace veltra::host;

namespace {

const std::map<std::string, int> kLogLevels { { "trace", 0 },    { "debug", 10000 }, { "info", 20000 },
                                              { "warn", 30000 }, { "error", 40000 }, { "fatal", 50000 },
                                              { "off", 60000 } };

std::string footer()
{
    return "\nThe exit status is 0, or:\n"
           + exitStatusHelp ({ kExitInternal, kExitUsage, kExitModule, kExitNoReceiver, kExitReceiver, kExitInput,
                               kExitOutput, kExitSlotInUse, kExitConversion, kExitNetwork, kExitChannels,
                               kExitCancelled })
           + "Results go to standard output, progress and notes to standard error. An input file \"-\" is standard input.\n"
             "Output files appear complete or not at all and keep the mode of the file that they replace. Devices, pipes and\n"
             "links are written through; \"-\" is standard output, and what a command prints then goes to standard error.\n"
             "A command's own options: `veltra COMMAND --help`.\n";
}

/** The help of a command shows the options, too, that it has in common with others. */
class Help final : public CLI::Formatter
{
    std::string make_footer (const CLI::App* app) const override
    {
        std::string text;

        if (const auto* const program = app->get_parent(); program != nullptr)
            for (const auto& group : program->get_groups())
                if (group != "Options") // those are the program's own, such as --version
                    text += make_group (group, false, program->get_options ([&] (const CLI::Option* option) {
                        return option->get_group() == group;
                    }));

        return text + Formatter::make_footer (app);
    }
};

void addOutputOptions (CLI::App& program)
{
    const auto group = "Options for all commands";
    program.add_flag ("--json", outputForm().json, "Print results as JSON, one object a line, see docs/json.md")
        ->group (group);
    program.add_flag ("--quiet", outputForm().quiet, "Print neither progress nor notes")->group (group);
}

void addSessionOptions (CLI::App& program, SessionOptions& session)
{
    const auto group = "Options for commands that talk to a receiver";

    program
        .add_option ("--device", session.device,
                     "Address of the receiver; without it the network is searched, and the only receiver found is used")
        ->type_name ("HOST:PORT")
        ->group (group);
    program
        .add_option ("--module", session.module, "The module to load; without it one is looked for near this program")
        ->type_name ("FILE")
        ->envname ("VELTRA_MODULE")
        ->group (group);
    program.add_option ("--log", session.log, "Append the module's log to a file")
        ->check ([] (const std::string& file) {
            return file == "-" ? std::string ("the module writes its log into files only") : std::string();
        })
        ->type_name ("FILE")
        ->group (group);
    program
        .add_option ("--log-level", session.logLevel, "Least level to log: trace, debug, info, warn, error, fatal, off")
        ->transform (CLI::CheckedTransformer (kLogLevels, CLI::ignore_case).description (""))
        ->type_name ("LEVEL")
        ->default_str ("info")
        ->group (group);

    program
        .add_option_function<std::vector<std::string>> (
            "--setting",
            [&session] (const std::vector<std::string>& items) {
                for (const auto& item : items)
                {
                    const auto equals = item.find ('=');

                    if (equals == item.npos || equals == 0)
                        throw Failure (kExitUsage, "'" + item + "' is not a setting; expected KEY=VALUE.");

                    checkSetting (item.substr (0, equals), item.substr (equals + 1));
                    session.settings[item.substr (0, equals)] = item.substr (equals + 1);
                }
            },
            "A setting of the module; may be given several times")
        ->type_name ("KEY=VALUE")
        ->allow_extra_args (false)
        ->group (group);
}

ExitStatus report (ExitStatus status, const std::string& words)
{
    std::fprintf (stderr, "veltra: %s\n", words.c_str());
    printJson ("error", { { "status", static_cast<int> (status) }, { "message", words } });
    return status;
}

int run (int argc, char** argv)
{
    SessionOptions session;
    CLI::App program ("Loads room-correction filters into A/V receivers and measures with them.", "veltra");

    program.fallthrough();
    program.footer (footer());
    program.set_version_flag ("--version", VELTRA_VERSION);
    program.formatter (std::make_shared<Help>());
    addOutputOptions (program);
    addSessionOptions (program, session);

    addFindCommand (program, session);
    addInfoCommand (program, session);
    addImportCommand (program);
    addDesignCommand (program);
    addCheckDescriptionCommand (program);
    addConvertCommand (program, session);
    addInspectCommand (program);
    addPlayCommand (program);
    addResponseCommand (program);
    addDownloadCommand (program, session);
    addSlotCommands (program, session);
    addStimulusCommand (program, session);
    addMeasureCommand (program, session);
    addControlCommands (program, session);
    addCheckCommand (program, session);
    addTraceCommand (program, session);
    program.set_help_all_flag ("--help-all", "Print this help with those of all commands");
    addCompletionOption (program);

    try
    {
        parse (program, argc, argv);

        // Asked here and not by CLI11, which would say so of a misspelt command too.
        if (program.get_subcommands().empty())
            throw Failure (kExitUsage, "No command was given; `veltra --help` lists them.");

        return kExitOk;
    }
    catch (const CLI::ParseError& error)
    {
        if (error.get_exit_code() == static_cast<int> (CLI::ExitCodes::Success))
            return program.exit (error); // --help and --version

        return report (kExitUsage, logText (error.what()) + "; see `veltra --help`.");
    }
    catch (const Failure& failure)
    {
        return report (failure.status, logText (failure.what()));
    }
    catch (const std::exception& fault)
    {
        return report (kExitInternal, std::string ("a fault of this program: ") + fault.what() + ".");
    }
}

}

int main (int argc, char** argv)
{
    const SignalWatch watch;
    const int status = run (argc, argv);

    try
    {
        finishStandardOutput();
        return status;
    }
    catch (const Failure& failure)
    {
        std::fprintf (stderr, "veltra: %s\n", failure.what());
        return status != kExitOk ? status : failure.status;
    }
}
