// SPDX-License-Identifier: GPL-3.0-or-later
#include <cstdio>
#include <memory>

#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/session/FilterSlots.h"
#include "tools/veltra/session/ReceiverDescription.h"

namespace veltra::host {

void addSlotCommands (CLI::App& program, const SessionOptions& options)
{
    auto* const list = program.add_subcommand ("slots", "List the filter slots of a receiver");

    list->footer ("");
    list->callback ([&options] { printSlots (describeReceiver (withAddress (options)).device()); });

    auto* const remove = program.add_subcommand ("remove", "Empty a filter slot of a receiver");
    const auto slot = std::make_shared<std::uint32_t>();
    remove->add_option ("--slot", *slot, "Number of the slot, as `veltra slots` lists it")->required()->type_name ("N");
    remove->footer ("");

    remove->callback ([&options, slot] {
        DeviceSession session (options);
        checkSlot (session.device().GetFilterSlotCount(), *slot);
        std::printf (emptySlot (session, *slot) ? "Slot %u is empty now.\n" : "Slot %u was empty already.\n", *slot);
    });
}

}
