// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/check/Report.h"

#include <algorithm>
#include <cstdio>

#include "common/Text.h"

namespace veltra::check {

namespace {

const char* wordOf (Outcome outcome)
{
    return outcome == Outcome::passed ? "passed" : outcome == Outcome::failed ? "failed" : "skipped";
}

std::size_t count (const std::vector<Result>& results, Outcome outcome)
{
    return static_cast<std::size_t> (std::ranges::count (results, outcome, &Result::outcome));
}

std::string secondsText (double seconds)
{
    char text[32];
    std::snprintf (text, sizeof (text), "%.3f", seconds);
    return text;
}

/** A text in double quotes of XML. Control characters have been escaped by logText. */
std::string xml (const std::string& text)
{
    std::string result = "\"";

    for (const char c : logText (text))
        switch (c)
        {
            case '<': result += "&lt;"; break;
            case '&': result += "&amp;"; break;
            case '"': result += "&quot;"; break;
            default: result += c;
        }

    return result + "\"";
}

std::string sentenceOf (const Finding& finding)
{
    return "sent " + finding.sent + "; expected " + finding.expected + "; came " + finding.came;
}

}

std::string lineOf (const Result& result)
{
    char start[80];
    std::snprintf (start, sizeof (start), "%-8s %d  %-38s", wordOf (result.outcome), result.check->level,
                   result.check->name);
    std::string text = start;

    if (result.outcome == Outcome::skipped)
        return text + "  " + logText (result.reason) + "\n";

    text += " " + secondsText (result.seconds) + " s\n";

    if (result.outcome == Outcome::failed)
        text += "            sent       " + logText (result.finding.sent) + "\n            expected   "
                + logText (result.finding.expected) + "\n            came       " + logText (result.finding.came)
                + "\n            see        docs/wire-format.md, \"" + result.check->section + "\"\n";

    return text;
}

Json objectOf (const Result& result)
{
    Json object { { "name", result.check->name },
                  { "level", result.check->level },
                  { "section", result.check->section },
                  { "outcome", wordOf (result.outcome) },
                  { "seconds", result.seconds } };

    if (result.outcome == Outcome::failed)
        object.update ({ { "sent", result.finding.sent },
                         { "expected", result.finding.expected },
                         { "came", result.finding.came } });
    else if (result.outcome == Outcome::skipped)
        object["reason"] = result.reason;

    return object;
}

std::string summaryOf (const std::vector<Result>& results)
{
    return std::to_string (results.size()) + " checks: " + std::to_string (count (results, Outcome::passed))
           + " passed, " + std::to_string (count (results, Outcome::failed)) + " failed, "
           + std::to_string (count (results, Outcome::skipped)) + " skipped.\n";
}

Json summaryObject (const std::vector<Result>& results, const std::string& address)
{
    return { { "address", address },
             { "passed", count (results, Outcome::passed) },
             { "failed", count (results, Outcome::failed) },
             { "skipped", count (results, Outcome::skipped) } };
}

std::string junitOf (const std::vector<Result>& results, const std::string& address)
{
    const auto counts = [] (const std::vector<Result>& some) {
        return " tests=\"" + std::to_string (some.size()) + "\" failures=\""
               + std::to_string (count (some, Outcome::failed)) + "\" errors=\"0\" skipped=\""
               + std::to_string (count (some, Outcome::skipped)) + "\"";
    };
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites name=" + xml ("veltra check " + address)
                       + counts (results) + ">\n";

    for (int level = 1; level <= 5; ++level)
    {
        std::vector<Result> some;
        std::ranges::copy_if (results, std::back_inserter (some),
                              [&] (const auto& one) { return one.check->level == level; });

        if (some.empty())
            continue;

        text += "  <testsuite name=\"level " + std::to_string (level) + "\"" + counts (some) + ">\n";

        for (const auto& one : some)
        {
            text += "    <testcase classname=\"receiver.level" + std::to_string (level)
                    + "\" name=" + xml (one.check->name) + " time=\"" + secondsText (one.seconds) + "\"";

            if (one.outcome == Outcome::passed)
                text += "/>\n";
            else if (one.outcome == Outcome::skipped)
                text += "><skipped message=" + xml (one.reason) + "/></testcase>\n";
            else
                text += "><failure type=" + xml (one.check->section) + " message=" + xml (sentenceOf (one.finding))
                        + "/></testcase>\n";
        }

        text += "  </testsuite>\n";
    }

    return text + "</testsuites>\n";
}

std::string jsonOf (const std::vector<Result>& results, const std::string& address)
{
    auto report = summaryObject (results, address);
    report["checks"] = Json::array();

    for (const auto& one : results)
        report["checks"].push_back (objectOf (one));

    return report.dump (2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}
