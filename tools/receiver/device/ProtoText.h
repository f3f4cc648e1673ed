// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

#include <google/protobuf/message_lite.h>

namespace veltra::receiver {

/** Reads a message of the protocol, or a ProfileFile, from protobuf's text form.

    The message classes are lite classes, which have no text form. The parser works on a twin from a private descriptor
    pool, so that no full class of the schema is registered in a process that also loads the module. Any thread.

    @param error  line, column and the reason, when the text has an error or lacks a required field
    @returns      false after an error; the message is unchanged then
*/
bool readText (std::string_view text, google::protobuf::MessageLite& message, std::string& error);

}
