// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Xml.h"

#include <algorithm>
#include <utility>

#include "common/Text.h"

namespace veltra {

namespace {

bool isSpace (char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

constexpr const char* kTooDeep = "elements are nested too deeply";

class Scanner
{
public:
    Scanner (std::string_view textToScan, int greatestDepth) noexcept : text (textToScan), maxDepth (greatestDepth) {}

    XmlError run() noexcept
    {
        while ((at = text.find ('<', at)) != text.npos)
        {
            const auto begin = at;

            if (! scanMarkup())
                return { problem, begin };

            if (depth > maxDepth)
                return { kTooDeep, begin };
        }

        return {};
    }

private:
    bool fail (const char* what) noexcept
    {
        problem = what;
        return false;
    }

    bool startsWith (std::string_view token) const noexcept { return text.substr (at).starts_with (token); }

    /** Skips markup of which the first bytes cannot belong to the token that ends it. */
    bool skipPast (std::string_view token, std::size_t openingSize) noexcept
    {
        const auto found = text.find (token, at + openingSize);

        if (found == text.npos)
            return fail ("this markup does not end");

        at = found + token.size();
        return true;
    }

    void skipSpace() noexcept
    {
        while (at < text.size() && isSpace (text[at]))
            ++at;
    }

    /** A name ends before anything that has a meaning inside a tag. */
    bool skipName() noexcept
    {
        const auto end = text.find_first_of (" \t\r\n/<>=\"'?!", at);

        if (end == text.npos || end == at)
            return fail ("a name is missing in this tag");

        at = end;
        return true;
    }

    bool scanMarkup() noexcept
    {
        if (startsWith ("<!--"))
            return skipPast ("-->", 4);

        if (startsWith ("<![CDATA["))
            return skipPast ("]]>", 9);

        if (isDoctype())
            return skipDoctype();

        if (startsWith ("<!"))
            return skipPast (">", 2);

        if (startsWith ("<?"))
            return skipPast ("?>", 2);

        if (startsWith ("</"))
            return --depth >= 0 ? skipPast (">", 2) : fail ("this closing tag has no opening tag");

        ++at;
        return scanTag();
    }

    bool isDoctype() const noexcept
    {
        return startsWith ("<!DOCTYPE") && at + 9 < text.size() && isSpace (text[at + 9]);
    }

    /** The internal subset is in brackets and may contain ">". A stray closing bracket is ignored. */
    bool skipDoctype() noexcept
    {
        for (int brackets = 0; at < text.size(); ++at)
        {
            if (text[at] == '[')
                ++brackets;
            else if (text[at] == ']' && brackets > 0)
                --brackets;
            else if (text[at] == '>' && brackets == 0)
                return true;
        }

        return fail ("this document type does not end");
    }

    bool scanTag() noexcept
    {
        if (! skipName())
            return false;

        for (;;)
        {
            skipSpace();

            if (startsWith ("/>"))
                return depth < maxDepth || fail (kTooDeep);

            if (startsWith (">"))
            {
                ++depth;
                return true;
            }

            if (! scanAttribute())
                return false;
        }
    }

    bool scanAttribute() noexcept
    {
        if (! skipName())
            return false;

        skipSpace();

        if (! startsWith ("="))
            return fail ("an attribute of this tag has no value");

        ++at;
        skipSpace();

        if (! startsWith ("\"") && ! startsWith ("'"))
            return fail ("an attribute's value in this tag has no quotes");

        const char quote = text[at++];
        const auto end = text.find (quote, at);

        if (end == text.npos)
            return fail ("an attribute's value in this tag does not end");

        at = end + 1;
        return true;
    }

    std::string_view text;
    std::size_t at = 0;
    int depth = 0;
    int maxDepth;
    const char* problem = nullptr;
};

const XmlNode* firstElementFrom (const XmlNode* node) noexcept
{
    while (node != nullptr && node->type() != rapidxml::node_element)
        node = node->next_sibling();

    return node;
}

void appendText (const XmlNode& element, std::string& text)
{
    for (const auto* node = element.first_node(); node != nullptr; node = node->next_sibling())
    {
        const std::string_view value (node->value(), node->value_size());

        if (node->type() == rapidxml::node_element)
            appendText (*node, text);
        else if (node->type() == rapidxml::node_cdata || value.find_first_not_of (" \t\r\n") != value.npos)
            text += value;
    }
}

}

XmlError findDeepXml (std::string_view text, int maxDepth) noexcept { return Scanner (text, maxDepth).run(); }

XmlDocument::XmlDocument (std::string xml, int maxDepth)
    : text (std::move (xml)),
      document (std::make_unique<rapidxml::xml_document<char>>())
{
    text.resize (std::min (text.find ('\0'), text.size()));

    syntaxError = findDeepXml (text, maxDepth);

    if (syntaxError.what != nullptr)
        return;

    try
    {
        document->parse<rapidxml::parse_default> (text.data());
    }
    catch (const rapidxml::parse_error& failure)
    {
        // Elements that had ended before are there.
        const auto* const where = failure.where<char>();
        syntaxError = { failure.what(), where == nullptr ? 0 : static_cast<std::size_t> (where - text.data()) };
    }
}

std::size_t XmlDocument::offsetOf (const XmlNode& element) const noexcept
{
    return static_cast<std::size_t> (element.name() - text.data());
}

const XmlNode* XmlDocument::root() const noexcept { return firstElement (*document); }

juce::String xmlText (std::string_view bytes)
{
    const bool isUtf16 = bytes.size() >= 2
                         && (juce::CharPointer_UTF16::isByteOrderMarkBigEndian (bytes.data())
                             || juce::CharPointer_UTF16::isByteOrderMarkLittleEndian (bytes.data()));

    // JUCE copies what follows a NUL without checking it.
    const auto size = isUtf16 ? bytes.size() : std::min (bytes.find ('\0'), bytes.size());
    const std::string copy (bytes.substr (0, size)); // JUCE reads UTF-16 by 16 bits, at even addresses
    return juce::String::createStringFromData (copy.data(), static_cast<int> (copy.size()));
}

const XmlNode* nextElement (const XmlNode& node) noexcept { return firstElementFrom (node.next_sibling()); }

const XmlNode* firstElement (const XmlNode& node) noexcept { return firstElementFrom (node.first_node()); }

juce::String textOf (const char* bytes, std::size_t size)
{
    const std::string_view text (bytes, size);
    return juce::String (toValidUtf8 (text.substr (0, text.find ('\0'))));
}

juce::String nameOf (const XmlNode& element) { return textOf (element.name(), element.name_size()); }

juce::String allText (const XmlNode& element)
{
    std::string text;
    appendText (element, text);
    return textOf (text.data(), text.size());
}

juce::String attributeOf (const XmlNode& element, const char* name)
{
    const auto* const attribute = element.first_attribute (name);
    return attribute != nullptr ? textOf (attribute->value(), attribute->value_size()) : juce::String();
}

}
