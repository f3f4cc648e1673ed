// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    The boundary of the module for Python, operation by operation. What makes it comfortable is python/veltraio/.

    Waits run without Python's global lock. A lock of the session's own then keeps the module's rule of one thread at a
    time. No Python code runs on a thread of the module.
*/

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <dlfcn.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "veltratune_io/Plugin.h"

namespace py = pybind11;

namespace {

using namespace veltratune_io;

constexpr std::uint32_t kLongestText_bytes = 1u << 16;

/** The result of an operation, and the device's words for it where it failed. */
using Outcome = std::tuple<int, std::string>;

/** Calls an operation that fills a text buffer. */
template <typename Operation>
std::string textOf (Operation&& operation)
{
    std::vector<char> buffer (kLongestText_bytes, '\0');
    operation (buffer.data(), kLongestText_bytes);
    return buffer.data();
}

/** Python's text of bytes that a receiver may have sent. */
py::str toPython (const std::string& text)
{
    return py::reinterpret_steal<py::str> (
        PyUnicode_DecodeUTF8 (text.data(), static_cast<Py_ssize_t> (text.size()), "replace"));
}

/** The module, loaded. */
class Module
{
public:
    explicit Module (const std::string& path) : handle (dlopen (path.c_str(), RTLD_NOW | RTLD_LOCAL))
    {
        if (handle == nullptr)
            throw py::import_error (dlerror());

        get = find<GetVersionedPluginObjectFunction> (kGetVersionedPluginObjectName);
        release = find<ReleaseVersionedPluginObjectFunction> (kReleaseVersionedPluginObjectName);
        setLogPath = find<SetLogPathFunction> (kSetLogPathName);

        if (get == nullptr || release == nullptr || setLogPath == nullptr)
        {
            dlclose (handle);
            throw py::import_error (path + " is not a VeltraIO module");
        }
    }

    ~Module() { dlclose (handle); }

    Module (const Module&) = delete;
    Module& operator= (const Module&) = delete;

    GetVersionedPluginObjectFunction get;
    ReleaseVersionedPluginObjectFunction release;
    SetLogPathFunction setLogPath;

private:
    template <typename Function>
    Function find (const char* name)
    {
        return reinterpret_cast<Function> (dlsym (handle, name));
    }

    void* handle;
};

/** Keeps captured packets until Python takes them. Filled on a thread of the module. */
class Recorder final : public CaptureCallback
{
public:
    void Reserved1() override {}
    void Reserved2() override {}
    void OnCaptureStart (std::int32_t) override {}

    void OnCaptureData (const float* samples, std::int32_t count) override
    {
        const std::scoped_lock hold (lock);

        if (count <= 0 || waitingSamples + static_cast<std::size_t> (count) > kMostSamples)
        {
            overflowed = overflowed || count > 0;
            return;
        }

        packets.emplace_back (samples, samples + count);
        waitingSamples += static_cast<std::size_t> (count);
        arrived.notify_one();
    }

    /** Waits for a packet, at most so long.
        @throws  std::overflow_error after packets had to be dropped, because nobody took them */
    std::deque<std::vector<float>> take (std::chrono::duration<double> longest)
    {
        std::unique_lock hold (lock);
        arrived.wait_for (hold, longest, [this] { return ! packets.empty() || overflowed; });

        if (overflowed)
            throw std::overflow_error ("captured audio was not taken in time and is lost");

        waitingSamples = 0;
        return std::exchange (packets, {});
    }

private:
    static constexpr std::size_t kMostSamples = std::size_t { 1 } << 26; // eleven minutes at 96000 Hz

    std::mutex lock;
    std::condition_variable arrived;
    std::deque<std::vector<float>> packets;
    std::size_t waitingSamples = 0;
    bool overflowed = false;
};

/** Calls a Python function with each fraction. The first exception ends the download and is kept for its end. */
class Progress final : public ProgressCallback
{
public:
    explicit Progress (const py::object& functionToUse) : function (functionToUse) {}

    void Reserved1() override {}
    void OnProgressText (const char*, std::uint32_t) override {}

    bool OnProgress (float fraction) override
    {
        if (isCancelled)
            return false;

        const py::gil_scoped_acquire gil;

        try
        {
            if (PyErr_CheckSignals() != 0)
                throw py::error_already_set();

            // Nothing returned is no wish to cancel.
            isCancelled = ! function.is_none() && function (fraction).ptr() == Py_False;
        }
        catch (...)
        {
            raised = std::current_exception();
            isCancelled = true;
        }

        return ! isCancelled;
    }

    bool isCancelled = false;
    std::exception_ptr raised;

private:
    const py::object& function;
};

/** A plug-in object and the module that it is from. */
class Session
{
public:
    explicit Session (const std::string& path, const std::optional<std::string>& log, int level)
        : module (std::make_unique<Module> (path))
    {
        if (log)
            module->setLogPath (log->c_str(), -1, level);

        plugin = module->get (kPluginInterfaceVersion);

        if (plugin == nullptr)
            throw py::import_error (path + " does not offer the interface version "
                                    + std::to_string (kPluginInterfaceVersion));
    }

    ~Session() { release(); }

    Session (const Session&) = delete;
    Session& operator= (const Session&) = delete;

    /** Runs an operation of the module: without Python's lock, one at a time.
        @throws  py::value_error when the session is closed, std::runtime_error inside a callback of itself */
    template <typename Operation>
    auto run (Operation&& operation)
    {
        if (user == std::this_thread::get_id())
            throw std::runtime_error ("a callback of an operation cannot use the same plug-in");

        const py::gil_scoped_release withoutGil;
        const std::scoped_lock hold (lock);

        if (plugin == nullptr)
            throw py::value_error ("the plug-in is closed");

        struct Use
        {
            std::atomic<std::thread::id>& user;
            explicit Use (std::atomic<std::thread::id>& userToSet) : user (userToSet)
            {
                user = std::this_thread::get_id();
            }
            ~Use() { user = std::thread::id(); }
        } const use (user);

        return operation (*plugin);
    }

    void close()
    {
        if (user == std::this_thread::get_id())
            throw std::runtime_error ("a callback of an operation cannot close the plug-in");

        const py::gil_scoped_release withoutGil;
        const std::scoped_lock hold (lock);
        release();
    }

    std::shared_ptr<Recorder> recorder; // of the measurement in hand; the module may use it until LeaveMeasurementMode

private:
    void release()
    {
        if (plugin != nullptr)
            module->release (std::exchange (plugin, nullptr));

        module.reset();
    }

    std::unique_ptr<Module> module;
    Plugin* plugin = nullptr;
    std::mutex lock;
    std::atomic<std::thread::id> user {};
};

/** One device of a session, which it keeps. */
class NativeDevice
{
public:
    NativeDevice (std::shared_ptr<Session> sessionToKeep, Device2& deviceToUse)
        : session (std::move (sessionToKeep)),
          device (deviceToUse)
    {
    }

    template <typename Operation>
    auto run (Operation&& operation) const
    {
        return session->run ([&] (Plugin&) { return operation (device); });
    }

    py::str text (const char* (*operation) (const Device2&)) const
    {
        return toPython (run ([=] (Device2& used) { return std::string (operation (used)); }));
    }

    Outcome enter (std::uint32_t rate, std::uint32_t channels) const
    {
        return run ([&] (Device2& used) {
            auto recorder = std::make_shared<Recorder>();
            const auto outcome = outcomeOf (used, used.EnterMeasurementMode (rate, 0, channels, recorder.get()));
            session->recorder = std::move (recorder); // after the module has let go of the one before
            return outcome;
        });
    }

    Outcome leave() const
    {
        return run ([&] (Device2& used) {
            const auto outcome = outcomeOf (used, used.LeaveMeasurementMode() ? kResultOk : kResultFailed);
            session->recorder.reset();
            return outcome;
        });
    }

    py::list take (double longest_s) const
    {
        const auto recorder = run ([this] (Device2&) { return session->recorder; });
        std::deque<std::vector<float>> packets;

        if (recorder != nullptr)
        {
            const py::gil_scoped_release withoutGil;
            packets = recorder->take (std::chrono::duration<double> (longest_s));
        }

        py::list arrays;

        for (const auto& packet : packets)
            arrays.append (py::array_t<float> (static_cast<py::ssize_t> (packet.size()), packet.data()));

        return arrays;
    }

    std::tuple<int, py::str, bool> download (std::uint32_t slot, const std::string& description,
                                             const py::object& progress) const
    {
        Progress follower (progress);
        const auto [result, words] = run ([&] (Device2& used) {
            return outcomeOf (used, used.DownloadFilterSet (slot, description.c_str(), 0, &follower));
        });

        if (follower.raised)
            std::rethrow_exception (follower.raised);

        return { result, toPython (words), follower.isCancelled };
    }

    /** Names and channels of the sets in a slot. */
    std::vector<std::tuple<py::str, std::vector<std::pair<py::str, std::uint32_t>>>> sets (std::uint32_t slot) const
    {
        using Filters = std::vector<std::pair<std::string, std::uint32_t>>;
        const auto found = run ([=] (Device2& used) {
            std::vector<std::pair<std::string, Filters>> all;
            FilterSet* set = nullptr;

            while (used.GetFilterSet (slot, static_cast<std::uint32_t> (all.size()), &set))
            {
                Filters filters;
                Filter* filter = nullptr;

                while (set->GetFilter (static_cast<std::uint32_t> (filters.size()), &filter))
                    filters.emplace_back (filter->GetName(), filter->GetChannel());

                all.emplace_back (set->GetName(), std::move (filters));
            }

            return all;
        });

        std::vector<std::tuple<py::str, std::vector<std::pair<py::str, std::uint32_t>>>> result;

        for (const auto& [name, filters] : found)
        {
            std::vector<std::pair<py::str, std::uint32_t>> named;

            for (const auto& [channel, number] : filters)
                named.emplace_back (toPython (channel), number);

            result.emplace_back (toPython (name), std::move (named));
        }

        return result;
    }

    /** @returns  false when the device did not let one of the sets be removed */
    bool empty (std::uint32_t slot) const
    {
        return run ([=] (Device2& used) {
            FilterSet* set = nullptr;

            while (used.GetFilterSet (slot, 0, &set))
                if (! used.RemoveFilterSet (set))
                    return false;

            return true;
        });
    }

    /** Of an operation that has just returned. */
    static Outcome outcomeOf (Device2& device, EResult result)
    {
        if (result == kResultOk)
            return { result, std::string() };

        return { result, textOf ([&] (char* buffer, std::uint32_t size) { device.GetLastError (buffer, size); }) };
    }

private:
    std::shared_ptr<Session> session;
    Device2& device;
};

std::tuple<int, py::str> toPython (const Outcome& outcome)
{
    return { std::get<0> (outcome), toPython (std::get<1> (outcome)) };
}

std::vector<NativeDevice> findDevices (const std::shared_ptr<Session>& session)
{
    return session->run ([&] (Plugin& plugin) {
        std::vector<NativeDevice> devices;
        Device* device = nullptr;
        plugin.FindDevices();

        while (plugin.GetDevice (static_cast<std::uint32_t> (devices.size()), &device))
            devices.emplace_back (session, static_cast<Device2&> (*device));

        return devices;
    });
}

}

PYBIND11_MODULE (_native, module)
{
    module.doc() = "The operations of the module's boundary; use the package veltraio instead.";
    module.attr ("MODULE_PATH") = VELTRA_MODULE_PATH;

    py::class_<Session, std::shared_ptr<Session>> (module, "Session")
        .def (py::init<const std::string&, const std::optional<std::string>&, int>())
        .def ("find", &findDevices)
        .def ("close", &Session::close);

    using Native = NativeDevice;
    py::class_<Native> (module, "Device")
        .def_property_readonly (
            "name",
            [] (const Native& self) { return self.text ([] (const Device2& device) { return device.GetName(); }); })
        .def_property_readonly (
            "serial_number",
            [] (const Native& self) {
                return toPython (self.run ([] (Device2& device) {
                    return textOf ([&] (char* buffer, std::uint32_t size) { device.GetSerialNumber (buffer, size); });
                }));
            })
        .def_property_readonly (
            "capabilities",
            [] (const Native& self) { return self.run ([] (Device2& device) { return device.GetCapabilities(); }); })
        .def_property_readonly ("channel_names",
                                [] (const Native& self) {
                                    const auto names = self.run ([] (Device2& device) {
                                        std::vector<std::string> all;

                                        for (std::uint32_t i = 0; i < device.GetChannelCount(); ++i)
                                            all.push_back (textOf ([&] (char* buffer, std::uint32_t size) {
                                                device.GetChannelName (i, buffer, size);
                                            }));

                                        return all;
                                    });
                                    py::list result;

                                    for (const auto& name : names)
                                        result.append (toPython (name));

                                    return result;
                                })
        .def_property_readonly ("sample_rates",
                                [] (const Native& self) {
                                    return self.run ([] (Device2& device) {
                                        std::vector<std::uint32_t> rates;

                                        for (std::uint32_t rate = 0;
                                             device.GetSampleRate (static_cast<std::uint32_t> (rates.size()), &rate);)
                                            rates.push_back (rate);

                                        return rates;
                                    });
                                })
        .def_property_readonly (
            "slot_count",
            [] (const Native& self) { return self.run ([] (Device2& device) { return device.GetFilterSlotCount(); }); })
        .def_property_readonly (
            "stimulus_latency_ms",
            [] (const Native& self) { return self.run ([] (Device2& device) { return device.GetStimulusLatency(); }); })
        .def_property_readonly ("max_attenuation_dB",
                                [] (const Native& self) {
                                    return self.run (
                                        [] (Device2& device) { return device.GetMaxChannelAttenuation(); });
                                })
        .def ("topology",
              [] (const Native& self, std::uint32_t rate) {
                  return toPython (self.run ([=] (Device2& device) {
                      return textOf ([&] (char* buffer, std::uint32_t size) {
                          device.GetTopologyParameters ("FIIR", rate, buffer, size);
                      });
                  }));
              })
        .def ("stimulus_information",
              [] (const Native& self, int stimulus, std::uint32_t rate) {
                  return toPython (self.run ([=] (Device2& device) {
                      std::string text;
                      auto result = kResultOk;
                      text = textOf ([&] (char* buffer, std::uint32_t size) {
                          result =
                              device.GetStimulusInformation (static_cast<EStimulus> (stimulus), rate, buffer, size);
                      });
                      return Outcome { result, std::move (text) };
                  }));
              })
        .def ("enter", [] (const Native& self, std::uint32_t rate,
                           std::uint32_t channels) { return toPython (self.enter (rate, channels)); })
        .def ("leave", [] (const Native& self) { return toPython (self.leave()); })
        .def ("start_stimulus",
              [] (const Native& self, int stimulus, const std::vector<std::uint32_t>& channels) {
                  return toPython (self.run ([&] (Device2& device) {
                      return Native::outcomeOf (
                          device, device.StartStimulus (static_cast<EStimulus> (stimulus), channels.data(),
                                                        static_cast<std::uint32_t> (channels.size()), 0));
                  }));
              })
        .def ("stop_stimulus",
              [] (const Native& self) {
                  self.run ([] (Device2& device) {
                      device.StopStimulus();
                      return true;
                  });
              })
        .def (
            "is_playing",
            [] (const Native& self) { return self.run ([] (Device2& device) { return device.IsStimulusPlaying(); }); })
        .def ("take", &Native::take)
        .def ("download", &Native::download)
        .def ("sets", &Native::sets)
        .def ("empty", &Native::empty)
        .def ("volume",
              [] (const Native& self) {
                  float volume = 0.0f;
                  const auto text = self.run ([&] (Device2& device) {
                      return textOf (
                          [&] (char* buffer, std::uint32_t size) { volume = device.GetVolume (buffer, size); });
                  });
                  return std::make_tuple (volume, toPython (text));
              })
        .def ("set_volume",
              [] (const Native& self, float value) {
                  return self.run ([=] (Device2& device) { return device.SetVolume (value); });
              })
        .def ("attenuation_dB",
              [] (const Native& self, std::uint32_t channel) {
                  return self.run ([=] (Device2& device) { return device.GetChannelAttenuation (channel); });
              })
        .def ("set_attenuation_dB",
              [] (const Native& self, std::uint32_t channel, float value_dB) {
                  return self.run ([=] (Device2& device) { return device.SetChannelAttenuation (channel, value_dB); });
              })
        .def ("active_slot",
              [] (const Native& self) {
                  return self.run ([] (Device2& device) { return device.GetActiveFilterSlot(); });
              })
        .def ("set_active_slot",
              [] (const Native& self, std::uint32_t slot) {
                  return self.run ([=] (Device2& device) { return device.SetActiveFilterSlot (slot); });
              })
        .def ("filtering",
              [] (const Native& self) { return self.run ([] (Device2& device) { return device.GetFiltering(); }); })
        .def ("set_filtering", [] (const Native& self, bool enabled) {
            self.run ([=] (Device2& device) {
                device.SetFiltering (enabled);
                return true;
            });
        });
}
