// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include <google/protobuf/message_lite.h>

namespace veltraio {

/** The protobuf text form of a message of the schema, for the log.

    It comes from a PrivateSchema, made with the first call and destroyed when the module is unloaded.

    A message that lacks required fields is shown as it is. Any thread.
*/
std::string toText (const google::protobuf::MessageLite& message);

}
