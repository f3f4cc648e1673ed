// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/DeviceDescription.h"

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <string_view>

#include "common/Log.h"
#include "common/Text.h"
#include "common/Xml.h"
#include "discovery/HttpGet.h"

namespace upnp {

namespace {

constexpr const char* featuresUrn = "urn:schemas-frontier-silicon-com:ir-1-0";
constexpr const char* portUrn = "urn:schemas-veltra-lab:veltraio-1-0";

constexpr int maximumDepth = 64;
constexpr std::ptrdiff_t maximumTags = 4096; // opening and closing ones; ten times those of the longest descriptions

struct IgnoringCase
{
    bool operator() (const juce::String& a, const juce::String& b) const noexcept
    {
        return a.compareIgnoreCase (b) < 0;
    }
};

using Namespaces = std::map<juce::String, juce::String, IgnoringCase>;

std::string shown (const juce::String& text) { return veltra::logText (text.toStdString()); }

/** What the attributes of the root element declare, by prefix. */
Namespaces declaredNamespaces (const veltra::XmlNode& root)
{
    Namespaces namespaces;

    for (const auto* attribute = root.first_attribute(); attribute != nullptr; attribute = attribute->next_attribute())
    {
        const auto name = veltra::textOf (attribute->name(), attribute->name_size());

        if (! name.containsChar (':'))
            continue;

        if (const auto prefix = name.fromLastOccurrenceOf (":", false, false); prefix.isNotEmpty())
            namespaces[prefix] = veltra::textOf (attribute->value(), attribute->value_size());
    }

    return namespaces;
}

bool isTooLong (const juce::String& text)
{
    return text.getNumBytesAsUTF8() > static_cast<std::size_t> (maximumTextSize);
}

juce::String cut (const juce::String& text)
{
    if (! isTooLong (text))
        return text;

    auto end = text.getCharPointer();

    for (auto next = end; next.getAddress() - text.toRawUTF8() <= maximumTextSize; ++next)
        end = next;

    return juce::String (text.getCharPointer(), end);
}

/** The port in the text of either extension element, empty when the text is malformed. */
juce::String portOf (const juce::String& text, bool isFeatures)
{
    // The standard library's expressions recurse once a character: what is longer than any port is not matched.
    if (isTooLong (text))
        return {};

    if (! isFeatures)
        return text;

    static const std::regex pattern ("VeltraIO-([0-9]+)");
    const auto bytes = text.toStdString();
    std::smatch match;

    return std::regex_match (bytes, match, pattern) && match.size() == 2 ? juce::String (match[1].str())
                                                                         : juce::String();
}

}

bool readDescription (const juce::String& document, const juce::String& location, juce::String& address,
                      juce::String& friendlyName)
{
    const auto bytes = document.toStdString();
    const bool isBounded =
        std::count (bytes.begin(), bytes.end(), '<') <= maximumTags; // a tag may cost a line of the log
    const veltra::XmlDocument parsed (isBounded ? bytes : std::string(), maximumDepth);
    const auto* const root = parsed.root();

    if (root == nullptr)
    {
        VELTRA_LOG (WARN, "Failed getting device XML from " << shown (location));
        return false;
    }

    const auto* device = root->first_node ("device");

    if (device == nullptr)
    {
        VELTRA_LOG (WARN, "Failed getting device element");
        return false;
    }

    const auto namespaces = declaredNamespaces (*root);

    for (const auto* child = veltra::firstElement (*device); child != nullptr; child = veltra::nextElement (*child))
    {
        const auto tag = veltra::nameOf (*child);
        const auto local = tag.fromLastOccurrenceOf (":", false, false);
        const auto prefix = tag.upToFirstOccurrenceOf (":", false, false);

        if (local == "friendlyName")
        {
            friendlyName = cut (veltra::allText (*child).trim());
            continue;
        }

        const auto declared = prefix == local ? namespaces.end() : namespaces.find (prefix);

        if (declared == namespaces.end())
            continue;

        const bool isFeatures = local == "x_features" && declared->second == featuresUrn;
        const bool isPort = local == "x_port" && declared->second == portUrn;

        if (! isFeatures && ! isPort)
            continue;

        const auto text = veltra::allText (*child).trim();
        const auto port = portOf (text, isFeatures);

        if (port.isEmpty() && (isFeatures || text.isNotEmpty()))
        {
            VELTRA_LOG (WARN, "VeltraIO extension tag malformed, '"
                                  << veltra::logText (text.toStdString(), maximumTextSize) << "'");
            continue;
        }

        VELTRA_LOG (INFO, "Found VeltraIO protocol handler");
        address = "TCP:" + juce::URL (location).getDomain() + ":" + port;
        return true;
    }

    VELTRA_LOG (INFO, "Not a VeltraIO device!");
    VELTRA_LOG (TRACE, "Failed to find VeltraIO extension tag: XML = " << shown (document));
    return false;
}

bool getDeviceInfo (const juce::String& location, juce::String& address, juce::String& friendlyName,
                    const std::function<bool()>& shouldStop, bool mayUseLoopback)
{
    VELTRA_LOG (DEBUG, "Getting device XML from " << shown (location));

    const HttpLimits limits { .mayUseLoopback = mayUseLoopback };
    const auto reply = httpGet (location.toStdString(), shouldStop, limits);

    if (shouldStop())
        return false;

    if (! reply)
    {
        VELTRA_LOG (WARN, "Failed to connect to server @" << shown (location));
        return false;
    }

    if (reply->status != 200)
    {
        VELTRA_LOG (WARN, "Status code = " << reply->status);
        return false;
    }

    // A body that was too long cannot be read as a document; an empty text stands for it.
    return readDescription (reply->bodyTooLong ? juce::String() : veltra::xmlText (reply->body), location, address,
                            friendlyName);
}

}
