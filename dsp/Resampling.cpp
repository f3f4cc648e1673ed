// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/Resampling.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#ifdef VELTRA_HAS_R8BRAIN
#include <CDSPResampler.h>
#else
#include "dsp/SoxrResampler.h"
#endif

namespace veltra::dsp {

namespace {

/** Samples that go in at once, which keeps the resampler's working memory independent of the signal's length. */
constexpr int kBlockSize = 4096;

constexpr double kMaxRatio = 256.0;
constexpr double kMaxOutputSize = 536870911.0;

/** Blocks of silence after which nothing more is expected. The delay of a resampler is at most some million samples. */
constexpr int kMaxSilentBlocks = 4096;

#ifdef VELTRA_HAS_R8BRAIN
class Resampler final : public r8b::CDSPResampler
{
public:
    Resampler (double ratio, double attenuationDb)
        : CDSPResampler (1.0, ratio, kBlockSize, transitionBand, std::clamp (attenuationDb, 49.0, 218.0),
                         r8b::fprLinearPhase)
    {
    }

private:
    static constexpr double transitionBand = 0.5; // per cent of the spectrum
};
#else
class Resampler final : public SoxrResampler
{
public:
    Resampler (double ratio, double) : SoxrResampler (ratio) {}
};
#endif

}

Eigen::VectorXf resampleFloat (const Eigen::VectorXf& in, double ratio, double attenuationDb)
{
    return resampleDouble (in.cast<double>(), ratio, attenuationDb).cast<float>();
}

Eigen::VectorXd resampleDouble (const Eigen::VectorXd& in, double ratio, double attenuationDb)
{
    if (! (ratio >= 1.0 / kMaxRatio && ratio <= kMaxRatio))
        return {};

    const double size = std::floor (static_cast<double> (in.size()) * ratio + 0.5);

    if (size > kMaxOutputSize)
        throw std::bad_alloc();

    Eigen::VectorXd out = Eigen::VectorXd::Zero (static_cast<Eigen::Index> (size));

    if (out.size() == 0)
        return out;

    Resampler resampler (ratio, attenuationDb);
    Eigen::Index taken = 0;
    Eigen::Index given = 0;

    for (int silentBlocks = 0; given < out.size() && silentBlocks < kMaxSilentBlocks;)
    {
        const auto count = std::min<Eigen::Index> (in.size() - taken, kBlockSize);
        alignas (64) std::array<double, kBlockSize> block;

        if (count > 0)
        {
            std::copy_n (in.data() + taken, count, block.begin());
        }
        else
        {
            block.fill (0.0); // what is still in the delay line comes out behind silence
            ++silentBlocks;
        }

        double* result = nullptr;
        const Eigen::Index made =
            resampler.process (block.data(), count > 0 ? static_cast<int> (count) : kBlockSize, result);
        const auto kept = std::min (made, out.size() - given);

        std::copy_n (result, kept, out.data() + given);
        taken += count;
        given += kept;
    }

    return out;
}

}
