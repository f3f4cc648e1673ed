// SPDX-License-Identifier: GPL-3.0-or-later
#include "topology/VLFIRDump.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "common/Text.h"
#include "dsp/BandSplitFilters.h"
#include "dsp/ExponentialSweep.h"
#include "dsp/FftConvolve.h"

namespace veltra::topology {

namespace {

using Eigen::VectorXf;

/** Three seconds from 10 Hz to half the sample rate, at a quarter of full scale, with half a second of silence
    behind it in which the filters ring out. */
VectorXf makeTestSignal (unsigned sampleRate)
{
    Eigen::MatrixXf envelope (2, 2);
    envelope << 10.0f, 0.25f, 10000.0f, 0.25f;

    return dsp::makeShapedSweep (3 * sampleRate, 10.0, 0.5 * sampleRate, sampleRate / 2, 1, sampleRate, 300.0,
                                 envelope);
}

VectorXf delayed (const VectorXf& signal, Eigen::Index delay)
{
    VectorXf result = VectorXf::Zero (delay + signal.size());
    result.tail (signal.size()) = signal;
    return result;
}

}

VLFIRDump::VLFIRDump (const juce::String& folder, unsigned rate)
    : directory (juce::File::getCurrentWorkingDirectory().getChildFile (folder)),
      sampleRate (rate),
      sweep (makeTestSignal (rate))
{
    directory.createDirectory();
    writeText ("sigIn_" + juce::String (sampleRate) + ".txt", sweep);
}

void VLFIRDump::writeChannel (const std::string& name, const VectorXf& h, const VLFIRChannel& channel)
{
    writeForChannel ("FIR_LR", name, channel.lowRateTaps);
    writeForChannel ("FIR_HR", name, channel.highRateTaps);

    const VectorXf played = simulate (sweep, channel);
    const VectorXf wanted = dsp::fftConvolve (delayed (sweep, dsp::kBandSplitDelay), h);
    const auto common = std::min (played.size(), wanted.size());
    const VectorXf response = simulate (VectorXf::Unit (h.size(), 0), channel);

    writeForChannel ("sigOut", name, wanted.head (common));
    writeForChannel ("sigOutMIMO", name, played.head (common));
    writeForChannel ("FIR_full", name, h);
    writeForChannel ("FIR_VLFIR", name, response);
}

void VLFIRDump::writeHighRateFull (const std::string& name, const VectorXf& response)
{
    writeForChannel ("FIR_HRfull", name, response);
}

void VLFIRDump::writeBlob (std::span<const std::uint8_t> bytes, unsigned taps)
{
    const auto fileName = "blob_" + juce::String (sampleRate) + "_" + juce::String (taps) + ".bin";
    directory.getChildFile (fileName).replaceWithData (bytes.data(), bytes.size());
}

void VLFIRDump::writeText (const juce::String& fileName, const VectorXf& values)
{
    juce::MemoryOutputStream text;
    std::array<char, 32> number {};

    for (const float value : values)
    {
        const auto end = std::to_chars (number.data(), number.data() + number.size(), value).ptr;
        text.write (number.data(), static_cast<size_t> (end - number.data()));
        text << ",\n";
    }

    directory.getChildFile (fileName).replaceWithData (text.getData(), text.getDataSize());
}

void VLFIRDump::writeForChannel (const char* what, const std::string& name, const VectorXf& values)
{
    // The name comes from the filter description: it must not lead out of the folder.
    const auto fileName = juce::String (what) + "_" + juce::String (sampleRate) + "_"
                          + juce::String::fromUTF8 (toValidUtf8 (name).c_str()) + ".txt";
    writeText (juce::File::createLegalFileName (fileName), values);
}

}
