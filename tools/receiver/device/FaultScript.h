// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/receiver/device/Fault.h"

namespace veltra::receiver {

/** Reads faults from text, one a line. Empty lines are skipped, and so is what follows a "#".

        refuse FilterDataChunk 3 'no room'   the third chunk is refused
        lose GetProtocolInfo 1               no answer to the first such request
        delay LoadFilter * 1500              every LoadFilter is answered after 1500 ms
        pieces GetUnit 1 7 20                7 bytes at a time, 20 ms apart
        close FilterDataChunk 5+             from the fifth chunk on, the connection is closed instead of a reply
        answer GetVolume 2-3 FilteringState 'deviceIndex: 0 isFiltering: true'

    A word that contains blanks or a "#" is put in quotes, 'like this' or "like this"; there is no escape character.
    faultHelp() lists all faults.

    @param error  the line (when there are several), what is wrong, and the form that was expected
    @returns      nothing after an error
*/
std::optional<std::vector<Fault>> parseFaults (std::string_view text, std::string& error);

/** The name of an action in a script ("lose-reply"). */
std::string_view actionName (Fault::Action);

/** The forms that parseFaults reads, one a line, for a program's help. */
std::string faultHelp();

}
