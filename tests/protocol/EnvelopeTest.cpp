// SPDX-License-Identifier: GPL-3.0-or-later

#include "protocol/Envelope.h"
#include "protocol/EnvelopeParser.h"
#include "protocol/veltraio.pb.h"
#include "tests/support/Envelope.h"
#include "tests/support/Testing.h"

namespace {

using namespace std::string_literals;
using veltra::bigEndian;
using veltra::test::envelopeOf;

/** Identifier, checksum and body as the parser hands them up. */
std::string blockOf (const std::string& envelope) { return envelope.substr (3 + 4); }

struct Parser : veltraio::VeltraIOEnvelopeParser
{
    Parser() : VeltraIOEnvelopeParser ([this] { return now; }) {}

    void feed (const std::string& bytes)
    {
        EXPECT_TRUE (VeltraIOEnvelopeParser::feed (reinterpret_cast<const std::uint8_t*> (bytes.data()),
                                                   static_cast<std::uint32_t> (bytes.size())));
    }

    void onEnvelope (const juce::MemoryBlock& block) override
    {
        blocks.emplace_back (static_cast<const char*> (block.getData()), block.getSize());
    }

    std::int64_t now = 1000000;
    std::vector<std::string> blocks;
};

TEST (EnvelopeHash, CountsBytesAsUnsignedAndWraps)
{
    static_assert (veltraio::envelopeHash ("") == 0);
    static_assert (veltraio::envelopeHash ("\xff\xff") == 255u * 31 + 255);
    static_assert (veltraio::envelopeHash ("veltraio.Ping") == 0x508fc1b4u);

    EXPECT_EQ (0x508fc1b4, veltraio::IdType<veltraio::Ping>::value);
    EXPECT_EQ (0xf5fa341au, static_cast<std::uint32_t> (veltraio::IdType<veltraio::Acknowledge>::value));
    EXPECT_EQ (0, veltraio::IdType<veltraio::AnyMessage>::value);
}

TEST (EnvelopeHash, OfBodiesIsTheSameAtAnyLengthAndAlignment)
{
    std::string bytes (2100, '\xff'); // each lane at its largest
    EXPECT_EQ (veltraio::envelopeHash (bytes), veltraio::envelopeHash (bytes.data(), bytes.size()));

    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char> (i * 151 + i / 7);

    for (std::size_t size = 0; size < 140; ++size)
        for (std::size_t start = 0; start < 17; ++start)
            ASSERT_EQ (veltraio::envelopeHash (std::string_view (bytes).substr (start, size)),
                       veltraio::envelopeHash (bytes.data() + start, size))
                << size << " bytes from " << start;
}

TEST (Envelope, AReceivedBlockIsReadOnlyWhenItsChecksumFits)
{
    const auto block = blockOf (envelopeOf ("veltraio.Acknowledge", "\x08\x01"));
    const auto read = [] (const std::string& bytes) {
        return veltraio::getEnvelope (juce::MemoryBlock (bytes.data(), bytes.size())).has_value();
    };

    EXPECT_TRUE (read (block));
    EXPECT_TRUE (read (blockOf (envelopeOf ("veltraio.Pong", "")))) << "an empty body";
    EXPECT_FALSE (read (block + "x"));
    EXPECT_FALSE (read (block.substr (0, block.size() - 1)));
    EXPECT_FALSE (read (block.substr (0, 7))) << "no room for identifier and checksum";
    EXPECT_FALSE (read (""));
}

TEST (EnvelopeParser, FindsEnvelopesInPiecesOfAnySizeAndBetweenNoise)
{
    const auto first = envelopeOf ("veltraio.Acknowledge", "\x08\x01");
    const auto second = envelopeOf ("veltraio.Pong", "");
    // A byte that breaks the marker is not looked at again: the envelope behind "!" is lost.
    const auto stream = "noise\x21\x01\x21 "s + first + second + "more noise!" + first + second;

    for (std::size_t piece = 1; piece <= stream.size(); ++piece)
    {
        Parser parser;

        for (std::size_t i = 0; i < stream.size(); i += piece)
            parser.feed (stream.substr (i, piece));

        const std::vector<std::string> expected { blockOf (first), blockOf (second), blockOf (second) };
        ASSERT_EQ (expected, parser.blocks) << "in pieces of " << piece;
    }
}

TEST (EnvelopeParser, TheLargestEnvelopeIs32767BytesAndALongerOneIsSkipped)
{
    Parser parser;
    const std::string largest (32767 - 15, 'x');
    parser.feed (envelopeOf ("a", largest));
    ASSERT_EQ (1u, parser.blocks.size());
    EXPECT_EQ (largest, parser.blocks[0].substr (8));

    // The length alone decides; the sum with the header may not wrap around.
    for (const std::uint32_t length : { 32768u - 15, 0x7fffffffu, 0x80000000u, 0xfffffff0u, 0xfffffff1u, 0xffffffffu })
    {
        parser.blocks.clear();
        parser.feed ("\x21\x01\xff" + bigEndian (length) + std::string (40000, '\0'));
        EXPECT_TRUE (parser.blocks.empty()) << length;
        parser.feed (envelopeOf ("veltraio.Pong", ""));
        EXPECT_EQ (1u, parser.blocks.size()) << "out of step after " << length;
    }
}

TEST (EnvelopeParser, APartialEnvelopeIsDroppedAfterAPauseOfASecond)
{
    const auto envelope = envelopeOf ("veltraio.Acknowledge", "\x08\x01");
    const std::vector<std::pair<std::vector<std::int64_t>, bool>> cases {
        { { 999 }, true },
        { { 1000 }, false },
        { { 999, 999, 999 }, true }, // an empty read counts as well
        { { -5000, 999 }, true },    // a clock that steps backwards drops nothing
    };

    for (const auto& [pauses, isDelivered] : cases)
    {
        Parser parser;
        parser.feed (envelope.substr (0, 10));

        for (const auto pause : pauses)
        {
            parser.now += pause;
            parser.feed ("");
        }

        parser.feed (envelope.substr (10));
        parser.feed (envelope);
        EXPECT_EQ (isDelivered ? 2u : 1u, parser.blocks.size());
    }
}

TEST (EnvelopeParser, TheMarkerIsTheOneThatHeldWhenTheParserWasMade)
{
    const std::uint8_t other[] = { 'V', 'T' };
    Parser usual;
    veltraio::setEnvelopeMarker (other);
    Parser changed;
    EXPECT_THROW (veltraio::setEnvelopeMarker (std::vector<std::uint8_t> (65)), std::invalid_argument);
    EXPECT_EQ ((std::vector<std::uint8_t> { 'V', 'T' }), veltraio::getEnvelopeMarker());
    veltraio::setEnvelopeMarker ({});

    const auto envelope = envelopeOf ("veltraio.Acknowledge", "\x08\x01");

    for (auto* parser : { &usual, &changed })
    {
        parser->feed ("VT" + envelope.substr (3));
        parser->feed (envelope);
        EXPECT_EQ (std::vector<std::string> { blockOf (envelope) }, parser->blocks);
    }

    EXPECT_EQ ((std::vector<std::uint8_t> { 0x21, 0x01, 0xFF }), veltraio::getEnvelopeMarker());
}

}
