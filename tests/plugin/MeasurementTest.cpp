/** @file
    The operations of measurement control: their messages, their results and their words for each outcome. What they
    do when no reply comes stands in WaitsTest.cpp.
*/

#include "tests/plugin/DeviceFixture.h"

#include <cmath>
#include <limits>

#include "tests/plugin/Operations.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Measurement : public DeviceFixture
{
protected:
    std::vector<std::string> logOfFailures() const
    {
        std::vector<std::string> lines;

        for (const auto& line : log.lines())
            if (line.starts_with ("WARN") || line.starts_with ("ERROR") || line.starts_with ("FATAL"))
                lines.push_back (line);

        return lines;
    }

    std::string lastMessage (const Operation& operation) const
    {
        const auto message = receiver->messages (operation.type).back();
        const auto parsed = [&message] (auto empty)
        {
            empty.ParseFromString (message.body);
            return oneLine (veltraio::toText (empty));
        };

        using namespace veltraio;
        return operation.type == "Request"            ? parsed (Request())
             : operation.type == "OperationModeInfo"  ? parsed (OperationModeInfo())
             : operation.type == "StartStimulus"      ? parsed (veltraio::StartStimulus())
             : operation.type == "StopStimulus"       ? parsed (veltraio::StopStimulus())
             : operation.type == "ActiveFilterSlot"   ? parsed (ActiveFilterSlot())
             : operation.type == "FilteringState"     ? parsed (FilteringState())
             : operation.type == "Volume"             ? parsed (Volume())
                                                      : parsed (ChannelAttenuation());
    }
};

}

TEST_F (Measurement, EachOperationSendsItsMessageAndReadsTheReply)
{
    auto& opened = open();

    for (const auto& operation : operations())
    {
        EXPECT_EQ (operation.run (opened), operation.success) << operation.name;
        EXPECT_EQ (lastMessage (operation), operation.message) << operation.name;
        EXPECT_EQ (takeLastError (opened), "") << operation.name;
    }

    EXPECT_TRUE (logOfFailures().empty());
}

TEST_F (Measurement, ARefusalIsAFailureWithTheDevicesWords)
{
    auto& opened = open();

    for (const auto& operation : operations())
    {
        log.clear();
        setFaults ("refuse " + operation.fault + " * 'not now'");
        EXPECT_EQ (operation.run (opened), operation.failure) << operation.name;
        EXPECT_EQ (takeLastError (opened), operation.kind == Operation::Kind::wordyCommand ? "not now" : "") << operation.name;
        EXPECT_EQ (logOfFailures(), operation.logged.empty() ? std::vector<std::string>()
                                                             : std::vector<std::string> { operation.logged }) << operation.name;
    }
}

/** A refusal without words replaces older words all the same. */
TEST_F (Measurement, ARefusalWithoutWordsLeavesNone)
{
    auto& opened = open();
    setFaults ("refuse OperationModeInfo 1 'older words'\nrefuse OperationModeInfo 2");
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    EXPECT_EQ (takeLastError (opened), "");
}

TEST_F (Measurement, AnAcknowledgeIsNoAnswerToAQuery)
{
    auto& opened = open();

    for (const auto& operation : operations())
    {
        if (operation.kind != Operation::Kind::query)
            continue;

        setFaults ("answer " + operation.fault + " * Acknowledge 'ok: true'");
        EXPECT_EQ (operation.run (opened), operation.failure) << operation.name;
    }
}

TEST_F (Measurement, WhatCannotBeSentFailsAtOnceWithoutWords)
{
    auto& opened = open();
    setFaults ("refuse OperationModeInfo 1 'older words'");
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    breakConnections();

    for (const auto& operation : operations())
        EXPECT_EQ (operation.run (opened), operation.failure) << operation.name;

    EXPECT_EQ (takeLastError (opened), "older words") << "a message that did not go out changes nothing";
}

TEST_F (Measurement, TheModeIsEnteredOnlyAtARateAndWithChannelsOfTheDevice)
{
    auto& opened = open();
    EXPECT_EQ (opened.EnterMeasurementMode (44100, 0, 2, nullptr), kResultBadSampleRate) << "no FIIR structure there";
    EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 3, nullptr), kResultTooManyChannels);
    EXPECT_EQ (receiver->messageCount ("OperationModeInfo"), 0u);

    const std::uint32_t channel = 0;
    opened.StartStimulus (kStimulusNoise, &channel, 1, 0);
    EXPECT_EQ (received<veltraio::StartStimulus> ("StartStimulus").back(),
               "deviceIndex: 0 stimulusType: Stimulus_kNoise sampleRate: 0 channels: 0") << "the rate is still none";
    EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 2, nullptr), kResultOk);
    EXPECT_TRUE (receiver->measurement().isMeasuring);
    EXPECT_TRUE (opened.LeaveMeasurementMode());
    EXPECT_FALSE (receiver->measurement().isMeasuring);
}

TEST_F (Measurement, ARefusedRateIsKeptForTheStimulus)
{
    auto& opened = open();
    setFaults ("refuse OperationModeInfo 1");
    EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 2, nullptr), kResultFailed);
    const std::uint32_t channel = 0;
    opened.StartStimulus (kStimulusNoise, &channel, 1, 0);
    EXPECT_EQ (received<veltraio::StartStimulus> ("StartStimulus").back(),
               "deviceIndex: 0 stimulusType: Stimulus_kNoise sampleRate: 48000 channels: 0");
}

TEST_F (Measurement, WithoutTheCaptureCapabilityNoRateIsSent)
{
    profile.unit.set_capabilities (veltraio::Unit::Caps_kVolume);
    EXPECT_EQ (open().EnterMeasurementMode (48000, 0, 0, nullptr), kResultOk);
    EXPECT_EQ (received<veltraio::OperationModeInfo> ("OperationModeInfo").back(), "mode: OperationMode_kMeasurement");
}

TEST_F (Measurement, AStimulusPlaysOnAtMostTwiceTheChannels)
{
    auto& opened = open();
    const std::vector<std::uint32_t> channels (40, 1);
    opened.StartStimulus (kStimulusSubwooferLevelCal, channels.data(), 40, 0);
    EXPECT_EQ (received<veltraio::StartStimulus> ("StartStimulus").back(),
               "deviceIndex: 0 stimulusType: Stimulus_kSubwooferLevelCal sampleRate: 0 channels: 1 channels: 1 channels: 1 "
               "channels: 1");

    takeLastError (opened);
    EXPECT_EQ (opened.StartStimulus (static_cast<EStimulus> (3), channels.data(), 1, 0), kResultFailed);
    EXPECT_EQ (takeLastError (opened), "Unknown stimulus");
    EXPECT_EQ (opened.StartStimulus (static_cast<EStimulus> (-1), channels.data(), 1, 0), kResultFailed);
    EXPECT_EQ (opened.StartStimulus (kStimulusNoise, nullptr, 1, 0), kResultBadArgument);
    EXPECT_EQ (receiver->messageCount ("StartStimulus"), 1u);
    opened.StartStimulus (kStimulusNoise, nullptr, 0, 0);
    EXPECT_EQ (receiver->messageCount ("StartStimulus"), 2u);
}

TEST_F (Measurement, ASlotThatDoesNotExistIsRefusedWithoutTraffic)
{
    auto& opened = open();
    log.clear();
    EXPECT_FALSE (opened.SetActiveFilterSlot (3));
    EXPECT_FALSE (opened.SetActiveFilterSlot (0xFFFFFFFFu));
    EXPECT_EQ (receiver->messageCount ("ActiveFilterSlot"), 0u);
    EXPECT_TRUE (log.lines().empty());
}

TEST_F (Measurement, VolumeIsScaledBySeventyPerCent)
{
    auto& opened = open();
    EXPECT_TRUE (opened.SetVolume (1.0f));
    EXPECT_EQ (receiver->settings().volume, 70.0f * 1.0f * 0.01f);
    EXPECT_FLOAT_EQ (opened.GetVolume (nullptr, 0), 1.0f);

    setFaults ("answer GetVolume * Volume 'deviceIndex: 0 volume: 0.14'");
    char buffer[16] = "untouched";
    EXPECT_FLOAT_EQ (opened.GetVolume (buffer, sizeof (buffer)), 0.2f);
    EXPECT_STREQ (buffer, "untouched") << "an answer without a description";

    const auto sent = receiver->messageCount ("Volume");
    EXPECT_FALSE (opened.SetVolume (std::nanf ("")));
    EXPECT_FALSE (opened.SetVolume (std::numeric_limits<float>::infinity()));
    EXPECT_EQ (receiver->messageCount ("Volume"), sent);
}

TEST_F (Measurement, AttenuationIsAFractionOfTheMaximum)
{
    auto& opened = open();
    const auto sent = [&] (float attenuation)
    {
        EXPECT_TRUE (opened.SetChannelAttenuation (1, attenuation));
        return receiver->settings().attenuation.at (1);
    };

    EXPECT_EQ (sent (6.0f), 0.5f);
    EXPECT_EQ (sent (12.0f), 1.0f);
    EXPECT_EQ (sent (100.0f), 1.0f);
    EXPECT_EQ (sent (-3.0f), 0.0f);
    EXPECT_EQ (sent (6.0f), 0.5f);
    EXPECT_EQ (sent (std::nanf ("")), 0.0f);
    EXPECT_FALSE (opened.SetChannelAttenuation (77, 1.0f)) << "the device's decision, not checked before";
    EXPECT_EQ (received<veltraio::ChannelAttenuation> ("ChannelAttenuation").back(),
               "deviceIndex: 0 channel: 77 attenuation: 0.0833333358");
}

TEST_F (Measurement, ADeviceWithoutAttenuationIsSentZero)
{
    profile.unit.set_maxchannelattenuation_db (0.0f);
    auto& opened = open();
    EXPECT_TRUE (opened.SetChannelAttenuation (1, 5.0f));
    EXPECT_EQ (received<veltraio::ChannelAttenuation> ("ChannelAttenuation").back(), "deviceIndex: 0 channel: 1 attenuation: 0");
}

}
