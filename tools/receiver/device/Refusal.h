// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <stdexcept>
#include <string>

namespace veltra::receiver {

/** Thrown by whatever carries out a message; its text goes back in an Acknowledge that is not ok. */
class Refusal : public std::runtime_error
{
public:
    explicit Refusal (const std::string& text) : std::runtime_error (text) {}
};

}
