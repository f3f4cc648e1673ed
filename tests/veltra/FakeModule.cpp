/** @file
    A module with one invented receiver, for tests of the host: it answers from its settings file alone, keeps a
    record of how it was used and fails where a test wants it to. Its settings:

        Device         as the real module's; FindDevices fails without it
        FakeRecord     file that receives a line for each thing that happens
        FakeReceivers  number of receivers that answer (1)
        FakeOccupied   name of the filters in slot 1 at the start (none)
        FakeFindMs     time that FindDevices takes (0)
        FakeDownload   ok, text, conflict, conversion or refusal (ok)
        FakePieces     pieces of a download (20)
        FakePieceMs    time for each (0)
        FakeWords      the receiver's words for a refusal (none)
        FakeCaps       capabilities (21: all)
        FakeRefuse     operations that it refuses, apart by blanks: enter start leave volume attenuation slot filtering
        FakeStimulusMs time that a stimulus plays (100)
        FakePacketMs   pause between packets of 480 samples in measurement mode (2)
*/

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include <dlfcn.h>

#include "common/Numbers.h"
#include "veltratune_io/Plugin.h"

namespace {

using namespace veltratune_io;

/** The settings beside this library; values without escapes will do here. */
class Settings
{
public:
    Settings()
    {
        Dl_info info = {};
        static const int anchor = 0;
        dladdr (&anchor, &info);
        const auto path = std::filesystem::path (info.dli_fname);

        std::ifstream file (std::filesystem::path (path).replace_extension ("settings"));
        std::stringstream text;
        text << file.rdbuf();
        all = text.str();
        record ("settings beside " + path.string());
    }

    std::string get (const std::string& key, const std::string& standard = {}) const
    {
        const auto start = "<VALUE name=\"" + key + "\" val=\"";
        const auto found = all.find (start);
        return found == all.npos ? standard : all.substr (found + start.size(), all.find ('"', found + start.size()) - found - start.size());
    }

    int number (const std::string& key, int standard) const { return veltra::toInt (get (key, std::to_string (standard))); }

    bool refuses (const std::string& operation) const { return get ("FakeRefuse").find (operation) != std::string::npos; }

    void pause (const std::string& key, int standard = 0) const { std::this_thread::sleep_for (std::chrono::milliseconds (number (key, standard))); }

    void record (const std::string& line) const
    {
        if (const auto file = get ("FakeRecord"); ! file.empty())
            std::ofstream (file, std::ios::app) << line << std::endl;
    }

private:
    std::string all;
};

void copyText (const std::string& text, char* buffer, std::uint32_t size)
{
    if (buffer != nullptr && size > 0)
        buffer[text.copy (buffer, size - 1)] = '\0';
}

class FakeFilter final : public Filter
{
public:
    explicit FakeFilter (std::string nameToUse) : name (std::move (nameToUse)) {}

    const char* GetName() const override                               { return name.c_str(); }
    const char* GetDescription() const override                        { return ""; }
    std::uint32_t GetChannel() const override                          { return 0; }
    EResult UnsupportedQuery1 (std::uint64_t, std::uint64_t) override  { return kResultNotSupported; }
    EResult UnsupportedQuery2 (std::uint64_t) override                 { return kResultNotSupported; }
    float GetGaindB() const override                                   { return 0; }
    EResult UnsupportedQuery3 (std::uint64_t) override                 { return kResultNotSupported; }
    EResult UnsupportedQuery4 (std::uint64_t) override                 { return kResultNotSupported; }
    float GetDelayMs() const override                                  { return 0; }
    void Reserved() override {}

private:
    std::string name;
};

class FakeSet final : public FilterSet
{
public:
    explicit FakeSet (std::string nameToUse) : name (std::move (nameToUse)) {}

    const char* GetName() const override        { return name.c_str(); }
    const char* GetTechnology() const override  { return "FIR"; }

    bool GetFilter (std::uint32_t index, Filter** filter) override
    {
        if (index >= filters.size())
            return false;

        if (filter != nullptr)
            *filter = &filters[index];

        return true;
    }

private:
    std::string name;
    std::vector<FakeFilter> filters { FakeFilter ("FL"), FakeFilter ("SW") };
};

/** Streams packets from a thread of its own while it lives: sample n of the stream is n / 65536. */
class Capture
{
public:
    Capture (const Settings& settings, CaptureCallback& callback)
        : thread ([this, &settings, &callback] { stream (settings, callback); })
    {
    }

    ~Capture()
    {
        done = true;
        thread.join();
    }

private:
    void stream (const Settings& settings, CaptureCallback& callback)
    {
        std::vector<float> packet (480);
        std::uint64_t number = 0;
        callback.OnCaptureStart (static_cast<std::int32_t> (packet.size()));

        for (; ! done; settings.pause ("FakePacketMs", 2))
        {
            for (float& sample : packet)
                sample = static_cast<float> (number++) / 65536.0f;

            callback.OnCaptureData (packet.data(), static_cast<std::int32_t> (packet.size()));
        }
    }

    std::atomic<bool> done { false };
    std::thread thread;
};

class FakeDevice final : public Device2
{
public:
    explicit FakeDevice (const Settings& settingsToUse) : settings (settingsToUse)
    {
        if (const auto name = settings.get ("FakeOccupied"); ! name.empty())
            sets[1] = std::make_unique<FakeSet> (name);
    }

    const char* GetName() const override                   { return "Maker|Model|Lounge"; }
    std::uint32_t GetCapabilities() const override         { return static_cast<std::uint32_t> (settings.number ("FakeCaps", 21)); }
    std::uint32_t GetExtendedCapabilities() const override { return 0; }
    EResult ReservedCall1 (std::uint64_t, std::uint64_t, std::uint64_t) override { return kResultNotSupported; }
    std::uint32_t GetChannelCount() const override         { return 3; }

    EResult GetChannelName (std::uint32_t index, char* buffer, std::uint32_t size) const override
    {
        const char* const names[] = { "FL#IDX00", "SW#SUB#IDX0b#NOEQ", "Front #2#IDX1f" };

        if (index >= 3)
            return kResultBadIndex;

        copyText (names[index], buffer, size);
        return kResultOk;
    }

    bool GetSampleRate (std::uint32_t index, std::uint32_t* rate) const override
    {
        const std::uint32_t rates[] = { 44100, 48000 };
        return rate != nullptr && index < 2 && (*rate = rates[index], true);
    }

    std::uint32_t GetDefaultSampleRate() const override { return 48000; }

    EResult EnterMeasurementMode (std::uint32_t rate, std::uint64_t, std::uint32_t channels, CaptureCallback* callback) override
    {
        settings.record ("enter " + std::to_string (rate) + " with " + std::to_string (channels));

        if (rate == 96000)
            return kResultBadSampleRate;

        if (settings.refuses ("enter"))
            return kResultFailed;

        capture = std::make_unique<Capture> (settings, *callback);
        return kResultOk;
    }

    bool LeaveMeasurementMode() override
    {
        capture.reset();
        settings.record ("leave");
        return ! settings.refuses ("leave");
    }

    EResult StartStimulus (EStimulus stimulus, const std::uint32_t* channels, std::uint32_t count, std::uint64_t) override
    {
        std::string line = "start " + std::to_string (stimulus) + " on";

        for (std::uint32_t i = 0; i < count; ++i)
            line += " " + std::to_string (channels[i]);

        settings.record (line);
        stimulusEnd = Clock::now() + std::chrono::milliseconds (settings.number ("FakeStimulusMs", 100));
        return settings.refuses ("start") ? kResultFailed : kResultOk;
    }

    EResult StartGenericStimulus (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t) override { return kResultNotSupported; }
    void StopStimulus() override { settings.record ("stop"); }
    bool IsStimulusPlaying() override { return Clock::now() < stimulusEnd; }

    EResult GetStimulusInformation (EStimulus stimulus, std::uint32_t rate, char* buffer, std::uint32_t size) const override
    {
        if (stimulus != kStimulusSineLogSweep)
            return kResultFailed;

        if (rate != 48000)
            return kResultBadSampleRate;

        copyText ("Length=5", buffer, size);
        return kResultOk;
    }

    double GetStimulusLatency() const override { return 20; }
    std::uint32_t GetFilterSlotCount() const override { return 3; }

    bool SetActiveFilterSlot (std::uint32_t slot) override
    {
        if (settings.refuses ("slot"))
            return false;

        activeSlot = slot;
        return true;
    }

    std::uint32_t GetActiveFilterSlot() override { return activeSlot; }

    bool GetFilterSet (std::uint32_t slot, std::uint32_t index, FilterSet** set) override
    {
        const auto found = sets.find (slot);
        return found != sets.end() && index == 0 && (*set = found->second.get(), true);
    }

    EResult ReservedCall2 (std::uint64_t, std::uint64_t) override { return kResultNotSupported; }
    EResult LoadFilterSet (std::uint32_t, const char*, std::uint64_t) override { return kResultFailed; }

    bool RemoveFilterSet (FilterSet* set) override
    {
        const auto found = std::ranges::find_if (sets, [set] (const auto& item) { return item.second.get() == set; });

        if (found == sets.end() || settings.get ("FakeDownload") == "refusal")
            return false;

        settings.record ("emptied slot " + std::to_string (found->first));
        sets.erase (found);
        return true;
    }

    void SetFiltering (bool enabled) override { filtering = enabled && ! settings.refuses ("filtering"); }
    bool GetFiltering() override              { return filtering; }

    bool SetVolume (float value) override
    {
        volume = value;
        return ! settings.refuses ("volume");
    }

    float GetVolume (char* buffer, std::uint32_t size) override
    {
        copyText ("quite loud", buffer, size);
        return volume;
    }

    float GetMaxChannelAttenuation() const override { return 12; }

    bool SetChannelAttenuation (std::uint32_t channel, float value) override
    {
        attenuations[channel] = std::clamp (value, 0.0f, 12.0f);
        return ! settings.refuses ("attenuation");
    }

    float GetChannelAttenuation (std::uint32_t channel) override { return attenuations[channel]; }
    EResult ReservedCall3 (std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t) override { return kResultNotSupported; }
    EResult ReservedCall4 (std::uint64_t) override { return kResultNotSupported; }
    EResult ReservedCall5() override { return kResultNotSupported; }

    EResult GetTopologyParameters (const char*, std::uint32_t rate, char* buffer, std::uint32_t size) const override
    {
        copyText ("NbrOfFIRTaps=" + std::to_string (rate / 48) + ";NbrOfIIRSections=30", buffer, size);
        return kResultOk;
    }

    EResult GetLastError (char* buffer, std::uint32_t size) override
    {
        copyText (settings.get ("FakeWords"), buffer, size);
        return kResultOk;
    }

    bool IsReady() const override { return true; }
    EResult ReservedCall6 (std::uint64_t, std::uint64_t, std::uint64_t) override { return kResultNotSupported; }

    EResult DownloadFilterSet (std::uint32_t slot, const char* text, std::uint64_t, ProgressCallback* callback) override
    {
        const auto way = settings.get ("FakeDownload", "ok");
        callback->OnProgressText ("#Preprocessing filters...", 25);

        if (way == "text")
            return kResultBadFilterText;

        if (sets.contains (slot))
            return kResultChannelConflict;

        if (way == "conversion")
            return kResultFailed;

        settings.record ("text of " + std::to_string (std::strlen (text)) + " bytes");
        callback->OnProgressText ("", 0);
        const int pieces = settings.number ("FakePieces", 20);
        bool cancelled = false;

        for (int piece = 0; piece < pieces; ++piece)
        {
            settings.pause ("FakePieceMs");
            cancelled = ! callback->OnProgress (static_cast<float> (piece) / static_cast<float> (pieces)) || cancelled;
        }

        settings.record (cancelled ? "download cancelled" : "download complete");

        if (way == "refusal")
            return kResultFailed;

        sets[slot] = std::make_unique<FakeSet> ("From the text");
        return kResultOk;
    }

    bool RemoveFilterSet2 (FilterSet* set, std::uint64_t) override { return RemoveFilterSet (set); }

    EResult GetSerialNumber (char* buffer, std::uint32_t size) const override
    {
        copyText ("SN-17", buffer, size);
        return kResultOk;
    }

private:
    using Clock = std::chrono::steady_clock;

    const Settings& settings;
    std::map<std::uint32_t, std::unique_ptr<FakeSet>> sets;
    std::unique_ptr<Capture> capture;
    Clock::time_point stimulusEnd;
    std::uint32_t activeSlot = 0;
    bool filtering = false;
    float volume = 0.25f;
    std::map<std::uint32_t, float> attenuations;
};

class FakePlugin final : public Plugin
{
public:
    ~FakePlugin() override { settings.record ("released"); }

    const char* GetName() const override    { return "Fake"; }
    const char* GetVendor() const override  { return "Fake"; }
    const char* GetVersion() const override { return "0"; }
    const char* GetDate() const override    { return "2015-04-14"; }

    bool FindDevices() override
    {
        settings.record ("looking for " + settings.get ("Device"));
        settings.pause ("FakeFindMs");

        if (! settings.get ("Device").empty())
            for (int i = 0; i < settings.number ("FakeReceivers", 1); ++i)
                devices.push_back (std::make_unique<FakeDevice> (settings));

        return ! devices.empty();
    }

    bool GetDevice (std::uint32_t index, Device** device) override
    {
        return index < devices.size() && (*device = devices[index].get(), true);
    }

private:
    Settings settings;
    std::vector<std::unique_ptr<FakeDevice>> devices;
};

std::unique_ptr<FakePlugin> thePlugin;

}

Plugin* GetVersionedPluginObject (std::uint32_t version)
{
    if (version == kPluginInterfaceVersion)
        thePlugin = std::make_unique<FakePlugin>();

    return thePlugin.get();
}

void ReleaseVersionedPluginObject (Plugin*) { thePlugin.reset(); }

void SetLogPath (const char* path, std::int32_t, std::int32_t level)
{
    std::ofstream (path, std::ios::app) << "log level " << level << '\n';
}
