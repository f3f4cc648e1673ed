// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/Session.h"

#include "common/Log.h"
#include "plugin/Exchange.h"
#include "plugin/ProductProfile.h"
#include "plugin/Settings.h"
#include "protocol/TextForm.h"

namespace veltra::plugin {

using veltraio::Request;

namespace {

constexpr std::uint32_t kProtocolInfoTimeout_ms = 1000;
constexpr std::uint32_t kDescriptionTimeout_ms = 2000;

/** Not fatal: a receiver that does not answer gets messages as short as one that states no limit. */
void agreeOnMessageLimit (veltraio::Dispatcher& dispatcher)
{
    dispatcher.setMessageLimit (kProfile.defaultMessageLimit_bytes);
    const auto request = makeRequest (Request::RequestType_kGetProtocolInfo, 0);
    const auto info = query<veltraio::ProtocolInfo> (dispatcher, request, kProtocolInfoTimeout_ms);

    if (! info)
    {
        VELTRA_LOG (WARN, "Error retrieveing Protocol information"); // this and its like are spelt so in the log
        return;
    }

    if (info->has_messagelimit())
        dispatcher.setMessageLimit (static_cast<std::int32_t> (info->messagelimit()));

    VELTRA_LOG (DEBUG, "Got device protocol info:\n" << veltraio::toText (*info));
}

/** One description.
    @param word      for the log of its arrival
    @param longWord  for the log of its absence */
template <class Description>
bool read (veltraio::Dispatcher& dispatcher, Request::RequestType type, Description& description, const char* word,
           const char* longWord)
{
    const auto answer = query<Description> (dispatcher, makeRequest (type, 0), kDescriptionTimeout_ms);

    if (! answer)
    {
        VELTRA_LOG (ERROR, "Error retrieveing " << longWord << " information");
        return false;
    }

    description = *answer;
    VELTRA_LOG (DEBUG, "Got device " << word << " info:\n" << veltraio::toText (description));
    return true;
}

}

std::unique_ptr<Session> openSession (std::unique_ptr<veltra::ipc::Connection> connection,
                                      const juce::String& friendlyName, juce::PropertySet& settings)
{
    auto session = std::make_unique<Session>();
    session->dispatcher = std::make_unique<veltraio::Dispatcher> (std::move (connection), veltraio::kEnvelopeMarkerText,
                                                                  readBool (settings, keys::kTimeout, true));
    auto& dispatcher = *session->dispatcher;
    agreeOnMessageLimit (dispatcher);
    VELTRA_LOG (DEBUG, "Querying Unit...");

    Descriptions descriptions;

    if (! read (dispatcher, Request::RequestType_kGetUnit, descriptions.unit, "unit", "Unit")
        || ! read (dispatcher, Request::RequestType_kGetTopologyInfo, descriptions.topologyInfo, "topology", "Topology")
        || ! read (dispatcher, Request::RequestType_kGetStimulusInfo, descriptions.stimulusInfo, "stimulus", "Stimulus")
        || descriptions.unit.devices().empty())
        return nullptr;

    // A dispatcher has exactly one device, the unit's first.
    session->device =
        std::make_unique<DeviceImpl> (dispatcher, std::move (descriptions), settings, 0, friendlyName.toStdString());
    return session;
}

}
