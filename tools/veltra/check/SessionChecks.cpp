// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Levels 4 and 5: several hosts, hosts that vanish, hosts that are silent, and all of it for a long time.
*/

#include <algorithm>
#include <memory>
#include <thread>

#include "tools/veltra/check/TrialFilter.h"

namespace veltra::check {

namespace {

using veltraio::Request;

const Request kQuestion = request (Request::RequestType_kGetProtocolInfo);
constexpr Milliseconds kIdle { 6000 }; // longer than the interval of a keep-alive
constexpr Milliseconds kPause { 100 };
constexpr int kExchangesOfASession = 200;

/** What every receiver has to answer. */
void askAll (Wire& wire)
{
    wire.ask<veltraio::ProtocolInfo> (kQuestion);
    wire.ask<veltraio::Unit> (request (Request::RequestType_kGetUnit));
    wire.ask<veltraio::TopologyInfo> (request (Request::RequestType_kGetTopologyInfo));
    wire.ask<veltraio::StimulusInfo> (request (Request::RequestType_kGetStimulusInfo));
    wire.ask<veltraio::FilteringState> (request (Request::RequestType_kGetFilteringState));
}

void servesTwo (Subject& subject)
{
    Wire first (subject.target), second (subject.target);

    for (int i = 0; i < 20; ++i)
        for (auto* const wire : { &first, &second })
            askAll (*wire);

    // Both have questions under way, and what one sets the other one sees.
    const auto state = request (Request::RequestType_kGetFilteringState);
    const bool before = first.ask<veltraio::FilteringState> (state).isfiltering();
    veltraio::FilteringState message;
    message.set_deviceindex (0);

    for (const bool isOn : { ! before, before })
    {
        message.set_isfiltering (isOn);
        first.command (message);

        if (second.ask<veltraio::FilteringState> (state).isfiltering() != isOn)
            throw Finding { describe (message) + " on one connection", "the same state on another connection",
                            "the old state" };
    }
}

void survivesVanishing (Subject& subject)
{
    const auto whole = envelopeOf (kQuestion);

    for (const auto& sent : { std::string(), whole.substr (0, 9), whole, whole + whole + whole })
    {
        Wire (subject.target).sendBytes (sent);
        Wire wire (subject.target);
        askAll (wire);
    }

    if (! subject.slot)
        return;

    const auto block = trialFilter (subject, false).front();

    for (const int stage : { 0, 1, 2 }) // behind the announcement, behind a chunk, in the midst of one
    {
        auto wire = std::make_unique<Wire> (subject.target);
        const TrialDownload download (subject, *wire, block);
        const auto chunk = download.chunk (block, 0, 64);

        if (stage > 0)
            wire->command (chunk);

        if (stage > 1)
            wire->sendBytes (envelopeOf (download.chunk (block, 64, 64)).substr (0, 40));

        wire.reset();
        Wire another (subject.target);
        askAll (another);
    }
}

void keepsIdleConnections (Subject& subject)
{
    Wire wire (subject.target);
    wire.ask<veltraio::ProtocolInfo> (kQuestion);
    wire.expectSilence ("nothing", kIdle);
    wire.ask<veltraio::ProtocolInfo> (kQuestion);
}

void lasts (Subject& subject)
{
    const auto end = Clock::now() + std::chrono::duration<double> (60.0 * subject.minutes);
    std::uint64_t sessions = 0;

    while (Clock::now() < end)
    {
        try
        {
            Wire wire (subject.target);

            for (int i = 0; i < kExchangesOfASession / 6 && Clock::now() < end; ++i)
                askAll (wire);

            if (++sessions % 10 == 0 && subject.slot)
            {
                const auto block = trialFilter (subject, false).front();
                TrialDownload download (subject, wire, block);
                download.sendFrom (block, 0);
            }
        }
        catch (Finding& finding)
        {
            finding.sent += ", in session " + std::to_string (sessions + 1);
            throw;
        }
    }
}

}

void addSessionChecks (std::vector<Check>& checks)
{
    const std::vector<const char*> needs { "tells-protocol", "tells-unit", "tells-topology", "tells-stimuli",
                                           "tells-filtering" };
    const std::vector<Check> sessionChecks {
        { "serves-two-hosts", 4, "Exchanges", needs, servesTwo },
        { "survives-hosts-that-vanish", 4, "Opening a session", needs, survivesVanishing },
        { "keeps-idle-connections", 4, "Opening a session", needs, keepsIdleConnections },
        { "lasts", 5, "Exchanges", needs, lasts },
    };
    checks.insert (checks.end(), sessionChecks.begin(), sessionChecks.end());
}

}
