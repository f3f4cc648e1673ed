#include "tools/veltra/DesignPlot.h"

#include <cstdio>
#include <locale>
#include <sstream>

#include "tools/veltra/ExitStatus.h"
#include "tools/veltra/OutputFile.h"

#ifdef _WIN32
#define popen _popen
#define pclose _pclose
#endif

namespace veltra::host {

namespace {

/** A text as gnuplot takes it literally. */
std::string quoted (const std::string& text)
{
    std::string result = "'";

    for (const char c : text)
        if (static_cast<unsigned char> (c) >= ' ')
            result += c == '\'' ? "''" : std::string (1, c);

    return result + "'";
}

void writeBands (std::ostream& script, const char* name, const std::vector<BandError>& bands)
{
    script << "$" << name << " << END\n";

    for (const auto& band : bands)
        script << band.frequency << " " << band.wanted_dB << " " << band.designed_dB << " " << band.error_dB << "\n";

    script << "END\n";
}

std::string scriptFor (const std::filesystem::path& output, const DesignedResponse& design)
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

    script << "set terminal svg size 900,640 font 'sans,13' background 'white'\n"
              "set output " << quoted (output.string()) << "\n"
              "set multiplot\n"
              "set logscale x\n"
              "set xrange [10:" << design.sampleRate / 2 << "]\n"
              "set xtics ('20' 20, '50' 50, '100' 100, '200' 200, '500' 500, '1k' 1000, '2k' 2000, '5k' 5000, '10k' 10000, '20k' 20000)\n"
              "set grid lc rgb '#dddddd'\n"
              "set lmargin 9\nset rmargin 3\n"
              "set origin 0,0.38\nset size 1,0.62\n"
              "set title " << quoted (title.str()) << " noenhanced\n"
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
    OutputFile output (file);
    const std::string script = scriptFor (output.temporaryPath(), design);
    std::FILE* const gnuplot = popen ("gnuplot", "w");

    if (gnuplot == nullptr)
        throw Failure (kExitOutput, "gnuplot, which draws the picture, cannot be started.");

    const bool written = std::fwrite (script.data(), 1, script.size(), gnuplot) == script.size();

    if (pclose (gnuplot) != 0 || ! written)
        throw Failure (kExitOutput, "gnuplot did not draw " + file.string() + ".");

    output.complete();
}

}
