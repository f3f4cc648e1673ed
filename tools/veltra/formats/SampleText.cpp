// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/formats/SampleText.h"

#include <cmath>
#include <sstream>
#include <string>

#include "common/Text.h"
#include "tools/ExitStatus.h"
#include "tools/veltra/filters/TextFile.h"
#include "tools/veltra/session/StrictNumber.h"

namespace veltra::host {

namespace {

constexpr std::size_t kMostSamples = 1u << 26;

}

SampleText readSampleText (const std::filesystem::path& file)
{
    const auto text = readTextFile (file);
    std::istringstream lines (text);
    SampleText result;
    std::optional<double> length;
    double peak = 1.0;
    bool isNormalised = false;
    int lineNumber = 0;

    const auto refuse = [&] (std::string_view found, const char* expected) {
        return Failure (kExitInput, file.string() + ", line " + std::to_string (lineNumber) + ": found '"
                                        + logText (found, 60) + "'; expected " + expected + ".");
    };

    for (std::string content; std::getline (lines, content);)
    {
        ++lineNumber;

        if (lineNumber == 1 && content.starts_with ("\xef\xbb\xbf"))
            content.erase (0, 3);

        const auto line = trimmed (content);

        if (line.empty() || line.front() == '#' || line.front() == '*')
        {
            isNormalised = isNormalised || line == "* IR is normalised";

            if (line == "* IR window has been applied" || line == "* IR is the min phase version")
                throw refuse (line, "the response without a window and with its own phase");

            continue;
        }

        const auto mark = line.find ("//");
        auto word = trimmed (line.substr (0, mark));

        if (word.starts_with ('+'))
            word.remove_prefix (1);

        const auto value = strictNumber<double> (word);

        if (! value || std::abs (*value) > 3e38)
            throw refuse (line, "one number");

        const auto name = mark == line.npos ? std::string_view() : trimmed (line.substr (mark + 2));

        if (name.starts_with ("Sample interval"))
        {
            if (! (*value > 0.0))
                throw refuse (line, "an interval above 0");

            result.sampleRate = 1.0 / *value;
        }
        else if (name.starts_with ("Start time"))
        {
            result.start_s = *value;
        }
        else if (name.starts_with ("Response length"))
        {
            length = *value;
        }
        else if (name.starts_with ("Peak value"))
        {
            peak = *value;
        }
        else if (mark == line.npos)
        {
            result.samples.push_back (static_cast<float> (*value));
        }

        if (result.samples.size() > kMostSamples)
            throw refuse (line, "no more than 67108864 samples");
    }

    if (result.samples.empty())
        throw Failure (kExitInput, file.string() + " holds no samples.");

    if (length && *length != static_cast<double> (result.samples.size()))
        throw Failure (kExitInput, file.string() + " holds " + std::to_string (result.samples.size())
                                       + " samples and says that it has " + std::to_string (std::lround (*length))
                                       + ".");

    if (isNormalised)
        for (auto& sample : result.samples)
            sample = static_cast<float> (peak * static_cast<double> (sample));

    return result;
}

}
