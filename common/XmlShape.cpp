#include "common/XmlShape.h"

namespace veltra {

namespace {

bool isSpace (char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

class Scanner
{
public:
    Scanner (std::string_view textToScan, int greatestDepth) noexcept : text (textToScan), maxDepth (greatestDepth) {}

    bool run() noexcept
    {
        while ((at = text.find ('<', at)) != text.npos)
            if (! scanMarkup() || depth > maxDepth)
                return false;

        return true;
    }

private:
    bool startsWith (std::string_view token) const noexcept { return text.substr (at).starts_with (token); }

    /** Skips markup of which the first bytes cannot belong to the token that ends it. */
    bool skipPast (std::string_view token, std::size_t openingSize) noexcept
    {
        const auto found = text.find (token, at + openingSize);

        if (found == text.npos)
            return false;

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
            return false;

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
            return --depth >= 0 && skipPast (">", 2);

        ++at;
        return scanTag();
    }

    bool isDoctype() const noexcept
    {
        return startsWith ("<!DOCTYPE") && at + 9 < text.size() && isSpace (text[at + 9]);
    }

    /** The internal subset stands in brackets and may hold ">". A stray closing bracket opens nothing. */
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

        return false;
    }

    bool scanTag() noexcept
    {
        if (! skipName())
            return false;

        for (;;)
        {
            skipSpace();

            if (startsWith ("/>"))
                return depth < maxDepth;

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
            return false;

        ++at;
        skipSpace();

        if (! startsWith ("\"") && ! startsWith ("'"))
            return false;

        const char quote = text[at++];
        const auto end = text.find (quote, at);

        if (end == text.npos)
            return false;

        at = end + 1;
        return true;
    }

    std::string_view text;
    std::size_t at = 0;
    int depth = 0;
    int maxDepth;
};

}

bool isShallowXml (std::string_view text, int maxDepth) noexcept { return Scanner (text, maxDepth).run(); }

}
