// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FIIREngine.h"

#include <algorithm>

namespace veltra::filters {

namespace {

constexpr std::uint32_t kAlive = 0xBABECAFE;
constexpr std::uint32_t kDestroyed = 0xDEADC0DE;

}

FIIREngine::FIIREngine() noexcept : mark (kAlive) {}

FIIREngine::~FIIREngine() { mark = kDestroyed; }

void FIIREngine::setTaps (const Eigen::VectorXf& newTaps) { taps = newTaps; }

void FIIREngine::addSection (const dsp::FIIRSection& section) { sections.add (section); }

void FIIREngine::process (Eigen::VectorXf& signal) const
{
    const Eigen::VectorXf input = signal;
    const auto isSound = [] (float sample) { return sample != 0.0f; };
    const Eigen::Index first = std::find_if (input.begin(), input.end(), isSound) - input.begin();
    Eigen::Index end = first; // behind the last sample that is not zero

    signal.setZero();

    for (Eigen::Index n = first; n < input.size(); ++n)
    {
        if (! isSound (input[n]))
            continue;

        end = n + 1;
        auto output = signal.segment (n, std::min (taps.size(), input.size() - n));

        if (n == first)
            output = input[n] * taps.head (output.size()); // not added to zeros, which would take the sign from -0
        else
            output += input[n] * taps.head (output.size());
    }

    const auto tailLength = input.size() - first - taps.size();

    if (sections.isEmpty() || tailLength <= 0)
        return;

    Eigen::VectorXd sum = Eigen::VectorXd::Zero (tailLength);
    sections.addOutput (input.segment (first, tailLength), end - first, sum);
    signal.tail (tailLength) = (signal.tail (tailLength).cast<double>() + sum).cast<float>();
}

}
