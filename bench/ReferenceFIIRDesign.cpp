// SPDX-License-Identifier: GPL-3.0-or-later
#include "bench/ReferenceFIIRDesign.h"

#include <cmath>
#include <complex>
#include <vector>

#include <Eigen/Eigenvalues>
#include <Eigen/SVD>

namespace veltra::dsp::reference {

using Complex = std::complex<double>;
using Eigen::Index;
using Eigen::MatrixXcd;
using Eigen::MatrixXd;
using Eigen::VectorXcd;
using Eigen::VectorXd;

namespace {

constexpr double poleFloor = 1e-6;
constexpr double poleCeiling = 0.9999;

struct Poles
{
    std::vector<Complex> complexes, reals;
};

MatrixXd hankel (const VectorXd& column, const VectorXd& row)
{
    MatrixXd matrix (column.size(), row.size());

    for (Index i = 0; i < matrix.rows(); ++i)
        for (Index j = 0; j < matrix.cols(); ++j)
            matrix (i, j) = i + j < column.size() ? column[i + j] : row[i + j - column.size() + 1];

    return matrix;
}

/** One pass over the delays for each sample. */
VectorXd warpSequence (const VectorXd& in, unsigned n, double lambda)
{
    VectorXd out = VectorXd::Zero (n + 1), d = VectorXd::Zero (n + 1);
    d[0] = 1.0;
    double guard = 1e-20;
    out[0] = in[0];

    for (Index i = 1; i < in.size(); ++i)
    {
        double previous = 0.0;

        for (Index k = 0; k <= n; ++k)
        {
            const double x = (d[k] - previous * lambda) + guard;
            d[k] = x * lambda + previous;
            previous = x;
        }

        guard = -guard;
        out += in[i] * d;
    }

    return out;
}

VectorXcd warpedEigenvalues (const VectorXd& warped, Index order)
{
    constexpr Index size = 511;
    const MatrixXd block = hankel (warped.segment (1, size + 1), warped.segment (size + 1, size));
    const MatrixXd current = block.topRows (size), shifted = block.bottomRows (size);

    const Eigen::JacobiSVD<MatrixXd> svd (current, Eigen::ComputeThinU | Eigen::ComputeThinV);
    const MatrixXd left = svd.matrixU().leftCols (order), right = svd.matrixV().leftCols (order);
    const VectorXd inverse = svd.singularValues().head (order).cwiseInverse();
    const MatrixXd reduced = (left.transpose() * shifted * right) * inverse.asDiagonal();

    // The solver may give up on what is not a number, and then has no eigenvalues to give.
    const Eigen::EigenSolver<MatrixXd> solver (reduced, false);
    return solver.info() == Eigen::Success ? VectorXcd (solver.eigenvalues()) : VectorXcd();
}

Poles unwarp (const VectorXcd& eigenvalues, double lambda)
{
    Poles poles;

    for (const Complex& e : eigenvalues)
    {
        Complex z = (e + lambda) / (1.0 + lambda * e);
        const double radius = std::abs (z);

        if (! (radius > poleFloor && radius < 1.0 && z.imag() >= 0.0))
            continue;

        if (radius > poleCeiling)
            z = z / radius * poleCeiling;

        (z.imag() == 0.0 ? poles.reals : poles.complexes).push_back (z);
    }

    return poles;
}

VectorXcd fitResidues (const std::vector<Complex>& p, const VectorXd& tail)
{
    const Index n = static_cast<Index> (p.size());
    MatrixXcd modes = MatrixXcd::Zero (tail.size(), n + 1);

    for (Index i = 0; i < tail.size(); ++i)
        for (Index j = 0; j < n; ++j)
            modes (i, j) =
                i == 0 ? 1.0 : std::pow (p[static_cast<std::size_t> (j)], Complex (static_cast<double> (i), 0.0));

    modes.row (0).setOnes();

    Eigen::JacobiSVD<MatrixXcd> svd (modes, Eigen::ComputeThinU | Eigen::ComputeThinV);
    svd.setThreshold (0.0);
    return svd.solve (tail.cast<Complex>());
}

bool isUnstable (double a1, double a2)
{
    const Complex root = std::sqrt (Complex (a1 * a1 * 0.25 - a2));
    return std::max (std::abs (-0.5 * a1 + root), std::abs (-0.5 * a1 - root)) >= 1.0;
}

FIIRSection complexSection (Complex q, const Complex& g)
{
    FIIRSection section;

    for (int computation = 1;; ++computation)
    {
        section.b0 = static_cast<float> (2.0 * g.real());
        section.b1 = static_cast<float> (-2.0 * (g.real() * q.real() + g.imag() * q.imag()));
        section.a1 = static_cast<float> (-2.0 * q.real());
        section.a2 = static_cast<float> (std::pow (std::abs (q), 2.0));

        if (computation == 4 || ! isUnstable (section.a1, section.a2))
            return section;

        q *= 0.9999;
    }
}

}

FIIRDesign designFIIR (const Eigen::VectorXf& in, unsigned nTaps, unsigned nSections, double sampleRate)
{
    const double lambda = std::cos (std::acos (0.9) * (44100.0 / sampleRate));
    const VectorXd tail = in.tail (in.size() - nTaps).cast<double>();
    const Poles poles = unwarp (warpedEigenvalues (warpSequence (tail, 1024, lambda), 2 * nSections - 2), lambda);

    std::vector<Complex> p = poles.complexes;

    for (const Complex& z : poles.complexes)
        p.push_back (std::conj (z));

    p.insert (p.end(), poles.reals.begin(), poles.reals.end());

    const VectorXcd g = fitResidues (p, tail);
    const auto residue = [&] (std::size_t j) { return g[static_cast<Index> (j)]; };

    FIIRDesign design { in.head (nTaps), {} };

    for (std::size_t j = 0; j < poles.complexes.size(); ++j)
        design.sections.push_back (complexSection (p[j], residue (j)));

    std::size_t k = 2 * poles.complexes.size();

    for (; k + 1 < p.size(); k += 2)
    {
        const double p1 = p[k].real(), p2 = p[k + 1].real(), g1 = residue (k).real(), g2 = residue (k + 1).real();
        design.sections.push_back ({ static_cast<float> (-(p2 + p1)), static_cast<float> (p2 * p1),
                                     static_cast<float> (g2 + g1), static_cast<float> (-(g2 * p1 + p2 * g1)) });
    }

    if (k < p.size())
        design.sections.push_back (
            { static_cast<float> (-p[k].real()), 0.0f, static_cast<float> (residue (k).real()), 0.0f });

    design.sections.push_back ({ 0.0f, 0.0f, static_cast<float> (residue (p.size()).real()), 0.0f });
    design.sections.resize (nSections);
    return design;
}

}
