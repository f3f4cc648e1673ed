// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What a host sees of the built file before any device is there.
*/

#include "tests/plugin/HostModule.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "veltratune_io/Callbacks.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

std::string outputOf (const std::string& command)
{
    const std::unique_ptr<FILE, int (*) (FILE*)> pipe (popen (command.c_str(), "r"), pclose);
    std::string output;
    char piece[4096];

    while (const auto count = std::fread (piece, 1, sizeof (piece), pipe.get()))
        output.append (piece, count);

    return output;
}

/** The place of an operation in its class's table of operations, counted in slots. The ABI of all systems but
    Windows keeps it in the pointer to the member, plus one. */
template <typename Member>
std::size_t slotOf (Member member)
{
    std::uintptr_t offset;
    static_assert (sizeof (member) >= sizeof (offset));
    std::memcpy (&offset, &member, sizeof (offset));
    return (offset - 1) / sizeof (void*);
}

}

TEST (Boundary, TheBuiltFileShowsExactlyThreeSymbols)
{
    std::istringstream lines (outputOf (std::string (NM_PROGRAM) + " -D --defined-only " MODULE_FILE));
    std::set<std::string> symbols;

    for (std::string line; std::getline (lines, line);)
        symbols.insert (line.substr (line.rfind (' ') + 1));

    EXPECT_EQ (symbols,
               (std::set<std::string> { "GetVersionedPluginObject", "ReleaseVersionedPluginObject", "SetLogPath" }));
}

/** A host that was compiled years ago calls by these numbers. Slots 0 and 1 are the destructor's. */
TEST (Boundary, OperationsKeepTheirPlaces)
{
    const auto expectInOrder = [] (const std::vector<std::size_t>& slots, std::size_t first) {
        for (std::size_t i = 0; i < slots.size(); ++i)
            EXPECT_EQ (slots[i], first + i);
    };

    expectInOrder ({ slotOf (&Plugin::GetName), slotOf (&Plugin::GetVendor), slotOf (&Plugin::GetVersion),
                     slotOf (&Plugin::GetDate), slotOf (&Plugin::FindDevices), slotOf (&Plugin::GetDevice) },
                   2);

    expectInOrder ({ slotOf (&Device::GetName),
                     slotOf (&Device::GetCapabilities),
                     slotOf (&Device::GetExtendedCapabilities),
                     slotOf (&Device::ReservedCall1),
                     slotOf (&Device::GetChannelCount),
                     slotOf (&Device::GetChannelName),
                     slotOf (&Device::GetSampleRate),
                     slotOf (&Device::GetDefaultSampleRate),
                     slotOf (&Device::EnterMeasurementMode),
                     slotOf (&Device::LeaveMeasurementMode),
                     slotOf (&Device::StartStimulus),
                     slotOf (&Device::StartGenericStimulus),
                     slotOf (&Device::StopStimulus),
                     slotOf (&Device::IsStimulusPlaying),
                     slotOf (&Device::GetStimulusInformation),
                     slotOf (&Device::GetStimulusLatency),
                     slotOf (&Device::GetFilterSlotCount),
                     slotOf (&Device::SetActiveFilterSlot),
                     slotOf (&Device::GetActiveFilterSlot),
                     slotOf (&Device::GetFilterSet),
                     slotOf (&Device::ReservedCall2),
                     slotOf (&Device::LoadFilterSet),
                     slotOf (&Device::RemoveFilterSet),
                     slotOf (&Device::SetFiltering),
                     slotOf (&Device::GetFiltering),
                     slotOf (&Device::SetVolume),
                     slotOf (&Device::GetVolume),
                     slotOf (&Device::GetMaxChannelAttenuation),
                     slotOf (&Device::SetChannelAttenuation),
                     slotOf (&Device::GetChannelAttenuation),
                     slotOf (&Device::ReservedCall3),
                     slotOf (&Device::ReservedCall4),
                     slotOf (&Device::ReservedCall5),
                     slotOf (&Device::GetTopologyParameters),
                     slotOf (&Device::GetLastError),
                     slotOf (&Device2::IsReady),
                     slotOf (&Device2::ReservedCall6),
                     slotOf (&Device2::DownloadFilterSet),
                     slotOf (&Device2::RemoveFilterSet2),
                     slotOf (&Device2::GetSerialNumber) },
                   2);

    expectInOrder ({ slotOf (&Filter::GetName), slotOf (&Filter::GetDescription), slotOf (&Filter::GetChannel),
                     slotOf (&Filter::UnsupportedQuery1), slotOf (&Filter::UnsupportedQuery2),
                     slotOf (&Filter::GetGaindB), slotOf (&Filter::UnsupportedQuery3),
                     slotOf (&Filter::UnsupportedQuery4), slotOf (&Filter::GetDelayMs), slotOf (&Filter::Reserved) },
                   2);

    expectInOrder ({ slotOf (&FilterSet::GetName), slotOf (&FilterSet::GetTechnology), slotOf (&FilterSet::GetFilter) },
                   2);

    // The host's own objects have no virtual destructor.
    expectInOrder ({ slotOf (&CaptureCallback::OnCaptureStart), slotOf (&CaptureCallback::OnCaptureData) }, 2);
    expectInOrder ({ slotOf (&ProgressCallback::OnProgressText), slotOf (&ProgressCallback::OnProgress) }, 1);
}

TEST (Boundary, OnlyVersionFiveIsHandedOut)
{
    const HostModule module (MODULE_FILE);

    for (const std::uint32_t version : { 0u, 4u, 6u, 0xFFFFFFFFu })
        EXPECT_EQ (module.get (version), nullptr);

    auto* const plugin = module.get (kPluginInterfaceVersion);
    ASSERT_NE (plugin, nullptr);
    EXPECT_STREQ (plugin->GetName(), "Veltra Labs Ltd");
    EXPECT_STREQ (plugin->GetVendor(), "Veltra Labs Ltd");
    EXPECT_STREQ (plugin->GetVersion(), "1.0.0");
    EXPECT_STREQ (plugin->GetDate(), "2015-04-14");

    auto* const second = module.get (kPluginInterfaceVersion);
    EXPECT_NE (second, plugin) << "each call makes an object";
    module.release (plugin);
    EXPECT_STREQ (second->GetDate(), "2015-04-14") << "releasing one leaves the other";
    module.release (second);
    module.release (second); // not in the list any more
    module.release (nullptr);
}

}
