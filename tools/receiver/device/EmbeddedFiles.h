// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>

/** @file Files that the build turns into arrays. */

namespace veltra::receiver {

/** The profiles of examples/receivers. */
extern const unsigned char stereoProfile[], sevenOneProfile[], twelveProfile[];
extern const std::size_t stereoProfileSize, sevenOneProfileSize, twelveProfileSize;

/** profile.proto and the schema that it imports: a serialised google.protobuf.FileDescriptorSet. */
extern const unsigned char profileSchema[];
extern const std::size_t profileSchemaSize;

}
