// SPDX-License-Identifier: GPL-3.0-or-later
#include "tools/receiver/device/Fault.h"

#include <algorithm>
#include <utility>

namespace veltra::receiver {

void FaultInjector::set (std::vector<Fault> faults)
{
    const std::scoped_lock guard (lock);
    rules.clear();

    for (auto& fault : faults)
        rules.push_back ({ std::move (fault) });
}

void FaultInjector::add (Fault fault)
{
    const std::scoped_lock guard (lock);
    rules.push_back ({ std::move (fault) });
}

std::vector<Fault> FaultInjector::next (const std::vector<std::string_view>& names)
{
    const std::scoped_lock guard (lock);
    std::vector<Fault> applying;

    for (auto& rule : rules)
    {
        if (std::find (names.begin(), names.end(), rule.fault.type) == names.end())
            continue;

        if (rule.seen < Fault::kForEver)
            ++rule.seen;

        if (rule.seen >= rule.fault.first && rule.seen <= std::max (rule.fault.first, rule.fault.last))
            applying.push_back (rule.fault);
    }

    return applying;
}

}
