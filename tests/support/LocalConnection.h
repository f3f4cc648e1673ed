// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "protocol/Connection.h"

/** A connection without a network: keeps what is written, and receives what the test says. */
class LocalConnection final : public veltra::ipc::Connection
{
public:
    explicit LocalConnection (int patience_ms = 0) : Connection (patience_ms) {}

    bool isConnected() override { return true; }
    juce::String getName() override { return "local"; }
    int getHeaderSize() override { return 0; }
    bool send (juce::MemoryOutputStream&, const veltra::ipc::Destination&) override { return false; }

    int write (const void* data, int size) override
    {
        if (refuses)
            return -1;

        {
            const std::lock_guard guard (mutex);
            written.emplace_back (static_cast<const char*> (data), static_cast<std::size_t> (size));
        }

        if (onWrite)
            onWrite();

        return takesAll ? size : size - 1;
    }

    void receive (const std::string& block) { onData (juce::MemoryBlock (block.data(), block.size())); }

    std::size_t writes()
    {
        const std::lock_guard guard (mutex);
        return written.size();
    }

    std::mutex mutex;
    std::vector<std::string> written;
    bool refuses = false;
    bool takesAll = true;
    std::function<void()> onWrite;
};
