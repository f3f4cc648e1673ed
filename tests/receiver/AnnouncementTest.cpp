// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/network/Announcement.h"

#include <gtest/gtest.h>

namespace veltra::receiver {

namespace {

const Announcement kLounge { .friendlyName = "Lounge & <bar>",
                             .manufacturer = "Morvane",
                             .model = "Stereo 2",
                             .serialNumber = "1",
                             .port = 6000,
                             .uuid = "11111111-2222-4333-8444-555555555555" };

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

TEST (Announcement, AnswersForEachOfItsNamesThatASearchAsksFor)
{
    const auto usns = [] (const std::string& target) {
        std::string all;

        for (const auto& answer : kLounge.answers ({ target, std::chrono::seconds (1) }, "http://10.0.0.1/d.xml"))
        {
            EXPECT_TRUE (answer.starts_with ("HTTP/1.1 200 OK\r\n") && answer.ends_with ("\r\n\r\n"));
            EXPECT_NE (answer.find ("\r\nLOCATION: http://10.0.0.1/d.xml\r\n"), answer.npos);
            const auto start = answer.find ("\r\nUSN: ") + 7;
            all += answer.substr (start, answer.find ("\r\n", start) - start) + " ";
        }

        return all;
    };

    const std::string id = "uuid:" + kLounge.uuid;
    EXPECT_EQ (id + "::upnp:rootdevice ", usns ("upnp:rootdevice"));
    EXPECT_EQ (id + " ", usns (id));
    EXPECT_EQ (id + "::upnp:rootdevice " + id + " " + id + "::urn:schemas-upnp-org:device:MediaRenderer:1 ",
               usns ("ssdp:all"));
    EXPECT_EQ ("", usns ("upnp:RootDevice"));
}

}
