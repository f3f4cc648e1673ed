// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/DesignPlot.h"

#include <locale>
#include <sstream>

#include "tools/veltra/report/Gnuplot.h"

namespace veltra::host {

namespace {

void writeBands (std::ostream& script, const char* name, const std::vector<BandError>& bands)
{
    script << "$" << name << " << END\n";

    for (const auto& band : bands)
        script << band.frequency << " " << band.wanted_dB << " " << band.designed_dB << " " << band.error_dB << "\n";

    script << "END\n";
}

std::string commandsFor (const DesignedResponse& design)
{
    std::ostringstream script;
    script.imbue (std::locale::classic());
    script.precision (5);
    writeBands (script, "Curve", design.report.curve);
    writeBands (script, "Octaves", design.report.octaves);

    std::ostringstream title;
    title.imbue (std::locale::classic());
    title.precision (3);
    title << design.channel << " at " << design.sampleRate << " Hz: " << design.taps << " taps and the sections, error "
          << design.report.error_dB << " dB";

    script
        << "set multiplot\n"
           "set logscale x\n"
           "set xrange [10:"
        << design.sampleRate / 2
        << "]\n"
           "set xtics ('20' 20, '50' 50, '100' 100, '200' 200, '500' 500, '1k' 1000, '2k' 2000, '5k' 5000, '10k' 10000, '20k' 20000)\n"
           "set grid lc rgb '#dddddd'\n"
           "set lmargin 9\nset rmargin 3\n"
           "set origin 0,0.38\nset size 1,0.62\n"
           "set title "
        << gnuplotText (title.str())
        << " noenhanced\n"
           "set ylabel 'magnitude, dB'\n"
           "set key bottom left\n"
           "plot $Curve using 1:2 with lines lw 4 lc rgb '#b0c4de' title 'wanted', "
           "$Curve using 1:3 with lines lw 1.4 lc rgb '#202020' title 'designed'\n"
           "set origin 0,0\nset size 1,0.4\n"
           "unset title\n"
           "set xlabel 'frequency, Hz'\n"
           "set ylabel 'error, dB of wanted'\n"
           "set key top left\n"
           "set style fill solid 0.6 noborder\n"
           "set yrange [-80:10]\n"
           "plot $Octaves using ($1/sqrt(2)):4:($1/sqrt(2)):($1*sqrt(2)):(-80):4 with boxxyerror lc rgb '#e8b4a0' title 'by octave', "
           "$Curve using 1:4 with lines lc rgb '#a03010' title 'by 1/24 octave'\n"
           "unset multiplot\n";
    return script.str();
}

}

void plotDesign (const std::filesystem::path& file, const DesignedResponse& design)
{
    drawPicture (file, 900, 640, commandsFor (design));
}

}
