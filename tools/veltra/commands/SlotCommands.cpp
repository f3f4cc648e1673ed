// SPDX-License-Identifier: GPL-3.0-or-later
#include <memory>

#include "tools/output/Json.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/session/FilterSlots.h"
#include "tools/veltra/session/ReceiverDescription.h"

namespace veltra::host {

void addSlotCommands (CLI::App& program, const SessionOptions& options)
{
    auto* const list = program.add_subcommand ("slots", "List the filter slots of a receiver");

    list->footer ("");
    list->callback ([&options] {
        const auto resolved = withAddress (options);
        const auto receiver = describeReceiver (resolved);
        printResult ({ { "address", resolved.device }, { "slots", slotObjects (receiver.device()) } },
                     slotLines (receiver.device()));
    });

    auto* const remove = program.add_subcommand ("remove", "Empty a filter slot of a receiver");
    const auto slot = std::make_shared<std::uint32_t>();
    remove->add_option ("--slot", *slot, "Number of the slot, as `veltra slots` lists it")->required()->type_name ("N");
    remove->footer ("");

    remove->callback ([&options, slot] {
        DeviceSession session (options);
        checkSlot (session.device().GetFilterSlotCount(), *slot);
        const bool wasFilled = emptySlot (session, *slot);
        printResult ({ { "slot", *slot }, { "was_empty", ! wasFilled } },
                     "Slot " + std::to_string (*slot) + (wasFilled ? " is empty now.\n" : " was empty already.\n"));
    });
}

}
