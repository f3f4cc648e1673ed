// SPDX-License-Identifier: GPL-3.0-or-later

/** @file
    Filter sets in the slots, without and with the device.
*/

#include "tests/support/DeviceFixture.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

class FilterSlots : public DeviceFixture
{
protected:
    /** Loads a description with a filter for each of some channel numbers, counted from 1. */
    static EResult load (Device2& opened, std::uint32_t slot, const std::vector<int>& numbers)
    {
        DescriptionBuilder xml ("Room", "FIR");

        for (const auto number : numbers)
            xml.channel ("C" + std::to_string (number), number).fir (48000, { 1.0f, 0.5f });

        return opened.LoadFilterSet (slot, xml.text().c_str(), 77);
    }
};

}

TEST_F (FilterSlots, ASlotTakesSetsForDifferentChannelsOnly)
{
    auto& opened = open();
    const auto before = receiver->messages().size();
    EXPECT_EQ (load (opened, 0, { 1, 2 }), kResultOk);
    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (0, 0, &set));
    EXPECT_EQ (std::string (set->GetName()) + set->GetTechnology(), "RoomFIR");
    EXPECT_EQ (load (opened, 0, { 3, 2 }), kResultChannelConflict);
    EXPECT_EQ (setsIn (opened, 0), 1u);
    EXPECT_EQ (load (opened, 0, { 3 }), kResultOk);
    EXPECT_EQ (load (opened, 7, { 1, 2 }), kResultOk) << "another slot, also beyond those of the device";
    EXPECT_EQ (setsIn (opened, 0), 2u);
    EXPECT_EQ (load (opened, 1, { 2 }), kResultChannelConflict) << "the device said that the slot is in use";
    EXPECT_EQ (load (opened, 8, { 1 }), kResultFailed);
    EXPECT_EQ (opened.LoadFilterSet (8, nullptr, 0), kResultFailed);
    EXPECT_EQ (opened.LoadFilterSet (2, nullptr, 0), kResultBadArgument);
    EXPECT_EQ (opened.LoadFilterSet (2, "<O><Tune><Channel/></Tune></O>", 0), kResultBadFilterText);
    EXPECT_EQ (setsIn (opened, 2), 0u);
    EXPECT_EQ (takeLastError (opened), "");
    EXPECT_EQ (receiver->messages().size(), before) << "all that without the device";
}

TEST_F (FilterSlots, RemovingEmptiesTheSlotOnTheDeviceFirst)
{
    auto& opened = open();
    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));

    setFaults ("refuse RemoveFilter 1 'locked'");
    EXPECT_FALSE (opened.RemoveFilterSet (set));
    EXPECT_EQ (setsIn (opened, 1), 1u) << "nothing changes when the device refuses";
    EXPECT_EQ (takeLastError (opened), "");

    EXPECT_TRUE (opened.RemoveFilterSet2 (set, 5));
    EXPECT_EQ (received<veltraio::RemoveFilter>().back(), "deviceIndex: 0 slotIndex: 1");
    EXPECT_EQ (receiver->slots()[1].state, receiver::Slot::State::empty);
    EXPECT_EQ (setsIn (opened, 1), 0u);

    EXPECT_FALSE (opened.RemoveFilterSet (set)) << "gone";
    EXPECT_FALSE (opened.RemoveFilterSet (nullptr));
    EXPECT_EQ (receiver->messageCount ("RemoveFilter"), 2u);
    EXPECT_EQ (load (opened, 1, { 1 }), kResultOk) << "the slot takes a new set";

    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    breakConnections();
    EXPECT_FALSE (opened.RemoveFilterSet (set));
    EXPECT_EQ (setsIn (opened, 1), 1u) << "nor when it cannot be asked";
}

}
