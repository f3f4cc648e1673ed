// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include <Eigen/Core>
#include <juce_core/juce_core.h>

#include "topology/VLFIRModel.h"

namespace veltra::topology {

/** Diagnostic files of a dual-rate conversion, for people to look at: nothing reads them back, and a file that
    cannot be written is left out silently.

        sigIn_RATE.txt            the test signal, a sweep
        FIR_LR_RATE_NAME.txt      low-rate taps of the channel NAME
        FIR_HR_RATE_NAME.txt      high-rate taps
        FIR_HRfull_RATE_NAME.txt  high-rate response before the cut-out, when that reached its limit
        sigOut_RATE_NAME.txt      the sweep through the filter that was asked for, 298 samples late
        sigOutMIMO_RATE_NAME.txt  the sweep through the device's model
        FIR_full_RATE_NAME.txt    the filter that was asked for
        FIR_VLFIR_RATE_NAME.txt   what the device's model makes of an impulse
        blob_RATE_TAPS.bin        the blob

    Text files hold one value a line, followed by a comma. Use from one thread.
*/
class VLFIRDump
{
public:
    /** Makes the folder and writes the test signal.
        @param folder  absolute, or relative to the current directory */
    VLFIRDump (const juce::String& folder, unsigned sampleRate);

    /** Writes the taps of a channel and the comparison of model and filter.
        @param h  the filter that was asked for */
    void writeChannel (const std::string& name, const Eigen::VectorXf& h, const VLFIRChannel& channel);

    void writeHighRateFull (const std::string& name, const Eigen::VectorXf& response);

    void writeBlob (std::span<const std::uint8_t> bytes, unsigned taps);

private:
    void writeText (const juce::String& fileName, const Eigen::VectorXf& values);
    void writeForChannel (const char* what, const std::string& name, const Eigen::VectorXf& values);

    juce::File directory;
    unsigned sampleRate;
    Eigen::VectorXf sweep;
};

}
