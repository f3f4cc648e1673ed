// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/ProtoText.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>

#include "protocol/PrivateSchema.h"
#include "tools/receiver/device/EmbeddedFiles.h"

namespace veltra::receiver {

namespace {

using google::protobuf::MessageLite;

/** Deeper than any message of the schema. */
constexpr int kMaxDepth = 100;

/** Keeps the first error; the others follow from it. */
class FirstErrorOnly : public google::protobuf::io::ErrorCollector
{
public:
    explicit FirstErrorOnly (std::string& destination) : text (destination) { text.clear(); }

    void AddError (int line, int column, const std::string& message) override
    {
        if (! text.empty())
            return;

        if (line >= 0)
            text = "line " + std::to_string (line + 1) + ", column " + std::to_string (column + 1) + ": ";

        text += message;
    }

private:
    std::string& text;
};

}

bool readText (std::string_view text, MessageLite& message, std::string& error)
{
    static veltraio::PrivateSchema schema (profileSchema, profileSchemaSize);
    const auto twin = schema.makeTwin (message);

    if (twin == nullptr)
    {
        error = message.GetTypeName() + " is not a message of the schema";
        return false;
    }

    FirstErrorOnly firstError (error);
    google::protobuf::TextFormat::Parser parser;
    parser.RecordErrorsTo (&firstError);
    parser.SetRecursionLimit (kMaxDepth);
    return parser.ParseFromString (std::string (text), twin.get())
           && message.ParseFromString (twin->SerializeAsString());
}

}
