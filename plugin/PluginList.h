// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "veltratune_io/Plugin.h"

namespace veltra::plugin {

/** The plug-in objects that the module has handed out. The host borrows them, the list owns them. Call from one
    thread at a time. */
class PluginList
{
public:
    PluginList() = default;
    ~PluginList();

    PluginList (const PluginList&) = delete;
    PluginList& operator= (const PluginList&) = delete;

    /** @returns  null for another version than veltratune_io::kPluginInterfaceVersion */
    veltratune_io::Plugin* create (std::uint32_t version);

    /** Destroys one of the list's objects; another pointer is left alone. */
    void destroy (const veltratune_io::Plugin* plugin);

    /** Destroys them all, first to last. */
    void clear();

private:
    std::vector<std::unique_ptr<veltratune_io::Plugin>> plugins;
};

}
