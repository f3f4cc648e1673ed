// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/veltra/check/Check.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <set>
#include <string_view>

namespace veltra::check {

namespace {

using veltraio::Request;

/** The state of a receiver that checks change. It is read when the object is made, as far as the receiver tells it, and
    put back when it is destroyed. */
class Restorer
{
public:
    explicit Restorer (Subject& theSubject) : subject (theSubject)
    {
        attempt ([&] (Wire& wire) {
            const auto unit = wire.ask<veltraio::Unit> (request (Request::RequestType_kGetUnit));

            for (const auto& channel : unit.devices (0).outputchannels())
                attempt ([&] (Wire& asked) {
                    attenuations.push_back (asked.ask<veltraio::ChannelAttenuation> (
                        request (Request::RequestType_kGetChannelAttenuation, channel.channelindex())));
                });
        });
        keep (volume, Request::RequestType_kGetVolume);
        keep (slot, Request::RequestType_kGetActiveFilterSlot);
        keep (filtering, Request::RequestType_kGetFilteringState);
    }

    ~Restorer()
    {
        subject.target.isCancelled = nullptr;

        for (const auto& attenuation : attenuations)
            putBack (attenuation);

        if (slot)
            putBack (*slot);

        if (filtering)
            putBack (*filtering);

        if (volume)
            putBack (*volume);
    }

    Restorer (const Restorer&) = delete;
    Restorer& operator= (const Restorer&) = delete;

private:
    template <class Action>
    void attempt (Action&& action)
    {
        try
        {
            Wire wire (subject.target);
            action (wire);
        }
        catch (const Finding&)
        {
            // A check is made of the same question and reports it.
        }
    }

    template <class Message>
    void keep (std::optional<Message>& state, Request::RequestType type)
    {
        attempt ([&] (Wire& wire) { state = wire.ask<Message> (request (type)); });
    }

    template <class Message>
    void putBack (Message message)
    {
        if constexpr (requires { message.clear_description(); })
            message.clear_description();

        attempt ([&] (Wire& wire) { wire.command (message); });
    }

    Subject& subject;
    std::vector<veltraio::ChannelAttenuation> attenuations;
    std::optional<veltraio::Volume> volume;
    std::optional<veltraio::ActiveFilterSlot> slot;
    std::optional<veltraio::FilteringState> filtering;
};

Result runOne (const Check& check, Subject& subject)
{
    Result result { &check, Outcome::passed, {}, {}, 0.0 };
    const auto start = Clock::now();

    try
    {
        check.run (subject);
    }
    catch (const Finding& finding)
    {
        result.outcome = Outcome::failed;
        result.finding = finding;
    }
    catch (const Skip& skip)
    {
        result.outcome = Outcome::skipped;
        result.reason = skip.reason;
    }

    result.seconds = std::chrono::duration<double> (Clock::now() - start).count();
    return result;
}

}

const std::vector<Check>& allChecks()
{
    static const auto all = [] {
        std::vector<Check> checks;
        addQuestionChecks (checks);
        addCommandChecks (checks);
        addDownloadChecks (checks);
        addEnvelopeChecks (checks);
        addSessionChecks (checks);
        addMeasurementChecks (checks);
        std::ranges::stable_sort (checks, {}, &Check::level);
        return checks;
    }();
    return all;
}

std::vector<Result> runChecks (Subject& subject, int level, const std::function<void (const Result&)>& onResult)
{
    std::vector<Result> results;
    std::set<std::string_view> passed;
    const Restorer restorer (subject);

    for (const auto& check : allChecks())
    {
        if (check.level > level)
            break;

        const auto missing =
            std::ranges::find_if (check.needs, [&] (const char* name) { return ! passed.contains (name); });
        auto result =
            missing == check.needs.end()
                ? runOne (check, subject)
                : Result { &check, Outcome::skipped, {}, "'" + std::string (*missing) + "' did not pass", 0.0 };

        if (result.outcome == Outcome::passed)
            passed.insert (check.name);

        onResult (result);
        results.push_back (std::move (result));
    }

    return results;
}

std::string numberText (double number)
{
    char text[32];
    std::snprintf (text, sizeof (text), "%g", number);
    return text;
}

}
