// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>

namespace veltraio {

/** The compiled schema, a serialised google.protobuf.FileDescriptorSet; made by the build. */
extern const unsigned char schemaDescriptors[];
extern const std::size_t schemaDescriptorsSize;

}
