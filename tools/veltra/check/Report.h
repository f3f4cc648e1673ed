// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <vector>

#include "tools/output/Json.h"
#include "tools/veltra/check/Check.h"

namespace veltra::check {

/** One check for a person: a line, and three more when it failed. */
std::string lineOf (const Result& result);

/** The same for a script, and how many checks ended how. */
Json objectOf (const Result& result);
Json summaryObject (const std::vector<Result>& results, const std::string& address);

/** How many checks ended how, on one line. */
std::string summaryOf (const std::vector<Result>& results);

/** The results as JUnit's XML, a testsuite for each level, and as one object of JSON. All texts are UTF-8. */
std::string junitOf (const std::vector<Result>& results, const std::string& address);
std::string jsonOf (const std::vector<Result>& results, const std::string& address);

}
