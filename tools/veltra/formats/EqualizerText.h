// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tools/veltra/formats/FilterChain.h"

namespace veltra::host {

/** Reads the filters of one channel from an equaliser's text: Equalizer APO's configuration, AutoEq's ParametricEQ.txt and
    GraphicEQ.txt, REW's filter settings. docs/how-to.md lists what is read. The meaning of a line is that of Equalizer APO,
    except that the types with a Q in their name (LSQ, HS Q) are shelves about their centre, as REW means them.

    @param channel  the receiver's name: where the text has Channel lines, those count that name this channel, by its name, by
                    one of L, R, C, LFE, SUB, RL, RR, SL, SR, by its number from 1 in the order L R C LFE RL RR SL SR, or by ALL
    @param notes    receives a sentence for each line that is not understood and is harmless
    @throws         Failure (kExitInput) that names file and line, says what was found and what was expected
*/
FilterChain readEqualizerText (const std::filesystem::path& file, std::string_view channel,
                               std::vector<std::string>& notes);

}
