// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <thread>

#include <juce_core/juce_core.h>

#include "tools/veltra/check/Wire.h"
#include "tools/veltra/trace/Tracer.h"

namespace veltra::trace {

/** Stands between hosts and a receiver: takes connections on the loopback interface, makes one to the receiver for each, and
    passes all bytes on unchanged, once the tracer has seen them. */
class Proxy
{
public:
    /** @param port  to listen on; 0 picks a free one
        @throws      Failure (kExitNetwork) */
    Proxy (check::Target receiver, int port, Tracer& tracer);

    /** Ends all connections. */
    ~Proxy();

    Proxy (const Proxy&) = delete;
    Proxy& operator= (const Proxy&) = delete;

    int port() const { return listener.getBoundPort(); }

    /** Takes connections until the function says that it is enough, which is asked ten times a second. */
    void serve (const std::function<bool()>& isEnough);

private:
    class Link;

    const check::Target receiver;
    Tracer& tracer;
    juce::StreamingSocket listener;
    std::list<std::unique_ptr<Link>> links;
    unsigned lastNumber = 0;
};

}
