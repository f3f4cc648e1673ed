// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/ResponsePlot.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include "dsp/FftConvolve.h"
#include "dsp/RealFft.h"
#include "tools/veltra/report/Gnuplot.h"

namespace veltra::host {

namespace {

using Eigen::Index;
using Eigen::VectorXf;

constexpr double kLowest_Hz = 10.0;
constexpr double kPointsPerOctave = 12.0;
constexpr double kFloor_dB = -200.0; // of what is silent

/** Levels in dB at frequencies that grow by the same factor: the mean power of the bins round each. */
std::vector<double> levels (const VectorXf& response, const dsp::RealFft& fft, double sampleRate)
{
    VectorXf padded = VectorXf::Zero (fft.size());
    padded.head (response.size()) = response;

    Eigen::VectorXcf spectrum;
    fft.forward (padded, spectrum);
    const Eigen::VectorXd power = spectrum.cwiseAbs2().cast<double>();

    std::vector<double> result;
    const double halfStep = std::exp2 (0.5 / kPointsPerOctave);

    for (double frequency = kLowest_Hz; frequency * halfStep < sampleRate / 2.0; frequency *= halfStep * halfStep)
    {
        const auto binAt = [&] (double f) { return static_cast<Index> (std::lround (f / sampleRate * fft.size())); };
        const Index first = binAt (frequency / halfStep);
        const Index count = std::max<Index> (binAt (frequency * halfStep) - first, 1);
        const double mean = power.segment (first, count).mean();
        result.push_back (mean > 0.0 ? std::max (10.0 * std::log10 (mean), kFloor_dB) : kFloor_dB);
    }

    return result;
}

struct Curves
{
    std::vector<double> wanted, played, error;
};

Curves curvesOf (const ComparedResponse& response, double sampleRate)
{
    const Index length = std::max<Index> (response.wanted.size() + response.delay, response.played.size());
    const dsp::RealFft fft (dsp::convolutionFftSize (std::max<Index> (length, 16384), 1)); // 12 bins below 10 Hz

    VectorXf difference = VectorXf::Zero (length);
    difference.head (response.played.size()) = response.played;
    difference.segment (response.delay, response.wanted.size()) -= response.wanted;

    return { levels (response.wanted, fft, sampleRate), levels (response.played, fft, sampleRate),
             levels (difference, fft, sampleRate) };
}

/** Where the panels lie, in pixels: two in a row under the title, each with the magnitude above the error. */
struct Layout
{
    static constexpr unsigned width = 960, titleHeight = 40, panelHeight = 230;

    explicit Layout (std::size_t panels)
        : columns (panels > 1 ? 2 : 1),
          height (titleHeight + static_cast<unsigned> ((panels + columns - 1) / columns) * panelHeight)
    {
    }

    /** Commands for the margins of one of the two plots of a panel. */
    std::string margins (std::size_t panel, double top, double bottom) const
    {
        const double left = static_cast<double> (panel % columns) * width / columns;
        const double above = titleHeight + static_cast<double> (panel / columns) * panelHeight;

        std::ostringstream text;
        text << "set lmargin at screen " << (left + 58.0) / width << "\nset rmargin at screen "
             << (left + width / columns - 12.0) / width << "\nset tmargin at screen " << 1.0 - (above + top) / height
             << "\nset bmargin at screen " << 1.0 - (above + bottom) / height << "\n";
        return text.str();
    }

    /** A place on the screen, in gnuplot's coordinates. */
    std::string fromTop (double pixels) const { return std::to_string (1.0 - pixels / height); }

    std::size_t columns;
    unsigned height;
};

/** The curves as a data block of gnuplot's, by the name of $c and the number. */
std::string dataBlock (std::size_t number, const Curves& curves)
{
    std::ostringstream text;
    text.precision (2);
    text << std::fixed << "$c" << number << " << EOD\n";

    for (std::size_t point = 0; point < curves.wanted.size(); ++point)
        text << kLowest_Hz * std::exp2 (static_cast<double> (point) / kPointsPerOctave) << ' ' << curves.wanted[point]
             << ' ' << curves.played[point] << ' ' << curves.error[point] << '\n';

    text << "EOD\n";
    return text.str();
}

/** Marks on the axis of frequencies; the upper plot of a panel leaves the words to the lower one. */
std::string frequencyTics (bool labelled)
{
    const std::pair<const char*, int> marks[] { { "20 Hz", 20 },  { "50", 50 },    { "100", 100 }, { "200", 200 },
                                                { "500", 500 },   { "1k", 1000 },  { "2k", 2000 }, { "5k", 5000 },
                                                { "10k", 10000 }, { "20k", 20000 } };
    std::string text;

    for (const auto& [label, frequency] : marks)
        text += (text.empty() ? "set xtics (" : ", ") + gnuplotText (labelled ? label : "") + " "
                + std::to_string (frequency);

    return text + ")\n";
}

std::string range (double top, double span)
{
    return "set yrange [" + std::to_string (top - span) + ":" + std::to_string (top) + "]\n";
}

}

void plotResponses (const std::filesystem::path& file, const std::string& title, unsigned sampleRate,
                    const std::vector<ComparedResponse>& responses)
{
    const Layout layout (responses.size());
    std::string data, panels;
    double highest = kFloor_dB, highestError = kFloor_dB;

    for (std::size_t i = 0; i < responses.size(); ++i)
    {
        const auto curves = curvesOf (responses[i], sampleRate);
        data += dataBlock (i, curves);

        for (std::size_t point = 0; point < curves.wanted.size(); ++point)
        {
            highest = std::max (highest, curves.wanted[point]);
            highestError = std::max (highestError, curves.error[point]);
        }
    }

    // All panels have the same scales: channels are there to be compared.
    const double top = 10.0 * std::ceil (highest / 10.0 + 0.1), errorTop = 10.0 * std::ceil (highestError / 10.0 + 0.1);

    for (std::size_t i = 0; i < responses.size(); ++i)
    {
        const auto curve = [i] (int column, const char* look) {
            return "$c" + std::to_string (i) + " using 1:" + std::to_string (column) + " with lines " + look;
        };

        panels += layout.margins (i, 8, 124) + range (top, 60.0) + frequencyTics (false) + "set ytics 20\nset label 1 "
                  + gnuplotText (responses[i].channel) + " at graph 0.02,0.1 font ',13' noenhanced\n"
                  + (i == 0 ? "set key at screen 0.99,screen " + layout.fromTop (20) + " samplen 2 horizontal\n"
                            : "unset key\n")
                  + "plot " + curve (2, "lw 4 lc '#c0c0c0' title 'wanted', ")
                  + curve (3, "lw 1.3 lc '#1f4e8c' title 'played', ")
                  + "NaN with lines lw 1.3 lc '#b03020' title 'error'\n" + "unset label 1\nunset key\n"
                  + layout.margins (i, 130, 204) + range (errorTop, 80.0) + frequencyTics (true) + "set ytics 40\nplot "
                  + curve (4, "lw 1.3 lc '#b03020' notitle\n");
    }

    drawPicture (
        file, layout.width, layout.height,
        data + "set multiplot title " + gnuplotText (title) + " noenhanced font ',14'\n"
            + "set logscale x\nset xrange [" + std::to_string (kLowest_Hz) + ":" + std::to_string (sampleRate / 2)
            + "]\nset grid lt 1 lc '#d8d8d8' lw 0.6\nset tics scale 0.5\nset border lw 0.6\nset ylabel 'dB' offset 1.5\n"
            + panels + "unset multiplot\n");
}

}
