// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "common/Numbers.h"
#include "tools/veltra/check/Wire.h"
#include "tools/veltra/session/ConnectionLog.h"

namespace veltra::host {

/** The receiver of --device, or the one that a search finds, for the commands that speak to it without the module.
    @throws  Failure */
inline check::Target receiverTarget (const SessionOptions& session)
{
    const auto address = deviceSetting (withAddress (session).device).substr (sizeof ("TCP:") - 1);
    const auto colon = address.rfind (':');
    check::Target target;
    target.host = address.substr (0, colon);
    target.port = toInt (address.substr (colon + 1));
    return target;
}

}
