#include "tests/plugin/FilterText.h"

#include <limits>
#include <locale>
#include <sstream>

namespace veltra::test {

namespace {

void write (std::ostream& out, const CoefficientSet& set)
{
    out << "<Coefficients Topology=\"" << (set.sections.empty() ? "FIR" : "FIIR") << "\" Fs=\"" << set.rate << "\">"
        << "<FIR NbrOfTaps=\"" << set.taps.size() << "\"><taps>[";

    for (const auto tap : set.taps)
        out << tap << " ";

    out << "]</taps></FIR>";

    if (! set.sections.empty())
    {
        out << "<IIR NbrOfSections=\"" << set.sections.size() << "\">";

        for (const auto& section : set.sections)
            out << "<section>[" << section.a1 << " " << section.a2 << " " << section.b0 << " " << section.b1 << "]</section>";

        out << "</IIR>";
    }

    if (! set.extra.empty())
        out << "<Extra>" << set.extra << "</Extra>";

    out << "</Coefficients>";
}

}

std::string filterText (const std::string& project, const std::string& technology,
                        const std::vector<FilterChannel>& channels)
{
    std::ostringstream out;
    out.imbue (std::locale::classic());
    out.precision (std::numeric_limits<float>::max_digits10);
    out << "<Veltra><Tune ChannelCount=\"" << channels.size() << "\" ProjectName=\"" << project << "\" Technology=\""
        << technology << "\">";

    for (const auto& channel : channels)
    {
        out << "<Channel Name=\"" << channel.name << "\" Number=\"" << channel.number << "\" GaindB=\"" << channel.gain_dB
            << "\" Delayms=\"" << channel.delay_ms << "\" MaxFilterGaindB=\"" << channel.maxGain_dB << "\">";

        for (const auto& set : channel.sets)
            write (out, set);

        out << "</Channel>";
    }

    out << "</Tune></Veltra>";
    return out.str();
}

}
