#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/PluginImpl.h"
#include "protocol/TextForm.h"
#include "tests/plugin/LogCapture.h"
#include "tools/receiver/Receiver.h"
#include "veltratune_io/Device.h"

namespace veltra::test {

/** A profile with everything small: two channels, FIR of 8 taps at 44100 Hz, FIIR of 8 taps and 2 sections at 48000 Hz,
    three slots of which the second is occupied. */
receiver::Profile smallProfile();

/** A plug-in object, linked in, and a receiver for it. A test changes what it likes and then opens. */
class DeviceFixture : public testing::Test
{
protected:
    DeviceFixture();
    ~DeviceFixture() override;

    /** Starts the receiver and the plug-in object at the first call, and searches. */
    bool find();

    /** The same, and returns the newest device. */
    veltratune_io::Device2& open();

    veltratune_io::Device2& device (std::uint32_t index);

    /** Away with plug-in object and receiver; the next search makes new ones. */
    void startAfresh();

    /** Changes the receiver's faults, also while it runs; see FaultScript.h for the lines. */
    void setFaults (const std::string& script);

    /** Breaks all connections off, and waits until sending fails. */
    void breakConnections();

    /** What the receiver got of one kind, in protobuf's text form on one line. */
    template <typename Message>
    std::vector<std::string> received (const std::string& type) const
    {
        std::vector<std::string> texts;

        for (const auto& entry : receiver->messages (type))
        {
            Message message;
            EXPECT_TRUE (message.ParseFromString (entry.body)) << type;
            texts.push_back (oneLine (veltraio::toText (message)));
        }

        return texts;
    }

    static std::string oneLine (std::string text);
    static std::string takeLastError (veltratune_io::Device2& device);

    receiver::Profile profile = smallProfile();
    receiver::Receiver::Options options;
    std::map<std::string, std::string> settings; ///< read when the plug-in object is made; "Device" is added
    LogCapture log;
    std::unique_ptr<receiver::Receiver> receiver;
    std::unique_ptr<plugin::PluginImpl> plugin;
};

}
