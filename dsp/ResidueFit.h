// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <complex>
#include <vector>

#include <Eigen/Core>

#include "dsp/WarpedModes.h"

namespace veltra::dsp {

/** Rows that are folded into a triangle at once: with 60 columns a block just fits a first-level cache. */
inline constexpr Eigen::Index kFoldRows = 96;

/** Folds a block of equations into the triangle above it by Householder reflections. The last column of both is the
    right-hand side. The block is destroyed.
    @param firstColumn  the first column that is not all zero in the block */
void foldRows (Eigen::MatrixXd& triangle, Eigen::Ref<Eigen::MatrixXd> block, Eigen::Index firstColumn);

/** The weights of a sum of modes: sample i is direct (at i = 0 only), plus 2 Re (g p^i) for each complex pole
    and g p^i for each real one. */
struct Residues
{
    std::vector<std::complex<double>> complexes; ///< one for each complex pole, that of its conjugate left out
    std::vector<double> reals;                   ///< one for each real pole
    double direct = 0.0;
};

/** The least-squares fit of a sum of modes with given poles to a response.

    The columns of the equations are the powers of the poles, one row a sample. The matrix is never formed:
    blocks of its rows are folded one after the other into a triangular matrix of one row a column, which a
    singular value decomposition then solves (J. Demmel, L. Grigori, M. Hoemmen, J. Langou,
    "Communication-optimal parallel and sequential QR and LU factorizations", SIAM J. Sci. Comput. 34 (2012)).
    Memory: 100 rows of the equations and a few squares of their number of columns.

    A real pole makes one column; a pair of conjugates makes two real ones, sqrt(2) Re p^i and sqrt(2) Im p^i,
    which have the singular values of the complex pair.
*/
class ResidueFit
{
public:
    /** Does the work that all solutions share.

        @param poles     of radius below 1
        @param response  at least one sample
        @throws          std::bad_alloc
    */
    ResidueFit (const Poles& poles, const Eigen::VectorXd& response);

    /** The smallest singular value of the equations as a part of the largest. */
    double reciprocalCondition() const;

    /** The solution, of all the shortest one.

        @param cutoff  singular values up to this part of the largest are taken as zero; with 0.0 only those are
                       that are zero
    */
    Residues solve (double cutoff) const;

private:
    /** One pole and its place in the equations. */
    struct Mode
    {
        std::complex<double> pole;
        bool isReal;
        std::size_t place;   ///< among the poles of its kind
        Eigen::Index column; ///< its only column, or the first of two

        Eigen::Index columnsEnd() const { return column + (isReal ? 1 : 2); }
    };

    static std::vector<Mode> orderModes (const Poles&);

    std::vector<Mode> modes;
    Eigen::VectorXd singularValues;
    Eigen::VectorXd projected; ///< the response in terms of the left singular vectors
    Eigen::MatrixXd right;     ///< the right singular vectors
};

}
