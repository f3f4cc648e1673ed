// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The operations of measurement control: their messages, their results and their words for each outcome. What they
    do without a reply is in WaitsTest.cpp.
*/

#include "tests/support/DeviceFixture.h"

#include <cmath>
#include <limits>

#include "tests/support/Operations.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class Measurement : public DeviceFixture
{
};

constexpr std::uint32_t kChannel = 0;

}

TEST_F (Measurement, EachOperationSendsItsMessageAndReadsTheReply)
{
    auto& opened = open();

    for (const auto& operation : operations())
    {
        EXPECT_EQ (operation.run (opened), operation.success) << operation.name;
        EXPECT_EQ (operation.textOf (receiver->messages (operation.type).back().body), operation.message)
            << operation.name;
        EXPECT_EQ (takeLastError (opened), "") << operation.name;
    }

    EXPECT_TRUE (failuresLogged().empty());
}

TEST_F (Measurement, ARefusalIsAFailureWithTheDevicesWords)
{
    auto& opened = open();

    for (const auto& operation : operations())
    {
        setFaults ("refuse " + operation.fault + " * 'not now'");
        EXPECT_EQ (operation.run (opened), operation.failure) << operation.name;
        EXPECT_EQ (takeLastError (opened), operation.kind == Operation::Kind::wordyCommand ? "not now" : "")
            << operation.name;
    }

    EXPECT_EQ (failuresLogged(), (Lines { "ERROR Error settings active slot" }));

    setFaults ("refuse OperationModeInfo 1 'older words'\nrefuse OperationModeInfo 2");
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    EXPECT_FALSE (opened.LeaveMeasurementMode());
    EXPECT_EQ (takeLastError (opened), "") << "a refusal without words replaces older ones";
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

TEST_F (Measurement, TheModeAndTheSlotAreOnlyThoseOfTheDevice)
{
    auto& opened = open();
    EXPECT_EQ (opened.EnterMeasurementMode (44100, 0, 2, nullptr), kResultBadSampleRate) << "no FIIR structure there";
    EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 3, nullptr), kResultTooManyChannels);
    EXPECT_EQ (receiver->messageCount ("OperationModeInfo"), 0u);

    opened.StartStimulus (kStimulusNoise, &kChannel, 1, 0);
    setFaults ("refuse OperationModeInfo 1");
    EXPECT_EQ (opened.EnterMeasurementMode (48000, 0, 2, nullptr), kResultFailed);
    opened.StartStimulus (kStimulusNoise, &kChannel, 1, 0);
    EXPECT_EQ (received<veltraio::StartStimulus>(),
               (Lines { "deviceIndex: 0 stimulusType: Stimulus_kNoise sampleRate: 0 channels: 0",
                        "deviceIndex: 0 stimulusType: Stimulus_kNoise sampleRate: 48000 channels: 0" }))
        << "a refused rate is kept";

    for (const auto slot : { 3u, 0xFFFFFFFFu })
        EXPECT_FALSE (opened.SetActiveFilterSlot (slot)) << "none of the device";

    EXPECT_EQ (receiver->messageCount ("ActiveFilterSlot"), 0u);
    EXPECT_TRUE (failuresLogged().empty());

    startAfresh();
    profile.unit.set_capabilities (veltraio::Unit::Caps_kVolume);
    EXPECT_EQ (open().EnterMeasurementMode (48000, 0, 0, nullptr), kResultOk);
    EXPECT_EQ (received<veltraio::OperationModeInfo>().back(), "mode: OperationMode_kMeasurement")
        << "no rate without the capture";
}

TEST_F (Measurement, AStimulusPlaysOnAtMostTwiceTheChannels)
{
    auto& opened = open();
    const std::vector<std::uint32_t> channels (40, 1);
    opened.StartStimulus (kStimulusSubwooferLevelCal, channels.data(), 40, 0);
    opened.StartStimulus (kStimulusNoise, nullptr, 0, 0);
    takeLastError (opened);

    for (const auto unknown : { 3, -1 })
    {
        EXPECT_EQ (opened.StartStimulus (static_cast<EStimulus> (unknown), channels.data(), 1, 0), kResultFailed);
        EXPECT_EQ (takeLastError (opened), "Unknown stimulus");
    }

    EXPECT_EQ (opened.StartStimulus (kStimulusNoise, nullptr, 1, 0), kResultBadArgument);
    EXPECT_EQ (
        received<veltraio::StartStimulus>(),
        (Lines {
            "deviceIndex: 0 stimulusType: Stimulus_kSubwooferLevelCal sampleRate: 0 channels: 1 channels: 1 channels: 1 channels: 1",
            "deviceIndex: 0 stimulusType: Stimulus_kNoise sampleRate: 0" }));
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

    EXPECT_FALSE (opened.SetVolume (std::nanf ("")));
    EXPECT_FALSE (opened.SetVolume (std::numeric_limits<float>::infinity()));
    EXPECT_EQ (receiver->messageCount ("Volume"), 1u);
}

TEST_F (Measurement, AttenuationIsAFractionOfTheMaximum)
{
    auto& opened = open();

    for (const auto& [attenuation_dB, fraction] :
         { std::pair (6.0f, 0.5f), std::pair (12.0f, 1.0f), std::pair (100.0f, 1.0f), std::pair (-3.0f, 0.0f),
           std::pair (9.0f, 0.75f), std::pair (NAN, 0.0f) })
    {
        EXPECT_TRUE (opened.SetChannelAttenuation (1, attenuation_dB));
        EXPECT_EQ (receiver->settings().attenuation.at (1), fraction) << attenuation_dB;
    }

    EXPECT_FALSE (opened.SetChannelAttenuation (77, 3.0f));
    EXPECT_EQ (received<veltraio::ChannelAttenuation>().back(), "deviceIndex: 0 channel: 77 attenuation: 0.25")
        << "which channels there are is the device's business";

    startAfresh();
    profile.unit.set_maxchannelattenuation_db (0.0f);
    EXPECT_TRUE (open().SetChannelAttenuation (1, 5.0f));
    EXPECT_EQ (receiver->settings().attenuation.at (1), 0.0f);
}

}
