// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/JacobiSvd.h"

#include <Eigen/SVD>

namespace veltra::dsp {

Svd jacobiSvd (const Eigen::MatrixXd& matrix)
{
    const Eigen::JacobiSVD<Eigen::MatrixXd> svd (matrix, Eigen::ComputeThinU | Eigen::ComputeThinV);
    return { svd.matrixU(), svd.singularValues(), svd.matrixV() };
}

}
