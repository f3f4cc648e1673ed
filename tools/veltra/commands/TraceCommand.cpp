// SPDX-License-Identifier: GPL-3.0-or-later
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string_view>
#include <thread>
#include <utility>

#include "tools/output/Json.h"
#include "tools/output/OutputFile.h"
#include "tools/output/SignalWatch.h"
#include "tools/veltra/commands/Commands.h"
#include "tools/veltra/commands/ReceiverTarget.h"
#include "tools/veltra/trace/Proxy.h"

namespace veltra::host {

namespace {

struct TraceOptions
{
    int port = 0;
    std::filesystem::path output;
    std::uint32_t limit_MB = 256;
    bool force = false;
};

/** Prints on a thread of its own, so that an output that takes nothing for a while does not hold the conversation up. */
class Printer
{
public:
    Printer() : thread ([this] { run(); }) {}

    /** Waits until all is printed. */
    ~Printer()
    {
        {
            const std::scoped_lock guard (lock);
            isOver = true;
        }

        changed.notify_one();
        thread.join();
    }

    Printer (const Printer&) = delete;
    Printer& operator= (const Printer&) = delete;

    /** Any thread. */
    void add (std::string_view event, const Json& object, const std::string& text)
    {
        const std::scoped_lock guard (lock);

        if (waiting.size() < kMostWaiting)
            waiting.push_back ({ std::string (event), object, text });
        else
            ++left;

        changed.notify_one();
    }

private:
    struct Line
    {
        std::string event;
        Json object;
        std::string text;
    };

    static constexpr std::size_t kMostWaiting = 65536;

    void run()
    {
        std::unique_lock guard (lock);

        while (! isOver || ! waiting.empty())
        {
            changed.wait (guard, [this] { return isOver || ! waiting.empty(); });
            const auto lines = std::exchange (waiting, {});
            const auto missing = std::exchange (left, 0u);
            guard.unlock();

            for (const auto& line : lines)
            {
                textOutput() << line.text << std::flush;
                printJson (line.event, line.object);
            }

            if (missing > 0)
                notes() << missing << " lines are left out: the output takes them too slowly.\n";

            guard.lock();
        }
    }

    std::mutex lock;
    std::condition_variable changed;
    std::deque<Line> waiting;
    unsigned left = 0; ///< lines that found no room
    bool isOver = false;
    std::thread thread; // last: it uses all that is above
};

/** Hands the lines that are appended to a file to a tracer, for as long as the object lives. */
class LogFollower
{
public:
    LogFollower (const std::filesystem::path& logFile, trace::Tracer& theTracer) : file (logFile), tracer (theTracer)
    {
        std::error_code ignored;
        const auto size = std::filesystem::file_size (file, ignored);
        position = ignored ? 0 : static_cast<std::streamoff> (size);
        thread = std::jthread ([this] (const std::stop_token& stop) {
            while (! stop.stop_requested())
            {
                follow();
                std::this_thread::sleep_for (std::chrono::milliseconds (50));
            }
        });
    }

private:
    void follow()
    {
        std::ifstream stream (file, std::ios::binary);
        stream.seekg (position);
        std::string line;

        while (std::getline (stream, line) && ! stream.eof()) // a line without its end is not written yet
        {
            position = stream.tellg();
            tracer.logged (line);
        }
    }

    const std::filesystem::path file;
    trace::Tracer& tracer;
    std::streamoff position = 0;
    std::jthread thread; // last: it uses all that is above
};

void run (const SessionOptions& session, const TraceOptions& options)
{
    std::optional<OutputFile> output;
    std::optional<capture::CaptureWriter> writer;

    if (! options.output.empty())
    {
        checkMayWrite (options.output, options.force);
        output.emplace (options.output);
        writer.emplace (output->stream(), std::uint64_t { options.limit_MB } << 20);
    }

    const auto receiver = receiverTarget (session);
    const CancelScope cancel;
    {
        Printer printer;
        trace::Tracer tracer ([&] (std::string_view event, const Json& object,
                                   const std::string& line) { printer.add (event, object, line); },
                              writer ? &*writer : nullptr);
        std::optional<LogFollower> log;
        trace::Proxy proxy (receiver, options.port, tracer);
        const auto ownAddress = "127.0.0.1:" + std::to_string (proxy.port());
        textOutput() << "Listening on " << ownAddress << std::endl;
        printJson ("listening", { { "address", ownAddress } });

        if (! session.log.empty())
            log.emplace (session.log, tracer);

        proxy.serve ([&] { return cancel.requested(); });
    }

    if (output)
        output->complete();

    printResult ({ { "output", options.output.empty() ? Json() : Json (options.output.string()) } }, "");
}

}

void addTraceCommand (CLI::App& program, const SessionOptions& session)
{
    auto* const command =
        program.add_subcommand ("trace", "Show and record what an application and a receiver say to each other");
    const auto options = std::make_shared<TraceOptions>();

    command->add_option ("--listen", options->port, "Port for the application; 0 takes a free one")
        ->check (CLI::Range (0, 65535).description (""))
        ->type_name ("PORT")
        ->capture_default_str();
    command->add_option ("-o,--output", options->output, "Also record into a pcapng file, which Wireshark opens")
        ->type_name ("FILE");
    command->add_option ("--limit", options->limit_MB, "Largest recording in MiB; what is beyond it is shown only")
        ->check (CLI::Range (1u, 1048576u).description (""))
        ->type_name ("MIB")
        ->capture_default_str();
    command->add_flag ("--force", options->force, "Replace an output file that exists");
    command->footer (
        "\nThe setting \"Device\" of the application's module has to be the address that is printed: TCP:127.0.0.1:PORT. Each\n"
        "envelope is a line: time (UTC), connection, > for the application or < for the receiver, message and fields, and\n"
        "behind an answer the time since its question. --log FILE adds the lines that the application's module\n"
        "writes to its log meanwhile. Ctrl-C ends the trace and completes the recording.\n"
        "`veltra-receiver --replay FILE` plays the receiver's half of a recording.\n");
    command->callback ([options, &session] { run (session, *options); });
}

}
