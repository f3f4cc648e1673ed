// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <complex>
#include <vector>

#include <Eigen/Core>

namespace veltra::dsp {

/** Poles of a real filter: of each conjugate pair the member with the positive imaginary part, and the reals. */
struct Poles
{
    std::vector<std::complex<double>> complexes;
    std::vector<double> reals;
};

/** The matrix that has one value along each of its rising diagonals, `column` as its first column and `row` as
    its last row: entry (i, j) is element i + j of `column` followed by `row` less its first sample.

    @param column, row  neither empty; row[0], which is the corner of both, is taken from the column
    @returns            column.size() rows and row.size() columns
    @throws             std::bad_alloc
    Safe to call from several threads at once.
*/
Eigen::MatrixXd hankelMatrix (const Eigen::VectorXd& column, const Eigen::VectorXd& row);

/** What is known about the modes of a warped response. */
struct WarpedModes
{
    /** Poles in the warped domain, at most as many as were asked for, in no particular order. */
    Eigen::VectorXcd eigenvalues;

    /** False where rounding decides on the eigenvalues: when the response consists of fewer modes than were
        asked for, when the modes that were taken and the first one left out are equally strong, or when a
        solver gave up. */
    bool wellDetermined = false;
};

/** How the singular vectors of the Hankel matrix are computed. */
enum class HankelDecomposition
{
    symmetric, ///< from the eigenvectors of the symmetric matrix; by far the faster one
    jacobi     ///< by a Jacobi singular value decomposition
};

/** Samples of the warped response that findModes looks at, the first one not counted. */
constexpr Eigen::Index modeSpan = 1022;

/** The largest number of modes that findModes can distinguish. */
constexpr Eigen::Index maxModes = 511;

/** Finds the strongest modes of a response, sum of g[m] e[m]^k over m, from its samples 1 to modeSpan.

    The samples fill a Hankel matrix, whose rank is the number of modes. Cut off after the largest singular
    values, and compared with the same matrix one sample later, it gives a small matrix whose eigenvalues are
    the modes' e[m]: S. Y. Kung, "A new identification and model reduction algorithm via singular value
    decomposition", 12th Asilomar Conf. on Circuits, Systems and Computers (1978).

    @param warped  more than modeSpan samples
    @param order   number of modes, 0 to maxModes
    @throws        std::bad_alloc
    Takes some 15 MB of memory while it runs. Safe to call from several threads at once.
*/
WarpedModes findModes (const Eigen::VectorXd& warped, Eigen::Index order, HankelDecomposition decomposition);

/** Takes eigenvalues e from the warped domain back to poles z = (e + lambda) / (1 + lambda e), in the order in
    which they come. What a section cannot or need not play is dropped: poles on or outside the unit circle,
    poles not above 1e-6, and the members of conjugate pairs with the negative imaginary part. Poles above
    0.9999 are pulled in to that radius with their angle kept.
*/
Poles unwarpPoles (const Eigen::VectorXcd& eigenvalues, double lambda);

}
