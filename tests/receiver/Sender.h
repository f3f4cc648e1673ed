// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include <gtest/gtest.h>

#include "protocol/veltraio.pb.h"
#include "tests/receiver/TestHost.h"

namespace veltra::receiver {

/** The messages of a download into one slot, as a host sends them. Each gives the refusal's words, or "ok". */
struct Sender
{
    Sender (std::uint16_t port, std::uint32_t slotIndex) : host (port), slot (slotIndex) {}

    std::string load (std::uint32_t channels = 2, std::uint32_t total = 24, const std::string& name = "Mine")
    {
        auto message = toSlot<veltraio::LoadFilter>();
        message.mutable_filter()->set_name (name);
        message.mutable_filter()->set_noofchannels (channels);
        message.mutable_filter()->set_totalnoofbytes (total);
        return host.command (message);
    }

    std::string channel (std::uint32_t index, float gain_dB = 0.0f, float delay_ms = 0.0f, bool noEq = false)
    {
        veltraio::FilterChannel message;
        message.set_channelindex (index);
        message.set_name (index == 0 ? "FL" : "FR");
        message.set_gain_db (gain_dB);
        message.set_delay_ms (delay_ms);
        message.set_maxgain_db (3.5f);
        message.set_latency_ms (0.0f);
        message.set_noeq (noEq);
        return host.command (message);
    }

    std::string data (std::uint32_t rate, std::uint32_t bytes, std::vector<std::uint32_t> channels = { 0, 1 })
    {
        auto message = toSlot<veltraio::FilterData>();
        message.set_samplerate (rate);
        message.mutable_channelindices()->Assign (channels.begin(), channels.end());
        message.set_sizebytes (bytes);
        return host.command (message);
    }

    std::string chunk (std::uint32_t offset, const std::string& bytes)
    {
        auto message = toSlot<veltraio::FilterDataChunk>();
        message.set_dataoffset (offset);
        message.add_data (bytes);
        return host.command (message);
    }

    std::string cancel() { return host.command (toSlot<veltraio::DownloadCancelled>()); }
    std::string remove() { return host.command (toSlot<veltraio::RemoveFilter>()); }

    void begin()
    {
        EXPECT_EQ (load(), "ok");
        EXPECT_EQ (channel (0), "ok");
        EXPECT_EQ (channel (1), "ok");
    }

    TestHost host;
    std::uint32_t slot;

private:
    template <typename Message>
    Message toSlot() const
    {
        Message message;
        message.set_deviceindex (0);
        message.set_slotindex (slot);
        return message;
    }
};

}
