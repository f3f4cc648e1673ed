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

FIIRSection sectionOfReals (double pole1, double pole2, double residue1, double residue2)
{
    return { .a1 = static_cast<float> (-(pole2 + pole1)),
             .a2 = static_cast<float> (pole2 * pole1),
             .b0 = static_cast<float> (residue2 + residue1),
             .b1 = static_cast<float> (-(residue2 * pole1 + pole2 * residue1)) };
}

/** Near the point 1 the rounding of a1 and a2 can move a pair of poles onto the real axis and one of them out of the
    unit circle. Poles are pulled in only where that happens, which the rounded section shows. */
template <typename Section, typename... Poles>
FIIRSection stable (Section makeSection, Poles... poles)
{
    constexpr int attempts = 4;
    constexpr double pull = 0.9999;

    FIIRSection section = makeSection (poles...);

    for (int i = 1; i < attempts && isUnstableSection (section.a1, section.a2); ++i)
    {
        ((poles *= pull), ...);
        section = makeSection (poles...);
    }

    return section;
}

}

std::vector<FIIRSection> parallelSections (const Poles& poles, const Residues& residues, std::size_t count)
{
    std::vector<FIIRSection> sections;
    sections.reserve (count);

    for (std::size_t i = 0; i < poles.complexes.size(); ++i)
        sections.push_back (
            stable ([&] (const std::complex<double>& pole) { return sectionOfPair (pole, residues.complexes[i]); },
                    poles.complexes[i]));

    const std::vector<double>& p = poles.reals;
    const std::vector<double>& g = residues.reals;
    std::size_t i = 0;

    for (; i + 1 < p.size(); i += 2)
        sections.push_back (
            stable ([&] (double pole1, double pole2) { return sectionOfReals (pole1, pole2, g[i], g[i + 1]); }, p[i],
                    p[i + 1]));

    if (i < p.size())
        sections.push_back ({ .a1 = static_cast<float> (-p[i]), .b0 = static_cast<float> (g[i]) });

    sections.push_back ({ .b0 = static_cast<float> (residues.direct) });
    sections.resize (std::max (count, sections.size()));
    return sections;
}

}
