// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <memory>

#include "tests/support/Program.h"
#include "tools/ExitStatus.h"
#include "tools/receiver/network/Receiver.h"
#include "tools/veltra/filters/AudioFile.h"

namespace veltra::host {

inline std::string roomFile (const std::string& name) { return "examples/living-room/" + name + ".wav"; }

/** The built program with the built module, both as they are shipped, and a simulated receiver in this process.
    Nothing that the program made for itself may be left at the end. */
class WithReceiver : public Program
{
protected:
    using Words = std::vector<std::string>;

    WithReceiver() { std::filesystem::create_directory (path ("tmp")); }
    ~WithReceiver() override { EXPECT_TRUE (std::filesystem::is_empty (path ("tmp"))); }

    void startReceiver (receiver::Profile profile = receiver::shippedProfile ("seven-one"),
                        receiver::Receiver::Options options = {})
    {
        theReceiver = std::make_unique<receiver::Receiver> (std::move (profile), std::move (options));
    }

    void setFaults (const std::string& script)
    {
        std::string error;
        theReceiver->setFaults (receiver::parseFaults (script, error).value());
    }

    /** A command for the receiver; without one, for an address without a receiver, since a command without an address searches
        the network. */
    Words line (Words words) const
    {
        if (std::ranges::find (words, "--device") == words.end())
            words.insert (words.end(), { "--device", theReceiver != nullptr ? theReceiver->address() : "127.0.0.1:1" });

        words.insert (words.begin(), { "env", "TMPDIR=" + path ("tmp").string(), VELTRA_PROGRAM });
        words.insert (words.end(), { "--module", VELTRA_MODULE });
        words.insert (words.end(), furtherOptions.begin(), furtherOptions.end());
        return words;
    }

    void startVeltra (Words words) { start (line (std::move (words))); }
    Ending veltra (Words words) { return run (line (std::move (words))); }

    /** A command that needs neither module nor receiver. */
    Ending plainVeltra (Words words)
    {
        words.insert (words.begin(), VELTRA_PROGRAM);
        return run (words);
    }

    /** The filters of all channels and rates, in the order of a shell and not of the receiver. */
    std::string importRoom (const Words& options = {})
    {
        Words words { "import", "--force", "-o", path ("room.xml"), "--project", "Living room" };
        words.insert (words.end(), options.begin(), options.end());

        for (const std::string channel : { "BL", "BR", "C", "FL", "FR", "SL", "SR", "SW" })
            for (const char* const rate : { "_44100", "_48000", "_96000" })
                words.push_back (roomFile (channel + rate));

        expectSuccess (plainVeltra (words));
        return path ("room.xml");
    }

    static void expectSuccess (const Ending& ending)
    {
        EXPECT_EQ (0, ending.status) << ending.err;
        EXPECT_EQ ("", ending.err);
    }

    static void expectOneSentence (const Ending& ending, ExitStatus status, const std::string& words)
    {
        EXPECT_EQ (status, ending.status) << ending.err;
        EXPECT_NE (std::string::npos, ending.err.find (words)) << ending.err;
        EXPECT_TRUE (ending.err.starts_with ("veltra: ")) << ending.err;
        EXPECT_EQ (1, std::ranges::count (ending.err, '\n')) << ending.err;
    }

    static void expectParts (const std::string& text, const std::vector<std::string>& parts)
    {
        for (const auto& part : parts)
            EXPECT_NE (std::string::npos, text.find (part)) << part << "\n" << text;
    }

    std::unique_ptr<receiver::Receiver> theReceiver;
    Words furtherOptions;
};

}
