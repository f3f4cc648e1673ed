// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace veltra {

/** Adds the option --completion, which prints the completion of a program's commands and options for a shell and ends the
    program. Call it when all commands and options have been added. */
void addCompletionOption (CLI::App& program);

/** The completion for "bash", "zsh" or "fish". Options whose value is a FILE, DIR or WAV are completed with files, those with
    another value with nothing. */
std::string completionFor (const CLI::App& program, const std::string& shell);

}
