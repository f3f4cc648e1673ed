#pragma once

#include <memory>
#include <string_view>

#include <juce_core/juce_core.h>

/** @file
    JUCE's XML parser, for documents that nobody vouches for. By itself it reads past the end of bytes that are no
    UTF-8 and of a text that ends in the midst of a reference, recurses once an element, expands entities, takes
    quadratic time for names, attributes and references, and never returns from an instruction with text behind it.
*/

namespace veltra {

/** The bytes of a document as text: UTF-8, UTF-16 with a byte order mark, else Windows-1252; up to the first NUL. */
juce::String xmlText (std::string_view bytes);

/** Parses a document.
    @returns  its root element; null when it is no XML, when elements are nested deeper than maxDepth, when it has a
              document type or more than some thousand tags or a thousand attributes or references, or when the parser
              would not return
*/
std::unique_ptr<juce::XmlElement> parseXml (const juce::String& document, int maxDepth);

}
