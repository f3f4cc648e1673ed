// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A host that needs no library but the system's, so that it can be compiled for Microsoft's object layout where there is
    none of Microsoft's files. tests/abi/run starts it, with the receiver of the shipped profile "stereo".

        operations_host MODULE     0 when everything was as expected; otherwise it says what was not

    The variable HOST_MODE says what it does: "operations" calls every operation of the boundary once and checks what comes
    back; "unload" loads and unloads the module a hundred times, releasing its object each third time; "leave" ends the
    process with an open session; "silent" releases its object when the receiver does not react any more, and waits for that
    after the word "ready"; "refused" looks for a receiver that is not there, in at most HOST_MOST_MS milliseconds.
*/

#include "veltratune_io/Plugin.h"

#if defined(_WIN32)

extern "C"
{
    __declspec(dllimport) void* LoadLibraryW (const wchar_t*);
    __declspec(dllimport) void* GetProcAddress (void*, const char*);
    __declspec(dllimport) int FreeLibrary (void*);
    __declspec(dllimport) void* GetStdHandle (unsigned long);
    __declspec(dllimport) int WriteFile (void*, const void*, unsigned long, unsigned long*, void*);
    __declspec(dllimport) void Sleep (unsigned long);
    __declspec(dllimport) unsigned long long GetTickCount64();
    __declspec(dllimport) const wchar_t* GetCommandLineW();
    __declspec(dllimport) unsigned long GetEnvironmentVariableA (const char*, char*, unsigned long);
    __declspec(dllimport) int WideCharToMultiByte (unsigned, unsigned long, const wchar_t*, int, char*, int,
                                                   const char*, int*);
    __declspec(dllimport) void ExitProcess (unsigned);

    int _fltused = 0; // what Microsoft's linker expects of a program that uses floating point
}

#else

#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <time.h>
#include <unistd.h>

#endif

namespace {

using namespace veltratune_io;

#if defined(_WIN32)

using Path = const wchar_t*;

void* load (Path file) { return LoadLibraryW (file); }
void* find (void* module, const char* name) { return GetProcAddress (module, name); }
bool unload (void* module) { return FreeLibrary (module) != 0; }
void wait_ms (unsigned time) { Sleep (time); }
unsigned long long now_ms() { return GetTickCount64(); }

void readVariable (const char* name, char (&value)[32])
{
    if (GetEnvironmentVariableA (name, value, sizeof (value)) == 0)
        value[0] = 0;
}

void toUtf8 (Path file, char (&text)[1024])
{
    WideCharToMultiByte (65001, 0, file, -1, text, sizeof (text), nullptr, nullptr);
}

void print (const char* text, unsigned size)
{
    unsigned long written = 0;
    WriteFile (GetStdHandle (static_cast<unsigned long> (-11)), text, size, &written, nullptr);
}

#else

using Path = const char*;

void* load (Path file) { return dlopen (file, RTLD_NOW | RTLD_LOCAL); }
void* find (void* module, const char* name) { return dlsym (module, name); }
bool unload (void* module) { return dlclose (module) == 0; }
void wait_ms (unsigned time) { usleep (time * 1000); }

unsigned long long now_ms()
{
    timespec time {};
    clock_gettime (CLOCK_MONOTONIC, &time);
    return static_cast<unsigned long long> (time.tv_sec) * 1000
           + static_cast<unsigned long long> (time.tv_nsec) / 1000000;
}

void readVariable (const char* name, char (&value)[32])
{
    const char* const found = getenv (name);
    value[0] = 0;
    strncat (value, found != nullptr ? found : "", sizeof (value) - 1);
}

void toUtf8 (Path file, char (&text)[1024])
{
    text[0] = 0;
    strncat (text, file, sizeof (text) - 1);
}

void print (const char* text, unsigned size) { [[maybe_unused]] const auto written = write (1, text, size); }

#endif

unsigned lengthOf (const char* text)
{
    unsigned length = 0;

    while (text[length] != 0)
        ++length;

    return length;
}

void say (const char* text) { print (text, lengthOf (text)); }

bool isSame (const char* a, const char* b)
{
    while (*a != 0 && *a == *b)
        ++a, ++b;

    return *a == *b;
}

int failures = 0;

void check (bool asExpected, const char* what)
{
    if (asExpected)
        return;

    ++failures;
    say ("not as expected: ");
    say (what);
    say ("\n");
}

void checkText (const char* expected, const char* actual, const char* what)
{
    const bool same = actual != nullptr && isSame (expected, actual);
    check (same, what);

    if (! same && actual != nullptr)
    {
        say ("  '");
        say (actual);
        say ("'\n");
    }
}

#define CHECK(condition) check (condition, #condition)

struct Capture final : CaptureCallback
{
    void Reserved1() override { unexpected = true; }
    void Reserved2() override { unexpected = true; }
    void OnCaptureStart (std::int32_t count) override { announced = count; }

    void OnCaptureData (const float* samples, std::int32_t count) override
    {
        for (std::int32_t i = 0; i < count; ++i)
            if (samples[i] != 0.0f)
                heard = true;

        unexpected = unexpected || announced == 0 || count <= 0;
    }

    volatile std::int32_t announced = 0;
    volatile bool heard = false, unexpected = false;
};

struct Progress final : ProgressCallback
{
    void Reserved1() override { unexpected = true; }

    void OnProgressText (const char* text, std::uint32_t length) override
    {
        ++texts;
        unexpected = unexpected || length != lengthOf (text);
    }

    bool OnProgress (float fraction) override
    {
        unexpected = unexpected || ! (fraction >= latest && fraction < 1.0f);
        latest = fraction;
        ++pieces;
        return true;
    }

    int texts = 0, pieces = 0;
    float latest = 0.0f;
    bool unexpected = false;
};

constexpr const char* kDescription = R"(<?xml version="1.0" encoding="UTF-8"?>
<Veltra><Tune ChannelCount="2" ProjectName="Living room" Technology="FIIR">
<Channel Name="FL" Number="1" GaindB="-1.5" Delayms="0.25" MaxFilterGaindB="6">
<Coefficients Topology="FIR" Fs="44100"><FIR NbrOfTaps="4"><taps>1 0.25 -0.125 3.5e-2</taps></FIR></Coefficients>
<Coefficients Topology="FIR" Fs="96000"><FIR NbrOfTaps="3"><taps>0.7 1e-3 -0.3</taps></FIR></Coefficients>
<Coefficients Topology="FIIR" Fs="48000"><FIR NbrOfTaps="3"><taps>1 0.25 -0.125</taps></FIR>
<IIR NbrOfSections="2"><section>-1.98 0.9801 0.01 0</section><section>-0.9 0 0.05 0</section></IIR>
<Extra>Delay=48</Extra></Coefficients></Channel>
<Channel Name="FR" Number="2">
<Coefficients Topology="FIR" Fs="44100"><FIR NbrOfTaps="1"><taps>0.5</taps></FIR></Coefficients>
<Coefficients Topology="FIR" Fs="96000"><FIR NbrOfTaps="2"><taps>0.5 0.1</taps></FIR></Coefficients>
<Coefficients Topology="FIR" Fs="48000"><FIR NbrOfTaps="1"><taps>0.5</taps></FIR></Coefficients></Channel>
</Tune></Veltra>)";

void checkFilters (FilterSet& set)
{
    checkText ("Living room", set.GetName(), "FilterSet::GetName");
    checkText ("FIIR", set.GetTechnology(), "FilterSet::GetTechnology");

    Filter* filter = nullptr;
    CHECK (! set.GetFilter (2, &filter) && filter == nullptr);
    CHECK (set.GetFilter (0, &filter));
    checkText ("FL", filter->GetName(), "Filter::GetName");
    checkText ("", filter->GetDescription(), "Filter::GetDescription");
    CHECK (filter->GetChannel() == 0);
    CHECK (filter->UnsupportedQuery1 (1, 2) == kResultNotSupported);
    CHECK (filter->UnsupportedQuery2 (1) == kResultNotSupported);
    CHECK (filter->GetGaindB() == -1.5f);
    CHECK (filter->UnsupportedQuery3 (1) == kResultNotSupported);
    CHECK (filter->UnsupportedQuery4 (1) == kResultNotSupported);
    CHECK (filter->GetDelayMs() == 0.25f);
    filter->Reserved();
}

void checkDescriptions (Device2& device)
{
    char text[256];
    std::uint32_t rate = 0;

    checkText ("Morvane|Stereo 2|Main", device.GetName(), "Device::GetName");
    CHECK (device.GetCapabilities() == (kCapabilityAudioDataCallback | kCapabilityVolume | kCapabilityFilterDownload));
    CHECK (device.GetExtendedCapabilities() == 0);
    CHECK (device.GetChannelCount() == 2);
    CHECK (device.GetChannelName (1, text, sizeof (text)) == kResultOk);
    checkText ("FR#IDX01", text, "Device::GetChannelName");
    CHECK (device.GetSampleRate (0, &rate) && rate == 48000);
    CHECK (! device.GetSampleRate (1, &rate));
    CHECK (device.GetDefaultSampleRate() == 48000);
    CHECK (device.GetStimulusInformation (kStimulusNoise, 48000, text, sizeof (text)) == kResultOk);
    checkText ("Seconds=5;Level_dBFS=-20;Seed=1", text, "Device::GetStimulusInformation");
    CHECK (device.GetStimulusLatency() == 0.0);
    CHECK (device.GetFilterSlotCount() == 2);
    CHECK (device.GetMaxChannelAttenuation() == 12.0f);
    CHECK (device.GetTopologyParameters ("FIIR", 48000, text, sizeof (text)) == kResultOk);
    checkText ("NbrOfFIRTaps=16384;NbrOfIIRSections=30", text, "Device::GetTopologyParameters");
    CHECK (device.GetLastError (text, sizeof (text)) == kResultOk);
    checkText ("", text, "Device::GetLastError");
    CHECK (device.IsReady());
    CHECK (device.GetSerialNumber (text, sizeof (text)) == kResultOk);
    checkText ("MV2-000117", text, "Device2::GetSerialNumber");

    CHECK (device.ReservedCall1 (1, 2, 3) == kResultNotSupported);
    CHECK (device.ReservedCall2 (1, 2) == kResultNotSupported);
    CHECK (device.ReservedCall3 (1, 2, 3, 4) == kResultNotSupported);
    CHECK (device.ReservedCall4 (1) == kResultNotSupported);
    CHECK (device.ReservedCall5() == kResultNotSupported);
    CHECK (device.ReservedCall6 (1, 2, 3) == kResultNotSupported);
    CHECK (device.StartGenericStimulus (1, 2, 3, 4, 5) == kResultNotSupported);
}

void checkControls (Device2& device)
{
    char text[256] = "";

    CHECK (device.SetActiveFilterSlot (1));
    CHECK (device.GetActiveFilterSlot() == 1);
    device.SetFiltering (true);
    CHECK (device.GetFiltering());
    device.SetFiltering (false);
    CHECK (! device.GetFiltering());
    CHECK (device.SetVolume (0.5f));
    CHECK (device.GetVolume (text, sizeof (text)) == 0.5f);
    CHECK (text[0] != 0);
    CHECK (device.SetChannelAttenuation (1, 3.5f));
    CHECK (device.GetChannelAttenuation (1) == 3.5f);
}

void checkMeasurement (Device2& device)
{
    Capture capture;
    const std::uint32_t channels[] = { 0 };

    CHECK (device.EnterMeasurementMode (12345, 0, 1, &capture) == kResultBadSampleRate);
    CHECK (device.EnterMeasurementMode (48000, 0, 1, &capture) == kResultOk);
    CHECK (device.StartStimulus (kStimulusNoise, channels, 1, 0) == kResultOk);
    CHECK (device.IsStimulusPlaying());

    for (int turns = 0; turns < 300 && ! capture.heard; ++turns)
        wait_ms (10);

    device.StopStimulus();
    CHECK (! device.IsStimulusPlaying());
    CHECK (device.LeaveMeasurementMode());
    CHECK (capture.heard && ! capture.unexpected);
}

void checkDownload (Device2& device)
{
    Progress progress;
    FilterSet* set = nullptr;

    CHECK (device.LoadFilterSet (0, kDescription, 0) == kResultOk);
    CHECK (device.GetFilterSet (0, 0, &set));

    if (set != nullptr)
        checkFilters (*set);

    CHECK (device.RemoveFilterSet (set));
    CHECK (! device.GetFilterSet (0, 0, &set));
    CHECK (device.LoadFilterSet (0, kDescription, 0) == kResultOk);
    CHECK (device.GetFilterSet (0, 0, &set));
    CHECK (device.RemoveFilterSet2 (set, 0));

    CHECK (device.DownloadFilterSet (1, kDescription, 0, &progress) == kResultOk);
    CHECK (progress.texts > 0 && progress.pieces > 3 && progress.latest > 0.5f && ! progress.unexpected);
}

void checkOperations (Plugin& plugin)
{
    checkText ("Veltra Labs Ltd", plugin.GetName(), "Plugin::GetName");
    checkText ("Veltra Labs Ltd", plugin.GetVendor(), "Plugin::GetVendor");
    CHECK (plugin.GetVersion()[0] != 0);
    checkText ("2015-04-14", plugin.GetDate(), "Plugin::GetDate");
    CHECK (plugin.FindDevices());

    Device* device = nullptr;
    CHECK (! plugin.GetDevice (1, &device) && device == nullptr);
    CHECK (plugin.GetDevice (0, &device));

    if (device == nullptr)
        return;

    auto& found = static_cast<Device2&> (*device);
    checkDescriptions (found);
    checkControls (found);
    checkMeasurement (found);
    checkDownload (found);
}

/** The module, loaded, with a log beside its file. */
struct Module
{
    explicit Module (Path file) : library (load (file))
    {
        if (library == nullptr)
            return;

        get = reinterpret_cast<GetVersionedPluginObjectFunction> (find (library, kGetVersionedPluginObjectName));
        release =
            reinterpret_cast<ReleaseVersionedPluginObjectFunction> (find (library, kReleaseVersionedPluginObjectName));
        setLogPath = reinterpret_cast<SetLogPathFunction> (find (library, kSetLogPathName));

        char log[1024];
        toUtf8 (file, log);

        for (unsigned end = lengthOf (log); end-- > 0;)
            if (log[end] == '.')
            {
                log[end + 1] = 'l';
                log[end + 2] = 'o';
                log[end + 3] = 'g';
                log[end + 4] = 0;
                break;
            }

        if (isUsable())
            setLogPath (log, -1, 0);
    }

    bool isUsable() const { return get != nullptr && release != nullptr && setLogPath != nullptr; }

    void* library = nullptr;
    GetVersionedPluginObjectFunction get = nullptr;
    ReleaseVersionedPluginObjectFunction release = nullptr;
    SetLogPathFunction setLogPath = nullptr;
};

unsigned numberOf (const char* text)
{
    unsigned value = 0;

    for (; *text >= '0' && *text <= '9'; ++text)
        value = value * 10 + static_cast<unsigned> (*text - '0');

    return value;
}

int run (Path file)
{
    char mode[32], most_ms[32];
    readVariable ("HOST_MODE", mode);
    readVariable ("HOST_MOST_MS", most_ms);

    for (int round = 0; round < (isSame (mode, "unload") ? 100 : 1); ++round)
    {
        const Module module (file);

        if (! module.isUsable())
        {
            say ("no module\n");
            return 1;
        }

        CHECK (module.get (4) == nullptr);
        auto* const plugin = module.get (kPluginInterfaceVersion);

        if (isSame (mode, "refused"))
        {
            // Ten times, since the machine may be busy.
            bool inTime = false;

            for (int attempt = 0; attempt < 10 && ! inTime; ++attempt)
            {
                const auto start = now_ms();
                CHECK (! plugin->FindDevices());
                inTime = now_ms() - start <= numberOf (most_ms);
            }

            CHECK (inTime);
        }
        else if (isSame (mode, "operations"))
        {
            checkOperations (*plugin);
        }
        else
        {
            CHECK (plugin->FindDevices());
        }

        if (isSame (mode, "leave"))
            return failures == 0 ? 0 : 1;

        if (isSame (mode, "silent"))
        {
            say ("ready\n");
            wait_ms (2000);
        }

        const auto releaseStart = now_ms();

        if (! isSame (mode, "unload") || round % 3 == 0)
            module.release (plugin);

        CHECK (unload (module.library));
        CHECK (now_ms() - releaseStart <= 10000);
    }

    return failures == 0 ? 0 : 1;
}

}

#if defined(_WIN32)

extern "C" void hostMain()
{
    // The last word of the command line, which stands in quotation marks if it has blanks.
    static wchar_t file[1024];
    const wchar_t* const line = GetCommandLineW();
    int end = 0;

    while (line[end] != 0)
        ++end;

    const bool isQuoted = end > 0 && line[end - 1] == '"';
    int begin = isQuoted ? --end : end;

    while (begin > 0 && line[begin - 1] != (isQuoted ? '"' : ' '))
        --begin;

    for (int i = begin; i < end && i - begin < 1023; ++i)
        file[i - begin] = line[i];

    ExitProcess (static_cast<unsigned> (run (file)));
}

/** What the compiler makes of loops. */
extern "C" void* memset (void* target, int value, unsigned long long size)
{
    auto* const bytes = static_cast<volatile char*> (target);

    for (unsigned long long i = 0; i < size; ++i)
        bytes[i] = static_cast<char> (value);

    return target;
}

#else

int main (int argc, char** argv) { return argc == 2 ? run (argv[1]) : 2; }

#endif
