#include "common/XmlDocument.h"

#include <algorithm>
#include <utility>

#include "common/Utf8.h"
#include "common/XmlShape.h"

namespace veltra {

namespace {

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

XmlDocument::XmlDocument (std::string xml, int maxDepth)
    : text (std::move (xml)),
      document (std::make_unique<rapidxml::xml_document<char>>())
{
    text.resize (std::min (text.find ('\0'), text.size()));

    if (! isShallowXml (text, maxDepth))
        return;

    try
    {
        document->parse<rapidxml::parse_default> (text.data());
        complete = true;
    }
    catch (const rapidxml::parse_error&)
    {
        // Elements that had ended before are there.
    }
}

const XmlNode* XmlDocument::root() const noexcept { return firstElement (*document); }

juce::String xmlText (std::string_view bytes)
{
    const bool isUtf16 = bytes.size() >= 2
                         && (juce::CharPointer_UTF16::isByteOrderMarkBigEndian (bytes.data())
                             || juce::CharPointer_UTF16::isByteOrderMarkLittleEndian (bytes.data()));

    // JUCE does not check what stands behind a NUL, but takes it into the text.
    const auto size = isUtf16 ? bytes.size() : std::min (bytes.find ('\0'), bytes.size());
    const std::string copy (bytes.substr (0, size)); // JUCE reads UTF-16 in words, which may not stand at odd addresses
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
