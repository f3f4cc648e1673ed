#include "plugin/PluginImpl.h"

#include "common/Log.h"
#include "plugin/Guard.h"
#include "plugin/Settings.h"

namespace veltra::plugin {

PluginImpl::PluginImpl (const juce::File& settingsFile) : settings (openSettings (settingsFile)) {}

PluginImpl::~PluginImpl() = default;

const char* PluginImpl::GetName() const    { return GetVendor(); }
const char* PluginImpl::GetVendor() const  { return "Veltra Labs Ltd"; }
const char* PluginImpl::GetVersion() const { return "1.0.0"; }
const char* PluginImpl::GetDate() const    { return "2015-04-14"; }

bool PluginImpl::FindDevices()
{
    return guarded (false, [this]
    {
        if (const auto address = settings->getValue ("Device"); address.isNotEmpty())
            VELTRA_LOG (INFO, "Device is specified as " << address << ", skipping UPnP search");

        return false;
    });
}

bool PluginImpl::GetDevice (std::uint32_t, veltratune_io::Device**) { return false; }

}
