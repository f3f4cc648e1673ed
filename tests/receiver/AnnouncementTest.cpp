// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Announcement.h"

#include <gtest/gtest.h>

namespace veltra::receiver {

namespace {

std::optional<Announcement::Search> parse (const std::string& headers)
{
    return Announcement::parseSearch ("M-SEARCH * HTTP/1.1\r\nHOST:239.255.255.250:1900\r\n" + headers);
}

}

TEST (Announcement, ASearchHasTargetWaitAndTheRightMethodWithOrWithoutAnEmptyLineAtItsEnd)
{
    for (const auto* end : { "", "\r\n" })
    {
        const auto search = parse (std::string ("st: x\r\nMan: \"ssdp:discover\"\r\nmx: 120\r\n") + end);
        ASSERT_TRUE (search);
        EXPECT_EQ ("x", search->target);
        EXPECT_EQ (std::chrono::seconds (5), search->longestWait);
    }

    for (const auto* headers : { "ST:x\r\nMAN:\"ssdp:discover\"\r\n", "ST:x\r\nMAN:\"ssdp:discover\"\r\nMX:0\r\n",
                                 "MAN:\"ssdp:discover\"\r\nMX:1\r\n", "ST:x\r\nMAN:ssdp:discover\r\nMX:1\r\n" })
        EXPECT_FALSE (parse (headers)) << headers;

    EXPECT_FALSE (Announcement::parseSearch ("NOTIFY * HTTP/1.1\r\nST:x\r\nMAN:\"ssdp:discover\"\r\nMX:1\r\n"));
    EXPECT_FALSE (Announcement::parseSearch (""));
}

}
