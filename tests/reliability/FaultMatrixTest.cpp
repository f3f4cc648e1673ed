// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The outcome of each operation under each fault of the receiver. docs/reliability.md shows the table.
*/

#include "common/SettingKeys.h"
#include "tests/reliability/CaptureCount.h"
#include "tests/support/DeviceFixture.h"
#include "tests/support/NetworkNamespace.h"

#include <chrono>
#include <future>
#include <thread>

#include <juce_core/juce_core.h>

namespace veltra::test {

namespace {

using namespace veltratune_io;
using Clock = std::chrono::steady_clock;

/** What a fault comes to for an operation whose reply it befalls. */
enum class Effect
{
    none,    ///< the operation succeeds
    refusal, ///< it fails at once, with the receiver's words where it keeps words
    silence, ///< it fails when its wait is over
    broken   ///< the same, and the session is over
};

struct Misbehaviour
{
    const char* name;
    const char* fault; ///< a line of a fault script, with TYPE for the message that it befalls
    Effect effect;
    const char* words = ""; ///< what the receiver says in a refusal begins with this

    friend void PrintTo (const Misbehaviour& row, std::ostream* out) { *out << row.fault; }
};

const Misbehaviour misbehaviours[] = {
    { "Silent", "lose TYPE *", Effect::silence },
    { "Slow", "pieces TYPE * 1 2", Effect::none },
    { "Refusing", "refuse TYPE * 'not now'", Effect::refusal, "not now" },
    { "LyingAboutLengths", "wrong-length TYPE * 5", Effect::silence },
    { "LyingGrossly", "wrong-length TYPE * 2000000000", Effect::silence },
    { "WrongChecksum", "wrong-checksum TYPE *", Effect::silence },
    { "WrongType", "answer TYPE * Pong", Effect::silence },
    { "Duplicating", "duplicate TYPE * 3", Effect::none },
    { "Truncating", "truncate TYPE * 1", Effect::refusal }, // arrives without the "ok"
    { "Noisy", "noise TYPE * 3000", Effect::none },
    { "Resetting", "reset TYPE *", Effect::broken },
    { "ResettingInsideAReply", "reset TYPE * 9", Effect::broken },
    { "Closing", "close TYPE *", Effect::broken },
    { "MessageLimitFallen", "limit TYPE * 10", Effect::refusal, "Envelope of " },
};

/** One operation against a receiver of its own. */
class Cell : public DeviceFixture
{
public:
    Cell()
    {
        log.reset(); // collects for the whole process
        settings[keys::kFilterDataChunkTimeout] = "150";
        settings[keys::kFilterDataChunkRetries] = "2";
    }

    void TestBody() override {}

    std::string search() { return text (find()); }
    std::string query() { return text (newest().GetVolume (nullptr, 0) > 0.0f); }
    std::string command() { return text (newest().SetVolume (0.5f)); }
    std::string enter() { return withWords (newest().EnterMeasurementMode (48000, 0, 1, nullptr)); }
    std::string load() { return withWords (download (newest())); }

    std::string remove()
    {
        FilterSet* set = nullptr;
        return text (newest().GetFilterSet (1, 0, &set) && newest().RemoveFilterSet (set));
    }

    void befall (const Misbehaviour& misbehaviour, const std::string& type)
    {
        setFaults (juce::String (misbehaviour.fault).replace ("TYPE", type).toStdString());
    }

    /** Whether a host can go on: with its session, or with a new one when that has ended. After a reply of wrong length
        the parser is in step again behind the next one. */
    bool goesOn (Effect effect)
    {
        setFaults ("");
        receiver->setMessageLimit (0);

        if (effect == Effect::broken || count() == 0)
            return find() && newest().SetVolume (0.25f);

        return newest().SetVolume (0.25f) || newest().SetVolume (0.25f);
    }

    Device2& newest() { return device (count() - 1); }

private:
    std::uint32_t count()
    {
        std::uint32_t found = 0;

        for (Device* ignored = nullptr; plugin->GetDevice (found, &ignored);)
            ++found;

        return found;
    }

    static std::string text (bool success) { return success ? "success" : "failure"; }

    std::string withWords (EResult result)
    {
        const auto words = takeLastError (newest());
        return text (result == kResultOk) + (words.empty() ? "" : ": " + words);
    }
};

struct Operation
{
    const char* name;
    const char* type; ///< the message whose reply is befallen
    std::string (Cell::*run)();
    const char* wordsOfSilence; ///< empty where an operation leaves no words
    bool keepsRefusal;
};

const Operation operations[] = {
    { "open", "GetUnit", &Cell::search, "", false },
    { "query", "GetVolume", &Cell::query, "", false },
    { "command", "Volume", &Cell::command, "", false },
    { "mode", "OperationModeInfo", &Cell::enter, "Timeout", true },
    { "download: announcement", "LoadFilter", &Cell::load, "Timeout sending LoadFilter", true },
    { "download: channel", "FilterChannel", &Cell::load, "", true },
    { "download: block", "FilterData", &Cell::load, "", true },
    { "download: chunk", "FilterDataChunk", &Cell::load, "Filter data send failed, timeout", true },
    { "release of a set", "RemoveFilter", &Cell::remove, "", false },
};

/** How an operation's outcome must begin. */
std::string expected (const Operation& operation, const Misbehaviour& misbehaviour)
{
    if (misbehaviour.effect == Effect::none)
        return "success";

    const std::string words = misbehaviour.effect != Effect::refusal ? operation.wordsOfSilence
                              : operation.keepsRefusal               ? misbehaviour.words
                                                                     : "";
    return words.empty() ? "failure" : "failure: " + words;
}

class FaultMatrix : public testing::TestWithParam<Misbehaviour>
{
};

class HalfOpen : public PrivateNetworkTest
{
};

}

TEST_P (FaultMatrix, EveryOperationEndsInTimeWithItsOutcomeAndTheHostGoesOn)
{
    const auto& misbehaviour = GetParam();
    std::vector<std::unique_ptr<Cell>> cells;

    for (const auto& operation : operations)
    {
        auto& cell = *cells.emplace_back (std::make_unique<Cell>());

        if (operation.run != &Cell::search)
        {
            ASSERT_EQ (cell.search(), "success");
        }

        cell.befall (misbehaviour, operation.type);
    }

    struct Outcome
    {
        std::string text;
        std::chrono::duration<double> time;
        bool goesOn;
    };

    std::vector<std::future<Outcome>> outcomes;

    for (std::size_t i = 0; i < cells.size(); ++i)
        outcomes.push_back (
            std::async (std::launch::async, [&cell = *cells[i], &operation = operations[i], &misbehaviour] {
                const auto start = Clock::now();
                auto text = (cell.*operation.run)();
                const auto time = Clock::now() - start;
                return Outcome { std::move (text), time, cell.goesOn (misbehaviour.effect) };
            }));

    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        const auto outcome = outcomes[i].get();
        EXPECT_TRUE (outcome.text.starts_with (expected (operations[i], misbehaviour)))
            << operations[i].name << ": " << outcome.text;
        EXPECT_LT (outcome.time.count(), 20.0) << operations[i].name << ": the longest wait takes 5 s";
        EXPECT_TRUE (outcome.goesOn) << operations[i].name;
    }
}

INSTANTIATE_TEST_SUITE_P (, FaultMatrix, testing::ValuesIn (misbehaviours),
                          [] (const auto& row) { return row.param.name; });

/** Nothing arrives any more, in either direction, and neither side is notified. */
TEST_F (HalfOpen, IsSilenceAndTheSessionGoesOnWhenTheNetworkIsBack)
{
    const Misbehaviour halfOpen { "HalfOpen", "", Effect::silence };
    std::vector<const Operation*> affected;
    std::vector<std::unique_ptr<Cell>> cells;

    for (const auto& operation : operations)
    {
        if (operation.run == &Cell::search
            || (operation.run == &Cell::load && operation.type != std::string ("LoadFilter")))
            continue; // connecting fails at once, and no download gets beyond its announcement

        affected.push_back (&operation);
        home->run ([&] { ASSERT_EQ (cells.emplace_back (std::make_unique<Cell>())->search(), "success"); });
    }

    home->ip ("link set lo down");
    const auto start = Clock::now();
    std::vector<std::future<std::string>> outcomes;

    for (std::size_t i = 0; i < cells.size(); ++i)
        outcomes.push_back (
            std::async (std::launch::async, [&cell = *cells[i], run = affected[i]->run] { return (cell.*run)(); }));

    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        const auto outcome = outcomes[i].get();
        EXPECT_TRUE (outcome.starts_with (expected (*affected[i], halfOpen))) << affected[i]->name << ": " << outcome;
    }

    EXPECT_LT (Clock::now() - start, std::chrono::seconds (20)) << "the longest wait takes 5 s";

    home->ip ("link set lo up");
    const auto deadline = Clock::now() + std::chrono::seconds (30); // the system waits longer from attempt to attempt

    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        bool goesOn = false;

        while (! goesOn && Clock::now() < deadline)
            goesOn = cells[i]->goesOn (Effect::silence);

        EXPECT_TRUE (goesOn) << affected[i]->name;
    }
}

namespace {

struct CaptureFault
{
    const char* fault; ///< befalls packets 2 to 4 of those that are sent
    int arriving;      ///< packets of 10 that reach the callback
    bool endsTheSession = false;

    friend void PrintTo (const CaptureFault& row, std::ostream* out) { *out << row.fault; }
};

class CaptureFaults : public DeviceFixture,
                      public testing::WithParamInterface<CaptureFault>
{
};

}

TEST_P (CaptureFaults, CostNoMoreThanThePacketsThatTheyBefall)
{
    setFaults ("refuse OperationModeInfo *\nanswer OperationModeInfo * Acknowledge 'ok: true'");
    auto& opened = open();
    CaptureCount counter;
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &counter), kResultOk);
    setFaults (GetParam().fault);

    veltraio::AudioData packet;
    packet.add_data (1.0f);

    for (int i = 0; i < 10; ++i)
    {
        packet.set_packetnumber (static_cast<std::uint32_t> (i));
        receiver->broadcast (packet);

        // A reset may take with it what has not been read.
        for (int wait_ms = 0; i == 0 && counter.packets == 0 && wait_ms < 5000; ++wait_ms)
            std::this_thread::sleep_for (std::chrono::milliseconds (1));
    }

    setFaults ("");

    if (GetParam().endsTheSession)
    {
        EXPECT_TRUE (receiver->waitFor ([this] { return receiver->openSessions() == 0; }));
    }

    opened.GetFiltering(); // what was sent before its reply has been handled when it comes
    EXPECT_NE (opened.LeaveMeasurementMode(), GetParam().endsTheSession);
    EXPECT_EQ (counter.packets, GetParam().arriving);
}

INSTANTIATE_TEST_SUITE_P (
    , CaptureFaults,
    testing::Values (CaptureFault { "lose AudioData 2-4", 7 }, CaptureFault { "wrong-checksum AudioData 2-4", 7 },
                     CaptureFault { "truncate AudioData 2-4 1", 10 }, CaptureFault { "duplicate AudioData 2-4 2", 13 },
                     CaptureFault { "noise AudioData 2-4 999", 10 }, CaptureFault { "pieces AudioData 2-4 1 1", 10 },
                     CaptureFault { "wrong-length AudioData 2 5", 8 }, CaptureFault { "close AudioData 2-4", 1, true },
                     CaptureFault { "reset AudioData 2-4", 1, true }));

namespace {

class SharedSlots : public DeviceFixture
{
};

}

/** Another host empties and fills a slot between two downloads. */
TEST_F (SharedSlots, AreSeenByANewSessionAndAnOlderOneKeepsItsOwnView)
{
    auto& first = open();
    EXPECT_EQ (download (first, description().text(), 2), kResultOk);
    auto& second = open();
    FilterSet* set = nullptr;
    ASSERT_TRUE (second.GetFilterSet (2, 0, &set));
    EXPECT_TRUE (second.RemoveFilterSet (set));
    EXPECT_EQ (download (second, description().text(), 2), kResultOk);

    EXPECT_EQ (download (first, description().text(), 2), kResultChannelConflict);
    ASSERT_TRUE (first.GetFilterSet (2, 0, &set));
    EXPECT_TRUE (first.RemoveFilterSet (set));
    EXPECT_EQ (download (first, description().text(), 2), kResultOk);
}

}
