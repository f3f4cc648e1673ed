// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

/** @file
    What the options --json and --quiet ask for. Results go to standard output, as text or, with --json, as one object a
    line; progress and notes go to standard error. docs/json.md lists the objects and their keys.

        printResult ({ { "slot", slot }, { "was_empty", false } }, "Slot " + std::to_string (slot) + " is empty now.\n");
*/

namespace veltra {

/** An object of a program's output, its keys in the order in which they were added. A number that is not finite is
    printed as null. */
using Json = nlohmann::ordered_json;

/** Set from the command line, before a command runs. */
struct OutputForm
{
    bool json = false;  ///< results as JSON, and no text for people on standard output
    bool quiet = false; ///< neither progress nor notes
};

OutputForm& outputForm() noexcept;

/** With --json: prints an object as one line on standard output, at once, with the key "event" in front. A command's
    last one is "result"; others are for what arrives while it works. Without --json nothing.
    @param object  its texts may hold anything; what is not UTF-8 is replaced */
void printJson (std::string_view event, const Json& object);

/** A command's result: the object as event "result" with --json, else the text. */
void printResult (const Json& object, const std::string& text);

/** Standard output for results that are long texts; with --json a stream that drops everything. */
std::ostream& textOutput();

/** Standard error; with --quiet a stream that drops everything. */
std::ostream& notes();

/** A 32-bit number with as few digits as tell it apart from its neighbours, and not with all of its value as a double. */
Json shortNumber (float value);

}
