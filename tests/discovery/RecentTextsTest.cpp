// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/RecentTexts.h"
#include "tests/support/Testing.h"

TEST (RecentTexts, TheOldestIsForgottenWhenTheSetIsFull)
{
    upnp::RecentTexts texts (3);

    for (const auto* text : { "a", "b", "a", "c" })
        texts.insert (text);

    EXPECT_TRUE (texts.contains ("a") && texts.contains ("b") && texts.contains ("c"));

    texts.insert ("d");
    EXPECT_FALSE (texts.contains ("a"));

    for (int i = 0; i < 1000; ++i)
        texts.insert (std::string (static_cast<std::size_t> (i + 30), 'x'));

    EXPECT_FALSE (texts.contains ("d"));
    EXPECT_TRUE (texts.contains (std::string (1029, 'x')) && texts.contains (std::string (1027, 'x')));
}
