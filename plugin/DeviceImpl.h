// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <juce_data_structures/juce_data_structures.h>

#include "filters/FilterSetsImpl.h"
#include "plugin/AudioCapture.h"
#include "plugin/Exchange.h"
#include "protocol/Dispatcher.h"
#include "protocol/veltraio.pb.h"
#include "veltratune_io/Device.h"

namespace veltra::plugin {

/** What a receiver said of itself when the session was opened. */
struct Descriptions
{
    veltraio::Unit unit;
    veltraio::TopologyInfo topologyInfo;
    veltraio::StimulusInfo stimulusInfo;
};

/** One audio device of one receiver. The boundary's headers describe the operations; they are implemented in
    DeviceInformation.cpp, DeviceMeasurement.cpp and DeviceFilterSets.cpp.

    The descriptions never change: a device that changes its slots or channels during a session is not noticed.
*/
class DeviceImpl final : public veltratune_io::Device2
{
public:
    /** @param dispatcherToUse  borrowed; must outlive the device
        @param settingsToUse    borrowed likewise
        @param index            of the device in the unit, below the number of its devices
        @param friendlyName     name for people that the search found; may be empty
        @throws                 std::bad_alloc */
    DeviceImpl (veltraio::Dispatcher& dispatcherToUse, Descriptions descriptionsToKeep,
                juce::PropertySet& settingsToUse, std::uint32_t index, const std::string& friendlyName);
    ~DeviceImpl();

    // Information
    const char* GetName() const override;
    std::uint32_t GetCapabilities() const override;
    std::uint32_t GetExtendedCapabilities() const override;
    std::uint32_t GetChannelCount() const override;
    veltratune_io::EResult GetChannelName (std::uint32_t index, char* buffer, std::uint32_t size) const override;
    bool GetSampleRate (std::uint32_t index, std::uint32_t* rate) const override;
    std::uint32_t GetDefaultSampleRate() const override;
    std::uint32_t GetFilterSlotCount() const override;
    float GetMaxChannelAttenuation() const override;
    veltratune_io::EResult GetTopologyParameters (const char* technology, std::uint32_t rate, char* buffer,
                                                  std::uint32_t size) const override;
    veltratune_io::EResult GetLastError (char* buffer, std::uint32_t size) override;
    bool IsReady() const override;
    veltratune_io::EResult GetSerialNumber (char* buffer, std::uint32_t size) const override;

    // Measurement
    veltratune_io::EResult EnterMeasurementMode (std::uint32_t rate, std::uint64_t ignored, std::uint32_t channels,
                                                 veltratune_io::CaptureCallback* callback) override;
    bool LeaveMeasurementMode() override;
    veltratune_io::EResult StartStimulus (veltratune_io::EStimulus stimulus, const std::uint32_t* channelList,
                                          std::uint32_t count, std::uint64_t ignored) override;
    void StopStimulus() override;
    bool IsStimulusPlaying() override;
    veltratune_io::EResult GetStimulusInformation (veltratune_io::EStimulus stimulus, std::uint32_t rate, char* buffer,
                                                   std::uint32_t size) const override;
    double GetStimulusLatency() const override;
    bool SetActiveFilterSlot (std::uint32_t slot) override;
    std::uint32_t GetActiveFilterSlot() override;
    void SetFiltering (bool enabled) override;
    bool GetFiltering() override;
    bool SetVolume (float value) override;
    float GetVolume (char* buffer, std::uint32_t size) override;
    bool SetChannelAttenuation (std::uint32_t channel, float attenuation) override;
    float GetChannelAttenuation (std::uint32_t channel) override;

    // Filter sets
    bool GetFilterSet (std::uint32_t slot, std::uint32_t index, veltratune_io::FilterSet** set) override;
    veltratune_io::EResult LoadFilterSet (std::uint32_t slot, const char* text, std::uint64_t ignored) override;
    bool RemoveFilterSet (veltratune_io::FilterSet* set) override;
    bool RemoveFilterSet2 (veltratune_io::FilterSet* set, std::uint64_t ignored) override;
    veltratune_io::EResult DownloadFilterSet (std::uint32_t slot, const char* text, std::uint64_t ignored,
                                              veltratune_io::ProgressCallback* callback) override;

    // Not supported
    veltratune_io::EResult ReservedCall1 (std::uint64_t, std::uint64_t, std::uint64_t) override;
    veltratune_io::EResult StartGenericStimulus (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                                                 std::uint64_t) override;
    veltratune_io::EResult ReservedCall2 (std::uint64_t, std::uint64_t) override;
    veltratune_io::EResult ReservedCall3 (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t) override;
    veltratune_io::EResult ReservedCall4 (std::uint64_t) override;
    veltratune_io::EResult ReservedCall5() override;
    veltratune_io::EResult ReservedCall6 (std::uint64_t, std::uint64_t, std::uint64_t) override;

private:
    using FilterSets = std::vector<std::unique_ptr<filters::FilterSetsImpl>>;

    /** Where a set is kept. */
    struct Place
    {
        std::uint32_t slot;
        FilterSets& sets;
        FilterSets::iterator at;
    };

    bool hasCapability (veltraio::Unit::Caps capability) const noexcept;
    bool offersSampleRate (std::uint32_t rate) const noexcept;
    void listOccupiedSlots();

    /** The result of a command that sets lastError when it fails. */
    veltratune_io::EResult resultOf (const CommandResult& command);

    veltratune_io::EResult loadFilterSet (std::uint32_t slot, const char* text);

    std::optional<Place> findSet (const veltratune_io::FilterSet* set);

    veltraio::Dispatcher& dispatcher;
    const Descriptions descriptions;
    const std::uint32_t deviceIndex;
    const veltraio::Unit::Device& deviceInfo; // in descriptions
    const std::string name;
    juce::PropertySet& settings;
    const std::vector<std::uint32_t> sampleRates;

    std::map<std::uint32_t, FilterSets> filterSets; // by slot; one that was never touched has no entry
    std::int64_t activeSlot = -1;                   // the last one that SetActiveFilterSlot selected
    std::uint32_t sampleRate = 0;                   // of the last EnterMeasurementMode, in Hz
    std::string lastError;

    AudioCapture capture; // last: its packets end before the rest is destroyed
};

}
