// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/FaultScript.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>

#include "tools/receiver/device/Messages.h"
#include "tools/receiver/device/ProtoText.h"

namespace veltra::receiver {

namespace {

using Action = Fault::Action;

/** How a fault is written. Each letter of `arguments` is one argument, those after "?" are optional:
    t text, b bytes or times, p pause in ms, m name of a message, f its fields in text form. */
struct Form
{
    std::string_view name;
    Action action;
    std::string_view arguments;
    std::string_view meaning;
};

constexpr std::array<Form, 14> kForms { {
    { "refuse", Action::refuse, "?t", "not carried out, answered by a refusal with TEXT" },
    { "lose", Action::lose, "", "not carried out, not answered" },
    { "lose-reply", Action::loseReply, "", "carried out, not answered" },
    { "delay", Action::delay, "p", "the reply is sent after MS milliseconds" },
    { "wrong-checksum", Action::wrongChecksum, "", "the reply's checksum is wrong" },
    { "wrong-length", Action::wrongLength, "b", "the reply's envelope announces N bytes more than it has" },
    { "noise", Action::noise, "b", "N bytes of noise before the reply" },
    { "pieces", Action::pieces, "b?p", "the reply is sent in pieces of N bytes, MS milliseconds apart" },
    { "close", Action::close, "?b", "the connection is closed after N bytes of the reply" },
    { "reset", Action::reset, "?b", "the connection is reset after N bytes of the reply" },
    { "answer", Action::answer, "m?f", "answered by another MESSAGE with FIELDS in protobuf's text form" },
    { "duplicate", Action::duplicate, "?b", "the reply is sent twice, or N times" },
    { "truncate", Action::truncate, "b", "only N bytes of the reply's body" },
    { "limit", Action::limit, "b", "from now on envelopes above N bytes are refused, 0 for no limit" },
} };

/** Quotes where an argument needs them as soon as it contains blanks. */
std::string_view argumentName (char kind)
{
    switch (kind)
    {
        case 't': return "'TEXT'";
        case 'b': return "N";
        case 'p': return "MS";
        case 'm': return "MESSAGE";
        default: return "'FIELDS'";
    }
}

std::string usage (const Form& form)
{
    std::string text { form.name };
    text += " TYPE WHICH";
    bool isOptional = false;

    for (const char kind : form.arguments)
    {
        const std::string name { argumentName (kind) };

        if (kind == '?')
            isOptional = true;
        else
            text += isOptional ? " [" + name + "]" : " " + name;
    }

    return text;
}

std::string generalUsage()
{
    std::string text = "\"NAME TYPE WHICH ARGUMENTS\" with one of these names:";

    for (const auto& form : kForms)
        text += " " + std::string (form.name);

    return text;
}

/** What is wrong with a line. */
struct Mistake
{
    std::string text;
};

struct Words
{
    std::vector<std::string> list;
    bool isQuoteOpen = false; ///< the last word has no closing quote
};

/** Splits a line at blanks. Blanks and "#" between quotes of either kind are part of a word; another "#" ends the
    line. */
Words split (std::string_view line)
{
    Words words;

    for (std::size_t i = 0; i < line.size() && line[i] != '#';)
    {
        if (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')
        {
            ++i;
        }
        else if (line[i] == '\'' || line[i] == '"')
        {
            const auto end = line.find (line[i], i + 1);
            words.isQuoteOpen = end == std::string_view::npos;
            words.list.emplace_back (line.substr (i + 1, words.isQuoteOpen ? end : end - i - 1));
            i = words.isQuoteOpen ? line.size() : end + 1;
        }
        else
        {
            const auto end = std::min (line.find_first_of (" \t\r#", i), line.size());
            words.list.emplace_back (line.substr (i, end - i));
            i = end;
        }
    }

    return words;
}

std::uint32_t readNumber (std::string_view text, std::string_view what)
{
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars (text.data(), text.data() + text.size(), value);

    if (error != std::errc {} || end != text.data() + text.size())
        throw Mistake { "\"" + std::string (text) + "\" is not a number for " + std::string (what) };

    return value;
}

/** WHICH: "3", "3-5", "3+" or "*". */
void readOccurrences (const std::string& which, Fault& fault)
{
    std::string_view first = which;

    if (which == "*")
    {
        fault.last = Fault::kForEver;
        return;
    }

    if (first.ends_with ('+'))
    {
        first.remove_suffix (1);
        fault.last = Fault::kForEver;
    }
    else if (const auto dash = first.find ('-'); dash != std::string_view::npos)
    {
        fault.last = readNumber (first.substr (dash + 1), "WHICH");
        first = first.substr (0, dash);
    }
    else
    {
        fault.last = readNumber (first, "WHICH");
    }

    fault.first = readNumber (first, "WHICH");

    if (fault.first == 0 || fault.last < fault.first)
        throw Mistake { "\"" + which + "\" is not a WHICH: 3, 3-5, 3+ or *, counted from 1" };
}

bool contains (const std::vector<std::string_view>& names, std::string_view name)
{
    return std::find (names.begin(), names.end(), name) != names.end();
}

void checkType (const Fault& fault)
{
    using enum Fault::Action;
    const auto among = [&] (std::initializer_list<Action> actions) {
        return std::find (actions.begin(), actions.end(), fault.action) != actions.end();
    };

    if (fault.type != "*" && fault.type != "AudioData" && fault.type != "connect"
        && ! contains (hostMessages(), fault.type) && ! contains (requestNames(), fault.type))
        throw Mistake { "\"" + fault.type
                        + "\" is not a TYPE: a message of a host (FilterDataChunk), a kind of request (GetVolume), *, "
                          "AudioData or connect" };

    if ((fault.type == "connect" && ! among ({ delay, noise, close, reset }))
        || (fault.type == "AudioData" && among ({ refuse, answer, limit })))
        throw Mistake { "\"" + std::string (actionName (fault.action)) + "\" does not apply to " + fault.type };
}

/** Without FIELDS the answer is an empty message, even if the message has required fields. */
void readAnswer (const std::string& fields, Fault& fault)
{
    const auto message = createMessage (fault.text);
    std::string error;

    if (message == nullptr)
        throw Mistake { "\"" + fault.text + "\" is not a message" };

    if (! fields.empty() && ! readText (fields, *message, error))
        throw Mistake { "the FIELDS of " + fault.text + ": " + error };

    fault.body = message->SerializePartialAsString();
}

void readArguments (const Form& form, const std::vector<std::string>& arguments, Fault& fault)
{
    std::string fields;
    std::size_t next = 0;
    bool isOptional = false;

    for (const char kind : form.arguments)
    {
        if (kind == '?')
        {
            isOptional = true;
            continue;
        }

        if (next == arguments.size())
        {
            if (! isOptional)
                throw Mistake { std::string (argumentName (kind)) + " is missing" };

            break;
        }

        const auto& argument = arguments[next++];

        switch (kind)
        {
            case 'b': fault.bytes = readNumber (argument, "N"); break;
            case 'p': fault.pause = std::chrono::milliseconds (readNumber (argument, "MS")); break;
            case 'f': fields = argument; break;
            default: fault.text = argument; break;
        }
    }

    if (next != arguments.size())
        throw Mistake { "\"" + arguments[next] + "\" is one argument too many" };

    if (fault.action == Action::answer)
        readAnswer (fields, fault);

    if (fault.action == Action::pieces && fault.bytes == 0)
        throw Mistake { "N is 0" };
}

/** @param expected  receives the form that the line should have
    @returns         nothing for a line without a fault */
std::optional<Fault> readLine (std::string_view line, std::string& expected)
{
    const auto [words, isQuoteOpen] = split (line);

    if (words.empty())
        return {};

    const auto* form =
        std::find_if (kForms.begin(), kForms.end(), [&name = words[0]] (const auto& f) { return f.name == name; });
    expected = form != kForms.end() ? "\"" + usage (*form) + "\"" : generalUsage();

    if (isQuoteOpen)
        throw Mistake { "a quote is not closed" };

    if (form == kForms.end())
        throw Mistake { "\"" + words[0] + "\" is not a fault" };

    if (words.size() < 3)
        throw Mistake { words.size() < 2 ? "TYPE is missing" : "WHICH is missing" };

    Fault fault;
    fault.action = form->action;
    fault.type = words[1];
    checkType (fault);
    readOccurrences (words[2], fault);
    readArguments (*form, { words.begin() + 3, words.end() }, fault);
    return fault;
}

}

std::optional<std::vector<Fault>> parseFaults (std::string_view text, std::string& error)
{
    std::vector<Fault> faults;
    const bool hasLines = text.find ('\n') != std::string_view::npos;

    for (int number = 1; ! text.empty(); ++number)
    {
        const auto line = text.substr (0, text.find ('\n'));
        text.remove_prefix (std::min (line.size() + 1, text.size()));
        std::string expected;

        try
        {
            if (auto fault = readLine (line, expected))
                faults.push_back (std::move (*fault));
        }
        catch (const Mistake& mistake)
        {
            error =
                (hasLines ? "line " + std::to_string (number) + ": " : "") + mistake.text + "; expected " + expected;
            return {};
        }
    }

    return faults;
}

std::string_view actionName (Fault::Action action)
{
    return std::find_if (kForms.begin(), kForms.end(), [&] (const auto& form) { return form.action == action; })->name;
}

std::string faultHelp()
{
    std::ostringstream help;

    for (const auto& form : kForms)
    {
        auto line = "  " + usage (form);
        line.resize (std::max<std::size_t> (line.size() + 1, 40), ' ');
        help << line << form.meaning << '\n';
    }

    return help.str();
}

}
