// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/NumeratorFit.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <Eigen/QR>

#include "dsp/ResidueFit.h"

namespace veltra::dsp {

namespace {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

/** One numerator coefficient, and the response to it alone as it continues from block to block. */
struct Column
{
    float* coefficient;
    double a1, a2;
    Index start; ///< 0 for b0, 1 for b1
    double last = 0.0, lastButOne = 0.0;

    void fill (Eigen::Ref<VectorXd> rows, Index firstRow)
    {
        constexpr double silence = 1e-200; // ends the recursion before its numbers become denormal

        for (Index i = 0; i < rows.size(); ++i)
        {
            const double value = (firstRow + i == start ? 1.0 : 0.0) - a1 * last - a2 * lastButOne;
            lastButOne = last;
            last = std::abs (value) < silence && std::abs (last) < silence ? 0.0 : value;
            rows[i] = last;
        }
    }
};

/** The coefficients to fit. Beside a direct term another one, and the b1 of a single pole, would add nothing. */
std::vector<Column> columnsOf (std::vector<FIIRSection>& sections)
{
    std::vector<Column> columns;
    bool hasDirectTerm = false;

    for (auto& section : sections)
    {
        const bool isDirectTerm = section.a1 == 0.0f && section.a2 == 0.0f;

        if (isDirectTerm && std::exchange (hasDirectTerm, true))
            continue;

        columns.push_back ({ &section.b0, section.a1, section.a2, 0 });

        if (isDirectTerm || section.a2 != 0.0f)
            columns.push_back ({ &section.b1, section.a1, section.a2, 1 });
    }

    return columns;
}

/** The equations, one row a sample, as a triangle with the right-hand side as its last column. */
MatrixXd triangleOf (std::vector<Column>& columns, const VectorXd& tail)
{
    const auto count = static_cast<Index> (columns.size());
    MatrixXd triangle = MatrixXd::Zero (count, count + 1), block (kFoldRows, count + 1);

    for (Index row = 0; row < tail.size(); row += kFoldRows)
    {
        const Index rows = std::min (kFoldRows, tail.size() - row);

        for (Index j = 0; j < count; ++j)
            columns[static_cast<std::size_t> (j)].fill (block.col (j).head (rows), row);

        block.col (count).head (rows) = tail.segment (row, rows);
        foldRows (triangle, block.topRows (rows), 0);
    }

    return triangle;
}

double missedEnergy (const std::vector<FIIRSection>& sections, const VectorXd& tail)
{
    return (impulseResponse (sections, tail.size()) - tail).squaredNorm();
}

}

FIIRDesign refitNumerators (const Eigen::VectorXf& in, FIIRDesign design)
{
    const VectorXd tail = in.tail (in.size() - design.fir.size()).cast<double>();
    std::vector<FIIRSection> refitted = design.sections;
    auto columns = columnsOf (refitted);
    const MatrixXd triangle = triangleOf (columns, tail);
    const VectorXd solution =
        triangle.leftCols (triangle.rows()).colPivHouseholderQr().solve (triangle.col (triangle.rows()));

    for (std::size_t j = 0; j < columns.size(); ++j)
        *columns[j].coefficient = static_cast<float> (solution[static_cast<Index> (j)]);

    if (missedEnergy (refitted, tail) < missedEnergy (design.sections, tail))
        design.sections.swap (refitted);

    return design;
}

}
