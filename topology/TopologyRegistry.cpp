// SPDX-License-Identifier: GPL-3.0-or-later
#include <new>
#include <utility>

#include "topology/FIIRHandler.h"
#include "topology/FIRHandler.h"
#include "topology/Topology.h"
#include "topology/VLFIRHandler.h"

namespace veltra::topology {

namespace {

struct Entry
{
    const char* name;
    std::function<std::unique_ptr<ITopology> (ProgressFunction)> make;
};

const Entry registry[] {
    { "FIIR", [] (ProgressFunction progress) { return std::make_unique<FIIRHandler> (std::move (progress)); } },
    { "FIR", [] (ProgressFunction) { return std::make_unique<FIRHandler>(); } },
    { "VLFIR",
      [] (ProgressFunction) { return std::make_unique<VLFIRHandler<VFIIR::SFilterBlock, VFIIR::SFilter>>(); } },
    { "VLFIR2", [] (ProgressFunction) { return std::make_unique<VLFIR2Handler>(); } },
};

}

std::unique_ptr<ITopology> createTopology (const juce::String& name, ProgressFunction progress)
{
    try
    {
        for (const auto& entry : registry)
            if (name == entry.name)
                return entry.make (std::move (progress));
    }
    catch (const std::bad_alloc&)
    {
    }

    return nullptr;
}

}
