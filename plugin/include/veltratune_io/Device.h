// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "veltratune_io/Callbacks.h"
#include "veltratune_io/Filter.h"
#include "veltratune_io/Layout.h"
#include "veltratune_io/Result.h"

/** @file
    One audio device of one receiver.

    Objects belong to the plug-in object that handed them out, live as long as it does, and cannot be deleted by the
    host. Call from one thread at a time; operations that talk to the device block until it has answered or the stated
    time is over, and only one such operation may run on a device at once. No operation throws.

    The stated times have two exceptions. A wait lasts at least as long as a call of the capture callback that is
    running. With the setting "Timeout" off a wait has no end but the device's answer.

    Text results go to a buffer of the caller's as NUL-terminated UTF-8, cut to `size` bytes with the end mark
    included; a null buffer or a size of 0 takes nothing.

    Words for a failure collect until GetLastError reads them: some failures add their text to what is there, some
    replace it, and a success clears nothing. Read them after every failure, so that the next failure's words are
    its own.

    The order of the operations is the binary interface; the destructor is the first of them.
*/

namespace veltratune_io {

/** Built-in test signals of a device. */
enum EStimulus : std::int32_t
{
    kStimulusSineLogSweep = 0,
    kStimulusNoise = 1,
    kStimulusSubwooferLevelCal = 2
};

/** Bits of Device::GetCapabilities. */
enum ECapability : std::uint32_t
{
    kCapabilityAudioDataCallback = 1, ///< captured audio reaches the callback of EnterMeasurementMode
    kCapabilityVolume = 4,            ///< SetVolume and GetVolume work
    kCapabilityFilterDownload = 16    ///< always set
};

class Device
{
protected:
    VELTRATUNE_IO_DESTRUCTOR (Device)

public:
    /** Manufacturer, model and device name joined by "|". Belongs to the device. No network. */
    virtual const char* GetName() const = 0;

    /** ECapability bits. No network. */
    virtual std::uint32_t GetCapabilities() const = 0;

    /** Always 0. */
    virtual std::uint32_t GetExtendedCapabilities() const = 0;

    /** @returns kResultNotSupported */
    virtual EResult ReservedCall1 (std::uint64_t, std::uint64_t, std::uint64_t) = 0;

    /** Number of output channels. No network. */
    virtual std::uint32_t GetChannelCount() const = 0;

    /** Name and role of an output channel. No network.

        The text is the channel's name, followed by "#SUB" for a subwoofer, by "#IDX" and the two low
        hexadecimal digits of the channel's number, and by "#NOEQ" for a channel that takes no filter.

        @param index  place in the device's channel list, below GetChannelCount()
        @returns      kResultOk, or kResultBadIndex with the buffer untouched
    */
    virtual EResult GetChannelName (std::uint32_t index, char* buffer, std::uint32_t size) const = 0;

    /** One of the sample rates that filters are designed and rooms are measured at. No network.

        The rates that the device declares a "FIIR" structure for, in its order, or 44100, 48000 and 96000 Hz when it
        declares none. A download converts for the rates of the device's other structures as well.

        @param index  from 0
        @param rate   receives the rate in Hz
        @returns      false when index is beyond the last rate or rate is null
    */
    virtual bool GetSampleRate (std::uint32_t index, std::uint32_t* rate) const = 0;

    /** Always 48000 Hz, which need not be one of GetSampleRate's. */
    virtual std::uint32_t GetDefaultSampleRate() const = 0;

    /** Switches the device to measuring. Waits up to 1 s.

        @param rate      sample rate in Hz, one of GetSampleRate's
        @param ignored   not used
        @param channels  number of channels that the measurement will use
        @param callback  receives the captured audio when the device has kCapabilityAudioDataCallback, ignored
                         otherwise; borrowed until LeaveMeasurementMode has returned, also when this call fails;
                         may be null
        @returns         kResultOk, kResultBadSampleRate, kResultTooManyChannels, or kResultFailed, where
                         GetLastError has the device's text or "Timeout" unless the message could not be sent
    */
    virtual EResult EnterMeasurementMode (std::uint32_t rate, std::uint64_t ignored, std::uint32_t channels,
                                          CaptureCallback* callback) = 0;

    /** Switches the device back to listening. Waits up to 1 s. When it returns, whatever the result, the
        capture callback is no longer in use.

        @returns  true when the device acknowledged; else GetLastError has a text as above
    */
    virtual bool LeaveMeasurementMode() = 0;

    /** Plays a test signal at the rate of the last EnterMeasurementMode. Waits up to 2 s.

        @param stimulus     what to play
        @param channelList  channel numbers; borrowed during the call
        @param count        how many; at most twice GetChannelCount() are used
        @param ignored      not used
        @returns            kResultOk, kResultBadArgument for a null list that should have entries, or kResultFailed
                            with a text as above, also for an unknown stimulus
    */
    virtual EResult StartStimulus (EStimulus stimulus, const std::uint32_t* channelList, std::uint32_t count,
                                   std::uint64_t ignored) = 0;

    /** @returns kResultNotSupported */
    virtual EResult StartGenericStimulus (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                                          std::uint64_t) = 0;

    /** Stops the test signal. Waits up to 2 s; nothing is reported. */
    virtual void StopStimulus() = 0;

    /** Whether a test signal is playing; false also when the device does not answer within 500 ms. */
    virtual bool IsStimulusPlaying() = 0;

    /** The device's description of a test signal. No network.

        @param rate    in Hz
        @returns       kResultOk, kResultFailed when the device does not have this signal, kResultBadSampleRate
                       when it does not have it at this rate
    */
    virtual EResult GetStimulusInformation (EStimulus stimulus, std::uint32_t rate, char* buffer,
                                            std::uint32_t size) const = 0;

    /** Latency of the test signals in milliseconds. No network. */
    virtual double GetStimulusLatency() const = 0;

    /** Number of filter slots. No network. */
    virtual std::uint32_t GetFilterSlotCount() const = 0;

    /** Selects the filter slot in use. Waits up to 1 s.
        @returns  true when the device acknowledged; false at once for a slot that does not exist
    */
    virtual bool SetActiveFilterSlot (std::uint32_t slot) = 0;

    /** The filter slot in use; 0 also when the device does not answer within 1 s. */
    virtual std::uint32_t GetActiveFilterSlot() = 0;

    /** A filter set in a slot. No network.

        @param slot    below GetFilterSlotCount()
        @param index   place among the slot's sets, from 0
        @param set     receives the borrowed set
        @returns       false when there is none, the out value being left alone, or when set is null
    */
    virtual bool GetFilterSet (std::uint32_t slot, std::uint32_t index, FilterSet** set) = 0;

    /** @returns kResultNotSupported */
    virtual EResult ReservedCall2 (std::uint64_t, std::uint64_t) = 0;

    /** Parses a filter description and keeps it in a slot, without talking to the device.

        A slot that the device reported as occupied takes no set until the one that represents it is removed.

        A set in a slot that the device does not have (GetFilterSlotCount) cannot be got or removed; it stays until the
        plug-in object is released.

        @param slot     below 8, whatever the device's slot count is
        @param text     filter description, NUL-terminated UTF-8; borrowed during the call
        @param ignored  not used
        @returns        kResultOk, kResultFailed for the slot number, kResultBadArgument for a null text,
                        kResultBadFilterText, kResultChannelConflict when the slot holds a set that has a channel in
                        common; none of them has words for GetLastError, the log names the place of a bad text
    */
    virtual EResult LoadFilterSet (std::uint32_t slot, const char* text, std::uint64_t ignored) = 0;

    /** Empties the set's slot on the device and destroys the set. Waits up to 2 s.

        @param set  one of GetFilterSet's
        @returns    true when done; false, with nothing changed, when the set is unknown or the device did not
                    acknowledge
    */
    virtual bool RemoveFilterSet (FilterSet* set) = 0;

    /** Turns filtering on or off. Waits up to 500 ms; nothing is reported. */
    virtual void SetFiltering (bool enabled) = 0;

    /** Whether filtering is on; false also when the device does not answer within 500 ms. */
    virtual bool GetFiltering() = 0;

    /** Sets the master volume. Waits up to 500 ms.
        @param value  linear, where 1 is the loudest that a measurement uses; not limited, a value above 1 or below 0
                      goes to the device as it is
        @returns      true when the device acknowledged; false at once for a value that is not finite
    */
    virtual bool SetVolume (float value) = 0;

    /** The master volume on SetVolume's scale, and the device's own text for it. Waits up to 500 ms.
        @returns  0, with the buffer untouched, when the device did not answer
    */
    virtual float GetVolume (char* buffer, std::uint32_t size) = 0;

    /** Largest attenuation of a channel, in dB. No network. */
    virtual float GetMaxChannelAttenuation() const = 0;

    /** Attenuates a channel. Waits up to 500 ms.
        @param channel      channel number
        @param attenuation  in dB, limited to 0 .. GetMaxChannelAttenuation(); NaN counts as 0
        @returns            true when the device acknowledged
    */
    virtual bool SetChannelAttenuation (std::uint32_t channel, float attenuation) = 0;

    /** A channel's attenuation in dB; 0 also when the device does not answer within 500 ms. */
    virtual float GetChannelAttenuation (std::uint32_t channel) = 0;

    /** @returns kResultNotSupported */
    virtual EResult ReservedCall3 (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t) = 0;

    /** @returns kResultNotSupported */
    virtual EResult ReservedCall4 (std::uint64_t) = 0;

    /** @returns kResultNotSupported */
    virtual EResult ReservedCall5() = 0;

    /** The device's filter structure at a sample rate, as "key=value" items joined by ";". No network.

        A device that declares none gets "NbrOfFIRTaps=" rate / 48 ";NbrOfIIRSections=30".

        @param technology  "FIIR"
        @param rate        in Hz, one of GetSampleRate's
        @returns           kResultOk, kResultBadArgument for a null pointer, kResultBadTechnology,
                           kResultBadSampleRate, kResultBufferTooSmall
    */
    virtual EResult GetTopologyParameters (const char* technology, std::uint32_t rate, char* buffer,
                                           std::uint32_t size) const = 0;

    /** Words for the failures since the last call; reading empties them, also when the buffer takes none or not all of
        them. No network.
        @returns  kResultOk
    */
    virtual EResult GetLastError (char* buffer, std::uint32_t size) = 0;
};

class Device2 : public Device
{
protected:
    ~Device2() = default;

public:
    /** Always true. */
    virtual bool IsReady() const = 0;

    /** @returns kResultNotSupported */
    virtual EResult ReservedCall6 (std::uint64_t, std::uint64_t, std::uint64_t) = 0;

    /** Loads a filter description into a slot as LoadFilterSet does, converts the oldest set of the slot for every
        sample rate of the device, and moves the result into the device's slot.

        Returns when it is over: converting takes seconds, each message waits for the device (LoadFilter and
        FilterData 5 s, FilterChannel 1 s, each piece of data by the settings "FilterDataChunkTimeout" and
        "FilterDataChunkRetries").

        The set stays in the slot after a download that was completed or cancelled, and the next one for the same
        channels is a conflict until it is removed. To replace a filter, remove what the slot holds first:

            FilterSet* set = nullptr;

            while (device.GetFilterSet (slot, 0, &set))
                if (! device.RemoveFilterSet (set))
                    return false; // the device refused or did not answer

            const EResult result = device.DownloadFilterSet (slot, text, 0, &progress);

        A failed download destroys the set that it was sending, which is the oldest of the slot. When the slot held sets
        for other channels, that is one of them, and the set just parsed stays. The device keeps what it got until
        then; nothing is sent to undo it.

        @param slot      below 8
        @param text      filter description, NUL-terminated UTF-8; borrowed during the call
        @param ignored   not used
        @param callback  follows the download and may cancel it; borrowed during the call; may be null
        @returns         kResultOk, also when the callback cancelled; the results of LoadFilterSet, without words; or
                         kResultFailed. GetLastError has words for a failed conversion, a LoadFilter that was refused
                         or timed out, and a piece of data that the device did not take. It has none when LoadFilter,
                         FilterChannel or FilterData could not be sent, when one of them was refused without a text, and
                         when FilterChannel or FilterData timed out; the log names the message
    */
    virtual EResult DownloadFilterSet (std::uint32_t slot, const char* text, std::uint64_t ignored,
                                       ProgressCallback* callback) = 0;

    /** As RemoveFilterSet. */
    virtual bool RemoveFilterSet2 (FilterSet* set, std::uint64_t ignored) = 0;

    /** The device's serial number. No network.
        @returns  kResultOk, or kResultFailed with the buffer untouched when it has none
    */
    virtual EResult GetSerialNumber (char* buffer, std::uint32_t size) const = 0;
};

}
