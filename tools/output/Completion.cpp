// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/output/Completion.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <string_view>
#include <vector>

namespace veltra {

namespace {

using Options = std::vector<const CLI::Option*>;
using Commands = std::vector<const CLI::App*>;

constexpr std::array<std::string_view, 3> kFileTypes { "FILE", "DIR", "WAV" };

Options optionsOf (const CLI::App& app)
{
    return app.get_options (
        [] (const CLI::Option* option) { return option->nonpositional() && ! option->get_group().empty(); });
}

Commands commandsOf (const CLI::App& program)
{
    return program.get_subcommands ([] (const CLI::App*) { return true; });
}

/** With their dashes: "-o", "--output". */
std::vector<std::string> namesOf (const CLI::Option& option)
{
    std::vector<std::string> names;

    for (const auto& name : option.get_snames())
        names.push_back ("-" + name);

    for (const auto& name : option.get_lnames())
        names.push_back ("--" + name);

    return names;
}

bool takesValue (const CLI::Option& option)
{
    return option.get_items_expected_max() > 0 && option.get_type_size() > 0;
}

bool takesFile (const CLI::Option& option)
{
    return takesValue (option) && std::ranges::find (kFileTypes, option.get_type_name()) != kFileTypes.end();
}

/** The first line of a description, in single quotes of a shell. */
std::string quoted (const std::string& description)
{
    std::string text = "'";

    for (const char character : description.substr (0, description.find ('\n')))
        text += character == '\'' ? std::string ("'\\''") : std::string (1, character);

    return text + "'";
}

/** The names of the options of all commands that a condition holds for, joined for a pattern of `case`. */
template <typename Condition>
std::string patternOf (const CLI::App& program, Condition&& holds)
{
    std::vector<std::string> all;

    const auto take = [&] (const CLI::App& app) {
        for (const auto* const option : optionsOf (app))
            if (holds (*option))
                for (const auto& name : namesOf (*option))
                    if (std::ranges::find (all, name) == all.end())
                        all.push_back (name);
    };

    take (program);

    for (const auto* const command : commandsOf (program))
        take (*command);

    return all.empty() ? "''" : CLI::detail::join (all, "|");
}

std::string wordsOf (const CLI::App& app)
{
    std::vector<std::string> words;

    for (const auto* const option : optionsOf (app))
        for (const auto& name : namesOf (*option))
            words.push_back (name);

    return CLI::detail::join (words, " ");
}

std::string commandNames (const CLI::App& program, const std::string& separator)
{
    std::vector<std::string> names;

    for (const auto* const command : commandsOf (program))
        names.push_back (command->get_name());

    return CLI::detail::join (names, separator);
}

std::string functionName (const CLI::App& program)
{
    auto name = "_" + program.get_name();
    std::ranges::replace (name, '-', '_');
    return name;
}

std::string bash (const CLI::App& program)
{
    const auto function = functionName (program);
    auto text = function
                + " ()\n{\n"
                  "  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command= words i\n"
                  "  COMPREPLY=()\n";

    if (! commandsOf (program).empty())
        text += "  for ((i = 1; i < COMP_CWORD; i++)); do\n    case ${COMP_WORDS[i]} in\n      "
                + commandNames (program, "|") + ") command=${COMP_WORDS[i]}; break ;;\n    esac\n  done\n";

    text +=
        "  case $before in\n    " + patternOf (program, takesFile)
        + ")\n      compopt -o filenames 2>/dev/null\n"
          "      mapfile -t COMPREPLY < <(compgen -f -- \"$current\"); return ;;\n    "
        + patternOf (program, [] (const CLI::Option& option) { return takesValue (option) && ! takesFile (option); })
        + ") return ;;\n  esac\n  case $command in\n";

    for (const auto* const command : commandsOf (program))
        text +=
            "    " + command->get_name() + ") words=" + quoted (wordsOf (*command) + " " + wordsOf (program)) + " ;;\n";

    text += "    *) words=" + quoted (commandNames (program, " ") + " " + wordsOf (program)) + " ;;\n  esac\n";
    // A command's own arguments are files.
    return text
           + "  if [[ $current != -* && -n $command ]]; then\n"
             "    compopt -o filenames 2>/dev/null\n"
             "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
             "  else\n"
             "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
             "  fi\n}\ncomplete -F "
           + function + " " + program.get_name() + "\n";
}

/** An option for zsh's _arguments: {-o,--output}'[description]:file:_files'. */
std::string zshOption (const CLI::Option& option)
{
    const auto names = namesOf (option);
    auto description = option.get_description().substr (0, option.get_description().find ('\n'));

    for (const std::string special : { "[", "]", ":" })
        for (auto at = description.find (special); at != description.npos; at = description.find (special, at + 2))
            description.insert (at, "\\");

    const auto value = takesFile (option) ? ":file:_files" : takesValue (option) ? ":value: " : "";
    const auto alternatives = names.size() > 1 ? "{" + CLI::detail::join (names, ",") + "}" : names.front();
    return alternatives + quoted ("[" + description + "]" + value);
}

std::string zshArguments (const CLI::App& app)
{
    std::string text;

    for (const auto* const option : optionsOf (app))
        text += " \\\n      " + zshOption (*option);

    return text;
}

std::string zsh (const CLI::App& program)
{
    auto text =
        "#compdef " + program.get_name() + "\n\nlocal -a common commands\ncommon=(" + zshArguments (program) + "\n)\n";

    if (commandsOf (program).empty())
        return text + "_arguments $common '*:file:_files'\n";

    text += "commands=(\n";

    for (const auto* const command : commandsOf (program))
        text += "  " + quoted (command->get_name() + ":" + command->get_description()) + "\n";

    text += ")\nlocal word command=\nfor word in ${words[2,CURRENT-1]}; do\n  case $word in\n    "
            + commandNames (program, "|") + ") command=$word; break ;;\n  esac\ndone\ncase $command in\n";

    for (const auto* const command : commandsOf (program))
        text += "  " + command->get_name() + ")\n    _arguments $common" + zshArguments (*command)
                + " \\\n      '*:file:_files' ;;\n";

    return text
           + "  *)\n    _arguments $common '1: :->command'\n    [[ $state == command ]] && _describe command commands ;;\nesac\n";
}

std::string fishOptions (const CLI::App& app, const std::string& program, const std::string& condition)
{
    std::string text;

    for (const auto* const option : optionsOf (app))
    {
        text += "complete -c " + program + condition;

        for (const auto& name : option->get_snames())
            text += " -s " + name;

        for (const auto& name : option->get_lnames())
            text += " -l " + name;

        text += std::string (takesFile (*option)    ? " -r -F"
                             : takesValue (*option) ? " -x"
                                                    : "")
                + " -d " + quoted (option->get_description()) + "\n";
    }

    return text;
}

std::string fish (const CLI::App& program)
{
    const auto& name = program.get_name();
    auto text = fishOptions (program, name, "");

    for (const auto* const command : commandsOf (program))
    {
        text += "complete -c " + name + " -n __fish_use_subcommand -f -a " + command->get_name() + " -d "
                + quoted (command->get_description()) + "\n";
        text += fishOptions (*command, name, " -n '__fish_seen_subcommand_from " + command->get_name() + "'");
    }

    return text;
}

}

std::string completionFor (const CLI::App& program, const std::string& shell)
{
    return shell == "bash" ? bash (program) : shell == "zsh" ? zsh (program) : fish (program);
}

void addCompletionOption (CLI::App& program)
{
    program
        .add_option_function<std::string> (
            "--completion",
            [&program] (const std::string& shell) {
                std::cout << completionFor (program, shell);
                throw CLI::Success();
            },
            "Print the completion for a shell: bash, zsh or fish")
        ->check (CLI::IsMember ({ "bash", "zsh", "fish" }).description (""))
        ->type_name ("SHELL")
        ->trigger_on_parse();
}

}
