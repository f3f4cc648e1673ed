// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <charconv>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dsp/FIIRSection.h"

namespace veltra::test {

/** A number as text that reads back as the same float. */
inline std::string text (float value)
{
    char buffer[32];
    return { buffer, std::to_chars (buffer, buffer + sizeof buffer, value).ptr };
}

/** Numbers as the list of a filter description: parted by blanks. */
inline std::string list (std::span<const float> values)
{
    std::string result;

    for (const float value : values)
        result += (result.empty() ? "" : " ") + text (value);

    return result;
}

/** Makes filter descriptions for tests, element by element:

        const auto xml = DescriptionBuilder ("Living room")
                             .channel ("FL", 1, R"(GaindB="-3")")
                             .fir (48000, { 1.0f, 0.5f })
                             .channel ("FR", 2)
                             .fiir (48000, { 1.0f }, { { -1.8f, 0.81f, 0.1f, 0.0f } }, "Delay=48")
                             .text();

    Attributes go into the text unchanged, so a test can put anything there.
*/
class DescriptionBuilder
{
public:
    explicit DescriptionBuilder (std::string_view projectName = "Test", std::string_view technology = "FIIR")
        : DescriptionBuilder (
            Raw { "ProjectName=\"" + std::string (projectName) + "\" Technology=\"" + std::string (technology) + "\"" })
    {
    }

    /** With these attributes of the header and no others. */
    static DescriptionBuilder withHeader (std::string_view attributes)
    {
        return DescriptionBuilder (Raw { std::string (attributes) });
    }

    /** Begins a channel; `number` counts from 1. */
    DescriptionBuilder& channel (std::string_view name, int number, std::string_view attributes = {})
    {
        return rawChannel ("Name=\"" + std::string (name) + "\" Number=\"" + std::to_string (number) + "\" "
                           + std::string (attributes));
    }

    /** Begins a channel with these attributes and no others. */
    DescriptionBuilder& rawChannel (std::string_view attributes)
    {
        endChannel();
        xml += "<Channel " + std::string (attributes) + ">";
        inChannel = true;
        return *this;
    }

    /** Adds a coefficient set of topology FIR to the channel. */
    DescriptionBuilder& fir (int rate, const std::vector<float>& taps, std::string_view extra = {},
                             bool minPhase = false)
    {
        return raw (open ("FIR", rate, minPhase) + tapsElement (taps) + extraElement (extra) + "</Coefficients>");
    }

    /** Adds a coefficient set of topology FIIR to the channel. */
    DescriptionBuilder& fiir (int rate, const std::vector<float>& taps, const std::vector<dsp::FIIRSection>& sections,
                              std::string_view extra = {}, bool minPhase = false)
    {
        std::string iir = "<IIR NbrOfSections=\"" + std::to_string (sections.size()) + "\">";

        for (const auto& s : sections)
        {
            const float values[] { s.a1, s.a2, s.b0, s.b1 };
            iir += "<section>" + list (values) + "</section>";
        }

        return raw (open ("FIIR", rate, minPhase) + tapsElement (taps) + iir + "</IIR>" + extraElement (extra)
                    + "</Coefficients>");
    }

    /** Adds any text at this place. */
    DescriptionBuilder& raw (std::string_view anything)
    {
        xml += anything;
        return *this;
    }

    /** The finished description. */
    std::string text() const { return xml + (inChannel ? "</Channel>" : "") + "</Tune></Veltra>"; }

private:
    struct Raw
    {
        std::string attributes;
    };

    explicit DescriptionBuilder (const Raw& header)
        : xml ("<?xml version=\"1.0\"?>\n<Veltra><Tune " + header.attributes + ">")
    {
    }

    static std::string open (std::string_view topology, int rate, bool minPhase)
    {
        return "<Coefficients Topology=\"" + std::string (topology) + "\" Fs=\"" + std::to_string (rate) + "\""
               + (minPhase ? " MinPhase=\"1\"" : "") + ">";
    }

    static std::string tapsElement (std::span<const float> taps)
    {
        return "<FIR NbrOfTaps=\"" + std::to_string (taps.size()) + "\"><taps>" + list (taps) + "</taps></FIR>";
    }

    static std::string extraElement (std::string_view extra)
    {
        return extra.empty() ? std::string {} : "<Extra>" + std::string (extra) + "</Extra>";
    }

    void endChannel()
    {
        if (inChannel)
            xml += "</Channel>";

        inChannel = false;
    }

    std::string xml;
    bool inChannel = false;
};

}
