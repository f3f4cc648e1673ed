// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Operations whose nth allocation fails, for every n until one passes: each must end with a result, leave nothing
    behind, and work when it is asked again.
*/

#include <cmath>
#include <cstring>
#include <latch>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "common/Contain.h"
#include "dsp/FIIRDesign.h"
#include "plugin/Session.h"
#include "protocol/EventHandler.h"
#include "protocol/ReplyHandlers.h"
#include "tests/allocation/AnsweringConnection.h"
#include "tests/support/DeviceFixture.h"
#include "tests/support/TestSource.h"
#include "topology/Topology.h"

#ifdef __SANITIZE_ADDRESS__
/** The sanitizer's library asks for it. See `lost` below. */
extern "C" __attribute__ ((visibility ("default"))) const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() { return "leak:google::protobuf::"; }
#endif

namespace veltra::test {

namespace {

constexpr std::size_t most = 100000; // allocations of an operation; a loop that comes so far does not end

/** Runs an operation with each of its allocations failing, alone and with all behind it.

    @param prepare   makes a state for one run, with memory
    @param operate   runs on it without memory; what it throws other than std::bad_alloc fails the test
    @param lost      blocks that may be lost in a run: protobuf's containers forget the elements that they are about to
                     add when they find no memory
    @param check     looks at the state, with memory, and uses it again; the second argument tells whether the operation
                     ran undisturbed
*/
template <class Prepare, class Operate, class Check>
void failEachAllocation (const char* name, long long lost, Prepare prepare, Operate operate, Check check)
{
    for (const auto which : { FailingAllocation::Which::one, FailingAllocation::Which::onwards })
    {
        bool isDone = false;

        for (std::size_t nth = 0; ! isDone; ++nth) // the first one disturbs nothing
        {
            ASSERT_LT (nth, most) << name;
            const auto before = blocksInUse();

            {
                auto state = prepare();
                std::size_t failures = 0;

                {
                    const FailingAllocation failing (nth, nth == 0 ? FailingAllocation::Which::one : which);

                    try
                    {
                        operate (state);
                    }
                    catch (const std::bad_alloc&)
                    {
                    }

                    failures = failing.failures();
                }

                check (state, failures == 0);
                ASSERT_FALSE (testing::Test::HasFailure()) << name << ", allocation " << nth;

                isDone = nth > 0 && failures == 0;

                if (isDone && which == FailingAllocation::Which::one)
                    std::printf ("%-28s %6zu allocations\n", name, nth - 1);
            }

            if (nth > 0) // the first run filled what is kept for the life of the program
            {
                ASSERT_LE (blocksInUse(), before + lost) << name << ", allocation " << nth << " leaks";
                ASSERT_GE (blocksInUse(), before) << name << ", allocation " << nth;
            }
        }
    }
}

/** What a copy of a message takes. */
template <class Message>
long long blocksOf (const Message& message)
{
    const auto before = blocksInUse();
    const Message copy (message);
    return blocksInUse() - before;
}

class AllocationFailure : public DeviceFixture
{
protected:
    AllocationFailure() { log.reset(); } // which keeps its lines
};

Eigen::VectorXf decayingModes (Eigen::Index taps)
{
    return Eigen::VectorXf::NullaryExpr (taps, [] (Eigen::Index n) {
        const auto time = static_cast<float> (n);
        return std::exp (-0.01f * time) * std::cos (0.3f * time)
               + 0.5f * std::exp (-0.02f * time) * std::cos (0.9f * time);
    });
}

}

TEST_F (AllocationFailure, ADesignThrowsWhatItsCallerCatches)
{
    const auto response = decayingModes (300);
    std::vector<dsp::FIIRSection> expected;

    failEachAllocation (
        "design", 0, [] { return std::vector<dsp::FIIRSection>(); },
        [&] (auto& sections) { sections = dsp::designFIIR (response, 64, 2, 4800.0).sections; },
        [&] (const auto& sections, bool isUndisturbed) {
            if (expected.empty())
                expected = sections;

            EXPECT_TRUE (sections.empty()
                             ? ! isUndisturbed
                             : std::memcmp (sections.data(), expected.data(), sizeof (sections[0]) * sections.size())
                                   == 0);
        });
}

TEST_F (AllocationFailure, ADesignNeedsNoThreads)
{
    FIRTestSource source ({ { decayingModes (300) }, { decayingModes (200) } });
    juce::PropertySet noSettings;

    const auto convert = [&] {
        juce::MemoryBlock blob;
        auto result = juce::Result::ok();
        std::vector<float> reports;
        const auto report = [&] (float done, const juce::String&) { return reports.push_back (done), true; };
        const auto topology = topology::createTopology ("FIIR", report);
        topology->createFilterData (result, source, topology::parseParameters ("NbrOfFIRTaps=64;NbrOfIIRSections=2"),
                                    4800, blob, noSettings);
        EXPECT_TRUE (result.wasOk()) << result.getErrorMessage();
        EXPECT_EQ (reports.front(), 0.0f);
        EXPECT_EQ (reports.back(), 1.0f);
        return blob;
    };

    const auto expected = convert();
    const NoThreads none;
    EXPECT_EQ (convert(), expected);
}

/** Nothing above the roots of our threads catches an exception, and there is no memory for a line in the log either. */
TEST_F (AllocationFailure, AFailureOnAThreadOfOursIsContained)
{
    const LogLines lines; // which switches the log on
    bool hasRun = false;

    const auto fail = [&] {
        contain ("A message", [&] {
            hasRun = true;
            throw std::runtime_error ("A reason that is long enough to need an allocation of its own");
        });
    };

    constexpr int linesThatTheLogKeeps = 30; // more than one run leaves there

    failEachAllocation (
        "contain", linesThatTheLogKeeps, [] { return 0; },
        [&] (int&) {
            // On a new thread, for which the log has nothing ready.
            std::latch start (1);
            auto pause = std::make_optional<FailingAllocation::Pause>();
            std::thread thread ([&] {
                start.wait();
                fail();
            });
            pause.reset();
            start.count_down();
            thread.join();
        },
        [&] (int&, bool) { EXPECT_TRUE (std::exchange (hasRun, false)); });
}

TEST_F (AllocationFailure, AMessageThatIsLostIsFollowedByOneThatArrives)
{
    struct State
    {
        std::unique_ptr<veltraio::Dispatcher> dispatcher = std::make_unique<veltraio::Dispatcher> (
            std::make_unique<AnsweringConnection>(), veltraio::kEnvelopeMarkerText, true);
        std::unique_ptr<veltraio::MessageHandler<veltraio::Unit>> handler =
            std::make_unique<veltraio::MessageHandler<veltraio::Unit>> (*dispatcher);
    };

    const auto block = AnsweringConnection::block (profile.unit);

    failEachAllocation (
        "receive", blocksOf (profile.unit), [] { return State(); },
        [&] (State& state) { state.dispatcher->getConnection().onData (block); },
        [&] (State& state, bool isUndisturbed) {
            const auto reply = state.handler->Wait (0);
            EXPECT_TRUE (! isUndisturbed || reply == veltraio::ReplyState::answered);

            if (reply == veltraio::ReplyState::pending)
            {
                state.dispatcher->getConnection().onData (block);
                EXPECT_EQ (state.handler->Wait (0), veltraio::ReplyState::answered);
            }

            EXPECT_EQ (state.handler->message().SerializeAsString(), profile.unit.SerializeAsString());
        });
}

namespace {

/** A device on a connection that answers, with the calls of a host. */
struct Host
{
    std::unique_ptr<AnsweringConnection> waiting; // until there is a session
    AnsweringConnection* receiver = nullptr;
    std::unique_ptr<juce::PropertySet> settings = std::make_unique<juce::PropertySet>();
    std::unique_ptr<plugin::Session> session;
    std::optional<veltratune_io::EResult> result;

    explicit Host (const receiver::Profile& profile) { connect (profile); }

    void connect (const receiver::Profile& profile)
    {
        using veltraio::Request;
        waiting = std::make_unique<AnsweringConnection>();
        waiting->setAnswer (Request::RequestType_kGetProtocolInfo, profile.protocolInfo);
        waiting->setAnswer (Request::RequestType_kGetUnit, profile.unit);
        waiting->setAnswer (Request::RequestType_kGetTopologyInfo, profile.topologyInfo);
        waiting->setAnswer (Request::RequestType_kGetStimulusInfo, profile.stimulusInfo);
        receiver = waiting.get();
    }

    void open() { session = plugin::openSession (std::move (waiting), "Living room", *settings); }

    /** The hash of all that the receiver got, when the download went well. */
    std::optional<std::uint32_t> download (const std::string& text)
    {
        receiver->hash = 0;
        result = session->device->DownloadFilterSet (2, text.c_str(), 0, nullptr);
        return result == veltratune_io::kResultOk ? std::optional (receiver->hash) : std::nullopt;
    }
};

}

TEST_F (AllocationFailure, ASessionThatDoesNotOpenCanBeOpenedAgain)
{
    failEachAllocation (
        "open", blocksOf (profile.unit), [&] { return Host (profile); }, [] (Host& host) { host.open(); },
        [&] (Host& host, bool isUndisturbed) {
            EXPECT_TRUE (! isUndisturbed || host.session != nullptr);
            host.session = nullptr;
            host.connect (profile);
            host.open();
            ASSERT_NE (host.session, nullptr);
            EXPECT_STREQ (host.session->device->GetName(), "Morvane|Stereo 2|Main");
        });
}

TEST_F (AllocationFailure, ADownloadSendsTheSameAfterOneThatFailed)
{
    // Every structure; upwards, since a rate that was resampled counts for those below it.
    auto& rates = *profile.unit.mutable_devices (0)->mutable_configurations (0)->mutable_samplerates();
    rates.Clear();
    profile.topologyInfo.clear_topologies();

    for (const auto& [name, rate] :
         { std::pair ("FIR", 2400u), { "VLFIR", 3000u }, { "VLFIR2", 3600u }, { "FIIR", 4800u } })
    {
        auto& topology = *profile.topologyInfo.add_topologies();
        topology.set_name (name);
        topology.set_samplerate (rate);
        topology.set_information ("NbrOfFIRTaps=64;NbrOfIIRSections=2");
        rates.Add (rate);
    }

    const auto response = decayingModes (64);
    const std::vector<float> taps (response.begin(), response.end());
    const auto text = DescriptionBuilder()
                          .channel ("FL", 1, "MaxFilterGaindB='3'")
                          .fiir (4800, taps, { { -1.5f, 0.6f, 0.01f, 0.02f } }, "Delay=48")
                          .channel ("A channel with a name that needs an allocation", 2)
                          .fiir (4800, taps, { { 0.5f, 0.25f, -0.5f, 0.75f } })
                          .text();
    std::optional<std::uint32_t> expected;

    const auto prepare = [&] {
        Host host (profile);
        host.open();
        return host;
    };

    failEachAllocation (
        "download", 1, prepare, [&] (Host& host) { host.download (text); },
        [&] (Host& host, bool isUndisturbed) {
            ASSERT_TRUE (host.result) << "an exception crossed the boundary";
            EXPECT_TRUE (! isUndisturbed || host.result == veltratune_io::kResultOk);

            auto& device = *host.session->device;
            const bool isLoaded = host.result == veltratune_io::kResultOk;
            EXPECT_EQ (setsIn (device, 2), isLoaded ? 1u : 0u);

            char words[64];
            EXPECT_EQ (device.GetLastError (words, sizeof (words)), veltratune_io::kResultOk);

            veltratune_io::FilterSet* set = nullptr;

            EXPECT_TRUE (! isLoaded || (device.GetFilterSet (2, 0, &set) && device.RemoveFilterSet (set)));

            const auto sent = host.download (text);
            ASSERT_TRUE (sent);
            expected = expected.value_or (*sent);
            EXPECT_EQ (*sent, *expected);
        });
}

}
