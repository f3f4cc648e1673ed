// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/output/Json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace veltra {

namespace {

std::ostream& nowhere()
{
    static std::ostream stream (nullptr);
    return stream;
}

}

OutputForm& outputForm() noexcept
{
    static OutputForm form;
    return form;
}

void printJson (std::string_view event, const Json& object)
{
    if (! outputForm().json)
        return;

    Json line { { "event", event } };
    line.update (object);
    const auto text = line.dump (-1, ' ', false, Json::error_handler_t::replace) + "\n";
    std::fwrite (text.data(), 1, text.size(), stdout);
    std::fflush (stdout);
}

void printResult (const Json& object, const std::string& text)
{
    printJson ("result", object);
    textOutput() << text << std::flush;
}

std::ostream& textOutput() { return outputForm().json ? nowhere() : std::cout; }

std::ostream& notes() { return outputForm().quiet ? nowhere() : std::cerr; }

Json shortNumber (float value)
{
    if (! std::isfinite (value))
        return nullptr;

    char text[32];
    const auto end = std::to_chars (text, text + sizeof (text), value).ptr;
    double number = 0.0;
    std::from_chars (text, end, number);
    return number;
}

}
