// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/ShippedProfiles.h"

namespace veltra::receiver {

const std::vector<ShippedProfile>& shippedProfiles()
{
    const auto text = [] (const unsigned char* bytes, std::size_t size) {
        return std::string_view (reinterpret_cast<const char*> (bytes), size);
    };
    static const std::vector<ShippedProfile> profiles { { "stereo", text (stereoProfile, stereoProfileSize) },
                                                        { "seven-one", text (sevenOneProfile, sevenOneProfileSize) },
                                                        { "twelve", text (twelveProfile, twelveProfileSize) } };
    return profiles;
}

}
