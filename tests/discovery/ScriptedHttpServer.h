#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/** An HTTP server on 127.0.0.1 that does to its clients whatever a test wants, one thread a connection. */
class ScriptedHttpServer
{
public:
    /** The server's end of one connection, after the request has been read. */
    class Exchange
    {
    public:
        const std::string path;

        /** @returns false when the client has gone or the server is being stopped */
        bool send (std::string_view bytes);

        /** Holds the connection without a word, until the client goes, the server is stopped or the time is over. */
        bool wait (int milliseconds);

    private:
        friend class ScriptedHttpServer;
        Exchange (std::string requestedPath, int connection, std::stop_token stop)
            : path (std::move (requestedPath)), socket (connection), stopped (std::move (stop)) {}

        int socket;
        std::stop_token stopped;
    };

    using Script = std::function<void (Exchange&)>;

    explicit ScriptedHttpServer (Script script, const std::string& address = "127.0.0.1");
    ~ScriptedHttpServer();

    std::string url (const std::string& path) const;
    int port() const { return boundPort; }

    /** The requests so far, headers included. */
    std::vector<std::string> requests() const;

    /** A whole reply. */
    static std::string reply (int status, std::string_view body, std::string_view headers = {});

private:
    struct Connection
    {
        std::shared_ptr<std::atomic<bool>> done;
        std::jthread thread;
    };

    void accept (std::stop_token stop);
    void serve (int connection, std::stop_token stop);

    const Script script;
    const std::string address;
    int listener = -1;
    int boundPort = 0;
    mutable std::mutex mutex;
    std::vector<std::string> received;
    std::vector<Connection> connections; // acceptor only
    std::jthread acceptor;
};
