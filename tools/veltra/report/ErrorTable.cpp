// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/report/ErrorTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>

namespace veltra::host {

namespace {

constexpr double kQuietBand_dB = -60.0;
constexpr std::size_t kErrorWidth = 8, kOctaveWidth = 5;

std::string padded (const std::string& text, std::size_t width)
{
    return std::string (width - std::min (width, text.size()), ' ') + text;
}

/** A band's centre as it is commonly written: "31", "500", "2k". */
std::string octaveName (double centre_Hz)
{
    return centre_Hz >= 1000.0 ? fixedText (centre_Hz / 1000.0, 0) + "k" : fixedText (std::floor (centre_Hz), 0);
}

std::size_t widestOf (const std::string& heading, const std::vector<ErrorRow>& rows, auto&& textOf)
{
    std::size_t width = heading.size();

    for (const auto& row : rows)
        width = std::max<std::size_t> (width, textOf (row).size());

    return width;
}

void printError (std::ostream& stream, const dsp::ResponseError& error)
{
    if (error.isSilent)
    {
        stream << padded ("silence", kErrorWidth);
        return;
    }

    if (error.overall_dB == -HUGE_VAL)
    {
        stream << padded ("exact", kErrorWidth);
        return;
    }

    stream << padded (fixedText (error.overall_dB, 1), kErrorWidth) << "  ";

    for (const auto& octave : error.octaves)
        stream << padded (octave.level_dB < kQuietBand_dB ? "." : fixedText (octave.error_dB, 0), kOctaveWidth);
}

}

const char* const kErrorLegend =
    "Errors are in dB relative to the filter, over all and by octave; a dot where the filter has less than a millionth "
    "of its energy.\n";

std::string fixedText (double value, int decimals)
{
    char text[64];
    std::snprintf (text, sizeof (text), "%.*f", decimals, value);
    const bool isNegativeZero =
        text[0] == '-' && std::string_view (text).find_first_of ("123456789in") == std::string_view::npos;
    return isNegativeZero ? text + 1 : text;
}

void printErrors (std::ostream& stream, const std::vector<std::string>& headings, const std::vector<ErrorRow>& rows)
{
    if (rows.empty())
        return;

    const auto nameWidth = widestOf (
        "channel", rows, [](const auto& row) -> auto& { return row.channel; });
    std::vector<std::size_t> widths;
    stream << "channel" << padded ("", nameWidth - 7);

    for (std::size_t i = 0; i < headings.size(); ++i)
    {
        widths.push_back (2
                          + widestOf (
                              headings[i], rows, [i](const auto& row) -> auto& { return row.details[i]; }));
        stream << padded (headings[i], widths[i]);
    }

    stream << padded ("error", kErrorWidth) << "  ";

    for (const auto& octave : rows.front().error.octaves)
        stream << padded (octaveName (octave.centre_Hz), kOctaveWidth);

    stream << '\n';

    for (const auto& row : rows)
    {
        stream << row.channel << padded ("", nameWidth - row.channel.size());

        for (std::size_t i = 0; i < widths.size(); ++i)
            stream << padded (row.details[i], widths[i]);

        printError (stream, row.error);
        stream << '\n';
    }
}

Json objectOf (const dsp::ResponseError& error)
{
    auto octaves = Json::array();

    for (const auto& octave : error.octaves)
        octaves.push_back (
            { { "centre_Hz", octave.centre_Hz }, { "error_dB", octave.error_dB }, { "level_dB", octave.level_dB } });

    return { { "silent", error.isSilent },
             { "exact", error.overall_dB == -HUGE_VAL },
             { "overall_dB", error.overall_dB },
             { "octaves", std::move (octaves) } };
}

}
