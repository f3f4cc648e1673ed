#include <csignal>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "protocol/veltraio.pb.h"
#include "tests/receiver/TestHost.h"

extern char** environ;

namespace veltra::receiver {
namespace {

/** The built program, run with arguments. */
class Program
{
public:
    explicit Program (std::vector<std::string> arguments)
    {
        int out[2], errors[2];
        if (::pipe (out) != 0 || ::pipe (errors) != 0)
            throw std::runtime_error ("no pipe");
        output = Descriptor (out[0]);
        errorOutput = Descriptor (errors[0]);

        arguments.insert (arguments.begin(), VELTRA_RECEIVER_PROGRAM);
        std::vector<char*> words;
        for (auto& argument : arguments)
            words.push_back (argument.data());
        words.push_back (nullptr);

        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init (&actions);
        ::posix_spawn_file_actions_adddup2 (&actions, out[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2 (&actions, errors[1], STDERR_FILENO);
        for (const int end : { out[0], out[1], errors[0], errors[1] })
            ::posix_spawn_file_actions_addclose (&actions, end);
        const auto result = ::posix_spawn (&process, words[0], &actions, nullptr, words.data(), environ);
        ::posix_spawn_file_actions_destroy (&actions);
        ::close (out[1]);
        ::close (errors[1]);
        if (result != 0)
            throw std::runtime_error ("cannot start " VELTRA_RECEIVER_PROGRAM);
    }

    ~Program()
    {
        if (process > 0)
        {
            ::kill (process, SIGKILL);
            ::waitpid (process, nullptr, 0);
        }
    }

    std::string readLine()
    {
        std::string line;
        char c = 0;
        pollfd waiting { output.get(), POLLIN, 0 };
        while (::poll (&waiting, 1, 30000) > 0 && ::read (output.get(), &c, 1) == 1 && c != '\n')
            line += c;
        return line;
    }

    void signal (int number) { ::kill (process, number); }

    /** @returns the exit status, or -1 when it ended otherwise */
    int wait()
    {
        int status = 0;
        ::waitpid (process, &status, 0);
        process = 0;
        return WIFEXITED (status) ? WEXITSTATUS (status) : -1;
    }

    std::string errors()
    {
        std::string text;
        char buffer[4096];
        for (ssize_t count; (count = ::read (errorOutput.get(), buffer, sizeof (buffer))) > 0;)
            text.append (buffer, static_cast<std::size_t> (count));
        return text;
    }

private:
    pid_t process = 0;
    Descriptor output, errorOutput;
};

TEST (ReceiverProgram, TellsItsPortAndEndsOnASignalWithWhatItHolds)
{
    Program program ({ "--profile", "stereo", "--fault", "refuse Ping 1 'not now'", "--log", "events" });
    const auto line = program.readLine();
    ASSERT_TRUE (line.starts_with ("Listening on 127.0.0.1:")) << line;
    {
        TestHost host (static_cast<std::uint16_t> (std::stoi (line.substr (23))));
        EXPECT_EQ (host.command (veltraio::Ping()), "not now");
        program.signal (SIGTERM);
        EXPECT_EQ (host.waitForEnd(), "closed");
    }
    EXPECT_EQ (program.readLine(), "Stopped");
    EXPECT_EQ (program.readLine(), "all slots are empty");
    EXPECT_EQ (program.wait(), 0);
    EXPECT_EQ (program.errors(), "session 1: connected\nsession 1: fault \"refuse\" at Ping\nsession 1: Ping refused: not now\nsession 1: disconnected\n");
}

TEST (ReceiverProgram, SaysInOneSentenceWhyItDoesNotStart)
{
    const auto run = [] (std::vector<std::string> arguments)
    {
        Program program (std::move (arguments));
        const auto status = program.wait();
        return std::to_string (status) + " " + program.errors();
    };
    EXPECT_EQ (run ({ "--profile", "no/such/file" }), "3 veltra-receiver: no/such/file cannot be read, and no profile of that name comes along\n");
    EXPECT_EQ (run ({ "--folder", "LICENSE/x" }), "3 veltra-receiver: LICENSE/x cannot be made a folder\n");
    EXPECT_EQ (run ({ "--fault", "lose Pang 1" }),
               "3 veltra-receiver: --fault \"lose Pang 1\": line 1: \"Pang\" is no message of a host\n");
    EXPECT_EQ (run ({ "--room", "no/such/folder" }), "3 veltra-receiver: no/such/folder: No such file or directory\n");
    EXPECT_EQ (run ({ "--bind", "here" }), "4 veltra-receiver: Cannot listen on here:0: Invalid argument\n");
    EXPECT_TRUE (run ({ "--nonsense" }).starts_with ("2 "));
}

}
}
