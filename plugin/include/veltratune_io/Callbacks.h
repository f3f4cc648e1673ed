// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

/** @file
    Objects that the host passes in. They stay the host's own and are never deleted by the plug-in, hence no
    virtual destructor; the order and number of the operations is the binary interface.

    Derive a `final` class: compilers then know that deleting one of its objects is safe, and say so if a class is
    derived from it that would make it unsafe.
*/

namespace veltratune_io {

/** Receives the microphone audio of a measurement.

    Called on a thread of the plug-in, one call at a time, between Device::EnterMeasurementMode and the return
    of Device::LeaveMeasurementMode (or of ReleaseVersionedPluginObject); afterwards the object may be deleted.
    An exception ends the handling of that packet only.

    Must not block and must not call the device. While a call runs, no operation that talks to the device can
    return: each waits for it, beyond its stated time. A call that never returns keeps Device::LeaveMeasurementMode and
    ReleaseVersionedPluginObject from returning, too.
*/
class CaptureCallback
{
public:
    virtual void Reserved1() = 0; ///< never called
    virtual void Reserved2() = 0; ///< never called

    /** Once, before the first packet.
        @param count  number of samples in that packet
    */
    virtual void OnCaptureStart (std::int32_t count) = 0;

    /** One packet.
        @param samples  count samples, good during the call only
    */
    virtual void OnCaptureData (const float* samples, std::int32_t count) = 0;

protected:
    ~CaptureCallback() = default;
};

/** Follows a download. Called on the thread that called Device2::DownloadFilterSet, during that call. Must not call
    the device. An exception goes no further; out of OnProgress it counts as asking to cancel. */
class ProgressCallback
{
public:
    virtual void Reserved1() = 0; ///< never called

    /** What is being done; an empty text when the transfer begins. A text that starts with "#" is a key for
        the host's own translation.
        @param text    NUL-terminated UTF-8, good during the call only
        @param length  number of characters
    */
    virtual void OnProgressText (const char* text, std::uint32_t length) = 0;

    /** After each piece that the device has acknowledged; before the transfer, with 0, once a second of a conversion that
        takes longer.
        @param fraction  0 to below 1: bytes before that piece over all bytes
        @returns         false to cancel, which takes effect when all pieces for this sample rate are sent; during the
                         conversion before its next channel, with nothing sent
    */
    virtual bool OnProgress (float fraction) = 0;

protected:
    ~ProgressCallback() = default;
};

}
