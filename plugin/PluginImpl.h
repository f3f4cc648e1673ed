// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>
#include <vector>

#include <juce_data_structures/juce_data_structures.h>

#include "discovery/ConnectionManager.h"
#include "plugin/DeviceSearch.h"
#include "plugin/Session.h"
#include "veltratune_io/Plugin.h"

namespace veltra::plugin {

/** The one implementation of the plug-in object; the interface's header describes its operations. */
class PluginImpl final : public veltratune_io::Plugin
{
public:
    /** @param settingsFile  read now, and never again or written */
    explicit PluginImpl (const juce::File& settingsFile);

    /** Ends the sessions, first to last. */
    ~PluginImpl();

    const char* GetName() const override;
    const char* GetVendor() const override;
    const char* GetVersion() const override;
    const char* GetDate() const override;
    bool FindDevices() override;
    bool GetDevice (std::uint32_t index, veltratune_io::Device** device) override;

    /** Ends the connections with their threads and keeps the objects, whose operations fail from now on. */
    void endSessions();

private:
    using Sessions = std::vector<std::unique_ptr<Session>>;

    std::vector<Candidate> findCandidates();

    /** Any thread, several at once.
        @returns  null when the candidate is no receiver, which is logged */
    std::unique_ptr<Session> connect (const Candidate& candidate);

    veltraio::ConnectionManager connectionManager;
    std::unique_ptr<juce::PropertiesFile> settings;
    Sessions sessions; // in the order of discovery
};

}
