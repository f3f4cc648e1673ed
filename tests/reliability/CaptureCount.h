// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>

#include "veltratune_io/Callbacks.h"

namespace veltra::test {

/** Counts captured packets. */
class CaptureCount final : public veltratune_io::CaptureCallback
{
public:
    void Reserved1() override {}
    void Reserved2() override {}
    void OnCaptureStart (std::int32_t) override {}
    void OnCaptureData (const float*, std::int32_t) override { ++packets; }

    std::atomic<int> packets { 0 };
};

}
