// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/FilterDescription.h"

#include <charconv>
#include <ostream>

#include "common/Numbers.h"
#include "tools/output/OutputFile.h"
#include "tools/veltra/filters/XmlText.h"

namespace veltra::host {

namespace {

/** The fewest digits that read back as this float. */
class NumberText
{
public:
    explicit NumberText (float value)
    {
        write (value);

        // Digits that are just enough for a float can, rarely, round differently by way of double, which is how
        // these texts are read.
        if (static_cast<float> (toDouble (*this)) != value)
            write (static_cast<double> (value));
    }

    operator std::string_view() const noexcept { return { digits, length }; }

private:
    template <typename Number>
    void write (Number value)
    {
        length = static_cast<std::size_t> (std::to_chars (digits, digits + sizeof (digits), value).ptr - digits);
    }

    char digits[32];
    std::size_t length = 0;
};

void writeSections (std::ostream& stream, const std::vector<dsp::FIIRSection>& sections)
{
    stream << "        <IIR NbrOfSections=\"" << sections.size() << "\">\n";

    for (const auto& section : sections)
        stream << "          <section>" << std::string_view (NumberText (section.a1)) << " "
               << std::string_view (NumberText (section.a2)) << " " << std::string_view (NumberText (section.b0)) << " "
               << std::string_view (NumberText (section.b1)) << "</section>\n";

    stream << "        </IIR>\n";
}

void writeResponse (std::ostream& stream, const DescribedResponse& response)
{
    stream << "      <Coefficients Topology=\"" << (response.sections.empty() ? "FIR" : "FIIR") << "\" Fs=\""
           << response.sampleRate << "\" MinPhase=\"0\">\n"
           << "        <FIR NbrOfTaps=\"" << response.taps.size() << "\">\n          <taps>";

    std::string_view separator;

    for (const float tap : response.taps)
    {
        stream << separator << std::string_view (NumberText (tap));
        separator = " ";
    }

    stream << "</taps>\n        </FIR>\n";

    if (! response.sections.empty())
        writeSections (stream, response.sections);

    stream << "      </Coefficients>\n";
}

void writeChannel (std::ostream& stream, const DescribedChannel& channel)
{
    stream << "    <Channel Name=\"" << escapedXml (channel.name) << "\" Number=\"" << channel.number << "\" GaindB=\""
           << std::string_view (NumberText (channel.gain_dB)) << "\" Delayms=\""
           << std::string_view (NumberText (channel.delay_ms)) << "\" MaxFilterGaindB=\""
           << std::string_view (NumberText (channel.maxFilterGain_dB)) << "\" Subwoofer=\""
           << (channel.subwoofer ? 1 : 0) << "\">\n";

    for (const auto& response : channel.responses)
        writeResponse (stream, response);

    stream << "    </Channel>\n";
}

}

bool isSubwooferName (const std::string& channel)
{
    std::string letters = channel.substr (0, channel.find_last_not_of ("0123456789") + 1);

    for (char& letter : letters)
        if (letter >= 'a' && letter <= 'z')
            letter = static_cast<char> (letter - 'a' + 'A');

    return letters == "SW" || letters == "SUB" || letters == "LFE";
}

void writeFilterDescription (std::ostream& stream, const FilterDescription& description)
{
    stream << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Veltra>\n"
           << "  <Tune ChannelCount=\"" << description.channels.size() << "\" ProjectName=\""
           << escapedXml (description.project) << "\" Technology=\"" << escapedXml (description.technology)
           << "\" Creator=\"veltra import\">\n";

    for (const auto& channel : description.channels)
        writeChannel (stream, channel);

    stream << "  </Tune>\n</Veltra>\n";
}

void writeFilterDescription (const std::filesystem::path& file, const FilterDescription& description)
{
    OutputFile output (file);
    writeFilterDescription (output.stream(), description);
    output.complete();
}

}
