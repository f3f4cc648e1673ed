// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/Messages.h"

#include <map>

#include "protocol/Envelope.h"

namespace veltra::receiver {

namespace {

constexpr std::string_view kPackage = "veltraio.";

using google::protobuf::MessageLite;

const std::vector<const MessageLite*>& prototypes()
{
    using namespace veltraio;
    static const std::vector<const MessageLite*> all { // What a host sends; "Ping" is the last of them.
                                                       &Request::default_instance(),
                                                       &OperationModeInfo::default_instance(),
                                                       &StartStimulus::default_instance(),
                                                       &StopStimulus::default_instance(),
                                                       &Volume::default_instance(),
                                                       &ChannelAttenuation::default_instance(),
                                                       &ActiveFilterSlot::default_instance(),
                                                       &FilteringState::default_instance(),
                                                       &RemoveFilter::default_instance(),
                                                       &LoadFilter::default_instance(),
                                                       &FilterData::default_instance(),
                                                       &FilterChannel::default_instance(),
                                                       &FilterDataChunk::default_instance(),
                                                       &DownloadCancelled::default_instance(),
                                                       &Ping::default_instance(),
                                                       &ProtocolInfo::default_instance(),
                                                       &Unit::default_instance(),
                                                       &TopologyInfo::default_instance(),
                                                       &StimulusInfo::default_instance(),
                                                       &StimulusState::default_instance(),
                                                       &Acknowledge::default_instance(),
                                                       &Pong::default_instance(),
                                                       &AudioData::default_instance(),
                                                       &StartStimulusGeneric::default_instance(),
                                                       &SpeakerPresenceInformation::default_instance(),
                                                       &LoadFilterProgress::default_instance()
    };
    return all;
}

/** Names of the kinds of Request: those of the schema, without what they all begin with. */
const std::map<int, std::string>& requestsByType()
{
    using veltraio::Request;
    static const auto names = [] {
        constexpr std::string_view kPrefix = "RequestType_k";
        std::map<int, std::string> result;

        for (int type = Request::RequestType_MIN; type <= Request::RequestType_MAX; ++type)
            if (Request::RequestType_IsValid (type))
                result[type] =
                    Request::RequestType_Name (static_cast<Request::RequestType> (type)).substr (kPrefix.size());

        return result;
    }();
    return names;
}

}

std::string nameOf (const MessageLite& message) { return message.GetTypeName().substr (kPackage.size()); }

std::string_view messageName (std::uint32_t messageId)
{
    static const auto names = [] {
        std::map<std::uint32_t, std::string> result;

        for (const auto* message : prototypes())
            result.emplace (veltraio::envelopeHash (message->GetTypeName()), nameOf (*message));

        return result;
    }();
    const auto found = names.find (messageId);
    return found == names.end() ? std::string_view {} : std::string_view (found->second);
}

std::unique_ptr<MessageLite> createMessage (std::string_view name)
{
    for (const auto* message : prototypes())
        if (nameOf (*message) == name)
            return std::unique_ptr<MessageLite> (message->New());

    return nullptr;
}

const std::vector<std::string_view>& hostMessages()
{
    static const auto names = [] {
        std::vector<std::string_view> result;

        for (const auto* message : prototypes())
        {
            result.push_back (messageName (veltraio::envelopeHash (message->GetTypeName())));

            if (message == &veltraio::Ping::default_instance())
                break;
        }

        return result;
    }();
    return names;
}

std::string_view requestName (int requestType)
{
    const auto found = requestsByType().find (requestType);
    return found == requestsByType().end() ? std::string_view {} : std::string_view (found->second);
}

std::vector<std::string_view> requestNames()
{
    std::vector<std::string_view> names;

    for (const auto& [type, name] : requestsByType())
        names.push_back (name);

    return names;
}

}
