// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/HankelMatrix.h"

namespace veltra::dsp {

Eigen::MatrixXd hankelMatrix (const Eigen::VectorXd& column, const Eigen::VectorXd& row)
{
    Eigen::VectorXd joined (column.size() + row.size() - 1);
    joined << column, row.tail (row.size() - 1);

    Eigen::MatrixXd matrix (column.size(), row.size());

    for (Eigen::Index j = 0; j < matrix.cols(); ++j)
        matrix.col (j) = joined.segment (j, matrix.rows());

    return matrix;
}

}
