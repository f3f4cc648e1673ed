// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace veltra::host {

/** A text as written inside a double-quoted XML attribute. Tabs and line ends become character references,
    since an XML reader would turn them into blanks.

    @param text  UTF-8
    @throws      Failure (kExitUsage) for a control character that XML cannot carry
*/
std::string escapedXml (std::string_view text);

}
