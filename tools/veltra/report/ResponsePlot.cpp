// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/ResponsePlot.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <utility>

#include "tools/veltra/report/Gnuplot.h"

namespace veltra::host {

namespace {

constexpr double kMagnitudeSpan_dB = 60.0;
constexpr double kHighestError_dB = 20.0, kErrorSpan_dB = 120.0;

/** Where the panels lie, in pixels: two in a row under the title, each with the magnitude above the error. */
struct Layout
{
    static constexpr unsigned width = 960, titleHeight = 44;

    explicit Layout (std::size_t panels)
        : columns (panels > 1 ? 2 : 1),
          panelHeight (panels > 1 ? 230 : 500),
          height (titleHeight + static_cast<unsigned> ((panels + columns - 1) / columns) * panelHeight)
    {
    }

    /** Commands for the margins of one of the two plots of a panel.
        @param top, bottom  as parts of the panel's height */
    std::string margins (std::size_t panel, double top, double bottom) const
    {
        const double left = static_cast<double> (panel % columns) * width / columns;
        const double above = titleHeight + static_cast<double> (panel / columns) * panelHeight;

        std::ostringstream text;
        text << "set lmargin at screen " << (left + 58.0) / width << "\nset rmargin at screen "
             << (left + width / columns - 12.0) / width << "\nset tmargin at screen "
             << 1.0 - (above + top * panelHeight) / height << "\nset bmargin at screen "
             << 1.0 - (above + bottom * panelHeight) / height << "\n";
        return text.str();
    }

    /** A place on the screen, in gnuplot's coordinates. */
    std::string fromTop (double pixels) const { return std::to_string (1.0 - pixels / height); }

    std::size_t columns;
    unsigned panelHeight, height;
};

/** A level as gnuplot reads it; no point where there is none. */
std::string point (double level_dB) { return std::isfinite (level_dB) ? std::to_string (level_dB) : "NaN"; }

/** The curves as a data block of gnuplot's, by the name of $c and the number. */
std::string dataBlock (std::size_t number, const std::vector<dsp::ResponseError::Band>& curve)
{
    std::string text = "$c" + std::to_string (number) + " << EOD\n";

    for (const auto& band : curve)
        text += std::to_string (band.centre_Hz) + ' ' + point (band.wanted_dB) + ' ' + point (band.played_dB) + ' '
                + point (band.error_dB) + '\n';

    return text + "EOD\n";
}

/** Says what has no curve. */
std::string remark (const dsp::ResponseError& error)
{
    return error.isSilent ? "plays silence" : error.overall_dB == -HUGE_VAL ? "played exactly" : "";
}

/** Marks on the axis of frequencies; only the lower plot of a panel has labels. */
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
    double highest = -HUGE_VAL;

    for (std::size_t i = 0; i < responses.size(); ++i)
    {
        data += dataBlock (i, responses[i].error.curve);

        for (const auto& band : responses[i].error.curve)
            highest = std::max ({ highest, band.wanted_dB, band.played_dB });
    }

    // All panels have the same scales, so that channels can be compared.
    const double top = std::isfinite (highest) ? 10.0 * std::ceil (highest / 10.0 + 0.1) : 0.0;

    for (std::size_t i = 0; i < responses.size(); ++i)
    {
        const auto curve = [i] (int column, const char* look) {
            return "$c" + std::to_string (i) + " using 1:" + std::to_string (column) + " with lines " + look;
        };

        panels += layout.margins (i, 0.03, 0.54) + range (top, kMagnitudeSpan_dB) + frequencyTics (false)
                  + "set ytics 20\nset label 1 " + gnuplotText (responses[i].channel)
                  + " at graph 0.02,0.1 font ',13' noenhanced\n"
                  + (i == 0 ? "set key at screen 0.99,screen " + layout.fromTop (34) + " samplen 2 horizontal\n"
                            : "unset key\n")
                  + "plot " + curve (2, "lw 4 lc '#c0c0c0' title 'filter', ")
                  + curve (3, "lw 1.3 lc '#1f4e8c' title 'played', ")
                  + "NaN with lines lw 1.3 lc '#b03020' title 'error'\n" + "unset key\nset label 1 "
                  + gnuplotText (remark (responses[i].error)) + " at graph 0.02,0.85 font ',11' noenhanced\n"
                  + layout.margins (i, 0.57, 0.89) + range (kHighestError_dB, kErrorSpan_dB) + frequencyTics (true)
                  + "set ytics 40\nplot " + curve (4, "lw 1.3 lc '#b03020' notitle\n") + "unset label 1\n";
    }

    const double resolution_Hz = responses.empty() ? 0.0 : responses.front().error.resolution_Hz;
    std::ostringstream heading;
    heading.precision (2);
    heading << title << " (" << dsp::kCurvePointsPerOctave << " points an octave, at least " << resolution_Hz
            << " Hz apart)";

    drawPicture (
        file, layout.width, layout.height,
        data + "set multiplot title " + gnuplotText (heading.str()) + " noenhanced font ',13'\n"
            + "set logscale x\nset xrange [10:" + std::to_string (sampleRate / 2)
            + "]\nset grid lt 1 lc '#d8d8d8' lw 0.6\nset tics scale 0.5\nset border lw 0.6\nset ylabel 'dB' offset 1.5\n"
            + panels + "unset multiplot\n");
}

}
