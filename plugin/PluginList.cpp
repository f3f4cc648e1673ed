// SPDX-License-Identifier: GPL-3.0-or-later
#include "plugin/PluginList.h"

#include <algorithm>

#include "plugin/Files.h"
#include "plugin/PluginImpl.h"

namespace veltra::plugin {

PluginList::~PluginList() { clear(); }

veltratune_io::Plugin* PluginList::create (std::uint32_t version)
{
    if (version != veltratune_io::kPluginInterfaceVersion)
        return nullptr;

    auto plugin = std::make_unique<PluginImpl> (settingsFile());

    if (plugin->GetName() == nullptr)
        return nullptr;

    plugins.push_back (std::move (plugin));
    return plugins.back().get();
}

void PluginList::destroy (const veltratune_io::Plugin* plugin)
{
    const auto found =
        std::find_if (plugins.begin(), plugins.end(), [plugin] (const auto& owned) { return owned.get() == plugin; });

    if (found != plugins.end())
        plugins.erase (found);
}

void PluginList::clear()
{
    while (! plugins.empty())
        plugins.erase (plugins.begin());
}

}
