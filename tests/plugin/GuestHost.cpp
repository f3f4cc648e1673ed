// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    A host program that does what a process may do to a module in it:

        guest_host MODULE SCENARIO

    GuestTest names the scenarios. Exit status 0: all was well; 1: what went wrong is on standard error.
*/

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <fftw3.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/plugin/HostModule.h"
#include "tests/support/DescriptionBuilder.h"

namespace {

std::atomic<int> inheritable { 0 };

/** The C library's own function. */
template <typename Function>
Function* original (const char* name)
{
    return reinterpret_cast<Function*> (dlsym (RTLD_NEXT, name));
}

}

// The module's calls come here first, since the program exports these.
extern "C"
{
    __attribute__ ((visibility ("default"))) int socket (int family, int type, int protocol) noexcept
    {
        inheritable += (type & SOCK_CLOEXEC) == 0;
        return original<int (int, int, int)> ("socket") (family, type, protocol);
    }

    __attribute__ ((visibility ("default"))) int open (const char* path, int flags, ...)
    {
        inheritable += (flags & O_CLOEXEC) == 0;
        va_list rest;
        va_start (rest, flags);
        const auto mode = (flags & O_CREAT) != 0 ? va_arg (rest, mode_t) : mode_t {};
        va_end (rest);
        return original<int (const char*, int, mode_t)> ("open") (path, flags, mode);
    }
}

namespace {

using namespace std::chrono_literals;
using namespace veltratune_io;
using std::chrono::steady_clock;
using veltra::test::DescriptionBuilder;
using veltra::test::HostModule;

std::string moduleFile;

void require (bool condition, const char* what)
{
    if (! condition)
        throw std::runtime_error (what);
}

/** A loaded module with an open session. */
struct Host
{
    Host() { require (plugin->FindDevices(), "no session"); }

    Device2& device() { return HostModule::device (*plugin); }

    /** As a host does that goes on afterwards. */
    void requireAliveAndEnd()
    {
        require (device().SetVolume (0.5f), "the session does not work any more");
        module.release (plugin);
        module.unload();
        require (! HostModule::isLoaded (moduleFile), "the module stays loaded");
    }

    HostModule module { moduleFile };
    Plugin* plugin = module.get (kPluginInterfaceVersion);
};

const std::string& description()
{
    static const std::string text = [] {
        const std::vector<float> taps (4096, 0.001f);
        DescriptionBuilder xml ("Guest");

        for (const auto& [name, number] : { std::pair ("FL", 1), std::pair ("FR", 2) })
            xml.channel (name, number).fir (44100, taps).fir (48000, taps).fir (96000, taps);

        return xml.text();
    }();

    return text;
}

struct Progress final : ProgressCallback
{
    explicit Progress (std::function<bool (float)> onProgress = {}) : report (std::move (onProgress)) {}

    void Reserved1() override {}
    void OnProgressText (const char*, std::uint32_t) override {}
    bool OnProgress (float fraction) override { return ! report || report (fraction); }

    std::function<bool (float)> report;
};

struct Capture final : CaptureCallback
{
    explicit Capture (std::function<void()> onData = {}) : report (std::move (onData)) {}

    void Reserved1() override {}
    void Reserved2() override {}
    void OnCaptureStart (std::int32_t) override {}
    void OnCaptureData (const float*, std::int32_t) override
    {
        ++packets;

        if (report)
            report();
    }

    void waitForPackets (int count) const
    {
        for (int i = 0; i < 3000 && packets < count; ++i)
            std::this_thread::sleep_for (10ms);

        require (packets >= count, "no packets");
    }

    std::function<void()> report;
    std::atomic<int> packets { 0 };
};

EResult download (Device2& device, Progress& progress, std::uint32_t slot = 0)
{
    FilterSet* present = nullptr;

    while (device.GetFilterSet (slot, 0, &present))
        device.RemoveFilterSet (present);

    return device.DownloadFilterSet (slot, description().c_str(), 0, &progress);
}

void measure (Device2& device, Capture& capture)
{
    require (device.EnterMeasurementMode (48000, 0, 1, &capture) == kResultOk, "no measurement mode");
    const std::uint32_t channel = 0;
    require (device.StartStimulus (kStimulusNoise, &channel, 1, 0) == kResultOk, "no stimulus");
}

/** Leaves a thread at work for a process that ends under it. */
template <class Work>
void leaveBehind (Work work)
{
    std::thread (work).detach();
    std::this_thread::sleep_for (300ms);
}

void forkedChild()
{
    Host host;
    host.module.setLogPath ((moduleFile + ".log").c_str(), -1, 0);
    const pid_t child = ::fork();

    if (child == 0)
        std::exit (3);

    int status = 0;

    for (int i = 0; i < 500 && ::waitpid (child, &status, WNOHANG) == 0; ++i)
        std::this_thread::sleep_for (10ms);

    const bool isOver = ::waitpid (child, &status, WNOHANG) < 0;
    ::kill (child, SIGKILL);
    require (isOver, "the child hangs in exit");
    require (WIFEXITED (status) && WEXITSTATUS (status) == 3, "the child did not end with its own status");
    host.requireAliveAndEnd();
}

void endDuringDownload()
{
    auto& host = *new Host;
    leaveBehind ([&host] {
        for (;;)
        {
            Progress progress;
            download (host.device(), progress);
        }
    });
}

void endDuringCapture()
{
    auto& host = *new Host;
    auto& capture = *new Capture ([] { std::this_thread::sleep_for (1ms); });
    measure (host.device(), capture);
    capture.waitForPackets (10);
}

/** A callback that does not return does not keep the process. */
void endDuringCallback()
{
    auto& host = *new Host;
    static std::atomic<bool> isMeasuring { false };
    auto& capture = *new Capture ([] {
        if (isMeasuring)
            std::this_thread::sleep_for (1h);
    });
    measure (host.device(), capture);
    isMeasuring = true;
    capture.waitForPackets (capture.packets + 1);
}

/** Without an address, in a network of its own. */
void endDuringSearch()
{
    auto& module = *new HostModule (moduleFile);
    leaveBehind ([&module] { module.get (kPluginInterfaceVersion)->FindDevices(); });
}

void releaseInProgress()
{
    Host host;
    Progress progress ([&host] (float) {
        host.module.release (host.plugin);
        return true;
    });
    require (download (host.device(), progress) == kResultOk, "the download failed");
    host.requireAliveAndEnd();
}

void releaseInCapture()
{
    Host host;
    Capture capture ([&host] { host.module.release (host.plugin); });
    measure (host.device(), capture);
    capture.waitForPackets (5);
    require (host.device().LeaveMeasurementMode(), "the session is gone");
    host.requireAliveAndEnd();
}

void cancelledThreads()
{
    Host host;

    for (int i = 0; i < 40; ++i)
    {
        std::atomic<bool> isOver { false };
        pthread_t thread;
        auto work = [&] {
            for (;;)
            {
                Progress progress;
                download (host.device(), progress);
            }
        };
        ::pthread_create (
            &thread, nullptr,
            [] (void* argument) -> void* {
                (*static_cast<decltype (work)*> (argument))();
                return nullptr;
            },
            &work);
        std::this_thread::sleep_for (std::chrono::milliseconds (3 + 7 * i % 40));
        ::pthread_cancel (thread);
        void* result = nullptr;
        ::pthread_join (thread, &result);
        require (result == PTHREAD_CANCELED, "the thread was not cancelled");
    }

    host.requireAliveAndEnd();
}

void exportsFromManyThreads()
{
    HostModule module (moduleFile);
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i)
        threads.emplace_back ([&module, i] {
            for (int round = 0; round < 50; ++round)
            {
                auto* const plugin = module.get (kPluginInterfaceVersion);
                module.setLogPath ((moduleFile + std::to_string (i)).c_str(), -1, 0);
                module.release (plugin);
            }
        });

    for (auto& thread : threads)
        thread.join();
}

void interruptEverything()
{
    struct sigaction action
    {
    };
    action.sa_handler = [] (int) {}; // without SA_RESTART
    ::sigaction (SIGALRM, &action, nullptr);
    const itimerval every { { 0, 10000 }, { 0, 10000 } };
    ::setitimer (ITIMER_REAL, &every, nullptr);
}

void sessionUnderATimer()
{
    interruptEverything();
    Host host;
    Progress progress;
    require (download (host.device(), progress) == kResultOk, "the download failed");
    Capture capture;
    measure (host.device(), capture);
    capture.waitForPackets (50);
    host.device().StopStimulus();
    require (host.device().LeaveMeasurementMode(), "measurement mode was not left");
    host.requireAliveAndEnd();
}

/** Without an address, in a network of its own: nothing to find, but the full time to look for it. */
void searchUnderATimer()
{
    interruptEverything();
    HostModule module (moduleFile);
    auto* const plugin = module.get (kPluginInterfaceVersion);
    const auto start = steady_clock::now();
    require (! plugin->FindDevices(), "found something");
    const auto time = steady_clock::now() - start;
    require (time >= 1500ms && time < 4s, "the search did not take its time");
    module.release (plugin);
}

/** The address is one where nobody answers. */
void connectUnderATimer()
{
    interruptEverything();
    HostModule module (moduleFile);
    const auto start = steady_clock::now();
    require (! module.get (kPluginInterfaceVersion)->FindDevices(), "found something");
    require (steady_clock::now() - start < 4s, "the signals start the connection's time anew");
}

/** The host's FFTW and the module's at the same time. */
void hostPlansTransforms()
{
    std::atomic<bool> isOver { false };
    std::thread planner ([&isOver] {
        std::vector<float> samples (4096);
        std::vector<fftwf_complex> spectrum (2049);

        for (int size = 64; ! isOver; size = size % 4096 + 64)
            fftwf_destroy_plan (fftwf_plan_dft_r2c_1d (size, samples.data(), spectrum.data(), FFTW_ESTIMATE));
    });

    for (int round = 0; round < 20; ++round)
    {
        Host host;
        Progress cancel ([] (float) { return false; });
        download (host.device(), cancel); // the conversion is over by then
        host.module.release (host.plugin);
        host.module.unload();
    }

    isOver = true;
    planner.join();
}

/** Everything that the module opens, from its first instant. */
void descriptorsOfASession()
{
    Host host;
    host.module.setLogPath ((moduleFile + ".log").c_str(), -1, 0);
    Progress progress;
    require (download (host.device(), progress) == kResultOk, "the download failed");
    require (inheritable == 0, "a program that is started would inherit a descriptor");
    host.requireAliveAndEnd();
}

const std::map<std::string, void (*)()> scenarios {
    { "descriptors", descriptorsOfASession },        { "forked child", forkedChild },
    { "end during download", endDuringDownload },    { "end during capture", endDuringCapture },
    { "end during callback", endDuringCallback },    { "end during search", endDuringSearch },
    { "release in progress", releaseInProgress },    { "release in capture", releaseInCapture },
    { "cancelled threads", cancelledThreads },       { "exports from many threads", exportsFromManyThreads },
    { "session under a timer", sessionUnderATimer }, { "search under a timer", searchUnderATimer },
    { "connect under a timer", connectUnderATimer }, { "host plans transforms", hostPlansTransforms },
};

}

int main (int count, char** words)
{
    try
    {
        require (count == 3, "guest_host MODULE SCENARIO");
        moduleFile = words[1];
        scenarios.at (words[2])();
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::cerr << failure.what() << '\n';
        std::_Exit (1);
    }
}
