// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

namespace veltra::plugin {

/** The product that the plug-in belongs to. Name, message limit, filter name length and volume scale are used; the
    other fields are data that each plug-in of the family carries and that nothing in this module reads. All plug-ins
    of the family have them in this order. */
struct ProductProfile
{
    const char* toolCode;
    const char* platforms;
    const char* furtherCodes[3];
    const char* productTitle;
    const char* audioProcessorTitle;
    const char* iconFile;
    const char* logoFile;
    std::uint32_t flags1;
    const char* filePrefix;
    const char* microphoneCalibrationFolder;
    std::uint32_t flags2;
    const char* productTitleAgain;
    const char* projectFileWord;
    const char* makerNames[3];
    std::uint32_t flags3;
    std::int32_t signedWord;
    std::uint32_t word;
    const char* text1;
    const char* pluginName;
    std::int32_t defaultMessageLimit_bytes; ///< of a device that does not state one
    std::uint32_t maxFilterNameLength;      ///< in characters, not bytes
    const char* modelFilter;
    const char* text2;
    std::int32_t volumeScale_percent; ///< of the device's full volume, which is 1 at the interface
};

inline constexpr ProductProfile kProfile {
    .toolCode = "QTRX_Morvane",
    .platforms = "Windows;Darwin",
    .furtherCodes = { "QTRX_Morvane", "QTRX_Morvane", "QTRX_Morvane" },
    .productTitle = "Veltra Tune for Morvane",
    .audioProcessorTitle = "Veltra Audio Processor",
    .iconFile = "veltra_gui.icns",
    .logoFile = "Morvane/MORVANE.png",
    .flags1 = 0x101,
    .filePrefix = "MORVANE_",
    .microphoneCalibrationFolder = "miccalfiles/Morvane",
    .flags2 = 1,
    .productTitleAgain = "Veltra Tune for Morvane",
    .projectFileWord = "project",
    .makerNames = { "Morvane", "Morvane", "Morvane" },
    .flags3 = 0x10101,
    .signedWord = -8,
    .word = 0,
    .text1 = "",
    .pluginName = "MorvaneVeltraIO",
    .defaultMessageLimit_bytes = 460,
    .maxFilterNameLength = 32,
    .modelFilter = ".*(KRX310|KRX-9).*",
    .text2 = "",
    .volumeScale_percent = 70,
};

}
