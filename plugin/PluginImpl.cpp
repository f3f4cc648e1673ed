// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/PluginImpl.h"

#include <cstddef>
#include <thread>
#include <utility>

#include "common/GuestProcess.h"
#include "common/Log.h"
#include "common/Text.h"
#include "plugin/HostCall.h"
#include "plugin/Settings.h"
#include "protocol/TcpConnection.h"

namespace veltra::plugin {

PluginImpl::PluginImpl (const juce::File& settingsFile)
    : connectionManager (0), // the scanner of the TCP transport
      settings (openSettings (settingsFile))
{
}

PluginImpl::~PluginImpl()
{
    while (! sessions.empty())
        sessions.erase (sessions.begin());
}

const char* PluginImpl::GetName() const { return GetVendor(); }
const char* PluginImpl::GetVendor() const { return "Veltra Labs Ltd"; }
const char* PluginImpl::GetVersion() const { return VELTRA_VERSION; }
const char* PluginImpl::GetDate() const { return "2015-04-14"; }

void PluginImpl::endSessions()
{
    for (const auto& session : sessions)
        if (auto* const connection = dynamic_cast<ipc::TcpConnection*> (&session->dispatcher->getConnection()))
            connection->disconnect (false);
}

bool PluginImpl::FindDevices()
{
    return operation (false, [this] {
        const auto candidates = findCandidates();
        Sessions opened (candidates.size());

        // One that fails never spoils the rest.
        const auto open = [&] (std::size_t place) { guarded ([&] { opened[place] = connect (candidates[place]); }); };

        {
            // All at once, since each of them can take as long as it may take not to answer.
            std::vector<std::jthread> threads;
            const auto openOnThread = [&open] (std::size_t place) {
                HeldSignals::forThisThread();
                open (place);
            };

            for (std::size_t place = 1; place < candidates.size(); ++place)
                if (! guarded (false, [&] { return threads.emplace_back (openOnThread, place), true; }))
                    open (place); // no room for another thread

            if (! candidates.empty())
                open (0);

            const NoCancellation untilAllAreOpen; // a destructor may not be left in the middle
            threads.clear();
        }

        for (auto& session : opened)
            if (session != nullptr)
                sessions.push_back (std::move (session));

        return ! sessions.empty();
    });
}

std::vector<Candidate> PluginImpl::findCandidates()
{
    if (const auto address = settings->getValue (keys::kDevice); address.isNotEmpty())
    {
        VELTRA_LOG (INFO, "Device is specified as " << address << ", skipping UPnP search");
        return { { address, {} } };
    }

    logIfLimited (*settings, kSearchTime_ms);
    DeviceSearch search (connectionManager, settings->getValue (keys::kST));

    // Always the full time, however early a device answers: there may be more than one.
    if (search.isScanning())
        pause (std::chrono::milliseconds (readInt (*settings, kSearchTime_ms)));

    return search.finish();
}

std::unique_ptr<Session> PluginImpl::connect (const Candidate& candidate)
{
    VELTRA_LOG (DEBUG, "Connecting to device @ '" << logText (candidate.address.toStdString()) << "'...");
    auto connection = connectionManager.Connect (candidate.address);

    if (connection == nullptr)
    {
        VELTRA_LOG (WARN, "Connection to device @ '" << logText (candidate.address.toStdString()) << "' failed");
        return nullptr;
    }

    VELTRA_LOG (DEBUG, "Connected! Querying ProtocolInfo...");

    return openSession (std::move (connection), candidate.friendlyName, *settings);
}

bool PluginImpl::GetDevice (std::uint32_t index, veltratune_io::Device** device)
{
    if (index >= sessions.size() || device == nullptr)
        return false;

    *device = sessions[index]->device.get();
    return true;
}

}
