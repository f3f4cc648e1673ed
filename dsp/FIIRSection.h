// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <Eigen/Core>

namespace veltra::dsp {

/** One second-order section of a bank in parallel to a FIR filter, with the transfer function
    (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2). The order of the fields is that of filter descriptions and of
    device data.
*/
struct FIIRSection
{
    float a1 = 0.0f;
    float a2 = 0.0f;
    float b0 = 0.0f;
    float b1 = 0.0f;

    bool operator== (const FIIRSection&) const = default;
};

static_assert (sizeof (FIIRSection) == 4 * sizeof (float), "sections are read and written as rows of four floats");

/** Distance of a section's outermost pole from the origin. */
double poleRadius (double a1, double a2);

/** True if a section with these denominator coefficients has a pole on or outside the unit circle. A section is
    played with its rounded coefficients, so pass the single-precision values. */
bool isUnstableSection (double a1, double a2);

/** Sections that play the same input and whose outputs are added:

        s[n] = b0 x[n] + b1 x[n-1] - a1 s[n-1] - a2 s[n-2]

    The state is kept in double precision: a pole near the unit circle, as low frequencies need at high sample rates,
    magnifies the rounding of each step by some thousands. Made for inputs that are zero from some sample on, above
    all impulses: sections that have decayed take no more time.
*/
class SectionBank
{
public:
    /** Adds a section; one of zeros only is left out. */
    void add (const FIIRSection& section);

    bool isEmpty() const noexcept { return count == 0; }

    /** Plays an input from rest and adds the output to `sum`, which has the input's length.

        @param inputEnd  place from which on the input is zero
        @throws          std::bad_alloc
    */
    void addOutput (const Eigen::Ref<const Eigen::VectorXf>& input, Eigen::Index inputEnd, Eigen::VectorXd& sum) const;

private:
    /** Four sections side by side; unused places are zero. */
    struct Quad
    {
        Eigen::Array4d a1 = Eigen::Array4d::Zero();
        Eigen::Array4d a2 = Eigen::Array4d::Zero();
        Eigen::Array4d b0 = Eigen::Array4d::Zero();
        Eigen::Array4d b1 = Eigen::Array4d::Zero();
    };

    struct Player;

    std::vector<Quad> quads;
    unsigned count = 0;
};

/** The first samples of the sections' common impulse response.
    @throws std::bad_alloc */
Eigen::VectorXd impulseResponse (const std::vector<FIIRSection>& sections, Eigen::Index length);

}
