// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "veltratune_io/Layout.h"
#include "veltratune_io/Result.h"

/** @file
    What the host sees of filters that were loaded into a device, or that the device reported as present.

    Objects belong to the device, and a host cannot delete them. A pointer stays good until the set is removed
    (Device::RemoveFilterSet), a download of it fails, or the plug-in object is released. Texts are NUL-terminated
    UTF-8, belong to the object and live as long as it does. Call from the application's thread. Nothing here can fail
    otherwise than stated and nothing touches the network.

    The order of the operations is the binary interface; the destructor is the first of them.
*/

namespace veltratune_io {

/** The filter of one channel. */
class Filter
{
protected:
    VELTRATUNE_IO_DESTRUCTOR (Filter)

public:
    /** Name of the channel. */
    virtual const char* GetName() const = 0;

    /** Always empty. */
    virtual const char* GetDescription() const = 0;

    /** Channel number, counted from 0; 0xFFFFFFFF when the filter description gave none. */
    virtual std::uint32_t GetChannel() const = 0;

    /** @returns kResultNotSupported */
    virtual EResult UnsupportedQuery1 (std::uint64_t, std::uint64_t) = 0;

    /** @returns kResultNotSupported */
    virtual EResult UnsupportedQuery2 (std::uint64_t) = 0;

    /** Gain of the channel in dB. */
    virtual float GetGaindB() const = 0;

    /** @returns kResultNotSupported */
    virtual EResult UnsupportedQuery3 (std::uint64_t) = 0;

    /** @returns kResultNotSupported */
    virtual EResult UnsupportedQuery4 (std::uint64_t) = 0;

    /** Delay of the channel in milliseconds. */
    virtual float GetDelayMs() const = 0;

    /** Does nothing. */
    virtual void Reserved() = 0;
};

/** The filters of one project, one a channel. A download expects no more of them than the device has channels, and does
    not check it. */
class FilterSet
{
protected:
    VELTRATUNE_IO_DESTRUCTOR (FilterSet)

public:
    /** Name of the project, or of the device's slot when the set represents what was already on the device. */
    virtual const char* GetName() const = 0;

    /** Filter technology that the set was designed for; may be empty. */
    virtual const char* GetTechnology() const = 0;

    /** One filter of the set.

        @param index   place in the set, from 0
        @param filter  receives the borrowed filter; may be null, to ask whether there is one
        @returns       false when index is not below the number of filters; the out value is then left alone
    */
    virtual bool GetFilter (std::uint32_t index, Filter** filter) = 0;
};

}
