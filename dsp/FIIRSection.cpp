// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/FIIRSection.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace veltra::dsp {

namespace {

constexpr unsigned kQuadSize = 4;

/** A state this small has decayed: it is far below anything that a float shows, and still far above the denormal
    doubles (from 2e-308), each of which costs some hundred cycles. */
constexpr double kSilence = 1e-200;

/** Samples from one search for silent sections to the next. */
constexpr Eigen::Index kSearchPeriod = 64;

}

double poleRadius (double a1, double a2)
{
    const std::complex<double> root = std::sqrt (std::complex<double> (a1 * a1 * 0.25 - a2));
    return std::max (std::abs (-0.5 * a1 + root), std::abs (-0.5 * a1 - root));
}

bool isUnstableSection (double a1, double a2) { return poleRadius (a1, a2) >= 1.0; }

void SectionBank::add (const FIIRSection& section)
{
    if (section == FIIRSection {})
        return;

    const auto place = static_cast<Eigen::Index> (count++ % kQuadSize);

    if (place == 0)
        quads.emplace_back();

    auto& quad = quads.back();
    quad.a1[place] = section.a1;
    quad.a2[place] = section.a2;
    quad.b0[place] = section.b0;
    quad.b1[place] = section.b1;
}

void SectionBank::addOutput (const Eigen::Ref<const Eigen::VectorXf>& input, Eigen::Index inputEnd,
                             Eigen::VectorXd& sum) const
{
    for (const auto& quad : quads)
    {
        Eigen::Array4d s1 = Eigen::Array4d::Zero();
        Eigen::Array4d s2 = Eigen::Array4d::Zero();
        double previousInput = 0.0;

        for (Eigen::Index n = 0; n < input.size(); ++n)
        {
            const double x = input[n];

            // The product with s1 comes last, so that a step waits for the one before no longer than it must.
            const Eigen::Array4d s = (quad.b0 * x + quad.b1 * previousInput - quad.a2 * s2) - quad.a1 * s1;
            sum[n] += s.sum();

            s2 = s1;
            s1 = s;
            previousInput = x;

            if (n % kSearchPeriod == kSearchPeriod - 1)
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

Eigen::VectorXd impulseResponse (const std::vector<FIIRSection>& sections, Eigen::Index length)
{
    SectionBank bank;

    for (const auto& section : sections)
        bank.add (section);

    Eigen::VectorXd sum = Eigen::VectorXd::Zero (length);

    if (length > 0)
        bank.addOutput (Eigen::VectorXf::Unit (length, 0), 1, sum);

    return sum;
}

}
