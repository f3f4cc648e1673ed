// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The audio that a device sends unasked, on its way to the host's callback.
*/

#include "tests/support/DeviceFixture.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace veltra::test {

namespace {

using namespace veltratune_io;

/** Remembers what it hears, as "start 2" and "1 2". */
class Listener final : public CaptureCallback
{
public:
    void Reserved1() override { ADD_FAILURE(); }
    void Reserved2() override { ADD_FAILURE(); }

    void OnCaptureStart (std::int32_t count) override { note ("start " + std::to_string (count)); }

    void OnCaptureData (const float* samples, std::int32_t count) override
    {
        std::string text;

        for (std::int32_t i = 0; i < count; ++i)
            text += (i > 0 ? " " : "") + std::to_string (static_cast<int> (samples[i]));

        note (text);
    }

    /** Waits until so many things have been heard. */
    Lines wait (std::size_t count)
    {
        std::unique_lock guard (lock);
        changed.wait_for (guard, std::chrono::seconds (10), [&] { return heard.size() >= count; });
        return heard;
    }

    std::function<void (const std::string&)> then = [] (const std::string&) {
    }; ///< called with each, at the end of the call

private:
    void note (const std::string& text)
    {
        {
            const std::lock_guard guard (lock);
            heard.push_back (text);
            changed.notify_all();
        }

        then (text);
    }

    std::mutex lock;
    std::condition_variable changed;
    Lines heard;
};

veltraio::AudioData packet (std::uint32_t number, const std::vector<float>& samples)
{
    veltraio::AudioData message;
    message.set_packetnumber (number);
    message.mutable_data()->Add (samples.begin(), samples.end());
    return message;
}

// Acknowledged without being carried out, so that the receiver sends no packets of its own.
constexpr const char* kUncapturing = "refuse OperationModeInfo *\nanswer OperationModeInfo * Acknowledge 'ok: true'";

class Capture : public DeviceFixture
{
protected:
    Capture() { setFaults (kUncapturing); }

    void send (std::uint32_t number, const std::vector<float>& samples)
    {
        receiver->broadcast (packet (number, samples));
    }

    /** All packets sent so far have been handled when an exchange that follows them has. */
    void settle (Device2& opened) { opened.GetFiltering(); }
};

}

TEST_F (Capture, EachPacketReachesTheLatestCallbackAlsoOfARefusedMode)
{
    auto& opened = open();
    Listener listener, second;
    setFaults ("refuse OperationModeInfo 1");
    EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &listener), kResultFailed);
    send (0, { 1, 2 });
    send (7, { 3 }); // gaps in the numbers pass unnoticed
    send (7, {});
    EXPECT_EQ (listener.wait (4), (Lines { "start 2", "1 2", "3", "" }));
    EXPECT_TRUE (log->contains ("TRACE", "Captured 1 packets"));

    setFaults (kUncapturing);
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &second), kResultOk);
    send (1, { 2 });
    EXPECT_EQ (second.wait (2), (Lines { "start 1", "2" }));
    EXPECT_EQ (listener.wait (0).size(), 4u);
    EXPECT_TRUE (opened.LeaveMeasurementMode());
}

TEST_F (Capture, PacketsOutsideTheModeAreDropped)
{
    auto& opened = open();
    Listener listener;
    send (0, { 1 });
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, nullptr), kResultOk);
    send (1, { 2 });
    settle (opened); // a packet that is still under way would count
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &listener), kResultOk);
    setFaults ("refuse OperationModeInfo *");
    EXPECT_FALSE (opened.LeaveMeasurementMode()) << "a refusal does not keep the callback";
    send (2, { 3 });
    settle (opened);
    EXPECT_TRUE (listener.wait (0).empty());

    startAfresh();
    profile.unit.set_capabilities (0);
    setFaults (kUncapturing);
    ASSERT_EQ (open().EnterMeasurementMode (48000, 0, 1, &listener), kResultOk);
    send (0, { 1 });
    settle (device (0));
    EXPECT_TRUE (listener.wait (0).empty()) << "without the capability the callback is ignored";
}

/** A packet that the callback could not take is not counted: the next one starts the capture again. */
TEST_F (Capture, AnExceptionEndsOnePacketOnly)
{
    auto& opened = open();
    Listener thrower;
    thrower.then = [] (const std::string& text) {
        if (text == "-1")
            throw std::runtime_error ("no more room");
    };
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &thrower), kResultOk);

    for (const float sample : { -1.0f, 1.0f, -1.0f, 1.0f })
        send (0, { sample });

    EXPECT_EQ (thrower.wait (6), (Lines { "start 1", "-1", "start 1", "1", "-1", "1" }));
    opened.LeaveMeasurementMode();
}

/** Against its contract, but nothing to crash a host for. */
TEST_F (Capture, ACallbackMayLeaveTheModeItself)
{
    setFaults (
        "refuse OperationModeInfo 1\nanswer OperationModeInfo 1 Acknowledge 'ok: true'\nlose OperationModeInfo 2");
    auto& opened = open();
    Listener leaver;
    leaver.then = [&] (const std::string&) { opened.LeaveMeasurementMode(); };
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &leaver), kResultOk);
    send (0, { 1 });
    send (1, { 1 });
    settle (opened);
    opened.LeaveMeasurementMode(); // waits for the packet that is being handled
    EXPECT_EQ (leaver.wait (0), (Lines { "start 1" }));
}

TEST_F (Capture, LeavingTheModeWaitsForThePacketInTheCallback)
{
    auto& opened = open();
    Listener listener;
    listener.then = [] (const std::string&) { std::this_thread::sleep_for (std::chrono::milliseconds (100)); };
    ASSERT_EQ (opened.EnterMeasurementMode (48000, 0, 1, &listener), kResultOk);
    send (0, { 7 });
    listener.wait (1);
    opened.LeaveMeasurementMode();
    EXPECT_EQ (listener.wait (0), (Lines { "start 1", "7" })) << "all of it";
}

/** Each callback is gone right after the mode was left, while packets keep coming: the sanitizers watch. */
TEST_F (Capture, NoPacketIsInTheCallbackAfterTheModeWasLeft)
{
    auto& opened = open();
    std::atomic<bool> isOver { false };
    std::thread sender ([&] {
        const auto message = packet (0, std::vector<float> (64, 1.0f));

        while (! isOver)
        {
            receiver->broadcast (message);
            std::this_thread::sleep_for (std::chrono::microseconds (200));
        }
    });

    std::size_t heard = 0;

    for (int round = 0; round < 200; ++round)
    {
        auto listener = std::make_unique<Listener>();
        EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 1, listener.get()), kResultOk);
        EXPECT_TRUE (opened.LeaveMeasurementMode());
        heard += listener->wait (0).size();
    }

    EXPECT_GT (heard, 0u) << "no packet came at all";

    isOver = true;
    sender.join();
}

}
