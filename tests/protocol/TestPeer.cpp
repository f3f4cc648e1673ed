#include "tests/protocol/TestPeer.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int patience_ms = 10000;

bool waitFor (int handle)
{
    pollfd wanted { handle, POLLIN, 0 };
    return ::poll (&wanted, 1, patience_ms) > 0;
}

}

void PeerSocket::send (const std::string& bytes)
{
    if (::send (handle, bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t> (bytes.size()))
        throw std::runtime_error ("the peer could not send");
}

std::string PeerSocket::receive (std::size_t size)
{
    std::string bytes;

    while (bytes.size() < size && waitFor (handle))
    {
        char piece[4096];
        const auto got = ::recv (handle, piece, std::min (sizeof (piece), size - bytes.size()), 0);

        if (got <= 0)
            break;

        bytes.append (piece, static_cast<std::size_t> (got));
    }

    return bytes;
}

bool PeerSocket::waitForEnd()
{
    char piece[4096];
    ssize_t got = 1;

    while (got > 0 && waitFor (handle))
        got = ::recv (handle, piece, sizeof (piece), 0);

    return got <= 0;
}

void PeerSocket::close()
{
    if (handle >= 0)
        ::close (handle);

    handle = -1;
}

void PeerSocket::reset()
{
    const linger abort { 1, 0 };
    ::setsockopt (handle, SOL_SOCKET, SO_LINGER, &abort, sizeof (abort));
    close();
}

TestPeer::TestPeer() : listener (::socket (AF_INET, SOCK_STREAM, 0))
{
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    socklen_t size = sizeof (address);

    if (::bind (listener, reinterpret_cast<sockaddr*> (&address), size) != 0 || ::listen (listener, 16) != 0
        || ::getsockname (listener, reinterpret_cast<sockaddr*> (&address), &size) != 0)
        throw std::runtime_error ("no loopback port to listen on");

    listeningPort = ntohs (address.sin_port);
}

TestPeer::~TestPeer()
{
    ::close (listener);
}

std::unique_ptr<PeerSocket> TestPeer::accept()
{
    if (! waitFor (listener))
        throw std::runtime_error ("nobody connects");

    return std::make_unique<PeerSocket> (::accept (listener, nullptr, nullptr));
}
