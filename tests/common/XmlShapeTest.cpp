// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Xml.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/Repeated.h"

namespace veltra {

namespace {

std::string nested (int depth, const std::string& open = "<a>")
{
    return repeated (open, depth) + repeated ("</a>", depth);
}

}

TEST (XmlShape, CountsElementsInsideElements)
{
    EXPECT_TRUE (isShallowXml (nested (64), 64));
    EXPECT_FALSE (isShallowXml (nested (65), 64));
    EXPECT_TRUE (isShallowXml (nested (64) + nested (64), 64)) << "siblings do not add up";

    const auto siblings = "\xEF\xBB\xBF<?xml version=\"1.0\"?><r>"
                          + repeated ("<v name=\"a\" val = '>'/><!-- <x> --><![CDATA[<x>]]><w>1</w>", 1000);
    EXPECT_TRUE (isShallowXml (siblings + "</r>", 2));
    EXPECT_TRUE (isShallowXml ("<!DOCTYPE r [ <!ENTITY e \"<x>\"> ]><r></r>", 1));
    EXPECT_TRUE (isShallowXml ("<r><e/></r>", 2));
    EXPECT_FALSE (isShallowXml ("<r><e/></r>", 1));
    EXPECT_TRUE (isShallowXml ("", 0));
    EXPECT_TRUE (isShallowXml ("no markup at all", 0));
}

/** Markup that a lenient parser reads as deep nesting and a naive count as something else. */
TEST (XmlShape, DisguisedNestingIsRefused)
{
    EXPECT_FALSE (isShallowXml (nested (65, "<a b='/>'>"), 64));
    EXPECT_FALSE (isShallowXml (nested (65, "<a b=\"'\">"), 64));
    EXPECT_FALSE (isShallowXml ("<a\">" + nested (100) + "<a\">", 64));
    EXPECT_FALSE (isShallowXml ("<a b>" + nested (3), 64));
    EXPECT_FALSE (isShallowXml ("< a>", 64));
    EXPECT_FALSE (isShallowXml ("<a b=\"1", 64));
    EXPECT_FALSE (isShallowXml ("<a", 64));
    EXPECT_FALSE (isShallowXml ("</a>", 64));
    EXPECT_FALSE (isShallowXml ("<!-- <a>", 64));
}

/** Closing tags that a parser does not see must not make up for opening tags that it does. */
TEST (XmlShape, ClosingTagsThatAreNoneDoNotCount)
{
    for (const char* hidden : { "<!-- </a> -->", "<!--></a> -->", "<![CDATA[</a>]]>", "<? </a> ?>", "<?></a> ?>",
                                "<!DOCTYPE r ][ > </a> ]>", "<!x </a>", "<e x='</a>'></e>" })
        EXPECT_FALSE (isShallowXml ("<a>" + std::string (hidden) + "<a></a></a>", 1)) << hidden;

    EXPECT_FALSE (isShallowXml ("<a><!DOCTYPE[ ><b></b> ]></a>", 1)) << "no document type without white space";
}

}
