// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/ParallelSections.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace veltra::dsp {

namespace {

FIIRSection sectionOfPair (const std::complex<double>& pole, const std::complex<double>& residue)
{
    return { .a1 = static_cast<float> (-2.0 * pole.real()),
             .a2 = static_cast<float> (std::pow (std::abs (pole), 2.0)),
             .b0 = static_cast<float> (2.0 * residue.real()),
             .b1 = static_cast<float> (-2.0 * (residue.real() * pole.real() + residue.imag() * pole.imag())) };
}

/** Near the point 1 the rounding of a1 and a2 can move a pair of poles onto the real axis and one of them out of
    the unit circle; hence the test of the rounded section, with the pole pulled in only where it is needed. */
FIIRSection stableSectionOfPair (std::complex<double> pole, const std::complex<double>& residue)
{
    constexpr int attempts = 4;
    constexpr double pull = 0.9999;

    FIIRSection section = sectionOfPair (pole, residue);

    for (int i = 1; i < attempts && isUnstableSection (section.a1, section.a2); ++i)
    {
        pole *= pull;
        section = sectionOfPair (pole, residue);
    }

    return section;
}

FIIRSection sectionOfReals (double pole1, double pole2, double residue1, double residue2)
{
    return { .a1 = static_cast<float> (-(pole2 + pole1)),
             .a2 = static_cast<float> (pole2 * pole1),
             .b0 = static_cast<float> (residue2 + residue1),
             .b1 = static_cast<float> (-(residue2 * pole1 + pole2 * residue1)) };
}

}

double poleRadius (double a1, double a2)
{
    const std::complex<double> root = std::sqrt (std::complex<double> (a1 * a1 * 0.25 - a2));
    return std::max (std::abs (-0.5 * a1 + root), std::abs (-0.5 * a1 - root));
}

bool isUnstableSection (double a1, double a2) { return poleRadius (a1, a2) >= 1.0; }

std::vector<FIIRSection> parallelSections (const Poles& poles, const Residues& residues, std::size_t count)
{
    std::vector<FIIRSection> sections;
    sections.reserve (count);

    for (std::size_t i = 0; i < poles.complexes.size(); ++i)
        sections.push_back (stableSectionOfPair (poles.complexes[i], residues.complexes[i]));

    const std::vector<double>& p = poles.reals;
    const std::vector<double>& g = residues.reals;
    std::size_t i = 0;

    for (; i + 1 < p.size(); i += 2)
        sections.push_back (sectionOfReals (p[i], p[i + 1], g[i], g[i + 1]));

    if (i < p.size())
        sections.push_back ({ .a1 = static_cast<float> (-p[i]), .b0 = static_cast<float> (g[i]) });

    sections.push_back ({ .b0 = static_cast<float> (residues.direct) });
    sections.resize (std::max (count, sections.size()));
    return sections;
}

Eigen::VectorXd impulseResponse (const std::vector<FIIRSection>& sections, Eigen::Index length)
{
    constexpr double silence = 1e-60; // ends a section's work before its numbers become denormal

    Eigen::VectorXd sum = Eigen::VectorXd::Zero (length);

    for (const FIIRSection& section : sections)
    {
        double last = 0.0, lastButOne = 0.0;

        for (Eigen::Index i = 0; i < length; ++i)
        {
            const double input = i == 0 ? section.b0 : i == 1 ? section.b1 : 0.0f;
            const double value = input - section.a1 * last - section.a2 * lastButOne;
            sum[i] += value;
            lastButOne = last;
            last = value;

            if (i > 0 && std::abs (last) + std::abs (lastButOne) < silence)
                break;
        }
    }

    return sum;
}

}
