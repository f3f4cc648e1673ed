// SPDX-License-Identifier: GPL-3.0-or-later
#include <istream>

#include "protocol/StreamAdaptors.h"
#include "protocol/TextForm.h"
#include "protocol/veltraio.pb.h"
#include "tests/support/Testing.h"

namespace {

TEST (TextForm, AnIncompleteMessageIsShown)
{
    veltraio::Acknowledge incomplete;
    incomplete.set_errormessage ("why");
    EXPECT_EQ ("errorMessage: \"why\"\n", veltraio::toText (incomplete));
}

TEST (StreamAdaptors, CarryMoreThanTheirBufferAndDoNotSeek)
{
    std::string bytes;

    for (int i = 0; i < 100000; ++i)
        bytes += static_cast<char> (i * 7);

    juce::MemoryOutputStream written;
    {
        veltra::ipc::OutputStreamBuffer<char> buffer (written);
        std::ostream output (&buffer);
        output.put (bytes[0]);
        output.write (bytes.data() + 1, static_cast<std::streamsize> (bytes.size() - 1));
        EXPECT_TRUE (output.flush());
        EXPECT_EQ (-1, output.tellp());
    }
    EXPECT_EQ (bytes, std::string (static_cast<const char*> (written.getData()), written.getDataSize()));

    juce::MemoryInputStream source (written.getData(), written.getDataSize(), false);
    veltra::ipc::InputStreamBuffer<char> buffer (source);
    std::istream input (&buffer);
    EXPECT_EQ (bytes, std::string (std::istreambuf_iterator<char> (input), {}));
}

}
