// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include <google/protobuf/message_lite.h>

namespace veltraio {

/** The protobuf text form of a message of the schema, for the log.

    The message classes are protobuf's lite classes, which register nothing process-wide, so that the module can be
    unloaded and used in a host that has the same schema; they have no text form. This one comes from a private
    descriptor pool over the compiled schema, made with the first call and destroyed when the module is unloaded.

    A message that lacks required fields is shown as it is. Any thread.
*/
std::string toText (const google::protobuf::MessageLite& message);

}
