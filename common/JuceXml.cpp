#include "common/JuceXml.h"

#include <algorithm>
#include <string>

#include "common/XmlShape.h"

namespace veltra {

namespace {

// Ten times what the longest descriptions have. The characters count wherever they stand, which no trick with quotes,
// comments or references can get round.
constexpr std::ptrdiff_t mostTags = 4096; // opening and closing ones
constexpr std::ptrdiff_t mostAttributes = 1024;
constexpr std::ptrdiff_t mostReferences = 1024;
constexpr std::ptrdiff_t mostOpenReferences = 16; // without a semicolon behind, for which JUCE searches all the rest
constexpr int mostInstructions = 64;

/** Whether a document takes the parser no longer than it should, which keeps every name that it has seen, and takes
    quadratic time in several places. */
bool isBounded (std::string_view text)
{
    const auto behindReferences = text.substr (text.rfind (';') + 1); // all of it when there is none
    const auto count = [] (std::string_view part, char c) { return std::count (part.begin(), part.end(), c); };

    return count (text, '<') <= mostTags
        && count (text, '=') <= mostAttributes
        && count (text, '&') <= mostReferences
        && count (behindReferences, '&') <= mostOpenReferences;
}

/** Whether there is markup behind a place, or nothing: white space and comments aside. */
bool isMarkupNext (std::string_view text, std::size_t at) noexcept
{
    for (;;)
    {
        at = text.find_first_not_of (" \t\r\n", at);

        if (at == text.npos || text[at] != '<')
            return at == text.npos;

        if (! text.substr (at).starts_with ("<!--"))
            return true;

        at = text.find ("-->", at + 4);

        if (at == text.npos)
            return true;

        at += 3;
    }
}

/** Whether the parser gets past all instructions ("<?a?>"): in front of text it goes back to where it began to look for
    white space, which it takes an instruction for, and so for ever. They count wherever they stand, since it does not
    see comments where others see them. */
bool passesInstructions (std::string_view text) noexcept
{
    int count = 0;

    for (auto at = text.find ("<?"); at != text.npos; at = text.find ("<?", at + 2))
    {
        const auto end = text.find ("?>", at + 2);

        if (end == text.npos)
            return true;

        if (++count > mostInstructions || ! isMarkupNext (text, end + 2))
            return false;
    }

    return true;
}

/** Whether the text ends in the midst of a reference by a hexadecimal number, of which the parser steps over the end. */
bool endsInReference (std::string_view text) noexcept
{
    text = text.substr (0, text.find_last_not_of ("0123456789abcdefABCDEF") + 1);
    return text.ends_with ("&#x") || text.ends_with ("&#X");
}

}

juce::String xmlText (std::string_view bytes)
{
    const bool isUtf16 = bytes.size() >= 2 && (juce::CharPointer_UTF16::isByteOrderMarkBigEndian (bytes.data())
                                               || juce::CharPointer_UTF16::isByteOrderMarkLittleEndian (bytes.data()));

    // JUCE does not check what stands behind a NUL, but takes it into the text.
    const auto size = isUtf16 ? bytes.size() : std::min (bytes.find ('\0'), bytes.size());
    const std::string copy (bytes.substr (0, size)); // JUCE reads UTF-16 in words, which may not stand at odd addresses
    return juce::String::createStringFromData (copy.data(), static_cast<int> (copy.size()));
}

std::unique_ptr<juce::XmlElement> parseXml (const juce::String& document, int maxDepth)
{
    const std::string_view text (document.toRawUTF8());
    const bool isSafe = isBounded (text) && text.find ("<!DOCTYPE") == text.npos && passesInstructions (text)
                     && ! endsInReference (text) && isShallowXml (text, maxDepth);
    return isSafe ? juce::parseXML (document) : nullptr;
}

}
