// SPDX-License-Identifier: GPL-3.0-or-later
#include <iostream>
#include <memory>

#include "tools/ExitStatus.h"
#include "tools/output/Json.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/session/ReceiverSearch.h"

namespace veltra::host {

void addFindCommand (CLI::App& program, const SessionOptions& session)
{
    auto* const command = program.add_subcommand ("find", "Search the network for receivers");
    const auto timeout_ms = std::make_shared<int> (-1);

    command->add_option ("--timeout", *timeout_ms, "How long to search")
        ->type_name ("MS")
        ->check (CLI::Range (0, 600000))
        ->default_str ("6000");
    command->footer (
        "\nOne line a receiver, as it is found: its name, its address for --device, and maker and model.\n");
    command->callback ([&session, timeout_ms] {
        const auto duration = *timeout_ms < 0 ? searchTime (session) : std::chrono::milliseconds (*timeout_ms);
        const auto found = searchReceivers (duration, session, [] (const FoundReceiver& receiver) {
            printJson ("receiver", { { "name", receiver.name },
                                     { "address", receiver.address },
                                     { "model", receiver.model },
                                     { "answers", ! receiver.model.empty() } });
            textOutput() << lineOf (receiver) << std::endl;
        });

        if (found.empty())
            throw Failure (kExitNoReceiver, "No receiver was found on the network.");

        printResult ({ { "receivers", found.size() } }, "");
    });
}

}
