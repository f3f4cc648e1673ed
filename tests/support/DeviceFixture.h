// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginImpl.h"
#include "protocol/TextForm.h"
#include "tests/support/DescriptionBuilder.h"
#include "tests/support/LogLines.h"
#include "tools/receiver/network/Receiver.h"
#include "veltratune_io/Device.h"

namespace veltra::test {

using Lines = std::vector<std::string>;

/** Remembers what a download reports. */
class ProgressLog final : public veltratune_io::ProgressCallback
{
public:
    void Reserved1() override { texts.push_back ("reserved"); }
    void OnProgressText (const char* said, std::uint32_t length) override
    {
        texts.push_back (said + ("/" + std::to_string (length)));
    }
    bool OnProgress (float fraction) override
    {
        fractions.push_back (fraction);
        return onProgress == nullptr || onProgress();
    }

    Lines texts;
    std::vector<float> fractions;
    std::function<bool()> onProgress;
};

/** A plug-in object, linked in, and a receiver for it. A test changes what it likes and then opens. */
class DeviceFixture : public testing::Test
{
protected:
    ~DeviceFixture() override;

    /** Starts the receiver and the plug-in object at the first call, and searches. */
    bool find();

    /** The same, and returns the newest device. */
    veltratune_io::Device2& open();

    veltratune_io::Device2& device (std::uint32_t index);

    /** Removes plug-in object and receiver, the faults and the lines of the log. */
    void startAfresh();

    /** Changes the receiver's faults, also while it runs; see FaultScript.h for the lines. */
    void setFaults (const std::string& script);

    /** Breaks all connections off. */
    void breakConnections();

    /** A filter for each channel of the profile at both of its rates. */
    static DescriptionBuilder description (const std::string& project = "Room", const std::string& technology = "FIIR");

    /** Leaves one rate, with FIR data of so many bytes. */
    void useFirOnly (std::uint32_t bytes);

    veltratune_io::EResult download (veltratune_io::Device2& opened, const std::string& xml = description().text(),
                                     std::uint32_t slot = 2)
    {
        return opened.DownloadFilterSet (slot, xml.c_str(), 0, &progress);
    }

    /** How many sets the host finds in a slot. */
    static std::uint32_t setsIn (veltratune_io::Device2& opened, std::uint32_t slot);

    /** What the receiver got of one kind, in protobuf's text form on one line. */
    template <typename Message>
    Lines received (const std::string& type = Message().GetTypeName().substr (std::size ("veltraio.") - 1)) const
    {
        Lines texts;

        for (const auto& entry : receiver->messages (type))
        {
            Message message;
            EXPECT_TRUE (message.ParseFromString (entry.body)) << type;
            texts.push_back (oneLine (veltraio::toText (message)));
        }

        return texts;
    }

    /** "LEVEL text" of the lines that were logged, all or those at WARN and above. */
    Lines logged() const;
    Lines failuresLogged() const;

    static std::string oneLine (std::string text);
    static std::string takeLastError (veltratune_io::Device2& device);

    /** Everything small: two channels, FIR of 8 taps at 44100 Hz, FIIR of 8 taps and 2 sections at 48000 Hz, three slots
        of which the second is occupied. */
    receiver::Profile profile = smallProfile();
    static receiver::Profile smallProfile();

    std::map<std::string, std::string> settings; ///< read when the plug-in object is made; "Device" is added
    std::optional<LogLines> log { std::in_place };
    ProgressLog progress;
    receiver::Receiver::Options options;
    std::unique_ptr<receiver::Receiver> receiver;
    std::unique_ptr<plugin::PluginImpl> plugin;
};

}
