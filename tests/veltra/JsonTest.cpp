// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What the tools print for scripts, against docs/json.md: each key that is printed is documented, and the reverse.
*/

#include <map>
#include <set>
#include <sstream>

#include "tests/veltra/WithReceiver.h"
#include "tools/output/Json.h"

namespace veltra::host {

namespace {

using Keys = std::set<std::string>; // "event key"

/** The tables of the document, by their headings. */
std::map<std::string, Keys> documentedKeys()
{
    std::ifstream document ("docs/json.md");
    std::map<std::string, Keys> tables;
    std::string heading;

    for (std::string line; std::getline (document, line);)
    {
        if (line.starts_with ("## "))
            heading = line.substr (3);

        std::istringstream cells (line);
        std::string before, event, between, key;

        if (line.starts_with ("| `") && std::getline (cells, before, '`') && std::getline (cells, event, '`')
            && std::getline (cells, between, '|') && std::getline (cells, between, '|'))
        {
            const auto start = between.find ('`');
            key = start == between.npos ? "" : between.substr (start + 1, between.rfind ('`') - start - 1);
            tables[heading].insert (event + " " + key);
        }
    }

    return tables;
}

void collect (const Json& value, const std::string& path, Keys& keys)
{
    if (value.is_array())
        for (const auto& each : value)
            collect (each, path + "[]", keys);
    else if (value.is_object())
        for (const auto& [key, each] : value.items())
            collect (each, path + (path.ends_with (' ') ? "" : ".") + key, keys);
    else
        keys.insert (path);
}

/** The objects of an output, which is nothing else. */
std::vector<Json> objectsIn (const std::string& output)
{
    std::istringstream lines (output);
    std::vector<Json> objects;

    for (std::string line; std::getline (lines, line);)
        objects.push_back (Json::parse (line, nullptr, false));

    for (const auto& object : objects)
        EXPECT_TRUE (object.is_object() && object.begin().key() == "event") << output;

    return objects;
}

Keys keysIn (const std::vector<Json>& objects)
{
    Keys keys;

    for (auto object : objects)
    {
        const auto event = object.at ("event").get<std::string>() + " ";
        object.erase ("event");
        collect (object, event, keys);

        if (object.empty())
            keys.insert (event);
    }

    return keys;
}

class JsonOutput : public WithReceiver
{
protected:
    JsonOutput() : documented (documentedKeys()) {}

    /** Runs a command and takes what it printed for its part of the document. */
    std::vector<Json> collectFrom (const std::string& part, const Ending& ending)
    {
        EXPECT_EQ (0, ending.status) << ending.err;
        const auto objects = objectsIn (ending.out);
        EXPECT_EQ ("result", objects.empty() ? "" : objects.back().at ("event").get<std::string>()) << ending.out;
        seen[part].merge (keysIn (objects));
        return objects;
    }

    Json resultOf (Words words)
    {
        const auto part = "veltra " + words.front();
        words.push_back ("--json");
        return collectFrom (part, veltra (std::move (words))).back();
    }

    std::map<std::string, Keys> documented, seen;
};

}

TEST_F (JsonOutput, EachCommandPrintsTheKeysOfTheDocumentAndNoOthers)
{
    receiver::Receiver::Options fast;
    fast.measurement.speed = 20.0;
    startReceiver (receiver::shippedProfile ("seven-one"), fast);
    const auto room = importRoom();
    const auto blob = path ("blob").string();
    const auto designed = path ("designed.xml").string();
    const auto response = roomFile ("FL_48000");

    const auto info = resultOf ({ "info" });
    EXPECT_EQ (theReceiver->address(), info["address"]);
    EXPECT_EQ ("Theatre 71", info["model"]);
    EXPECT_EQ (true, info["channels"][3]["subwoofer"]);
    EXPECT_EQ (9u, info["stimuli"].size());

    EXPECT_EQ (0.5, resultOf ({ "volume", "0.5" })["volume"]);
    EXPECT_EQ (1.1, resultOf ({ "attenuation", "SW", "1.1" })["attenuation_dB"]);
    EXPECT_EQ (2, resultOf ({ "slot", "2" })["slot"]);
    EXPECT_EQ (true, resultOf ({ "filtering", "on" })["filtering"]);

    EXPECT_EQ (24, resultOf ({ "check-description", room })["channels"].size() * 3);
    EXPECT_EQ ("SW", resultOf ({ "download", "--slot", "1", room })["channels"][3]);
    EXPECT_EQ ("Living room", resultOf ({ "slots" })["slots"][1]["name"]);
    EXPECT_EQ (false, resultOf ({ "remove", "--slot", "1" })["was_empty"]);

    EXPECT_EQ (1, resultOf ({ "import", response, "-o", path ("one.xml") })["responses"]);
    const auto design = resultOf ({ "design", response, "-o", designed, "--sections", "9" });
    EXPECT_LT (design["designs"][0]["error"]["overall_dB"], 0.0);
    EXPECT_EQ (0, resultOf ({ "convert", designed, "--topology", "FIIR", "--rate", "48000", "--taps", "1000",
                              "--sections", "9", "-o", blob })["bytes"]
                          .get<int>()
                      % 4);
    EXPECT_EQ (9u, resultOf ({ "inspect", blob, "--topology", "FIIR", "--channels", "1", "--sections",
                               "9" })["channels"][0]["sections"]
                       .size());
    EXPECT_GT (resultOf ({ "play", blob, "--topology", "FIIR", "--channels", "1", "--sections", "9", "--in", response,
                           "-o", path ("played.wav") })["samples"],
               48000);
    resultOf ({ "convert", room, "--topology", "VLFIR2", "--rate", "48000", "--taps", "2048", "-o", blob, "--force" });
    EXPECT_EQ (8u, resultOf ({ "inspect", blob })["channels"].size());

    const auto capture = resultOf ({ "measure", "--channel", "FL", "-o", path ("fl.wav") });
    EXPECT_EQ (48000, capture["sample_rate_Hz"]);
    EXPECT_GT (capture["seconds"], 5.0);
    EXPECT_LT (capture["peak_dBFS"], 0.0);

    EXPECT_EQ (0, resultOf ({ "check", "--level", "3" })["failed"]);
    const auto impulse =
        resultOf ({ "measure", "--channel", "FL", "--impulse", path ("fl-impulse.wav"), "--average", "2" });
    EXPECT_EQ (2, impulse["takes"]);
    EXPECT_GT (impulse["signal_to_noise_dB"], 40.0);
    EXPECT_EQ (240000, resultOf ({ "stimulus", "-o", path ("sweep.wav") })["samples"]);

    const auto shown =
        resultOf ({ "response", path ("fl-impulse.wav"), "--text", path ("fl.frd"), "--plot", path ("fl.svg"),
                    "--phase", "--group-delay", "--impulse", "--step", "--smooth", "1/12" })["responses"];
    EXPECT_NEAR (10.0, shown[0]["peak_ms"], 0.05);
    EXPECT_NE (std::string::npos, read (path ("fl.svg")).find ("</svg>"));
    EXPECT_EQ (24, resultOf ({ "response", room })["responses"].size());
    EXPECT_EQ (8, resultOf ({ "response", blob, "--topology", "VLFIR2" })["responses"].size());

    // What one of two structures has, and what this run did not bring about.
    seen["veltra convert"].insert ("progress fraction");
    seen["veltra inspect"].insert ("result problems[]");
    seen["veltra check"].merge (Keys { "check sent", "check expected", "check came" });

    for (const auto& [part, keys] : seen)
        EXPECT_EQ (documented[part], keys) << part;

    for (const auto& [part, keys] : documented)
        EXPECT_TRUE (! part.starts_with ("veltra ") || part == "veltra find" || part == "veltra trace"
                     || seen.contains (part))
            << part;
}

TEST_F (JsonOutput, FailuresQuietnessAndStandardInput)
{
    startReceiver();
    const auto room = importRoom();

    auto ending = veltra ({ "slots", "--json", "--device", "127.0.0.1:1" });
    auto objects = objectsIn (ending.out);
    ASSERT_EQ (1u, objects.size()) << ending.out;
    EXPECT_EQ (kExitNoReceiver, ending.status);
    EXPECT_EQ (ending.status, objects[0]["status"]);
    EXPECT_EQ ("veltra: " + objects[0]["message"].get<std::string>() + "\n", ending.err);
    EXPECT_EQ (documented["Every command of both tools"], keysIn (objects));

    // From standard input to standard output, and what --quiet leaves.
    const std::string program = VELTRA_PROGRAM;
    write ("map", "FL 48000 " + std::filesystem::absolute (roomFile ("FL_48000")).string() + "\n");
    ending = run ({ "sh", "-c",
                    program + " import --map - -o - <" + path ("map").string() + " 2>/dev/null | " + program
                        + " check-description - --json && " + program + " download - --slot 0 --quiet --json --module "
                        + VELTRA_MODULE + " --device " + theReceiver->address() + " <" + room });
    expectSuccess (ending);
    objects = objectsIn (ending.out);
    ASSERT_EQ (2u, objects.size()) << ending.out;
    EXPECT_EQ ("-", objects[0]["file"]);
    EXPECT_EQ ("FL", objects[0]["channels"][0]["name"]);
    EXPECT_EQ ("Living room", objects[1]["project"]);
    EXPECT_EQ (receiver::Slot::State::occupied, theReceiver->slots()[0].state);

    // In a pipe there is neither progress nor a note; every command's help has the options that it shares.
    ending = veltra ({ "download", "--slot", "1", room });
    expectSuccess (ending);
    EXPECT_EQ (std::string::npos, ending.out.find (" %")) << ending.out;

    for (const std::string command : { "find", "info", "import", "convert", "download", "slots", "measure", "volume" })
        expectParts (plainVeltra ({ command, "--help" }).out,
                     { "--device", "--log", "--setting", "--json", "--quiet" });

    EXPECT_EQ (kExitUsage, plainVeltra ({ "slots", "--log", "-" }).status);
}

}
