// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Settings.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/LogLines.h"

namespace veltra::plugin {

namespace {

std::unique_ptr<juce::PropertiesFile> openText (const juce::String& text)
{
    const juce::TemporaryFile file (".settings");
    file.getFile().replaceWithText (text);
    return openSettings (file.getFile());
}

juce::String entry (const juce::String& key, const juce::String& value)
{
    return "<VALUE name=\"" + key + "\" val=\"" + value + "\"/>";
}

std::unique_ptr<juce::PropertiesFile> openEntry (const juce::String& key, const juce::String& value)
{
    return openText ("<PROPERTIES>" + entry (key, value) + "</PROPERTIES>");
}

}

TEST (Settings, ValuesAreFoundByTheirExactKey)
{
    const auto settings = openText ("<?xml version=\"1.0\"?>\n<PROPERTIES>"
                                    + entry (keys::kDevice, "TCP:192.0.2.1:6000") + "</PROPERTIES>");
    EXPECT_EQ (settings->getValue ("Device"), "TCP:192.0.2.1:6000");
    EXPECT_EQ (settings->getValue ("device"), "");

    const auto strange =
        openText ("<!DOCTYPE a [<!ENTITY b \"c\">]><PROPERTIES>a<?b?>c" + entry ("ST", "&b;&quot;&#xFC;")
                  + "<VALUE name=\"Device\"><x/></VALUE></PROPERTIES> and no XML");
    EXPECT_EQ (strange->getValue ("ST"), juce::String (juce::CharPointer_UTF8 ("&b;\"\xC3\xBC")));
    EXPECT_FALSE (strange->containsKey ("Device"));
}

/** Nothing of it may take the host along or leave it without defaults. */
TEST (Settings, ABadFileIsTheSameAsNone)
{
    const LogLines log;
    const juce::String bad[] = { "",
                                 "plain text",
                                 "<PROPERTIES>" + entry ("Device", "x"),
                                 "<OTHER>" + entry ("Device", "x") + "</OTHER>",
                                 "<PROPERTIES>" + juce::String::repeatedString ("<a>", 40000),
                                 "<PROPERTIES>" + entry ("Device", juce::String::repeatedString ("x", 2 << 20))
                                     + "</PROPERTIES>" };

    for (const auto& text : bad)
        EXPECT_EQ (openText (text)->getAllProperties().size(), 0) << text.substring (0, 60);

    EXPECT_TRUE (log.contains ("INFO", "Settings are ignored: the file has more than 1048576 bytes"));
    EXPECT_TRUE (log.contains ("INFO", "Settings are not read completely, XML error: elements are nested too deeply"));
    EXPECT_EQ (openSettings (juce::File ("/nowhere/x.settings"))->getAllProperties().size(), 0);
    EXPECT_EQ (openSettings (juce::File ("/tmp"))->getAllProperties().size(), 0);

    const juce::TemporaryFile pipe (".settings");
    ASSERT_EQ (mkfifo (pipe.getFile().getFullPathName().toRawUTF8(), 0600), 0);
    EXPECT_EQ (openSettings (pipe.getFile())->getAllProperties().size(), 0) << "opening a pipe would block";
}

TEST (Settings, AByteThatIsNoUtf8SpoilsNothingElse)
{
    const char bytes[] = "<PROPERTIES><VALUE name=\"ST\" val=\"K\xFC"
                         "che\xE2\x82\"/><VALUE name=\"Timeout\" val=\"0\"/></PROPERTIES>\xF7";
    const juce::TemporaryFile file (".settings");
    file.getFile().replaceWithData (bytes, sizeof (bytes) - 1);

    const auto settings = openSettings (file.getFile());
    EXPECT_TRUE (settings->getValue ("ST").startsWith (juce::CharPointer_UTF8 ("K\xC3\xBC"
                                                                               "che")));
    EXPECT_FALSE (readBool (*settings, "Timeout", true));
}

TEST (Settings, WordsForYesAndNoMeanWhatTheySay)
{
    for (const auto* yes : { "1", "true", "TRUE", "yes", "Yes", "on", "oN", " true ", "2", "-1" })
        EXPECT_TRUE (readBool (*openEntry ("Timeout", yes), "Timeout", false)) << yes;

    for (const auto* no : { "0", "false", "False", "no", "NO", "off", "Off", "00" })
        EXPECT_FALSE (readBool (*openEntry ("Timeout", no), "Timeout", true)) << no;

    for (const auto* neither : { "", "maybe", "-", "t" })
    {
        EXPECT_TRUE (readBool (*openEntry ("Timeout", neither), "Timeout", true)) << neither;
        EXPECT_FALSE (readBool (*openEntry ("Timeout", neither), "Timeout", false)) << neither;
    }
}

TEST (Settings, ALimitThatActsLeavesALine)
{
    const struct
    {
        IntSetting setting;
        const char* text;
        int value;
        const char* line;
    } rows[] {
        { kSearchTime_ms, "250ms", 250, "" },
        { kSearchTime_ms, "soon", 0, "" },
        { kSearchTime_ms, "", 0, "" },
        { kSearchTime_ms, "-5", 0, "Setting UPnPTimeout is '-5', limited to 0" },
        { kSearchTime_ms, "600001", 600000, "Setting UPnPTimeout is '600001', limited to 600000" },
        { kChunkTimeout_ms, "60000", 60000, "" },
        { kChunkTimeout_ms, "-1", 60000, "Setting FilterDataChunkTimeout is '-1', limited to 60000" },
        { kChunkAttempts, "99999999999", 100, "Setting FilterDataChunkRetries is '99999999999', limited to 100" },
    };

    for (const auto& row : rows)
    {
        const LogLines log;
        const auto settings = openEntry (row.setting.key, row.text);
        logIfLimited (*settings, row.setting);
        EXPECT_EQ (readInt (*settings, row.setting), row.value) << row.text;
        EXPECT_EQ (log.all().size(), *row.line == 0 ? 0u : 1u) << row.text;
        EXPECT_EQ (log.contains ("INFO", row.line), *row.line != 0) << row.text;
    }

    EXPECT_EQ (readInt (*openText (""), kSearchTime_ms), 6000);
    EXPECT_EQ (readInt (*openText (""), kChunkTimeout_ms), 3000);
    EXPECT_EQ (readInt (*openText (""), kChunkAttempts), 5);
}

}
