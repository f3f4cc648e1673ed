// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>

#include "protocol/Connection.h"
#include "protocol/Envelope.h"
#include "protocol/veltraio.pb.h"
#include "tests/allocation/FailingAllocation.h"

namespace veltra::test {

/** A receiver in the place of its connection: answers each message before the write of it returns. It stands for
    another computer, so its own allocations and those of the way back do not fail. */
class AnsweringConnection final : public ipc::Connection
{
public:
    AnsweringConnection() : Connection (0)
    {
        veltraio::Acknowledge message;
        message.set_ok (true);
        acknowledgement = block (message);
    }

    /** What a request of this type is answered with; without that it is acknowledged, as all commands are. */
    template <class Message>
    void setAnswer (veltraio::Request::RequestType type, const Message& message)
    {
        answers[static_cast<char> (type)] = block (message);
    }

    /** What onData takes to deliver a message. */
    template <class Message>
    static juce::MemoryBlock block (const Message& message)
    {
        juce::MemoryOutputStream stream;
        veltraio::putEnvelope (stream, {}, veltraio::IdType<Message>::value, message);
        return { static_cast<const char*> (stream.getData()) + 4, stream.getDataSize() - 4 };
    }

    bool isConnected() override { return true; }
    juce::String getName() override { return "answering"; }
    int getHeaderSize() override { return 0; }
    bool send (juce::MemoryOutputStream&, const ipc::Destination&) override { return false; }

    int write (const void* data, int size) override
    {
        const FailingAllocation::Pause pause;
        const auto* const envelope = static_cast<const char*> (data);
        hash = 31 * hash + veltraio::envelopeHash (envelope, static_cast<std::size_t> (size));

        const bool isRequest = static_cast<std::int32_t> (juce::ByteOrder::bigEndianInt (envelope + 3 + 4))
                               == veltraio::IdType<veltraio::Request>::value;
        const auto answer =
            isRequest ? answers.find (envelope[3 + 4 + 4 + 4 + 1]) : answers.end(); // behind the field's tag
        onData (answer != answers.end() ? answer->second : acknowledgement);
        return size;
    }

    std::uint32_t hash = 0; ///< of all that was sent, in its order

private:
    std::map<char, juce::MemoryBlock> answers;
    juce::MemoryBlock acknowledgement;
};

}
