// SPDX-License-Identifier: GPL-3.0-or-later
#include "tests/support/Program.h"
#include "protocol/veltraio.pb.h"
#include "tests/receiver/TestHost.h"

namespace veltra::receiver {
namespace {

class ReceiverProgram : public host::Program
{
protected:
    void startReceiver (std::vector<std::string> arguments)
    {
        arguments.insert (arguments.begin(), VELTRA_RECEIVER_PROGRAM);
        start (arguments);
    }
};

TEST_F (ReceiverProgram, TellsItsPortAndEndsOnASignalWithWhatItHolds)
{
    startReceiver ({ "--profile", "stereo", "--fault", "refuse Ping 1 'not now'", "--log", "events" });
    waitFor ("out", "\n");
    const auto line = read (path ("out"));
    ASSERT_TRUE (line.starts_with ("Listening on 127.0.0.1:")) << line;
    {
        TestHost host (static_cast<std::uint16_t> (std::stoi (line.substr (23))));
        EXPECT_EQ (host.command (veltraio::Ping()), "not now");
        sendSignal (SIGTERM);
        EXPECT_EQ (host.waitForEnd(), "closed");
    }

    const auto ending = finish();
    EXPECT_EQ (ending.status, 0);
    EXPECT_TRUE (ending.out.ends_with ("\nStopped\nall slots are empty\n")) << ending.out;
    EXPECT_EQ (
        ending.err,
        "session 1: connected\nsession 1: fault \"refuse\" at Ping\nsession 1: Ping refused: not now\nsession 1: disconnected\n");
}

TEST_F (ReceiverProgram, SaysInOneSentenceWhyItDoesNotStart)
{
    const auto run = [this] (std::vector<std::string> arguments) {
        startReceiver (std::move (arguments));
        const auto ending = finish();
        return std::to_string (ending.status) + " " + ending.err;
    };
    EXPECT_EQ (run ({ "--profile", "no/such/file" }),
               "6 veltra-receiver: no/such/file cannot be read, and no profile of that name is built in\n");
    EXPECT_EQ (run ({ "--folder", "LICENSE/x" }), "7 veltra-receiver: LICENSE/x cannot be made a folder\n");
    EXPECT_EQ (run ({ "--fault", "lose Pang 1" }),
               "6 veltra-receiver: --fault \"lose Pang 1\": line 1: \"Pang\" is no message of a host\n");
    EXPECT_EQ (run ({ "--room", "no/such/folder" }), "6 veltra-receiver: no/such/folder: No such file or directory\n");
    EXPECT_EQ (run ({ "--bind", "here" }), "10 veltra-receiver: Cannot listen on here:0: Invalid argument\n");
    EXPECT_TRUE (run ({ "--nonsense" }).starts_with ("2 "));
}

}
}
