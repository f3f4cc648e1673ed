// SPDX-License-Identifier: GPL-3.0-or-later
#include "discovery/DeviceDescription.h"

#include "tests/support/LogLines.h"
#include "tests/support/ScriptedHttpServer.h"

namespace {

const std::string declarations =
    R"( xmlns="urn:schemas-upnp-org:device-1-0" xmlns:IR="urn:schemas-frontier-silicon-com:ir-1-0")"
    R"( xmlns:v="urn:schemas-veltra-lab:veltraio-1-0" xmlns:x="urn:other")";

std::string description (const std::string& children, const std::string& attributes = declarations)
{
    return "<?xml version=\"1.0\"?>\r\n<!-- R&D -->\r\n<root" + attributes
           + "><specVersion><major>1</major></specVersion><device>" + children + "</device></root>\n";
}

/** Address and friendly name of a device of ours. */
std::string textOf (bool ours, const juce::String& address, const juce::String& friendlyName)
{
    return ((ours ? "" : "not ours ") + address + "|" + friendlyName).toStdString();
}

std::string read (const std::string& document, const std::string& location = "http://10.0.0.7:8080/desc.xml")
{
    juce::String address, friendlyName;
    const bool ours =
        upnp::readDescription (juce::String::createStringFromData (document.data(), static_cast<int> (document.size())),
                               location, address, friendlyName);
    return textOf (ours, address, friendlyName);
}

const std::string notOurs = "not ours |", atPort1 = "TCP:10.0.0.7:1|", port = "<v:x_port>1</v:x_port>";

}

TEST (DeviceDescription, EitherExtensionNamesThePort)
{
    LogLines log;
    EXPECT_EQ (read (description (
                   "<friendlyName> Living room\n</friendlyName><ir:x_features>\tVeltraIO-6000 </ir:x_features>")),
               "TCP:10.0.0.7:6000|Living room");
    EXPECT_EQ (read (description ("<a:friendlyName>K\xC3\xBC"
                                  "che &amp; <b>Bad</b></a:friendlyName><v:x_port><![CDATA[ 7001 ]]></v:x_port>")),
               "TCP:10.0.0.7:7001|K\xC3\xBC"
               "che & Bad");
    EXPECT_EQ (log.count ("INFO", "Found VeltraIO protocol handler"), 2);
}

TEST (DeviceDescription, TheFirstGoodExtensionEndsTheReading)
{
    EXPECT_EQ (read (description (
                   "<v:x_port>1</v:x_port><ir:x_features>VeltraIO-2</ir:x_features><friendlyName>Late</friendlyName>")),
               "TCP:10.0.0.7:1|");

    LogLines log;
    EXPECT_EQ (read (description ("<ir:x_features>VeltraIO-</ir:x_features><ir:x_features>xVeltraIO-1</ir:x_features>"
                                  "<ir:x_features>VeltraIO-1 2</ir:x_features><ir:x_features>veltraio-1</ir:x_features>"
                                  "<friendlyName>Early</friendlyName><v:x_port>no number</v:x_port>")),
               "TCP:10.0.0.7:no number|Early");
    EXPECT_TRUE (log.contains ("WARN", "VeltraIO extension tag malformed, 'VeltraIO-'"));
    EXPECT_TRUE (log.contains ("WARN", "VeltraIO extension tag malformed, 'VeltraIO-1 2'"));
    EXPECT_TRUE (log.contains ("WARN", "VeltraIO extension tag malformed, 'veltraio-1'"));
}

TEST (DeviceDescription, OnlyPrefixesThatTheRootDeclaresCount)
{
    LogLines log;
    const auto feature = [] (const std::string& prefix) {
        return "<" + prefix + ":x_features>VeltraIO-1</" + prefix + ":x_features>";
    };

    EXPECT_EQ (read (description (feature ("x"))), notOurs);
    EXPECT_EQ (read (description (feature ("v"))), notOurs);
    EXPECT_EQ (read (description ("<x_features>VeltraIO-1</x_features>")), notOurs);
    EXPECT_EQ (read (description ("<ir:device>" + feature ("ir") + "</ir:device>")), notOurs);
    EXPECT_EQ (
        read (description (
            "<ir:x_features xmlns:ir=\"urn:schemas-frontier-silicon-com:ir-1-0\">VeltraIO-1</ir:x_features>", "")),
        notOurs);
    EXPECT_EQ (read (description ("<x_port:x_port>1</x_port:x_port>",
                                  " xmlns:x_port=\"urn:schemas-veltra-lab:veltraio-1-0\"")),
               notOurs);
    EXPECT_EQ (log.count ("INFO", "Not a VeltraIO device!"), 6);

    // Any attribute declares, the part behind the last colon names the prefix, and the last declaration counts.
    EXPECT_EQ (
        read (description (feature ("p"), " a:b:P=\"urn:other\" c:p=\"urn:schemas-frontier-silicon-com:ir-1-0\"")),
        atPort1);
    EXPECT_EQ (read (description ("<v:y:x_port>1</v:y:x_port>")), atPort1);
}

TEST (DeviceDescription, TheHostIsThatOfTheLocationAndOtherDevicesAreShownEscaped)
{
    for (const auto& [location, address] : { std::pair ("http://receiver.local/a:b", "TCP:receiver.local:1"),
                                             std::pair ("https://10.0.0.8", "TCP:10.0.0.8:1") })
        EXPECT_EQ (std::string (address) + "|", read (description (port), location));

    LogLines log;
    EXPECT_EQ ("not ours |Lamp", read ("<root><device><friendlyName>Lamp</friendlyName>\n</device></root>"));
    EXPECT_TRUE (log.contains ("TRACE", "Failed to find VeltraIO extension tag: XML = <root><device><friendlyName>Lamp"
                                        "</friendlyName>\\n</device></root>"));
}

TEST (DeviceDescription, ADocumentThatIsNoneIsRefused)
{
    LogLines log;

    for (const auto* document : { "", " ", "no xml", "<root><device>", "<root", "\xFF\xFE" })
        EXPECT_EQ (read (document), notOurs) << document;

    EXPECT_EQ (log.count ("WARN", "Failed getting device XML from http://10.0.0.7:8080/desc.xml"), 6);

    EXPECT_EQ (read ("<root><upnp:device/></root>"), notOurs);
    EXPECT_TRUE (log.contains ("WARN", "Failed getting device element"));
}

TEST (DeviceDescription, DocumentsMadeToHarmAParserAreRefusedAtOnce)
{
    const auto nested = [&] (int depth) { return repeated ("<d>", depth) + repeated ("</d>", depth); };

    EXPECT_EQ (read (description (nested (62) + port)), atPort1); // root and device make it 64
    EXPECT_EQ (read (description (repeated ("<e a='&lt;'/>", 900) + port)), atPort1);

    const auto start = std::chrono::steady_clock::now();

    for (const auto& children :
         { nested (63), nested (1000), nested (100000), repeated ("<", 1 << 20), repeated ("<e/>", 200000) })
        EXPECT_EQ (read (description (children + port)), notOurs);

    for (const auto& children : { repeated ("&", 1 << 20), "<e a='" + repeated ("&amp;", 200000) + "'/>",
                                  "<e " + repeated ("a='' ", 200000) + "/>" })
        EXPECT_EQ (read (description (children + port)), atPort1);

    std::string prefixes = declarations;

    for (int i = 0; i < 60000; ++i)
        prefixes += " a:b" + std::to_string (i) + "=''";

    EXPECT_EQ (read (description (port, prefixes)), atPort1);
    EXPECT_LT (std::chrono::steady_clock::now() - start, std::chrono::seconds (40)); // minutes where time is quadratic

    EXPECT_EQ (read ("<!DOCTYPE r [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">]>"
                     + description ("<friendlyName>&b;</friendlyName>" + port)),
               "TCP:10.0.0.7:1|&b;");
}

TEST (DeviceDescription, WhatIsBetweenAndAfterTheElementsDoesNotMatter)
{
    for (const auto& children : { "a<?i?>b", "<?i?> <!-- <c/> --> &amp;", "& <!-- ;<?i?>b-->" })
        EXPECT_EQ (read (description (children + port)), atPort1) << children;

    for (const auto& behind : { "no XML", "&", "\xFF", "<second/>" })
        EXPECT_EQ (read (description (port) + behind), atPort1) << behind;

    EXPECT_EQ (read ("<?xml-stylesheet href='a'?>" + description ("<?i?><?j?> <e/>a<?k?>" + port)), atPort1);
    EXPECT_EQ (read (description ("<friendlyName>A&#x110000;</friendlyName>" + port)), notOurs)
        << "there is no such character";
    EXPECT_EQ (read (description ("<friendlyName>A&#xD800;&#0;B</friendlyName>" + port)), "TCP:10.0.0.7:1|A???");
}

TEST (DeviceDescription, TextsAreBounded)
{
    LogLines log;
    const std::string longText (2000, '1');

    EXPECT_EQ (read (description ("<ir:x_features>VeltraIO-" + longText + "</ir:x_features><v:x_port>" + longText
                                  + "</v:x_port>")),
               notOurs);
    EXPECT_TRUE (log.contains ("WARN", "VeltraIO extension tag malformed, '" + longText.substr (0, 1024) + "...'"));

    EXPECT_EQ (read (description ("<friendlyName>1\xC3\xBC" + std::string (1020, 'x') + "\xC3\xBC</friendlyName>")),
               notOurs + "1\xC3\xBC" + std::string (1020, 'x'));
}

TEST (DeviceDescription, EachFailureOfTheFetchIsLogged)
{
    ScriptedHttpServer server ([] (ScriptedHttpServer::Exchange& exchange) {
        if (exchange.path == "/utf16")
        {
            std::string body = "\xFF\xFE";

            for (const char c : description (port))
                (body += c) += '\0';

            exchange.send (ScriptedHttpServer::reply (200, body));
        }
        else if (exchange.path == "/endless")
            exchange.send (ScriptedHttpServer::reply (200, description (port) + std::string (2 << 20, ' ')));
        else
            exchange.send (ScriptedHttpServer::reply (404, ""));
    });

    LogLines log;
    const auto get = [] (const std::string& location, bool stop = false) {
        juce::String address, friendlyName;
        const bool ours = upnp::getDeviceInfo (location, address, friendlyName, [stop] { return stop; });
        return textOf (ours, address, {});
    };

    EXPECT_EQ ("TCP:127.0.0.1:1|", get (server.url ("/utf16")));
    EXPECT_TRUE (log.contains ("DEBUG", "Getting device XML from " + server.url ("/utf16")));

    for (const auto& [location, warning] :
         { std::pair (server.url ("/missing"), std::string ("Status code = 404")),
           std::pair (server.url ("/endless"), "Failed getting device XML from " + server.url ("/endless")),
           std::pair (std::string ("http://127.0.0.1:1/\x1b"),
                      std::string ("Failed to connect to server @http://127.0.0.1:1/\\x1b")) })
    {
        EXPECT_EQ (notOurs, get (location));
        EXPECT_TRUE (log.contains ("WARN", warning)) << warning;
    }

    const auto lines = log.all().size();
    EXPECT_EQ (notOurs, get (server.url ("/missing"), true));
    EXPECT_EQ (lines + 1, log.all().size()); // the first line only, since the scan has ended
}
