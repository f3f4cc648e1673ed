// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veltra::host {

/** A channel of a filter description and the number that it is to get. */
struct ArrangedChannel
{
    std::size_t place = 0;    ///< among the description's channels, from 0
    std::uint32_t number = 1; ///< from 1
};

/** A filter description with its channels chosen, ordered and numbered anew. Coefficients and all other attributes
    stay the text that they are.

    @param text      a description that the parser has accepted
    @param channels  in the order wanted; places beyond the last channel are left out
    @throws          std::bad_alloc
    Any thread.
*/
std::string arrangedDescription (const std::string& text, const std::vector<ArrangedChannel>& channels);

}
