// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/ResidueFit.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/JacobiSvd.h"

namespace veltra::dsp {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;
using Complex = std::complex<double>;

void foldRows (MatrixXd& triangle, Eigen::Ref<MatrixXd> block, Index firstColumn)
{
    for (Index j = firstColumn; j < triangle.rows(); ++j)
    {
        auto reflector = block.col (j);
        const double energy = reflector.squaredNorm();

        if (energy == 0.0)
            continue;

        const double corner = triangle (j, j);
        const double reflected = -std::copysign (std::sqrt (corner * corner + energy), corner);
        const double weight = (reflected - corner) / reflected;
        reflector /= corner - reflected;
        triangle (j, j) = reflected;

        for (Index k = j + 1; k < triangle.cols(); ++k)
        {
            const double part = weight * (triangle (j, k) + reflector.dot (block.col (k)));
            triangle (j, k) -= part;
            block.col (k) -= part * reflector;
        }
    }
}

namespace {

/** A mode whose power has come down to this adds nothing to a column that began with 1, and would soon make
    denormal numbers. */
constexpr double deadPower = 1e-25;

/** a * b without the library's care for infinite factors. */
Complex multiply (const Complex& a, const Complex& b)
{
    return { a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real() };
}

/** Writes a pole's powers, beginning with the one given, which is left as the one that follows the block. */
void fillColumns (Eigen::Ref<MatrixXd> block, Index column, bool isReal, const Complex& pole, Complex& power)
{
    for (Index i = 0; i < block.rows(); ++i, power = multiply (power, pole))
    {
        if (isReal)
        {
            block (i, column) = power.real();
        }
        else
        {
            block (i, column) = std::numbers::sqrt2 * power.real();
            block (i, column + 1) = std::numbers::sqrt2 * power.imag();
        }
    }
}

}

/** The modes that die out first come first: once they have, the rows that follow are zero in their columns and
    leave that part of the triangle alone. For the same reason column 0 is the direct term. */
std::vector<ResidueFit::Mode> ResidueFit::orderModes (const Poles& poles)
{
    std::vector<Mode> modes;

    for (std::size_t i = 0; i < poles.complexes.size(); ++i)
        modes.push_back ({ poles.complexes[i], false, i, 0 });

    for (std::size_t i = 0; i < poles.reals.size(); ++i)
        modes.push_back ({ poles.reals[i], true, i, 0 });

    std::sort (modes.begin(), modes.end(),
               [] (const Mode& a, const Mode& b) { return std::abs (a.pole) < std::abs (b.pole); });
    Index column = 1;

    for (Mode& mode : modes)
    {
        mode.column = column;
        column = mode.columnsEnd();
    }

    return modes;
}

ResidueFit::ResidueFit (const Poles& poles, const VectorXd& response) : modes (orderModes (poles))
{
    const Index columns = modes.empty() ? 1 : modes.back().columnsEnd();
    MatrixXd triangle = MatrixXd::Zero (columns, columns + 1), block (kFoldRows, columns + 1);
    std::vector<Complex> powers (modes.size(), 1.0);
    std::size_t alive = 0; // the first mode that still sounds

    for (Index row = 0; row < response.size(); row += kFoldRows)
    {
        const Index rows = std::min (kFoldRows, response.size() - row);

        while (alive < modes.size() && std::abs (powers[alive]) < deadPower)
            ++alive;

        for (std::size_t m = alive; m < modes.size(); ++m)
            fillColumns (block.topRows (rows), modes[m].column, modes[m].isReal, modes[m].pole, powers[m]);

        Index firstColumn = alive < modes.size() ? modes[alive].column : columns;

        if (row == 0)
        {
            block.col (0).setZero();
            block (0, 0) = 1.0;
            firstColumn = 0;
        }

        block.col (columns).head (rows) = response.segment (row, rows);
        foldRows (triangle, block.topRows (rows), firstColumn);
    }

    const Index rank = std::min (columns, response.size()); // of fewer equations than unknowns no more rows come
    const Svd svd = jacobiSvd (triangle.topLeftCorner (rank, columns));
    singularValues = svd.singularValues;
    projected = svd.left.transpose() * triangle.col (columns).head (rank);
    right = svd.right;
}

double ResidueFit::reciprocalCondition() const { return singularValues[singularValues.size() - 1] / singularValues[0]; }

Residues ResidueFit::solve (double cutoff) const
{
    const double least = cutoff * singularValues[0];
    const VectorXd weights = right * projected.binaryExpr (singularValues, [least] (double part, double singularValue) {
        return singularValue > least ? part / singularValue : 0.0;
    });

    const auto reals = static_cast<std::size_t> (
        std::count_if (modes.begin(), modes.end(), [] (const Mode& mode) { return mode.isReal; }));

    Residues residues { std::vector<Complex> (modes.size() - reals), std::vector<double> (reals), weights[0] };

    for (const Mode& mode : modes)
    {
        if (mode.isReal)
            residues.reals[mode.place] = weights[mode.column];
        else
            residues.complexes[mode.place] =
                Complex (weights[mode.column], -weights[mode.column + 1]) / std::numbers::sqrt2;
    }

    return residues;
}

}
