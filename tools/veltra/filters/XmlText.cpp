// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/filters/XmlText.h"

#include "tools/ExitStatus.h"

namespace veltra::host {

std::string escapedXml (std::string_view text)
{
    std::string escaped;
    escaped.reserve (text.size());

    for (const char c : text)
    {
        switch (c)
        {
            case '&': escaped += "&amp;"; break;
            case '<': escaped += "&lt;"; break;
            case '>': escaped += "&gt;"; break;
            case '"': escaped += "&quot;"; break;
            case '\'': escaped += "&apos;"; break;
            case '\t': escaped += "&#9;"; break;
            case '\n': escaped += "&#10;"; break;
            case '\r': escaped += "&#13;"; break;

            default:
                if (static_cast<unsigned char> (c) < 0x20)
                    throw Failure (kExitUsage, "A text holds a control character, which XML cannot carry.");

                escaped += c;
        }
    }

    return escaped;
}

}
