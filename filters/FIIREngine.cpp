// SPDX-License-Identifier: GPL-3.0-or-later
#include "filters/FIIREngine.h"

#include <algorithm>

namespace veltra::filters {

namespace {

constexpr std::uint32_t kAlive = 0xBABECAFE;
constexpr std::uint32_t kDestroyed = 0xDEADC0DE;

constexpr unsigned kBankSize = 4;

/** A smaller state counts as zero: it is far below what a float can represent, and still far above the denormal
    doubles (from 2e-308) that a decaying section would reach, each of which costs some hundred cycles. */
constexpr double kSilence = 1e-200;

/** Samples from one look for silent sections to the next. */
constexpr Eigen::Index kLookPeriod = 64;

}

FIIREngine::FIIREngine() noexcept : mark (kAlive) {}

FIIREngine::~FIIREngine() { mark = kDestroyed; }

void FIIREngine::setTaps (const Eigen::VectorXf& newTaps) { taps = newTaps; }

void FIIREngine::addSection (const dsp::FIIRSection& section)
{
    if (section == dsp::FIIRSection {})
        return;

    const auto place = static_cast<Eigen::Index> (sectionCount++ % kBankSize);

    if (place == 0)
        banks.emplace_back();

    auto& bank = banks.back();
    bank.a1[place] = section.a1;
    bank.a2[place] = section.a2;
    bank.b0[place] = section.b0;
    bank.b1[place] = section.b1;
}

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

    if (banks.empty() || tailLength <= 0)
        return;

    Eigen::VectorXd sum = Eigen::VectorXd::Zero (tailLength);

    for (const auto& bank : banks)
        addBankOutput (bank, input.segment (first, tailLength), end - first, sum);

    signal.tail (tailLength) = (signal.tail (tailLength).cast<double>() + sum).cast<float>();
}

void FIIREngine::addBankOutput (const Bank& bank, const Eigen::Ref<const Eigen::VectorXf>& input, Eigen::Index inputEnd,
                                Eigen::VectorXd& sum)
{
    Eigen::Array4d s1 = Eigen::Array4d::Zero();
    Eigen::Array4d s2 = Eigen::Array4d::Zero();
    double previousInput = 0.0;

    for (Eigen::Index n = 0; n < input.size(); ++n)
    {
        const double x = input[n];

        // The product with s1 comes last, so that a step waits for the one before no longer than it must.
        const Eigen::Array4d s = (bank.b0 * x + bank.b1 * previousInput - bank.a2 * s2) - bank.a1 * s1;
        sum[n] += s.sum();

        s2 = s1;
        s1 = s;
        previousInput = x;

        if (n % kLookPeriod == kLookPeriod - 1)
        {
            const auto silent = (s1.abs() < kSilence && s2.abs() < kSilence).eval();
            s1 = silent.select (0.0, s1);
            s2 = silent.select (0.0, s2);

            if (silent.all() && n >= inputEnd)
                break;
        }
    }
}

}
