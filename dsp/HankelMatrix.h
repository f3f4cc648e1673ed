// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <Eigen/Core>

namespace veltra::dsp {

/** The matrix that has one value along each of its rising diagonals, `column` as its first column and `row` as
    its last row: entry (i, j) is element i + j of `column` followed by `row` less its first sample.

    @param column, row  neither empty; row[0], which is the corner of both, is taken from the column
    @returns            column.size() rows and row.size() columns
    @throws             std::bad_alloc
    Safe to call from several threads at once.
*/
Eigen::MatrixXd hankelMatrix (const Eigen::VectorXd& column, const Eigen::VectorXd& row);

}
