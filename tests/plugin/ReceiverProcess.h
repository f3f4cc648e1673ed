#pragma once

#include <string>

#include <sys/types.h>

namespace veltra::test {

/** The simulated receiver as a program of its own, for hosts that cannot have its library in their process. */
class ReceiverProcess
{
public:
    explicit ReceiverProcess (const std::string& profile);
    ~ReceiverProcess();

    ReceiverProcess (const ReceiverProcess&) = delete;
    ReceiverProcess& operator= (const ReceiverProcess&) = delete;

    /** "127.0.0.1:4711" */
    const std::string& address() const { return listeningOn; }

private:
    pid_t process = -1;
    std::string listeningOn;
};

}
