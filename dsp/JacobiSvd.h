// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::dsp {

/** A matrix as left * diag (singularValues) * right'. */
struct Svd
{
    Eigen::MatrixXd left;           ///< orthonormal columns
    Eigen::VectorXd singularValues; ///< descending
    Eigen::MatrixXd right;          ///< orthonormal columns
};

/** Thin singular value decomposition by Eigen's two-sided Jacobi method, which also holds where matrices are
    badly conditioned or short of rank. In a file of its own, since it takes long to compile.

    @param matrix  all finite, not empty
    @throws        std::bad_alloc
    Safe to call from several threads at once.
*/
Svd jacobiSvd (const Eigen::MatrixXd& matrix);

}
