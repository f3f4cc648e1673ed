// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <memory>

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

namespace veltraio {

/** Full-featured messages of a schema whose generated classes are lite ones, which have no text form and no descriptors.

    The schema lives in a pool of its own and registers nothing in the process; docs/unloading.md says why. The object must
    outlive its messages. Any thread.
*/
class PrivateSchema
{
public:
    /** @param descriptors  a serialised google.protobuf.FileDescriptorSet, each file behind those that it imports */
    PrivateSchema (const unsigned char* descriptors, std::size_t size_bytes)
    {
        google::protobuf::FileDescriptorSet files;
        files.ParseFromArray (descriptors, static_cast<int> (size_bytes));

        for (const auto& file : files.file())
            pool.BuildFile (file);
    }

    /** An empty message of the same type; null for a type that the schema does not have. */
    std::unique_ptr<google::protobuf::Message> makeTwin (const google::protobuf::MessageLite& message)
    {
        const auto* descriptor = pool.FindMessageTypeByName (message.GetTypeName());
        return std::unique_ptr<google::protobuf::Message> (
            descriptor != nullptr ? factory.GetPrototype (descriptor)->New() : nullptr);
    }

private:
    google::protobuf::DescriptorPool pool;
    google::protobuf::DynamicMessageFactory factory; // destroyed before the pool that its types come from
};

}
