// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/ParallelForm.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include <Eigen/QR>

namespace veltra::dsp {

namespace {

using Complex = std::complex<double>;

constexpr double kLowestFrequency_Hz = 10.0;
constexpr double kFloor = 3.1622776601683795e-5; // -90 dB
constexpr std::size_t kMostNeighbours = 5;       // sections at one pole

/** Poles that lie closer together than this part of their distance from the unit circle count as one. */
constexpr double kLeastDistance = 1e-3;

/** The two poles of a section; of a section of first order, the second one is 0. */
std::pair<Complex, Complex> polesOf (double a1, double a2)
{
    const double discriminant = 0.25 * a1 * a1 - a2;

    if (discriminant < 0.0)
    {
        const Complex pole (-0.5 * a1, std::sqrt (-discriminant));
        return { pole, std::conj (pole) };
    }

    // The larger one first: the other one by the product loses no digits.
    const double larger = -0.5 * a1 - std::copysign (std::sqrt (discriminant), a1);
    return { larger, larger != 0.0 ? a2 / larger : 0.0 };
}

/** A section's denominator, the numerator aside. */
struct Denominator
{
    double a1, a2;

    Complex reciprocal (double omega) const
    {
        return 1.0 / (1.0 + a1 * std::polar (1.0, -omega) + a2 * std::polar (1.0, -2.0 * omega));
    }
};

/** The places at which the forms are compared: a logarithmic axis, denser round each pole. */
std::vector<double> comparedAngles (const std::vector<Biquad>& cascade, double sampleRate)
{
    constexpr int pointsPerOctave = 48;
    std::vector<double> angles;
    const double lowest = 2.0 * std::numbers::pi * kLowestFrequency_Hz / sampleRate;

    for (int i = 0;; ++i)
    {
        angles.push_back (lowest * std::exp2 (static_cast<double> (i) / pointsPerOctave));

        if (angles.back() >= std::numbers::pi)
            break;
    }

    angles.back() = std::numbers::pi;

    for (const auto& section : cascade)
        if (const auto pole = polesOf (section.a1, section.a2).first; pole.imag() > 0.0)
            for (int i = -12; i <= 12; ++i)
                if (const double place = std::arg (pole) + 0.25 * i * (1.0 - std::abs (pole));
                    place > lowest && place < std::numbers::pi)
                    angles.push_back (place);

    return angles;
}

class Expansion
{
public:
    Expansion (std::vector<Biquad> sectionsToUse, double gain, Eigen::Index tapCount, double sampleRate)
        : cascade (std::move (sectionsToUse)),
          taps (gain * impulseResponse (cascade, tapCount)),
          scale (gain),
          angles (comparedAngles (cascade, sampleRate))
    {
        form.taps = taps.cast<float>();

        for (const double omega : angles)
        {
            wanted.push_back (gain * response (cascade, omega));
            largest = std::max (largest, std::abs (wanted.back()));
        }

        for (const auto& section : cascade)
            if (section.a1 != 0.0 || section.a2 != 0.0)
                exact.push_back ({ section.a1, section.a2 });
    }

    /** Whether every pole is simple enough, and the response behind the taps consists of the poles' modes alone. */
    bool isPossible() const
    {
        Eigen::Index zeros = 0, poles = 0;
        std::vector<std::pair<Complex, std::size_t>> all;

        for (std::size_t i = 0; i < cascade.size(); ++i)
        {
            const auto& section = cascade[i];
            zeros += section.b2 != 0.0 ? 2 : section.b1 != 0.0 ? 1 : 0;
            poles += section.a2 != 0.0 ? 2 : section.a1 != 0.0 ? 1 : 0;
            const auto [first, second] = polesOf (section.a1, section.a2);
            all.emplace_back (first, i);

            if (second.imag() == 0.0)
                all.emplace_back (second, i);
        }

        for (const auto& [pole, owner] : all)
            for (const auto& [other, otherOwner] : all)
                if (owner < otherOwner && pole != 0.0
                    && std::abs (pole - other) < kLeastDistance * (1.0 - std::min (std::abs (pole), std::abs (other))))
                    return false;

        return zeros - poles < taps.size();
    }

    std::optional<ParallelForm> expand()
    {
        if (exact.empty())
            return judged() <= kParallelTolerance_dB ? std::optional (form) : std::nullopt;

        for (const auto& denominator : exact)
            rounded.push_back (nearest (denominator));

        setResidues();

        if (judged() <= kParallelTolerance_dB)
            return form;

        const auto poleCount = exact.size();
        std::vector<std::size_t> owners (poleCount);

        for (std::size_t i = 0; i < poleCount; ++i)
            owners[i] = i;

        for (;;)
        {
            fit();

            if (judged() <= kParallelTolerance_dB)
                return form;

            const auto place = neediest (owners);

            if (place == poleCount || ! addNeighbour (place, owners))
                return std::nullopt;
        }
    }

private:
    static Denominator nearest (const Denominator& denominator)
    {
        return { static_cast<double> (static_cast<float> (denominator.a1)),
                 static_cast<double> (static_cast<float> (denominator.a2)) };
    }

    /** The weight of a pole in the response: what stands before its power is the residue times the pole to the number of
        taps, the first sample that the section plays. */
    Complex weight (Complex pole, std::size_t owner, Complex companion) const
    {
        const Complex inverse = 1.0 / pole;
        Complex product = scale;

        // Numerators and denominators by turns, so that nothing overflows.
        for (std::size_t i = 0; i < cascade.size(); ++i)
        {
            const auto& other = cascade[i];
            product *= other.b0 + inverse * (other.b1 + inverse * other.b2);
            product /= i == owner ? 1.0 - companion * inverse : 1.0 + inverse * (other.a1 + inverse * other.a2);
        }

        return product * std::pow (pole, static_cast<double> (taps.size()));
    }

    void setResidues()
    {
        form.sections.clear();

        for (std::size_t i = 0; i < cascade.size(); ++i)
        {
            const auto& section = cascade[i];

            if (section.a1 == 0.0 && section.a2 == 0.0)
                continue;

            const auto [first, second] = polesOf (section.a1, section.a2);
            const auto one = weight (first, i, second);
            const auto two = second != 0.0 ? weight (second, i, first) : 0.0;
            add (static_cast<float> (section.a1), static_cast<float> (section.a2), (one + two).real(),
                 -(one * second + two * first).real());
        }
    }

    void add (float a1, float a2, double b0, double b1)
    {
        form.sections.push_back ({ a1, a2, static_cast<float> (b0), static_cast<float> (b1) });
    }

    Complex tapResponse (double omega) const
    {
        Complex sum = 0.0;
        const auto step = std::polar (1.0, -omega);

        for (Eigen::Index i = form.taps.size(); i-- > 0;)
            sum = sum * step + static_cast<double> (form.taps[i]);

        return sum;
    }

    Complex played (double omega) const
    {
        const auto step = std::polar (1.0, -omega);
        Complex sum = 0.0;

        for (const auto& section : form.sections)
            sum += (static_cast<double> (section.b0) + static_cast<double> (section.b1) * step)
                   * Denominator { section.a1, section.a2 }.reciprocal (omega);

        return tapResponse (omega) + std::polar (1.0, -omega * static_cast<double> (taps.size())) * sum;
    }

    /** Notes the present form's deviation and where it is largest. */
    double judged()
    {
        form.error_dB = 0.0;

        for (const auto& section : form.sections)
            if (isUnstableSection (section.a1, section.a2) || ! std::isfinite (section.b0)
                || ! std::isfinite (section.b1))
                return form.error_dB = std::numeric_limits<double>::infinity();

        for (std::size_t i = 0; i < angles.size(); ++i)
        {
            const double target = std::abs (wanted[i]);
            const double reference = std::max (target, kFloor * largest);
            const double away = std::abs (std::abs (played (angles[i])) - target) / reference;
            const double error_dB = 20.0 * std::log10 (1.0 + away);

            if (error_dB > form.error_dB)
            {
                form.error_dB = error_dB;
                worst = angles[i];
            }
        }

        return form.error_dB;
    }

    /** The numerators by least squares, each equation divided by the magnitude that is wanted there. */
    void fit()
    {
        const auto rows = static_cast<Eigen::Index> (angles.size());
        const auto columns = 2 * static_cast<Eigen::Index> (rounded.size());
        Eigen::MatrixXd equations = Eigen::MatrixXd::Zero (2 * rows + columns, columns);
        Eigen::VectorXd right = Eigen::VectorXd::Zero (2 * rows + columns);

        for (Eigen::Index i = 0; i < rows; ++i)
        {
            const double omega = angles[static_cast<std::size_t> (i)];
            const auto target = wanted[static_cast<std::size_t> (i)];
            const double part = 1.0 / std::max (std::abs (target), kFloor * largest);
            const auto late = std::polar (part, -omega * static_cast<double> (taps.size()));
            const auto rest = part * (target - tapResponse (omega));
            right[i] = rest.real();
            right[rows + i] = rest.imag();

            for (std::size_t k = 0; k < rounded.size(); ++k)
            {
                const auto b0 = late * rounded[k].reciprocal (omega), b1 = b0 * std::polar (1.0, -omega);
                const auto column = 2 * static_cast<Eigen::Index> (k);
                equations (i, column) = b0.real();
                equations (rows + i, column) = b0.imag();

                // The difference instead of the delayed one: at low frequencies the two are almost the same.
                equations (i, column + 1) = (b0 - b1).real();
                equations (rows + i, column + 1) = (b0 - b1).imag();
            }
        }

        // What rounding makes of a coefficient counts as an error as well: without it, poles side by side would get large
        // coefficients that cancel. Both coefficients of a section are about as large as their difference.
        constexpr double rounding = 1.0 / (1 << 24);

        for (Eigen::Index column = 0; column < columns; column += 2)
        {
            const double error = rounding * equations.col (column).head (2 * rows).norm();
            equations (2 * rows + column, column) = error;
            equations (2 * rows + column + 1, column + 1) = error;
        }

        const Eigen::RowVectorXd norms = equations.colwise().norm();
        equations.array().rowwise() /= norms.array();
        Eigen::VectorXd solution = equations.householderQr().solve (right);
        solution.array() /= norms.transpose().array();
        form.sections.clear();

        for (std::size_t k = 0; k < rounded.size(); ++k)
        {
            const auto column = 2 * static_cast<Eigen::Index> (k);
            const double difference = solution[column + 1];
            const auto b1 = static_cast<float> (-difference);

            // b0 + b1 is what counts at low frequencies: rounded once, with b1 as it has become.
            add (static_cast<float> (rounded[k].a1), static_cast<float> (rounded[k].a2),
                 solution[column] - static_cast<double> (b1), b1);
        }
    }

    /** The pole of the cascade whose rounding shows most at the worst place. One that has neighbours already counts for less. */
    std::size_t neediest (const std::vector<std::size_t>& owners) const
    {
        std::size_t best = exact.size();
        double most = 0.0;

        for (std::size_t i = 0; i < exact.size(); ++i)
        {
            const auto count = static_cast<std::size_t> (std::ranges::count (owners, i));
            const auto pole = polesOf (exact[i].a1, exact[i].a2).first;
            const auto near = polesOf (rounded[i].a1, rounded[i].a2).first;
            const double shift = std::abs (near - pole) / std::abs (std::polar (1.0, worst) - pole);
            const double merit = std::pow (shift, static_cast<double> (count));

            if (count < kMostNeighbours && merit > most)
            {
                most = merit;
                best = i;
            }
        }

        return best;
    }

    /** Adds the pair of floats that lies next to a pole and is not taken yet. */
    bool addNeighbour (std::size_t place, std::vector<std::size_t>& owners)
    {
        const auto& target = exact[place];
        const auto pole = polesOf (target.a1, target.a2).first;

        // In single precision throughout: with -O2, g++ 12 leaves out a double's way through a float here.
        const auto step = [] (float value) {
            return std::nextafter (std::abs (value), std::numeric_limits<float>::infinity()) - std::abs (value);
        };
        const auto centre1 = static_cast<float> (target.a1), centre2 = static_cast<float> (target.a2);
        const float step1 = step (centre1), step2 = step (centre2);
        std::optional<Denominator> best;
        double least = std::numeric_limits<double>::infinity();

        for (int i = -3; i <= 3; ++i)
            for (int k = -3; k <= 3; ++k)
            {
                const float a1 = centre1 + static_cast<float> (i) * step1,
                            a2 = centre2 + static_cast<float> (k) * step2;
                const Denominator candidate { a1, a2 };
                const bool isTaken = std::ranges::any_of (
                    rounded, [&] (const auto& other) { return other.a1 == candidate.a1 && other.a2 == candidate.a2; });

                if (isTaken || isUnstableSection (candidate.a1, candidate.a2))
                    continue;

                if (const double distance = std::abs (polesOf (candidate.a1, candidate.a2).first - pole);
                    distance < least)
                {
                    least = distance;
                    best = candidate;
                }
            }

        if (! best)
            return false;

        rounded.push_back (*best);
        owners.push_back (place);
        return true;
    }

    const std::vector<Biquad> cascade;
    const Eigen::VectorXd taps;
    const double scale;
    const std::vector<double> angles;
    std::vector<Complex> wanted;
    double largest = 0.0;
    std::vector<Denominator> exact, rounded;
    ParallelForm form;
    double worst = 0.0;
};

}

std::optional<ParallelForm> parallelForm (std::span<const Biquad> cascade, double gain, Eigen::Index tapCount,
                                          double sampleRate)
{
    std::vector<Biquad> active;

    for (const auto& section : cascade)
        if (section != Biquad { 1.0, section.a1, section.a2, section.a1, section.a2 })
            active.push_back (section);

    Expansion expansion (std::move (active), gain, tapCount, sampleRate);
    return expansion.isPossible() ? expansion.expand() : std::nullopt;
}

}
