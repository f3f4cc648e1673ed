// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <string>

#include "veltratune_io/Device.h"

namespace veltra::host {

/** The test signals by the names that the command line has for them. */
inline const std::map<std::string, veltratune_io::EStimulus>& stimulusNames()
{
    static const std::map<std::string, veltratune_io::EStimulus> names {
        { "sweep", veltratune_io::kStimulusSineLogSweep },
        { "noise", veltratune_io::kStimulusNoise },
        { "sub", veltratune_io::kStimulusSubwooferLevelCal }
    };
    return names;
}

}
