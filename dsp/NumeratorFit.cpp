// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/NumeratorFit.h"

#include <algorithm>
#include <utility>

#include <Eigen/QR>

#include "dsp/ResidueFit.h"

namespace veltra::dsp {

namespace {

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

/** One numerator coefficient, and what its section plays when it is 1 and the other one 0. */
struct Column
{
    float* coefficient;
    FIIRSection section;
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

        columns.push_back ({ &section.b0, { section.a1, section.a2, 1.0f, 0.0f } });

        if (isDirectTerm || section.a2 != 0.0f)
            columns.push_back ({ &section.b1, { section.a1, section.a2, 0.0f, 1.0f } });
    }

    return columns;
}

/** The equations, one row a sample, as a triangle with the right-hand side as its last column. */
MatrixXd triangleOf (const std::vector<Column>& columns, const VectorXd& tail)
{
    const auto count = static_cast<Index> (columns.size());
    MatrixXd triangle = MatrixXd::Zero (count, count + 1), equations (tail.size(), count + 1);

    for (Index j = 0; j < count; ++j)
        equations.col (j) = impulseResponse ({ columns[static_cast<std::size_t> (j)].section }, tail.size());

    equations.col (count) = tail;

    for (Index row = 0; row < tail.size(); row += kFoldRows)
        foldRows (triangle, equations.middleRows (row, std::min (kFoldRows, tail.size() - row)), 0);

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
    const auto columns = columnsOf (refitted);
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
