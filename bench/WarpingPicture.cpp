// SPDX-License-Identifier: GPL-3.0-or-later

// Draws docs/images/fiir-warping.svg: what 1025 samples of a filter's tail show of its spectrum, as they are and
// warped. Run at the root of the repository:
//
//   warping_picture | gnuplot > docs/images/fiir-warping.svg

#include <cmath>
#include <complex>
#include <cstdio>
#include <numbers>

#include "dsp/WarpSequence.h"
#include "tests/support/ImpulseResponses.h"

namespace {

using Eigen::Index;
using Eigen::VectorXd;
using Complex = std::complex<double>;

constexpr double sampleRate = 48000.0;
constexpr Index nTaps = 1000, samples = 1025;

double magnitude_dB (const VectorXd& response, double radians)
{
    const Complex step = std::polar (1.0, -radians);
    Complex sum = 0.0, turn = 1.0;

    for (const double sample : response)
    {
        sum += sample * turn;
        turn *= step;
    }

    return 20.0 * std::log10 (std::abs (sum));
}

/** Where an angle of the warped axis lies on the plain one: the all-pass turns by that much. */
double unwarpedAngle (double warped, double lambda)
{
    const Complex delay = std::polar (1.0, -warped);
    return -std::arg ((delay + lambda) / (1.0 + lambda * delay));
}

double hertz (double radians) { return radians * sampleRate / (2.0 * std::numbers::pi); }

}

int main()
{
    const Eigen::VectorXf filter = veltra::dsp::test::livingRoom ("FL_48000");

    if (filter.size() <= nTaps)
    {
        std::fputs ("examples/living-room/FL_48000.wav is not here.\n", stderr);
        return 1;
    }

    const double lambda = std::cos (std::acos (0.9) * 44100.0 / sampleRate);
    const VectorXd tail = filter.tail (filter.size() - nTaps).cast<double>();
    const VectorXd plain = tail.head (samples), warped = veltra::dsp::warpSequence (tail, samples - 1, lambda);

    std::puts ("$Tail << END");

    for (double f = 15.0; f < sampleRate / 2.0; f *= 1.006)
        std::printf ("%.1f %.2f\n", f, magnitude_dB (tail, 2.0 * std::numbers::pi * f / sampleRate));

    std::puts ("END\n$Plain << END");

    for (Index bin = 1; bin < samples / 2; ++bin)
    {
        const double angle = 2.0 * std::numbers::pi * static_cast<double> (bin) / samples;
        std::printf ("%.1f %.2f\n", hertz (angle), magnitude_dB (plain, angle));
    }

    std::puts ("END\n$Warped << END");

    for (Index bin = 1; bin < samples / 2; ++bin)
    {
        const double angle = 2.0 * std::numbers::pi * static_cast<double> (bin) / samples;
        std::printf ("%.1f %.2f\n", hertz (unwarpedAngle (angle, lambda)), magnitude_dB (warped, angle));
    }

    std::puts (
        "END\n"
        "set terminal svg size 900,560 font 'sans,13' background 'white'\n"
        "set multiplot layout 2,1 margins 0.09,0.97,0.11,0.93 spacing 0.12\n"
        "set logscale x\n"
        "set xrange [15:24000]\n"
        "set xtics ('20' 20, '50' 50, '100' 100, '200' 200, '500' 500, '1k' 1000, '2k' 2000, '5k' 5000, '10k' 10000, '20k' 20000)\n"
        "set grid lc rgb '#dddddd'\n"
        "set ylabel 'magnitude, dB'\n"
        "set key bottom left Left reverse\n"
        "set title 'Front left, 48 kHz: everything behind the first 1000 taps, and what its first 1025 samples show'\n"
        "plot $Tail with lines lw 3 lc rgb '#b0c4de' title 'the whole tail', "
        "$Plain with points pt 7 ps 0.3 lc rgb '#a03010' title '1025 samples: a point every 47 Hz'\n"
        "set title 'The same, warped: 1025 samples'\n"
        "set xlabel 'frequency, Hz'\n"
        "plot $Tail with lines lw 3 lc rgb '#b0c4de' title 'the whole tail', "
        "$Warped with points pt 7 ps 0.3 lc rgb '#a03010' title '1025 warped samples: a point every 2 Hz at the bottom, every 1 kHz at the top'\n"
        "unset multiplot");
    return 0;
}
