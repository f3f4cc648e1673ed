// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <juce_core/juce_core.h>
#include <rapidxml/rapidxml.hpp>

/** @file
    XML from untrusted sources: read in linear time, by RapidXML, with a bound on the nesting that its parser recurses
    over. Document types are skipped, and entities other than the five of XML itself are left as they are.
*/

namespace veltra {

using XmlNode = rapidxml::xml_node<char>;

/** Where a text stops being XML. */
struct XmlError
{
    const char* what = nullptr; ///< what was expected, or why the text is refused; null when the text is XML
    std::size_t offset = 0;     ///< bytes from the start of the text
};

class XmlDocument
{
public:
    /** Parses a text, up to its first NUL.
        @param maxDepth  elements nested deeper than this are an error
        @throws std::bad_alloc */
    XmlDocument (std::string xml, int maxDepth);

    XmlDocument (const XmlDocument&) = delete; // the nodes point into the text where it is
    XmlDocument& operator= (const XmlDocument&) = delete;

    /** The syntax error; without one the text is XML to its end. */
    const XmlError& error() const noexcept { return syntaxError; }

    /** Where the name of an element of this document begins, in bytes from the start of the text. */
    std::size_t offsetOf (const XmlNode& element) const noexcept;

    /** All elements at the top, as children of one node; empty when the text is not XML. */
    const XmlNode& top() const noexcept { return *document; }

    /** The first element, whatever text follows it; null when there is none, or when it does not end. */
    const XmlNode* root() const noexcept;

private:
    std::string text;                                       // parsing writes into it, and the nodes point there
    std::unique_ptr<rapidxml::xml_document<char>> document; // 64 KiB, too much for small stacks
    XmlError syntaxError;
};

/** The bytes of a document as text: UTF-8, UTF-16 with a byte order mark, else Windows-1252; up to the first NUL. */
juce::String xmlText (std::string_view bytes);

/** The next sibling that is an element, whatever its name; null behind the last one. */
const XmlNode* nextElement (const XmlNode& node) noexcept;

/** The first child that is an element; null when there is none. */
const XmlNode* firstElement (const XmlNode& node) noexcept;

/** The name of an element, with its prefix. */
juce::String nameOf (const XmlNode& element);

/** All text inside an element, that of the elements in it included; text that is nothing but white space is left out. */
juce::String allText (const XmlNode& element);

/** The value of an attribute; empty when it is absent. */
juce::String attributeOf (const XmlNode& element, const char* name);

/** The text of a name or of a value: valid UTF-8, which references may have made it no longer, up to the first NUL. */
juce::String textOf (const char* bytes, std::size_t size);

/** Checks a text before it goes to a parser that recurses once for each element: all tags are well-formed, and
    elements are nested no deeper than maxDepth. Names, order and closing tags are left to the parser.

    Runs in linear time, at the speed of memchr between tags, and does not recurse. Never accepts a text in which the
    parser would see deeper nesting: what this scan cannot follow as the parser would is an error.
*/
XmlError findDeepXml (std::string_view text, int maxDepth) noexcept;

/** Whether findDeepXml finds no error. */
inline bool isShallowXml (std::string_view text, int maxDepth) noexcept
{
    return findDeepXml (text, maxDepth).what == nullptr;
}

}
