#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/** Another program, for as long as the object lives, in the network of the thread that makes it. */
class ChildProcess
{
public:
    /** @param words   the program, looked for in PATH, and its arguments
        @param output  file for what it prints; errors go nowhere */
    explicit ChildProcess (std::vector<std::string> words, const std::string& output = "/dev/null");

    /** Ends it, and what it has started. */
    ~ChildProcess();

    ChildProcess (const ChildProcess&) = delete;
    ChildProcess& operator= (const ChildProcess&) = delete;

private:
    pid_t process = -1;
};
