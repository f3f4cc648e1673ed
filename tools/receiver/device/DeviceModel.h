// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "tools/receiver/device/FilterMemory.h"
#include "tools/receiver/device/Profile.h"
#include "tools/receiver/sound/MicrophoneStream.h"
#include "tools/receiver/sound/Room.h"
#include "tools/receiver/sound/Stimulus.h"

namespace veltra::receiver {

/** State of one session: its number, and the download that it has begun. Used by the session's thread only. */
struct Conversation
{
    std::uint32_t session = 0;

    /** Sends a message that is not a reply; false after the end of the connection. Called on any thread. */
    std::function<bool (const google::protobuf::MessageLite&)> send;

    FilterMemory::DownloadId download = 0; ///< 0 for none
    std::uint32_t downloadDevice = 0;
    std::uint32_t downloadSlot = 0;
};

/** Options of a simulated measurement. */
struct MeasurementOptions
{
    Room::Options room;
    double speed = 1.0;                ///< of the microphone's stream, times real time
    double noise_dBFS = -90.0;         ///< of the microphone, RMS; minus infinity for none
    std::uint32_t packetSamples = 512; ///< in an AudioData message; at most kMaxPacketSamples

    /** A host takes envelopes below 32768 bytes: 15 go for the header, 6 at most for the packet's number, and a
        sample takes 5. */
    static constexpr std::uint32_t kMaxPacketSamples = (32767 - 15 - 6) / 5;
};

/** A receiver without its network: the profile's answers, settings, filter slots, measurement mode. All sessions share
    this state, as on a real receiver. Any thread.
*/
class DeviceModel
{
public:
    /** Called on the session's thread when a slot has become complete, before that is acknowledged. */
    using DownloadCallback = std::function<void (std::uint32_t device, std::uint32_t slot, const Slot&)>;

    /** Master volume at which a stimulus is played at its own level; also the initial volume. */
    static constexpr float kReferenceVolume = 0.7f;

    /** @throws std::runtime_error when the room cannot be read, the options are out of range, or the profile
                describes a stimulus that cannot be made */
    DeviceModel (Profile, const MeasurementOptions&, DownloadCallback);
    ~DeviceModel();

    /** Carries out one message of a host.

        @param type  name of the message, without the package; empty for one that the schema does not have
        @param body  its protobuf serialisation
        @returns     the reply; null for a message that takes none (Pong, Acknowledge)
        @throws      Refusal; nothing has changed then */
    std::unique_ptr<google::protobuf::MessageLite> handle (Conversation&, std::string_view type, std::string_view body);

    /** A session has ended: a measurement of its own ends with it, a download of its own stays unfinished. */
    void sessionEnded (const Conversation&);

    /** State of one of the profile's devices. */
    struct Settings
    {
        float volume = kReferenceVolume;
        std::map<std::uint32_t, float> attenuation; ///< by channelIndex, a fraction of the maximum; absent for 0
        std::uint32_t activeSlot = 0;
        bool isFiltering = false;
    };

    struct MeasurementStatus
    {
        bool isMeasuring = false;
        std::uint32_t session = 0;    ///< that entered measurement mode
        std::uint32_t sampleRate = 0; ///< 0 when the host gave none
        MicrophoneStream::Status stimulus;
    };

    /** Copies of the state, for tests and reports.
        @throws std::out_of_range */
    Settings settings (std::uint32_t device) const;
    std::vector<Slot> slots (std::uint32_t device) const;
    MeasurementStatus measurement() const;

private:
    struct Device
    {
        explicit Device (const veltraio::Unit::Device& description) : memory (description) {}

        Settings settings;
        FilterMemory memory;
    };

    using Reply = std::unique_ptr<google::protobuf::MessageLite>;
    using Handler = std::function<Reply (Conversation&, std::string_view body)>;

    template <typename Message>
    void command (void (DeviceModel::*operation) (Conversation&, const Message&));

    // Answers and settings (DeviceModel.cpp)
    Reply answer (const veltraio::Request&);
    veltraio::Unit describe() const;
    void setVolume (Conversation&, const veltraio::Volume&);
    void setAttenuation (Conversation&, const veltraio::ChannelAttenuation&);
    void setActiveSlot (Conversation&, const veltraio::ActiveFilterSlot&);
    void setFiltering (Conversation&, const veltraio::FilteringState&);
    Device& device (std::uint32_t index);
    const veltraio::Unit::Device::ChannelInfo& channel (std::uint32_t device, std::uint32_t channelIndex) const;

    // Download (DeviceModelDownload.cpp)
    void loadFilter (Conversation&, const veltraio::LoadFilter&);
    void addChannel (Conversation&, const veltraio::FilterChannel&);
    void addBlock (Conversation&, const veltraio::FilterData&);
    void addChunk (Conversation&, const veltraio::FilterDataChunk&);
    void cancelDownload (Conversation&, const veltraio::DownloadCancelled&);
    void removeFilter (Conversation&, const veltraio::RemoveFilter&);
    void noteCompletion (const Conversation&, bool isComplete);

    // Measurement (DeviceModelMeasurement.cpp)
    void checkMeasurement() const;
    void setMode (Conversation&, const veltraio::OperationModeInfo&);
    void startStimulus (Conversation&, const veltraio::StartStimulus&);
    void stopStimulus (Conversation&, const veltraio::StopStimulus&);
    void enterMeasurement (const Conversation&, const veltraio::OperationModeInfo&);
    void leaveMeasurement();
    tools::Stimulus stimulus (unsigned kind, std::uint32_t sampleRate) const;
    Eigen::VectorXf channelResponse (const Device&, const veltraio::Unit::Device::ChannelInfo&,
                                     std::uint32_t sampleRate);
    MicrophoneStream::Format streamFormat (std::uint32_t sampleRate) const;

    const Profile profile;
    const MeasurementOptions options;
    const DownloadCallback onDownload;
    std::map<std::string, Handler, std::less<>> handlers;

    mutable std::mutex lock; // everything below
    std::vector<Device> devices;
    FilterMemory::DownloadId lastDownload = 0;
    std::function<void()> afterwards; // called after the message, without the lock
    Room room;
    MeasurementStatus mode; // without its stimulus: the stream has that
    std::unique_ptr<MicrophoneStream> microphone;
};

}
