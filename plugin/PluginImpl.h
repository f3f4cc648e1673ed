#pragma once

#include <memory>

#include <juce_data_structures/juce_data_structures.h>

#include "veltratune_io/Plugin.h"

namespace veltra::plugin {

/** The one implementation of the plug-in object; the header of the interface tells what its operations do. */
class PluginImpl final : public veltratune_io::Plugin
{
public:
    /** @param settingsFile  read now, and never again or written */
    explicit PluginImpl (const juce::File& settingsFile);
    ~PluginImpl() override;

    const char* GetName() const override;
    const char* GetVendor() const override;
    const char* GetVersion() const override;
    const char* GetDate() const override;
    bool FindDevices() override;
    bool GetDevice (std::uint32_t index, veltratune_io::Device** device) override;

private:
    std::unique_ptr<juce::PropertiesFile> settings;
};

}
