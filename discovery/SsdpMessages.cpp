// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/SsdpMessages.h"

#include <algorithm>
#include <utility>

#include "common/Log.h"
#include "common/Text.h"

namespace upnp {

namespace {

/** The headers of an answer that a search reads. All others are skipped, not stored: an answer may hold thousands. */
struct Headers
{
    std::string_view st, usn, location;

    explicit Headers (std::string_view answer) noexcept
    {
        while (! answer.empty())
        {
            // CRLF counts as two ends of line with an empty line between, which holds no header.
            const auto end = std::min (answer.find_first_of ("\r\n"), answer.size());
            readLine (answer.substr (0, end));
            answer.remove_prefix (std::min (end + 1, answer.size()));
        }
    }

private:
    void readLine (std::string_view line) noexcept
    {
        const auto colon = line.find (':');

        if (colon == line.npos)
            return;

        const auto name = veltra::trimmed (line.substr (0, colon));
        const auto value = veltra::trimmed (line.substr (colon + 1));

        if (veltra::equalsIgnoringCase (name, "ST"))
            st = value;
        else if (veltra::equalsIgnoringCase (name, "USN"))
            usn = value;
        else if (veltra::equalsIgnoringCase (name, "LOCATION"))
            location = value;
    }
};

}

std::string searchRequest (const juce::String& searchTarget, int maxWait_s)
{
    return std::string ("M-SEARCH * HTTP/1.1\r\n") + "HOST:" + multicastGroup + ":" + std::to_string (ssdpPort) + "\r\n"
           + "ST:" + searchTarget.toStdString() + "\r\n" + "MAN:\"ssdp:discover\"\r\n"
           + "MX:" + std::to_string (maxWait_s) + "\r\n";
}

AnswerReader::AnswerReader (const juce::String& target, Callback callback)
    : searchTarget (target.toStdString()),
      found (std::move (callback))
{
}

void AnswerReader::take (std::string_view datagram)
{
    pending += datagram;

    if (pending.size() > maximumPending)
        pending.erase (0, pending.size() - maximumPending);

    std::string_view rest = pending;

    for (;;)
    {
        const auto start = rest.find ("HTTP/1.1");

        if (start == rest.npos)
            break;

        const auto end = rest.find ("\r\n\r\n", start);

        if (end == rest.npos)
        {
            rest.remove_prefix (start);
            break;
        }

        VELTRA_LOG (TRACE, "Found start of HTTP response (@" << start << ")");
        takeAnswer (rest.substr (start, end - start));
        rest = veltra::trimmedStart (rest.substr (end));

        if (! rest.empty())
            VELTRA_LOG (TRACE, "UPnp buffer not empty yet...");
    }

    pending.erase (0, pending.size() - rest.size());
}

void AnswerReader::takeAnswer (std::string_view answer) const
{
    const Headers headers (answer);

    if (headers.st != searchTarget)
    {
        VELTRA_LOG (TRACE, "Search target " << searchTarget << " not found!");
        return;
    }

    const auto usn = veltra::juceText (headers.usn), location = veltra::juceText (headers.location);

    if (usn.isEmpty() || location.isEmpty()) // also for bytes that begin with NUL
    {
        VELTRA_LOG (TRACE, "USN or LOCATION not set (USN=" << veltra::logText (headers.usn, maximumValue)
                                                           << ", LOCATION="
                                                           << veltra::logText (headers.location, maximumValue) << ")");
        return;
    }

    if (headers.usn.size() > maximumValue || headers.location.size() > maximumValue)
    {
        VELTRA_LOG (TRACE, "USN or LOCATION longer than " << maximumValue << " bytes");
        return;
    }

    VELTRA_LOG (TRACE, "Location: " << veltra::logText (headers.location));

    if (! found)
    {
        VELTRA_LOG (ERROR, "No callback registered!!");
        return;
    }

    found (usn, location);
}

}
