// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/EnergyWindow.h"

#include <algorithm>
#include <new>

#include "dsp/RealFft.h"

namespace veltra::dsp {

namespace {

unsigned checkedLength (unsigned length)
{
    if (length > (1u << 30)) // no transform is longer
        throw std::bad_alloc();

    return length;
}

unsigned peakOf (unsigned length, float peakFraction) noexcept
{
    return static_cast<unsigned> (
        std::clamp (static_cast<float> (length) * peakFraction, 0.0f, static_cast<float> (length)));
}

/** Place of the largest value, of equal ones the first; 0 when the values are no numbers. The value is looked for
    first and its place afterwards, which is several times as fast as both at once. */
Eigen::Index firstMaximum (const Eigen::Ref<const Eigen::VectorXf>& values)
{
    if (values.size() == 0)
        return 0;

    const float* const end = values.data() + values.size();
    const float* const found = std::find (values.data(), end, values.maxCoeff());
    return found == end ? 0 : found - values.data();
}

Eigen::VectorXf makeTriangle (unsigned length, unsigned peak)
{
    Eigen::VectorXf triangle (length);

    for (unsigned i = 0; i < std::min (peak, length); ++i)
        triangle[i] = static_cast<float> (i) / static_cast<float> (peak);

    for (unsigned i = peak; i < length; ++i)
        triangle[i] = static_cast<float> (length - i) / static_cast<float> (length - peak);

    return triangle;
}

}

EnergyWindow::EnergyWindow (unsigned windowLength, float peakFraction)
    : length (checkedLength (windowLength)),
      peak (peakOf (length, peakFraction)),
      triangle ({ makeTriangle (length, peak) })
{
}

Eigen::VectorXf EnergyWindow::extract (const Eigen::VectorXf& in, unsigned& offsetOut, int maxOffset)
{
    setSize (energy, in.size());
    energy = in.cwiseAbs2();
    triangle.setSignal (energy);
    const auto weighted = triangle.convolve (0);

    // For the lone impulse at s this is s + peak, hence twice the peak to go back.
    const auto best = firstMaximum (weighted);
    auto offset = std::max<std::ptrdiff_t> (best - 2 * static_cast<std::ptrdiff_t> (peak), 0);

    if (maxOffset > 0)
        offset = std::min<std::ptrdiff_t> (maxOffset, offset);

    Eigen::VectorXf result = Eigen::VectorXf::Zero (length);
    const auto available = std::clamp<Eigen::Index> (in.size() - offset, 0, length);

    if (available > 0)
        result.head (available) = in.segment (offset, available);

    offsetOut = static_cast<unsigned> (offset);
    return result;
}

Eigen::VectorXf extractEnergyWindow (const Eigen::VectorXf& in, unsigned n, float peakFraction, unsigned& offsetOut,
                                     int maxOffset)
{
    return EnergyWindow (n, peakFraction).extract (in, offsetOut, maxOffset);
}

}
