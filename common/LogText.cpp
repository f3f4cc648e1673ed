#include "common/LogText.h"

#include <cstdio>

#include "common/Utf8.h"

namespace veltra {

namespace {

void appendEscape (std::string& line, const char* format, unsigned value)
{
    char escape[8];
    std::snprintf (escape, sizeof (escape), format, value);
    line += escape;
}

}

std::string logText (std::string_view text, std::size_t limit)
{
    const auto valid = toValidUtf8 (text.substr (0, limit));
    std::string line;
    line.reserve (valid.size());

    for (std::size_t i = 0; i < valid.size(); ++i)
    {
        const auto byte = static_cast<unsigned char> (valid[i]);
        const auto next = i + 1 < valid.size() ? static_cast<unsigned char> (valid[i + 1]) : 0u;

        if (byte == '\n')
            line += "\\n";
        else if (byte == '\r')
            line += "\\r";
        else if (byte == '\t')
            line += "\\t";
        else if (byte < 0x20 || byte == 0x7f)
            appendEscape (line, "\\x%02x", byte);
        else if (byte == 0xc2 && next < 0xa0)
        {
            // U+0080 to U+009F, which terminals take for commands as well.
            appendEscape (line, "\\u%04x", next);
            ++i;
        }
        else
            line += valid[i];
    }

    return text.size() > limit ? line + "..." : line;
}

}
