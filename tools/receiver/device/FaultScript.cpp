// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/FaultScript.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>

#include "protocol/TextForm.h"
#include "tools/receiver/device/Messages.h"

namespace veltra::receiver {

namespace {

using Action = Fault::Action;

/** How a fault is written. Each letter of `arguments` is one argument, those behind "?" may be left out:
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
    { "delay", Action::delay, "p", "the reply leaves after MS milliseconds" },
    { "wrong-checksum", Action::wrongChecksum, "", "the reply's checksum is wrong" },
    { "wrong-length", Action::wrongLength, "b", "the reply's envelope promises N bytes more than it has" },
    { "noise", Action::noise, "b", "N bytes of noise before the reply" },
    { "pieces", Action::pieces, "b?p", "the reply leaves in pieces of N bytes, MS milliseconds apart" },
    { "close", Action::close, "?b", "the connection is closed after N bytes of the reply" },
    { "reset", Action::reset, "?b", "the connection is reset after N bytes of the reply" },
    { "answer", Action::answer, "m?f", "answered by another MESSAGE with FIELDS in protobuf's text form" },
    { "duplicate", Action::duplicate, "?b", "the reply is sent twice, or N times" },
    { "truncate", Action::truncate, "b", "only N bytes of the reply's body" },
    { "limit", Action::limit, "b", "from now on envelopes above N bytes are refused, 0 for no limit" },
} };

std::string_view argumentName (char kind)
{
    switch (kind)
    {
        case 't': return "TEXT";
        case 'b': return "N";
        case 'p': return "MS";
        case 'm': return "MESSAGE";
        default: return "FIELDS";
    }
}

std::string usage (const Form& form)
{
    std::string text { form.name };
    text += " TYPE WHICH";
    bool optional = false;

    for (const char kind : form.arguments)
    {
        if (kind == '?')
            optional = true;
        else
            text +=
                std::string (" ") + (optional ? "[" : "") + std::string (argumentName (kind)) + (optional ? "]" : "");
    }

    return text;
}

/** What is wrong with a line, in words. */
struct Mistake
{
    std::string text;
};

/** Words of a line, cut at blanks; quotes of either kind keep blanks, and "#" outside of them ends the line. */
std::vector<std::string> words (std::string_view line)
{
    std::vector<std::string> result;

    for (std::size_t i = 0; i < line.size();)
    {
        if (line[i] == '#')
            break;

        if (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')
        {
            ++i;
        }
        else if (line[i] == '\'' || line[i] == '"')
        {
            const auto end = line.find (line[i], i + 1);

            if (end == std::string_view::npos)
                throw Mistake { "a quote is not closed" };

            result.emplace_back (line.substr (i + 1, end - i - 1));
            i = end + 1;
        }
        else
        {
            const auto end = std::min (line.find_first_of (" \t\r#", i), line.size());
            result.emplace_back (line.substr (i, end - i));
            i = end;
        }
    }

    return result;
}

std::uint32_t readNumber (std::string_view text, std::string_view what)
{
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars (text.data(), text.data() + text.size(), value);

    if (error != std::errc {} || end != text.data() + text.size())
        throw Mistake { "\"" + std::string (text) + "\" is no number for " + std::string (what) };

    return value;
}

/** WHICH: "3", "3-5", "3+" or "*". */
void readOccurrences (std::string_view text, Fault& fault)
{
    if (text == "*")
    {
        fault.last = Fault::kForEver;
        return;
    }

    if (text.ends_with ('+'))
    {
        text.remove_suffix (1);
        fault.last = Fault::kForEver;
    }
    else if (const auto dash = text.find ('-'); dash != std::string_view::npos)
    {
        fault.last = readNumber (text.substr (dash + 1), "WHICH");
        text = text.substr (0, dash);
    }
    else
    {
        fault.last = readNumber (text, "WHICH");
    }

    fault.first = readNumber (text, "WHICH");

    if (fault.first == 0 || fault.last < fault.first)
        throw Mistake { "WHICH counts from 1: \"3\", \"3-5\", \"3+\" or \"*\"" };
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
        throw Mistake { "\"" + fault.type + "\" is no message of a host" };

    if ((fault.type == "connect" && ! among ({ delay, noise, close, reset }))
        || (fault.type == "AudioData" && among ({ refuse, answer, limit })))
        throw Mistake { "\"" + std::string (actionName (fault.action)) + "\" does not apply to " + fault.type };
}

/** Without fields the answer is the bare message, also where that lacks required ones. */
void readAnswer (const std::string& fields, Fault& fault)
{
    const auto message = createMessage (fault.text);
    std::string error;

    if (message == nullptr)
        throw Mistake { "\"" + fault.text + "\" is no message" };

    if (! fields.empty() && ! veltraio::fromText (fields, *message, error))
        throw Mistake { "the fields of " + fault.text + ": " + error };

    fault.body = message->SerializePartialAsString();
}

void readArguments (const Form& form, const std::vector<std::string>& arguments, Fault& fault)
{
    std::string fields;
    std::size_t next = 0;
    bool optional = false;

    for (const char kind : form.arguments)
    {
        if (kind == '?')
        {
            optional = true;
            continue;
        }

        if (next == arguments.size())
        {
            if (! optional)
                throw Mistake { "too few words for \"" + usage (form) + "\"" };

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
        throw Mistake { "too many words for \"" + usage (form) + "\"" };

    if (fault.action == Action::answer)
        readAnswer (fields, fault);

    if (fault.action == Action::pieces && fault.bytes == 0)
        throw Mistake { "pieces of 0 bytes" };
}

Fault readFault (const std::vector<std::string>& line)
{
    const auto form = std::find_if (kForms.begin(), kForms.end(), [&] (const auto& f) { return f.name == line[0]; });

    if (form == kForms.end())
        throw Mistake { "\"" + line[0] + "\" is no fault" };

    if (line.size() < 3)
        throw Mistake { "too few words for \"" + usage (*form) + "\"" };

    Fault fault;
    fault.action = form->action;
    fault.type = line[1];
    checkType (fault);
    readOccurrences (line[2], fault);
    readArguments (*form, { line.begin() + 3, line.end() }, fault);
    return fault;
}

}

std::optional<std::vector<Fault>> parseFaults (std::string_view text, std::string& error)
{
    std::vector<Fault> faults;

    for (int number = 1; ! text.empty(); ++number)
    {
        const auto line = text.substr (0, text.find ('\n'));
        text.remove_prefix (std::min (line.size() + 1, text.size()));

        try
        {
            if (const auto parts = words (line); ! parts.empty())
                faults.push_back (readFault (parts));
        }
        catch (const Mistake& mistake)
        {
            error = "line " + std::to_string (number) + ": " + mistake.text;
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
        line.resize (std::max<std::size_t> (line.size() + 1, 38), ' ');
        help << line << form.meaning << '\n';
    }

    return help.str();
}

void FaultInjector::set (std::vector<Fault> faults)
{
    const std::scoped_lock guard (lock);
    rules.clear();

    for (auto& fault : faults)
        rules.push_back ({ std::move (fault) });
}

void FaultInjector::add (Fault fault)
{
    const std::scoped_lock guard (lock);
    rules.push_back ({ std::move (fault) });
}

std::vector<Fault> FaultInjector::next (const std::vector<std::string_view>& names)
{
    const std::scoped_lock guard (lock);
    std::vector<Fault> applying;

    for (auto& rule : rules)
    {
        if (std::find (names.begin(), names.end(), rule.fault.type) == names.end())
            continue;

        if (rule.seen < Fault::kForEver)
            ++rule.seen;

        if (rule.seen >= rule.fault.first && rule.seen <= std::max (rule.fault.first, rule.fault.last))
            applying.push_back (rule.fault);
    }

    return applying;
}

}
