// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Log.h"

namespace veltra {

bool isLogged (log4cplus::LogLevel level)
{
    auto root = log4cplus::Logger::getRoot();
    return root.isEnabledFor (level) && ! root.getAllAppenders().empty();
}

}
