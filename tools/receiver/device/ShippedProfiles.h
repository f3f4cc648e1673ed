// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace veltra::receiver {

/** The files of examples/receivers, which the build turns into arrays. */
extern const unsigned char stereoProfile[], sevenOneProfile[], twelveProfile[];
extern const std::size_t stereoProfileSize, sevenOneProfileSize, twelveProfileSize;

struct ShippedProfile
{
    std::string_view name, text;
};

const std::vector<ShippedProfile>& shippedProfiles();

}
