#pragma once

#include <memory>
#include <string>

/** The far end of a loopback connection, in bytes of the test's own making. Everything waits 10 seconds at most. */
class PeerSocket
{
public:
    explicit PeerSocket (int acceptedHandle) : handle (acceptedHandle) {}
    ~PeerSocket() { close(); }

    PeerSocket (const PeerSocket&) = delete;
    PeerSocket& operator= (const PeerSocket&) = delete;

    void send (const std::string& bytes);

    /** So many bytes, or fewer when no more come. */
    std::string receive (std::size_t size);

    /** Reads on until the other side closes. @returns whether it did */
    bool waitForEnd();

    void close();
    void reset();

private:
    int handle;
};

class TestPeer
{
public:
    TestPeer();
    ~TestPeer();

    TestPeer (const TestPeer&) = delete;
    TestPeer& operator= (const TestPeer&) = delete;

    int port() const { return listeningPort; }
    std::unique_ptr<PeerSocket> accept();

private:
    int listener;
    int listeningPort;
};
