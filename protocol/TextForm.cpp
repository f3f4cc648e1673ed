// SPDX-License-Identifier: GPL-3.0-or-later
#include "protocol/TextForm.h"

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/text_format.h>

#include "protocol/PrivateSchema.h"
#include "protocol/SchemaDescriptors.h"

namespace veltraio {

namespace {

using google::protobuf::MessageLite;

PrivateSchema& schema()
{
    static PrivateSchema instance (schemaDescriptors, schemaDescriptorsSize);
    return instance;
}

}

std::string toText (const MessageLite& message)
{
    const auto twin = schema().makeTwin (message);

    // Unlike the lite classes, the twin complains on standard error about text that is not UTF-8.
    const google::protobuf::LogSilencer silence;

    if (twin == nullptr || ! twin->ParsePartialFromString (message.SerializePartialAsString()))
        return {};

    std::string text;
    google::protobuf::TextFormat::PrintToString (*twin, &text);
    return text;
}

}
