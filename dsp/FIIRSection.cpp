// SPDX-License-Identifier: GPL-3.0-or-later
#include "dsp/FIIRSection.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>

namespace veltra::dsp {

namespace {

constexpr unsigned kQuadSize = 4;

/** A state this small has decayed: it is far below anything that a float shows, and still far above the denormal
    doubles (from 2e-308), each of which costs some hundred cycles. */
constexpr double kSilence = 1e-200;

/** Samples from one search for silent sections to the next. */
constexpr Eigen::Index kSearchPeriod = 64;

}

double poleRadius (double a1, double a2)
{
    const std::complex<double> root = std::sqrt (std::complex<double> (a1 * a1 * 0.25 - a2));
    return std::max (std::abs (-0.5 * a1 + root), std::abs (-0.5 * a1 - root));
}

bool isUnstableSection (double a1, double a2) { return poleRadius (a1, a2) >= 1.0; }

void SectionBank::add (const FIIRSection& section)
{
    if (section == FIIRSection {})
        return;

    const auto place = static_cast<Eigen::Index> (count++ % kQuadSize);

    if (place == 0)
        quads.emplace_back();

    auto& quad = quads.back();
    quad.a1[place] = section.a1;
    quad.a2[place] = section.a2;
    quad.b0[place] = section.b0;
    quad.b1[place] = section.b1;
}

/** Four sections on their way through an input. */
struct SectionBank::Player
{
    const Quad* quad; ///< borrowed from the bank
    Eigen::Array4d s1 = Eigen::Array4d::Zero();
    Eigen::Array4d s2 = Eigen::Array4d::Zero();

    /** Plays a stretch of the input with `together` players side by side: the steps of one wait for each other, those of
        several do not. Outputs are added player by player, so that sums are the same to the last bit however many there are.

        @tparam hasInput  false where the stretch and the sample before it are zero
        @param before     the sample before the stretch */
    template <std::size_t together, bool hasInput>
    static void play (Player* players, const float* input, double before, double* sum, Eigen::Index size)
    {
        std::array<Player, together> p;
        std::copy_n (players, together, p.begin());

        for (Eigen::Index n = 0; n < size; ++n)
        {
            double total = sum[n];

            for (Player& player : p)
            {
                const Quad& quad = *player.quad;
                Eigen::Array4d fed = Eigen::Array4d::Zero();

                if constexpr (hasInput)
                    fed = quad.b0 * static_cast<double> (input[n]) + quad.b1 * before;

                // The product with s1 comes last, so that a step waits for the one before no longer than it must.
                const Eigen::Array4d s = (fed - quad.a2 * player.s2) - quad.a1 * player.s1;
                total += s.sum();
                player.s2 = player.s1;
                player.s1 = s;
            }

            sum[n] = total;
            before = input[n];
        }

        std::copy_n (p.begin(), together, players);
    }

    template <bool hasInput>
    static void playAll (std::vector<Player>& players, const float* input, double before, double* sum,
                         Eigen::Index size)
    {
        std::size_t i = 0;

        for (; i + 2 <= players.size(); i += 2)
            play<2, hasInput> (&players[i], input, before, sum, size);

        if (i < players.size())
            play<1, hasInput> (&players[i], input, before, sum, size);
    }

    /** Sets the states of sections that have decayed to zero. @returns whether all four have */
    bool endDecayed()
    {
        const auto silent = (s1.abs() < kSilence && s2.abs() < kSilence).eval();
        s1 = silent.select (0.0, s1);
        s2 = silent.select (0.0, s2);
        return silent.all();
    }
};

void SectionBank::addOutput (const Eigen::Ref<const Eigen::VectorXf>& input, Eigen::Index inputEnd,
                             Eigen::VectorXd& sum) const
{
    std::vector<Player> players;

    for (const auto& quad : quads)
        players.push_back ({ &quad });

    for (Eigen::Index n = 0; n < input.size() && ! players.empty(); n += kSearchPeriod)
    {
        const auto size = std::min (kSearchPeriod, input.size() - n);
        const double before = n > 0 ? input[n - 1] : 0.0f;

        if (n <= inputEnd)
            Player::playAll<true> (players, input.data() + n, before, sum.data() + n, size);
        else
            Player::playAll<false> (players, input.data() + n, before, sum.data() + n, size);

        if (size == kSearchPeriod)
            std::erase_if (players, [&] (Player& p) { return p.endDecayed() && n + size > inputEnd; });
    }
}

Eigen::VectorXd impulseResponse (const std::vector<FIIRSection>& sections, Eigen::Index length)
{
    SectionBank bank;

    for (const auto& section : sections)
        bank.add (section);

    Eigen::VectorXd sum = Eigen::VectorXd::Zero (length);

    if (length > 0)
        bank.addOutput (Eigen::VectorXf::Unit (length, 0), 1, sum);

    return sum;
}

}
