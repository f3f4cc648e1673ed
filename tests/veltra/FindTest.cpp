// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/FakeDevice.h"
#include "tests/support/NetworkNamespace.h"
#include "tests/support/Program.h"
#include "tools/ExitStatus.h"
#include "tools/output/Json.h"

namespace veltra::host {

namespace {

/** The real program with the real module, in a network of its own with simulated receivers. */
class Find : public InPrivateNetwork<Program>
{
protected:
    /** Starts a receiver. @returns its address */
    std::string startReceiver (std::vector<std::string> options)
    {
        const auto output = "receiver" + std::to_string (receivers.size());
        options.insert (options.begin(), VELTRA_RECEIVER_PROGRAM);
        home->run ([&] { receivers.push_back (std::make_unique<ChildProcess> (options, path (output).string())); });
        waitFor (output, std::find (options.begin(), options.end(), "--announce") == options.end() ? "Listening on "
                                                                                                   : "Announced as ");
        const auto text = read (path (output));
        const auto start = text.find ("Listening on ") + 13;
        return text.substr (start, text.find ('\n', start) - start);
    }

    /** Lets a receiver be found at once and not after a while, as those do that announce themselves. */
    void announce (const std::string& address, const std::string& name)
    {
        const auto port = std::stoi (address.substr (address.find (':') + 1));
        home->run ([&] {
            announcements.push_back (std::make_unique<FakeDevice> (FakeDevice::Options {
                .address = "127.0.0.1", .usn = "uuid:" + name, .description = FakeDevice::ours (name, port) }));
        });
    }

    Ending veltra (std::vector<std::string> arguments)
    {
        arguments.insert (arguments.begin(), VELTRA_PROGRAM);
        Ending ending;
        home->run ([&] {
            start (arguments);
            ending = finish();
        });
        return ending;
    }

    std::vector<std::unique_ptr<ChildProcess>> receivers;
    std::vector<std::unique_ptr<FakeDevice>> announcements;
};

bool contains (const std::string& text, const std::string& part) { return text.find (part) != text.npos; }

}

TEST_F (Find, TheOnlyReceiverIsUsedAndOfSeveralNone)
{
    auto ending = veltra ({ "info", "--setting", "UPnPTimeout=300" });
    EXPECT_EQ (kExitNoReceiver, ending.status);
    EXPECT_TRUE (ending.err.ends_with ("veltra: No receiver was found on the network; give an address with --device "
                                       "HOST:PORT.\n"))
        << ending.err;
    ending = veltra ({ "find", "--timeout", "300" });
    EXPECT_EQ (kExitNoReceiver, ending.status);
    EXPECT_EQ ("", ending.out);

    const auto address = startReceiver ({ "--profile", "stereo" });
    announce (address, "Lounge\x1b[2J");
    ending = veltra ({ "info", "--setting", "UPnPTimeout=1500" });
    EXPECT_EQ (kExitOk, ending.status) << ending.err;
    EXPECT_TRUE (ending.out.starts_with ("Receiver           Morvane, Stereo 2")) << ending.out;
    EXPECT_TRUE (contains (ending.err, address) && contains (ending.err, "Lounge\\x1b[2J")) << ending.err;

    // One that announces itself, and one that does not answer.
    const auto announced = startReceiver ({ "--announce", "--profile", "stereo", "--name", "Left & <right>" });
    announce ("127.0.0.1:1", "Second");
    ending = veltra ({ "find", "--timeout", "5000", "--log", path ("log"), "--log-level", "DEBUG" });
    EXPECT_EQ (kExitOk, ending.status) << ending.err;
    EXPECT_TRUE (contains (ending.out, "Left & <right>          " + announced + "         Morvane Stereo 2\n"))
        << ending.out;
    EXPECT_TRUE (contains (ending.out, "127.0.0.1:1             does not answer\n")) << ending.out;
    EXPECT_EQ (3, std::count (ending.out.begin(), ending.out.end(), '\n')) << ending.out;
    EXPECT_TRUE (contains (read (path ("log")), "] Starting UPnP handler for IP 127.0.0.1\n"));

    ending = veltra ({ "info", "--setting", "UPnPTimeout=1500" });
    EXPECT_EQ (kExitNoReceiver, ending.status);
    EXPECT_TRUE (ending.err.ends_with (
        "veltra: Several receivers were found on the network; choose one with --device HOST:PORT.\n"))
        << ending.err;
}

/** From a search to measurements with jq and a shell, without reading a sentence. */
TEST_F (Find, AScriptGoesFromTheSearchToMeasurementsOfAllChannels)
{
    startReceiver ({ "--announce", "--profile", "stereo", "--speed", "20" });
    const auto tools = std::filesystem::path (VELTRA_PROGRAM).parent_path().string();
    Ending ending;
    home->run ([&] {
        start ({ "env", "PATH=" + tools + ":/usr/bin:/bin", "examples/scripts/measure-all", path ("room"), "4000" });
        ending = finish();
    });
    EXPECT_EQ (0, ending.status) << ending.out << ending.err;

    const auto results = Json::parse (read (path ("room/measurements.json")), nullptr, false);
    ASSERT_EQ (2u, results.size()) << results;
    EXPECT_EQ ("FR", results[1]["channel"]);
    EXPECT_TRUE (results[1]["good"]);
    EXPECT_GT (std::filesystem::file_size (path ("room/FR.wav")), 5u * 44100u * sizeof (float));
}

}
