// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Level 4: envelopes however they are cut, and what is no envelope.
*/

#include <thread>

#include "common/BigEndian.h"
#include "tools/veltra/check/Check.h"

namespace veltra::check {

namespace {

using veltraio::Request;

constexpr Milliseconds kBetweenPieces { 5 };
constexpr Milliseconds kQuiet { 300 }; // in which an answer would come that must not

const Request kQuestion = request (Request::RequestType_kGetProtocolInfo);

void expectAnswer (Wire& wire, const std::string& sent)
{
    veltraio::ProtocolInfo answer;
    wire.expect (answer, sent, waitFor (kQuestion));
}

void readsPieces (Subject& subject)
{
    const auto whole = envelopeOf (kQuestion);
    Wire wire (subject.target);

    for (std::size_t at = 1; at < whole.size(); ++at)
    {
        wire.sendBytes (whole.substr (0, at));
        std::this_thread::sleep_for (kBetweenPieces);
        wire.sendBytes (whole.substr (at));
        expectAnswer (wire, "an envelope in two pieces, the first of " + std::to_string (at) + " bytes");
    }
}

void readsGlued (Subject& subject)
{
    Wire wire (subject.target);
    const std::string sent = "three envelopes in one piece";
    wire.sendBytes (envelopeOf (kQuestion) + envelopeOf (veltraio::Ping())
                    + envelopeOf (request (Request::RequestType_kGetFilteringState)));
    expectAnswer (wire, sent);
    veltraio::Pong pong;
    wire.expect (pong, sent, waitFor (kQuestion));
    veltraio::FilteringState state;
    wire.expect (state, sent, waitFor (kQuestion));
}

void skipsNoise (Subject& subject)
{
    Wire wire (subject.target);

    // None ends in a beginning of a marker, which could take the marker behind it along.
    for (const auto& noise :
         { std::string ("\x21\x01\x55"), std::string ("\xFF\x01\x21\x33"), std::string (3000, '\x55') })
    {
        wire.sendBytes (noise + envelopeOf (kQuestion));
        expectAnswer (wire, std::to_string (noise.size()) + " bytes of noise, then an envelope");
    }
}

void dropsWrongChecksums (Subject& subject)
{
    auto damaged = envelopeOf (kQuestion);
    damaged[14] = static_cast<char> (damaged[14] ^ 1);
    Wire wire (subject.target);
    wire.sendBytes (damaged);
    wire.expectSilence ("an envelope with a wrong checksum", kQuiet);
    wire.sendBytes (envelopeOf (kQuestion));
    expectAnswer (wire, "an envelope behind one with a wrong checksum");
}

void dropsTooLong (Subject& subject)
{
    Wire wire (subject.target);

    for (const std::uint32_t length : { 0x00100000u, 0x7FFFFFFFu, 0xFFFFFFFFu })
    {
        wire.sendBytes (envelopeOf (kQuestion).substr (0, 3) + bigEndian (length) + std::string (8, '\0')
                        + envelopeOf (kQuestion));
        expectAnswer (wire, "the header of an envelope of " + std::to_string (length) + " bytes, then a good envelope");
    }
}

void refusesUnknownMessages (Subject& subject)
{
    auto unknown = envelopeOf (veltraio::Ping());
    unknown[7] = static_cast<char> (unknown[7] ^ 1);
    Wire wire (subject.target);
    wire.sendBytes (unknown);
    wire.expectAcknowledge (false, "a message with an unknown identifier", waitFor (kQuestion));
    wire.sendBytes (envelopeOf (kQuestion));
    expectAnswer (wire, "a message behind an unknown one");
}

void forgetsHalfEnvelopes (Subject& subject)
{
    const auto whole = envelopeOf (kQuestion);
    Wire wire (subject.target);
    wire.sendBytes (whole.substr (0, whole.size() / 2));
    std::this_thread::sleep_for (Milliseconds (1100));
    wire.sendBytes (whole);
    expectAnswer (wire, "half an envelope, a pause of 1.1 s, and a whole one");
}

}

void addEnvelopeChecks (std::vector<Check>& checks)
{
    const std::vector<const char*> needs { "tells-protocol", "tells-filtering", "answers-ping" };
    const std::vector<Check> envelopeChecks {
        { "reads-envelopes-in-pieces", 4, "Reading", needs, readsPieces },
        { "reads-envelopes-glued", 4, "Reading", needs, readsGlued },
        { "skips-noise", 4, "Reading", needs, skipsNoise },
        { "drops-wrong-checksums", 4, "Reading", needs, dropsWrongChecksums },
        { "drops-envelopes-too-long", 4, "Reading", needs, dropsTooLong },
        { "refuses-unknown-messages", 4, "Exchanges", needs, refusesUnknownMessages },
        { "forgets-half-envelopes", 4, "Reading", needs, forgetsHalfEnvelopes },
    };
    checks.insert (checks.end(), envelopeChecks.begin(), envelopeChecks.end());
}

}
