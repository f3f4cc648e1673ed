/** @file
    Filter sets in the slots, without and with the device.
*/

#include "tests/plugin/DeviceFixture.h"
#include "tests/plugin/FilterText.h"

namespace veltra::test {

namespace {

using namespace veltratune_io;

const CoefficientSet kTaps { .rate = 48000, .taps = { 1.0f, 0.5f }, .sections = {}, .extra = {} };

/** A description with a filter for each of some channel numbers, counted from 1. */
std::string channels (const std::vector<int>& numbers)
{
    std::vector<FilterChannel> list;

    for (const auto number : numbers)
        list.push_back ({ .name = "C" + std::to_string (number), .number = number, .sets = { kTaps } });

    return filterText ("Room", "FIR", list);
}

class FilterSlots : public DeviceFixture
{
protected:
    static std::size_t setsIn (Device2& opened, std::uint32_t slot)
    {
        std::size_t count = 0;
        FilterSet* ignored = nullptr;

        while (opened.GetFilterSet (slot, static_cast<std::uint32_t> (count), &ignored))
            ++count;

        return count;
    }
};

}

TEST_F (FilterSlots, ASetIsParsedAndKeptWithoutTheDevice)
{
    auto& opened = open();
    const auto before = receiver->messages().size();
    EXPECT_EQ (opened.LoadFilterSet (2, channels ({ 1, 2 }).c_str(), 77), kResultOk);
    EXPECT_EQ (receiver->messages().size(), before);

    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (2, 0, &set));
    EXPECT_STREQ (set->GetName(), "Room");
    EXPECT_STREQ (set->GetTechnology(), "FIR");
    Filter* filter = nullptr;
    ASSERT_TRUE (set->GetFilter (1, &filter));
    EXPECT_STREQ (filter->GetName(), "C2");
    EXPECT_EQ (filter->GetChannel(), 1u);
    EXPECT_FALSE (set->GetFilter (2, nullptr));
}

TEST_F (FilterSlots, TheSlotNumberIsBelowEightWhateverTheDeviceHas)
{
    auto& opened = open();
    EXPECT_EQ (opened.LoadFilterSet (7, channels ({ 1 }).c_str(), 0), kResultOk);
    EXPECT_EQ (opened.LoadFilterSet (8, channels ({ 1 }).c_str(), 0), kResultFailed);
    EXPECT_EQ (opened.LoadFilterSet (8, nullptr, 0), kResultFailed);
    EXPECT_EQ (opened.LoadFilterSet (0, nullptr, 0), kResultBadArgument);
    EXPECT_EQ (takeLastError (opened), "");
}

TEST_F (FilterSlots, ATextThatIsNoDescriptionIsRefused)
{
    auto& opened = open();

    for (const auto* text : { "", "no XML", "<Veltra/>", "<Veltra><Tune/></Veltra>", "<Other><Tune><Channel/></Tune></Other>" })
        EXPECT_EQ (opened.LoadFilterSet (0, text, 0), kResultBadFilterText) << text;

    EXPECT_EQ (setsIn (opened, 0), 0u);
}

TEST_F (FilterSlots, ASlotTakesSetsForDifferentChannelsOnly)
{
    auto& opened = open();
    EXPECT_EQ (opened.LoadFilterSet (0, channels ({ 1, 2 }).c_str(), 0), kResultOk);
    EXPECT_EQ (opened.LoadFilterSet (0, channels ({ 3, 2 }).c_str(), 0), kResultChannelConflict);
    EXPECT_EQ (setsIn (opened, 0), 1u);
    EXPECT_EQ (opened.LoadFilterSet (0, channels ({ 3 }).c_str(), 0), kResultOk);
    EXPECT_EQ (opened.LoadFilterSet (2, channels ({ 1, 2 }).c_str(), 0), kResultOk) << "another slot is another matter";
    EXPECT_EQ (setsIn (opened, 0), 2u);
    EXPECT_EQ (opened.LoadFilterSet (1, channels ({ 2 }).c_str(), 0), kResultChannelConflict)
        << "the device said that the slot is in use";
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
    EXPECT_EQ (received<veltraio::RemoveFilter> ("RemoveFilter").back(), "deviceIndex: 0 slotIndex: 1");
    EXPECT_EQ (receiver->slots()[1].state, receiver::Slot::State::empty);
    EXPECT_EQ (setsIn (opened, 1), 0u);

    const auto sent = receiver->messageCount ("RemoveFilter");
    EXPECT_FALSE (opened.RemoveFilterSet (set)) << "gone";
    EXPECT_FALSE (opened.RemoveFilterSet (nullptr));
    EXPECT_EQ (receiver->messageCount ("RemoveFilter"), sent);
    EXPECT_EQ (opened.LoadFilterSet (1, channels ({ 1 }).c_str(), 0), kResultOk) << "the slot takes a new set";
}

TEST_F (FilterSlots, ASetThatCannotBeRemovedOverTheWireStays)
{
    auto& opened = open();
    FilterSet* set = nullptr;
    ASSERT_TRUE (opened.GetFilterSet (1, 0, &set));
    breakConnections();
    EXPECT_FALSE (opened.RemoveFilterSet (set));
    EXPECT_EQ (setsIn (opened, 1), 1u);
}

}
