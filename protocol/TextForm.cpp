// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/TextForm.h"

#include <memory>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>

#include "protocol/SchemaDescriptors.h"

namespace veltraio {

namespace {

using google::protobuf::Message;
using google::protobuf::MessageLite;

/** Full-featured twins of the lite messages. */
class Schema
{
public:
    Schema()
    {
        google::protobuf::FileDescriptorSet files;
        files.ParseFromArray (schemaDescriptors, static_cast<int> (schemaDescriptorsSize));

        for (const auto& file : files.file())
            pool.BuildFile (file);
    }

    /** Null for a message that is not of the schema. */
    std::unique_ptr<Message> makeTwin (const MessageLite& message)
    {
        const auto* descriptor = pool.FindMessageTypeByName (message.GetTypeName());
        return std::unique_ptr<Message> (descriptor != nullptr ? factory.GetPrototype (descriptor)->New() : nullptr);
    }

    static Schema& get()
    {
        static Schema schema;
        return schema;
    }

private:
    google::protobuf::DescriptorPool pool;
    google::protobuf::DynamicMessageFactory factory; // destroyed before the pool that its types come from
};

}

std::string toText (const MessageLite& message)
{
    const auto twin = Schema::get().makeTwin (message);

    // Unlike the lite classes, the twin complains on standard error about text that is not UTF-8.
    const google::protobuf::LogSilencer silence;

    if (twin == nullptr || ! twin->ParsePartialFromString (message.SerializePartialAsString()))
        return {};

    std::string text;
    google::protobuf::TextFormat::PrintToString (*twin, &text);
    return text;
}

}
