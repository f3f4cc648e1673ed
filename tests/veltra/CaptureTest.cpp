// SPDX-License-Identifier: GPL-3.0-or-later
#include <vector>

#include <gtest/gtest.h>

#include "tools/veltra/measure/CaptureRecorder.h"

namespace veltra::host {

namespace {

TEST (CaptureRecorder, WhatExceedsTheRoomIsCountedAndDropped)
{
    CaptureRecorder recorder (3);
    const float packet[] = { 0.1f, -0.5f, 0.2f, 0.9f };
    recorder.OnCaptureData (packet, 2);
    recorder.OnCaptureData (packet, 4);
    recorder.OnCaptureData (packet, -1);
    recorder.OnCaptureData (nullptr, 0);
    EXPECT_EQ ((std::vector<float> { 0.1f, -0.5f, 0.1f }),
               std::vector<float> (recorder.samples().begin(), recorder.samples().end()));
    EXPECT_EQ (3u, recorder.overflow());
    EXPECT_EQ (0.5f, recorder.takePeak());
}

class MissingAudio : public testing::Test
{
protected:
    /** 10 ms packets at 48000 Hz: the receiver's number of each and its delay on the way. */
    void packet (int number, double delay_s)
    {
        received += 480;
        arrivals.push_back ({ 100.0 + 0.01 * number + delay_s, received });
    }

    double missing() const { return missingSeconds (arrivals, 48000.0).value_or (-1.0); }

    std::vector<Arrival> arrivals;
    std::uint64_t received = 0;
};

TEST_F (MissingAudio, LossIsDistinguishedFromDelay)
{
    for (int number = 0; number < 19; ++number)
        packet (number, 0.0);

    EXPECT_EQ (-1.0, missing()); // too few to tell

    for (int number = 19; number < 200; ++number)
        packet (number, number % 7 == 0 ? 0.003 : 0.15);

    EXPECT_NEAR (0.003, missing(), 1e-9) << "delays that end are no loss";

    for (int number = 205; number < 300; ++number)
        packet (number, number % 3 == 0 ? 0.0 : 0.2);

    EXPECT_NEAR (0.05, missing(), 1e-9) << "five packets were left out";

    arrivals.clear();

    for (int number = 0; number < 100; ++number)
        packet (number, -0.0095 * number);

    EXPECT_EQ (0.0, missing()) << "faster than real time";
}

}

}
