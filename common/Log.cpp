// SPDX-License-Identifier: GPL-3.0-or-later
#include "common/Log.h"

#include <atomic>

namespace veltra {

namespace {

std::atomic<bool> hasOwnAppender { false };

}

void setHasOwnAppender (bool hasOne) noexcept { hasOwnAppender = hasOne; }

bool isLogged (log4cplus::LogLevel level)
{
    auto root = log4cplus::Logger::getRoot();
    return root.isEnabledFor (level) && (hasOwnAppender || ! root.getAllAppenders().empty());
}

}
