// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRLayout.h"

#include <array>

#include "topology/VLFIRBlob.h"

namespace veltra::topology {

namespace {

using R = VLFIRRecord;
using Field = std::uint32_t R::*;

constexpr std::array<Field, 8> firstFields = {
    &R::channelWord,    &R::gain,     &R::highRateDelay,   &R::highRateTapCount,
    &R::highRateOffset, &R::reserved, &R::lowRateTapCount, &R::lowRateOffset,
};

// The stage gains stand here in the order in which the processor's stages come, which is not that of their numbers.
constexpr std::array<Field, 12> secondFields = {
    &R::channelWord,    &R::gain,       &R::stageGain3,      &R::stageGain1,
    &R::stageGain4,     &R::stageGain2, &R::highRateDelay,   &R::highRateTapCount,
    &R::highRateOffset, &R::reserved,   &R::lowRateTapCount, &R::lowRateOffset,
};

constexpr VLFIRLayout firstLayout { "VLFIR", VFIIR::channelFactor, VFIIR::SFilterBlock::words, firstFields };
constexpr VLFIRLayout secondLayout { "VLFIR2", VFIIR2::channelFactor, VFIIR2::SFilterBlock::words, secondFields };

static_assert (firstLayout.recordSize() == 32 && secondLayout.recordSize() == 48);

}

const VLFIRLayout& layoutOf (VLFIRGeneration generation) noexcept
{
    return generation == VLFIRGeneration::first ? firstLayout : secondLayout;
}

}
