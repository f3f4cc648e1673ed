// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    What a host sees of the built file before any device is there.
*/

#include "tests/plugin/HostModule.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <regex>
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

/** The places of all operations in the tables of their classes, as clang lays them out for a kind of target. */
std::map<std::string, int> operationsFor (const std::string& target)
{
    std::istringstream dump (
        outputOf (CLANG_PROGRAM " --target=" + target
                  + " -std=c++20 -ffreestanding -nostdinc++ -isystem tests/abi/freestanding -I plugin/include"
                    " -Xclang -fdump-vtable-layouts -S -emit-llvm -o /dev/null tests/abi/Layouts.cpp 2>&1"));
    const std::regex table ("V.*able for .*'Constructed(\\w+)' .*"), place (" *(\\d+) \\| (.*)"),
        name (".*::(\\w+)\\(.*");
    std::map<std::string, int> places;
    std::string line, interface;
    int first = 0;

    for (std::smatch match, operation; std::getline (dump, line);)
    {
        if (std::regex_match (line, match, table))
            interface = match[1];
        else if (line.empty())
            interface.clear();

        if (interface.empty() || ! std::regex_match (line, match, place))
            continue;

        const auto words = match[2].str();

        if (words.ends_with (" RTTI"))
            first = std::stoi (match[1]) + 1;
        else if (std::regex_match (words, operation, name) && operation[1] != "placeOfTheDestructor")
            places[interface + "::" + operation[1].str()] = std::stoi (match[1]) - first;
    }

    return places;
}

/** Expects operations in successive slots of their class's table. The ABI of all systems but Windows keeps the slot,
    in bytes and plus one, in the pointer to the member. */
template <typename... Members>
void expectInOrder (std::size_t first, Members... members)
{
    const auto expectNext = [&first] (const auto& member) {
        std::uintptr_t offset;
        static_assert (sizeof (member) >= sizeof (offset));
        std::memcpy (&offset, &member, sizeof (offset));
        EXPECT_EQ ((offset - 1) / sizeof (void*), first++);
    };
    (expectNext (members), ...);
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
    expectInOrder (2, &Plugin::GetName, &Plugin::GetVendor, &Plugin::GetVersion, &Plugin::GetDate, &Plugin::FindDevices,
                   &Plugin::GetDevice);
    expectInOrder (2, &Device::GetName, &Device::GetCapabilities, &Device::GetExtendedCapabilities,
                   &Device::ReservedCall1, &Device::GetChannelCount, &Device::GetChannelName, &Device::GetSampleRate,
                   &Device::GetDefaultSampleRate, &Device::EnterMeasurementMode, &Device::LeaveMeasurementMode,
                   &Device::StartStimulus, &Device::StartGenericStimulus, &Device::StopStimulus,
                   &Device::IsStimulusPlaying, &Device::GetStimulusInformation, &Device::GetStimulusLatency,
                   &Device::GetFilterSlotCount, &Device::SetActiveFilterSlot, &Device::GetActiveFilterSlot,
                   &Device::GetFilterSet, &Device::ReservedCall2, &Device::LoadFilterSet, &Device::RemoveFilterSet,
                   &Device::SetFiltering, &Device::GetFiltering, &Device::SetVolume, &Device::GetVolume,
                   &Device::GetMaxChannelAttenuation, &Device::SetChannelAttenuation, &Device::GetChannelAttenuation,
                   &Device::ReservedCall3, &Device::ReservedCall4, &Device::ReservedCall5,
                   &Device::GetTopologyParameters, &Device::GetLastError, &Device2::IsReady, &Device2::ReservedCall6,
                   &Device2::DownloadFilterSet, &Device2::RemoveFilterSet2, &Device2::GetSerialNumber);
    expectInOrder (2, &Filter::GetName, &Filter::GetDescription, &Filter::GetChannel, &Filter::UnsupportedQuery1,
                   &Filter::UnsupportedQuery2, &Filter::GetGaindB, &Filter::UnsupportedQuery3,
                   &Filter::UnsupportedQuery4, &Filter::GetDelayMs, &Filter::Reserved);
    expectInOrder (2, &FilterSet::GetName, &FilterSet::GetTechnology, &FilterSet::GetFilter);

    // The host's own objects have no virtual destructor.
    expectInOrder (2, &CaptureCallback::OnCaptureStart, &CaptureCallback::OnCaptureData);
    expectInOrder (1, &ProgressCallback::OnProgressText, &ProgressCallback::OnProgress);
}

/** An application by Microsoft's compiler and a module by MinGW's meet on Windows. */
TEST (Boundary, BothKindsOfCompilersForWindowsAgreeOnThePlaces)
{
    const auto here = operationsFor ("x86_64-linux-gnu"), microsoft = operationsFor ("x86_64-pc-windows-msvc");
    ASSERT_EQ (66u, microsoft.size());
    EXPECT_EQ (microsoft, operationsFor ("x86_64-w64-windows-gnu"));

    // Where a destructor takes two places, everything else is one place further.
    for (const auto& [operation, place] : microsoft)
        EXPECT_EQ (place + (operation.find ("Callback") == operation.npos ? 1 : 0), here.at (operation)) << operation;
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
