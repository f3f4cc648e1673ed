// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <complex>
#include <random>
#include <string>
#include <vector>

#include <Eigen/Core>
#include <sndfile.h>

/** @file Responses that the designs of the tests are fed with. */

namespace veltra::dsp::test {

/** One mode of a response: 2 Re (residue pole^i) for a complex pole, residue pole^i for a real one. */
struct Mode
{
    std::complex<double> pole, residue;
};

inline Eigen::VectorXd sumOfModes (Eigen::Index size, const std::vector<Mode>& modes)
{
    Eigen::VectorXd sum = Eigen::VectorXd::Zero (size);

    for (const Mode& mode : modes)
    {
        const double members = mode.pole.imag() == 0.0 ? 1.0 : 2.0;

        for (Eigen::Index i = 0; i < size; ++i)
            sum[i] += members * (mode.residue * std::pow (mode.pole, static_cast<double> (i))).real();
    }

    return sum;
}

inline Eigen::VectorXf modalResponse (Eigen::Index size, const std::vector<Mode>& modes)
{
    return sumOfModes (size, modes).cast<float>();
}

inline Eigen::VectorXf impulse (Eigen::Index size, Eigen::Index place) { return Eigen::VectorXf::Unit (size, place); }

inline Eigen::VectorXf whiteNoise (Eigen::Index size)
{
    std::mt19937 generator (1);
    return Eigen::VectorXf::NullaryExpr (size, [&] { return static_cast<float> (generator()) / 2147483648.0f - 1.0f; });
}

/** A filter of the sample room, "FL_48000" for example; empty when it cannot be read. Tests run at the root. */
inline Eigen::VectorXf livingRoom (const std::string& name)
{
    SF_INFO info {};
    SNDFILE* const file = sf_open (("examples/living-room/" + name + ".wav").c_str(), SFM_READ, &info);

    if (file == nullptr)
        return {};

    Eigen::VectorXf samples (info.frames * info.channels);
    samples.conservativeResize (sf_read_float (file, samples.data(), samples.size()));
    sf_close (file);
    return samples;
}

/** Energy of `part` in dB of that of `whole`. */
inline double levelIn_dB (const Eigen::VectorXd& part, const Eigen::VectorXd& whole)
{
    return 10.0 * std::log10 (part.squaredNorm() / whole.squaredNorm());
}

}
