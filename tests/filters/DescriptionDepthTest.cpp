// SPDX-License-Identifier: GPL-3.0-or-later

#include <rapidxml/rapidxml.hpp>

#include "common/Xml.h"
#include "tests/support/Testing.h"

namespace {

int depthOf (const rapidxml::xml_node<char>& node)
{
    int deepest = 0;

    for (const auto* child = node.first_node(); child != nullptr; child = child->next_sibling())
        if (child->type() == rapidxml::node_element)
            deepest = std::max (deepest, 1 + depthOf (*child));

    return deepest;
}

/** The scan before RapidXml never takes a random text for shallower than RapidXml does, and seldom refuses
    one that RapidXml takes. */
TEST (DescriptionDepth, NoTextIsDeeperThanItWasFoundToBe)
{
    const char* const pieces[] { "<a>",    "</a>",      "<a>", "</a>",      "<b/>",       "<a x='", "<a x=\"", "'",
                                 "\"",     ">",         "/>",  "<",         "/",          "?",      "!",       "<!--",
                                 "-->",    "<![CDATA[", "]]>", "<!DOCTYPE", "<!DOCTYPE ", "[",      "]",       "<?",
                                 "<?xml ", "?>",        "<!",  " ",         "\n",         "x",      "=",       "&lt;",
                                 "&quot;", "&#60;",     "</a", "<a",        "-",          "\x01" };

    std::mt19937 random (1);
    int taken = 0;
    int refused = 0;

    for (int round = 0; round < 200000; ++round)
    {
        std::string text = round % 2 == 0 ? "" : "<a>";

        for (auto left = 1 + random() % 12; left > 0; --left)
            text += pieces[random() % std::size (pieces)];

        text += round % 2 == 0 ? "" : "</a>";

        std::string copy = text;
        rapidxml::xml_document<char> document;

        try
        {
            document.parse<rapidxml::parse_default> (copy.data());
        }
        catch (const rapidxml::parse_error&)
        {
            continue;
        }

        const int depth = depthOf (document);
        ++taken;
        refused += veltra::isShallowXml (text, depth) ? 0 : 1;
        ASSERT_FALSE (depth > 0 && veltra::isShallowXml (text, depth - 1)) << text;
    }

    EXPECT_GT (taken, 2000);
    EXPECT_LT (refused, taken / 4);
}

}
