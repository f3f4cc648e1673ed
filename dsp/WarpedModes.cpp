// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/WarpedModes.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <Eigen/Eigenvalues>

#include "dsp/JacobiSvd.h"

namespace veltra::dsp {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

namespace {

/** Below this part of the largest singular value, a singular value and a distance between two of them are too
    near to the rounding of the decompositions (some 1e-14) for their vectors to be relied on. */
constexpr double leastRelevance = 1e-9;

/** @param values  descending */
bool isCutClear (const VectorXd& values, Index order)
{
    const double least = leastRelevance * values[0];
    return values[order - 1] > least && (order == values.size() || values[order - 1] - values[order] > least);
}

/** Of a symmetric matrix the singular values are the eigenvalues less their signs, and the signs turn the left
    vectors into the right ones. Empty when the solver gives up. */
Svd symmetricSvd (const MatrixXd& matrix)
{
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver (matrix);

    if (solver.info() != Eigen::Success)
        return {};

    const VectorXd& values = solver.eigenvalues();
    std::vector<Index> places (static_cast<std::size_t> (values.size()));
    std::iota (places.begin(), places.end(), Index { 0 });
    std::sort (places.begin(), places.end(),
               [&] (Index a, Index b) { return std::abs (values[a]) > std::abs (values[b]); });

    const VectorXd ordered = values (places);
    const MatrixXd vectors = solver.eigenvectors() (Eigen::all, places);
    return { vectors, ordered.cwiseAbs(), vectors * ordered.cwiseSign().asDiagonal() };
}

}

MatrixXd hankelMatrix (const VectorXd& column, const VectorXd& row)
{
    VectorXd joined (column.size() + row.size() - 1);
    joined << column, row.tail (row.size() - 1);

    MatrixXd matrix (column.size(), row.size());

    for (Index j = 0; j < matrix.cols(); ++j)
        matrix.col (j) = joined.segment (j, matrix.rows());

    return matrix;
}

WarpedModes findModes (const VectorXd& warped, Index order, HankelDecomposition decomposition)
{
    // One row more than the blocks have: the second block is the first one a sample later.
    const MatrixXd hankel = hankelMatrix (warped.segment (1, maxModes + 1), warped.segment (maxModes + 1, maxModes));
    const auto current = hankel.topRows (maxModes), shifted = hankel.bottomRows (maxModes);

    if (order == 0 || current.isZero (0.0))
        return { {}, true };

    const Svd svd = decomposition == HankelDecomposition::symmetric ? symmetricSvd (current) : jacobiSvd (current);

    if (svd.singularValues.size() == 0)
        return {};

    // Balanced, the system matrix is S^-1/2 U' H2 V S^-1/2; all of the scaling on one side leaves its
    // eigenvalues as they are.
    const MatrixXd reduced = (svd.left.leftCols (order).transpose() * shifted * svd.right.leftCols (order))
                             * svd.singularValues.head (order).cwiseInverse().asDiagonal();

    if (! reduced.allFinite())
        return {};

    const Eigen::EigenSolver<MatrixXd> solver (reduced, false);

    if (solver.info() != Eigen::Success)
        return {};

    return { solver.eigenvalues(), isCutClear (svd.singularValues, order) };
}

Poles unwarpPoles (const Eigen::VectorXcd& eigenvalues, double lambda)
{
    constexpr double floor = 1e-6, ceiling = 0.9999;
    Poles poles;

    for (const std::complex<double>& e : eigenvalues)
    {
        std::complex<double> z = (e + lambda) / (1.0 + lambda * e);
        const double radius = std::abs (z);

        if (! (radius > floor && radius < 1.0))
            continue;

        if (radius > ceiling)
            z = z / radius * ceiling;

        if (z.imag() == 0.0)
            poles.reals.push_back (z.real());
        else if (z.imag() > 0.0)
            poles.complexes.push_back (z);
    }

    return poles;
}

}
