// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/SsdpMessages.h"

#include "tests/support/LogLines.h"
#include "tests/support/Testing.h"

namespace {

using Answers = std::vector<std::pair<std::string, std::string>>;

const std::string target = "upnp:rootdevice";

std::string answer (const std::string& usn, const std::string& location, const std::string& st = target)
{
    return "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=1800\r\nEXT:\r\nLOCATION: " + location + "\r\nST: " + st
           + "\r\nUSN: " + usn + "\r\n\r\n";
}

class SsdpMessages : public testing::Test
{
protected:
    Answers answers;
    LogLines log;
    upnp::AnswerReader reader { target, [this] (const juce::String& usn, const juce::String& location) {
                                   answers.emplace_back (usn.toStdString(), location.toStdString());
                               } };
};

}

TEST_F (SsdpMessages, SeveralAnswersInOneDatagramAreTakenInOrder)
{
    reader.take (answer ("uuid:1", "http://10.0.0.1/1.xml") + answer ("uuid:2", "http://10.0.0.2:80/2.xml?a=b:c"));

    EXPECT_EQ (answers,
               (Answers { { "uuid:1", "http://10.0.0.1/1.xml" }, { "uuid:2", "http://10.0.0.2:80/2.xml?a=b:c" } }));
    EXPECT_EQ (log.count ("TRACE", "UPnp buffer not empty yet..."), 1);
    EXPECT_TRUE (log.contains ("TRACE", "Found start of HTTP response (@0)"));
    EXPECT_TRUE (log.contains ("TRACE", "Location: http://10.0.0.2:80/2.xml?a=b:c"));
    EXPECT_EQ (reader.pendingSize(), 0u);
}

TEST_F (SsdpMessages, AnAnswerMayBeSplitAnywhereAndHaveRubbishInFront)
{
    const auto text = "rubbish\r\n\r\n" + answer ("uuid:\xC3\xBC", "http://10.0.0.1/");

    for (std::size_t split = 0; split <= text.size(); ++split)
    {
        answers.clear();
        reader.take (text.substr (0, split));
        reader.take (text.substr (split));
        EXPECT_EQ (answers, (Answers { { "uuid:\xC3\xBC", "http://10.0.0.1/" } })) << "split at " << split;
        EXPECT_EQ (reader.pendingSize(), 0u);
    }
}

TEST_F (SsdpMessages, HeaderNamesIgnoreCaseAndTheLastOfAKindCounts)
{
    reader.take (
        "HTTP/1.1 404 Not Found\nst:other\rnonsense\r\n\tSt\t:  upnp:rootdevice \nusn:a\rUsN: b::c \r\nlocation:http://x\r\n\r\n");
    EXPECT_EQ (answers, (Answers { { "b::c", "http://x" } }));

    answers.clear();
    reader.take ("HTTP/1.1 200 OK\r\nST:upnp:rootdevice\r\nUSN:a\r\nUSN:\r\nLOCATION:http://x\r\n\r\n");
    EXPECT_EQ (answers, Answers());
    EXPECT_TRUE (log.contains ("TRACE", "USN or LOCATION not set (USN=, LOCATION=http://x)"));

    reader.take (answer (std::string ("\0uuid", 5), "http://x")); // a text ends at its NUL
    EXPECT_EQ (answers, Answers());
}

TEST_F (SsdpMessages, OtherSearchTargetsAreIgnored)
{
    reader.take (answer ("uuid:1", "http://x/", "UPNP:rootdevice") + answer ("uuid:2", "http://x/", "ssdp:all"));
    EXPECT_EQ (answers, Answers());
    EXPECT_EQ (log.count ("TRACE", "Search target upnp:rootdevice not found!"), 2);

    upnp::AnswerReader (target, {}).take (answer ("uuid:1", "http://x/"));
    EXPECT_TRUE (log.contains ("ERROR", "No callback registered!!"));
}

TEST_F (SsdpMessages, AnAnswerWithoutAnEmptyLineWaitsWithinABoundAndSwallowsTheNext)
{
    const std::string open = "HTTP/1.1 200 OK\r\nST:upnp:rootdevice\r\nUSN:first\r\n";
    reader.take (open + "LOCATION:http://first/\r\n");
    EXPECT_EQ (Answers(), answers);
    reader.take (answer ("second", "http://second/"));
    EXPECT_EQ ((Answers { { "second", "http://second/" } }), answers);

    reader.take (open);

    for (int i = 0; i < 100; ++i)
    {
        reader.take (std::string (4096, 'x'));
        EXPECT_LE (reader.pendingSize(), upnp::AnswerReader::maximumPending);
    }

    answers.clear();
    reader.take (answer ("uuid:last", "http://last/"));
    EXPECT_EQ ((Answers { { "uuid:last", "http://last/" } }), answers);
}

TEST_F (SsdpMessages, OverlongValuesAreIgnored)
{
    const std::string longest (upnp::AnswerReader::maximumValue, 'u');
    reader.take (answer (longest + "u", "http://x/") + answer (longest, "http://y/")
                 + answer ("uuid:3", longest + "u"));
    EXPECT_EQ (answers, (Answers { { longest, "http://y/" } }));
}

TEST_F (SsdpMessages, TextThatIsNoUtf8OrHoldsControlCharactersIsMadeHarmless)
{
    reader.take (answer ("uuid:\xC3", "http://x/\x1b[2J\xE2\x82"));

    ASSERT_EQ (answers.size(), 1u);
    EXPECT_TRUE (
        juce::CharPointer_UTF8::isValidString (answers[0].first.data(), static_cast<int> (answers[0].first.size())));
    EXPECT_TRUE (log.contains ("TRACE", "Location: http://x/\\x1b[2J??"));
}
