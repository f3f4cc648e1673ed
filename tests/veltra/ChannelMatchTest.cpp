// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "filters/FilterDescriptionParser.h"
#include "tests/support/DescriptionBuilder.h"
#include "tools/ExitStatus.h"
#include "tools/receiver/device/Profile.h"
#include "tools/veltra/filters/DownloadPlan.h"

namespace veltra::host {

namespace {

using filters::FilterSetsImpl;

std::unique_ptr<FilterSetsImpl> parsed (const std::string& text)
{
    auto set = std::make_unique<FilterSetsImpl>();
    EXPECT_EQ (parser::FIIR::Success, parser::FIIR::parse (text.c_str(), set.get(), "Veltra")) << text;
    return set;
}

TEST (ChannelMatch, GoesByNameAndNamesWhatIsMissingSurplusOrTwice)
{
    const std::vector<ReceiverChannel> channels {
        { "FL", 0 }, { "Mid\xc3\x84", 4, false }, { "SW", 2 }, { "BR", 9, false }
    };
    constexpr MatchOptions byName, byNumber { .byNumber = true }, partial { .partial = true };

    const struct
    {
        std::vector<NamedFilter> filters;
        MatchOptions options;
        const char* pairs; ///< place of the filter, place of the channel
        const char* problem;
    } cases[] {
        { { { "sw" }, { "br" }, { " fl " }, { "mID\xc3\x84" } }, byName, "2>0 3>1 0>2 1>3 ", "" },
        { { { "FL" }, { "SW" }, { "Mid\xc3\x84" } }, byName, "0>0 2>1 1>2 ", "" },
        { { { "FL" }, { "SW" } }, byName, "0>0 1>2 ", "no filter for Mid\xc3\x84" },
        { { { "FL" }, { "LFE" } }, byName, "0>0 ", "no filter for SW; no channel for LFE" },
        { { { "FL" }, { "LFE" } }, partial, "0>0 ", "" },
        { { { "FL" }, { "fl" }, { "SW" } }, partial, "2>2 ", "2 filters for FL" },
        { { { "FL" }, { "SW" }, { "FL" }, { "X" } },
          byName,
          "1>2 ",
          "2 filters for FL; no filter for Mid\xc3\x84; no channel for X" },
        { { { "LFE" } }, partial, "", "none of the filters has a channel" },
        { { { "SW", 0 }, { "FL", 2 }, { "", 4 } }, byNumber, "0>0 2>1 1>2 ", "" },
        { { { "FL", 0 }, { "Mid", 4 }, { "SW", 3 } }, byNumber, "0>0 1>1 ", "no filter for SW; no channel for SW" },
    };

    for (const auto& one : cases)
    {
        const auto match = matchChannels (one.filters, channels, one.options);
        std::string pairs;

        for (const auto& pair : match.pairs)
            pairs += std::to_string (pair.filter) + ">" + std::to_string (pair.channel) + " ";

        EXPECT_EQ (one.pairs, pairs);
        EXPECT_EQ (one.problem, match.problem);
    }

    EXPECT_EQ ("the receiver has 2 channels FL",
               matchChannels ({ { "FL" } }, { { "FL", 0 }, { "fl", 1 } }, partial).problem);
    EXPECT_EQ (
        "  Filter  ->  channel of the receiver\n  FL      ->  FL (number 0)\n  \\x1b    ->  none\n  none    ->  SW\n",
        matchTable (matchChannels ({ { "\x1b" }, { "FL" } }, channels, partial), { { "\x1b" }, { "FL" } }, channels));
}

TEST (ArrangedDescription, KeepsAllButOrderAndNumbers)
{
    const auto text =
        test::DescriptionBuilder ("A &amp; &#34;B&#34;&#10;")
            .raw ("<Before/>")
            .channel ("FL", 7, R"(GaindB="-3" MaxFilterGaindB="6" xoverFreq="80")")
            .fir (48000, { 1.0f, 0.5f })
            .channel ("F&lt;R&#27;", 8, R"(Delayms="2")")
            .fiir (48000, { 1.0f, 0.1f }, { { -1.8f, 0.81f, 0.1f, 0.0f } }, "Delay=48")
            .raw (
                R"(<Coefficients Topology="FIR" Fs="96000"><FIR NbrOfTaps="1"><taps>2<!--3-->4</taps></FIR></Coefficients>)")
            .raw (
                R"(</Channel><Stray Name="C" Number="9"><Coefficients Topology="FIR" Fs="48000"><FIR NbrOfTaps="1"><taps><![CDATA[3]]></taps></FIR></Coefficients></Stray><Channel>)")
            .text();
    const std::vector<ArrangedChannel> order { { 2, 1 }, { 1, 12 }, { 0, 3 }, { 99, 4 } };
    const auto before = parsed (text), after = parsed (arrangedDescription (text, order));

    EXPECT_STREQ ("A & \"B\"\n", after->GetName());
    EXPECT_STREQ (before->GetTechnology(), after->GetTechnology());
    ASSERT_EQ (3u, after->getFilterCount());

    for (unsigned i = 0; i < 3; ++i)
    {
        const auto& was = *before->getFilterImpl (static_cast<unsigned> (order[i].place));
        const auto& is = *after->getFilterImpl (i);
        EXPECT_EQ (order[i].number - 1, is.GetChannel());
        EXPECT_STREQ (was.GetName(), is.GetName());
        EXPECT_EQ (was.GetGaindB(), is.GetGaindB());
        EXPECT_EQ (was.GetDelayMs(), is.GetDelayMs());
        EXPECT_EQ (was.getMaxFilterGaindB(), is.getMaxFilterGaindB());
        EXPECT_EQ (was.getExtraDelayMs(), is.getExtraDelayMs());
        EXPECT_EQ (was.getAttributes().xoverFreq, is.getAttributes().xoverFreq);
        ASSERT_EQ (was.getCoefficientSets().size(), is.getCoefficientSets().size());

        for (const auto& [key, data] : was.getCoefficientSets())
        {
            EXPECT_EQ (data.taps, is.findCoefficientSet (key)->taps) << i;
            EXPECT_EQ (data.sections.size(), is.findCoefficientSet (key)->sections.size());
        }
    }
}

/** Plans for a receiver with the channels FL and FR, numbers 0 and 1. */
class Plan : public testing::Test
{
protected:
    void topologies (const std::vector<std::tuple<std::uint32_t, const char*, const char*>>& entries)
    {
        auto& configuration = *profile.unit.mutable_devices (0)->mutable_configurations (0);
        configuration.clear_samplerates();
        profile.topologyInfo.clear_topologies();

        for (const auto& [rate, name, information] : entries)
        {
            configuration.add_samplerates (rate);
            auto& entry = *profile.topologyInfo.add_topologies();
            entry.set_samplerate (rate);
            entry.set_name (name);
            entry.set_information (information);
        }
    }

    DownloadPlan plan (const test::DescriptionBuilder& description)
    {
        const auto& device = profile.unit.devices (0);
        const auto set = parsed (description.text());
        juce::PropertySet settings;
        return planDownload (*set, device, servedRates (device, profile.topologyInfo), settings);
    }

    std::string failureOf (const test::DescriptionBuilder& description, ExitStatus status = kExitConversion)
    {
        try
        {
            plan (description);
        }
        catch (const Failure& failure)
        {
            EXPECT_EQ (status, failure.status);
            return failure.what();
        }

        return {};
    }

    static test::DescriptionBuilder both (const std::function<void (test::DescriptionBuilder&)>& sets)
    {
        test::DescriptionBuilder builder;
        sets (builder.channel ("FL", 1));
        sets (builder.channel ("FR", 2));
        return builder;
    }

    receiver::Profile profile = receiver::shippedProfile ("stereo");
};

TEST_F (Plan, SetsThatDoNotFitATopologyAreFoundBeforehand)
{
    const std::vector<dsp::FIIRSection> one (1), two (2);
    topologies ({ { 48000, "FIIR", "NbrOfFIRTaps=2;NbrOfIIRSections=1" } });
    EXPECT_EQ (2u * (2 + 4) * 4, plan (both ([&] (auto& set) { set.fiir (48000, { 1, 2 }, one); })).totalBytes);

    for (const auto& [taps, sections] :
         { std::pair (std::vector<float> { 1, 2, 3 }, one), { { 1, 2 }, two }, { { 1 }, one } })
        EXPECT_NE (std::string::npos, failureOf (test::DescriptionBuilder()
                                                     .channel ("FL", 1)
                                                     .fiir (48000, { 1, 2 }, one)
                                                     .channel ("FR", 2)
                                                     .fiir (48000, taps, sections))
                                          .find ("FR at 48000 Hz has "));

    EXPECT_EQ (
        (std::vector<std::string> {
            "Without a set at 48000 Hz, FR will be silent there: a topology FIIR gets zeros." }),
        plan (test::DescriptionBuilder().channel ("FL", 1).fir (48000, { 1 }).channel ("FR", 2).fir (96000, { 1 }))
            .warnings);

    topologies ({ { 48000, "FIR", "NbrOfFIRTaps=2" }, { 44100, "VLFIR", "NbrOfFIRTaps=16" } });
    const auto cut = plan (both ([] (auto& set) { set.fir (48000, { 0, 0, 1, 0 }); }));
    EXPECT_EQ ((std::vector<std::string> {
                   "The receiver runs 2 taps at 48000 Hz; the filters of FL, FR are longer and lose what is behind." }),
               cut.warnings);
    EXPECT_EQ ((std::vector<std::string> { "FL", "FR" }), cut.sentChannels);
    EXPECT_EQ (cut.sentChannels, cut.needingLeadIn) << "because of 44100 Hz";
    EXPECT_NE (std::string::npos, failureOf (both ([] (auto& set) { set.fir (44100, { 1 }); })).find ("at 48000 Hz"));

    topologies ({ { 48000, "X", "" } });
    EXPECT_NE (std::string::npos,
               failureOf (both ([] (auto& set) { set.fir (48000, { 1 }); })).find ("Topology X not"));
    topologies ({});
    EXPECT_NE ("", failureOf (both ([] (auto& set) { set.fir (48000, { 1 }); })));
}

TEST_F (Plan, AFilterNeverReachesAnotherChannel)
{
    auto& device = *profile.unit.mutable_devices (0);
    topologies ({ { 48000, "FIR", "NbrOfFIRTaps=1" }, { 96000, "FIR", "NbrOfFIRTaps=1" } });
    const auto description = both ([] (auto& set) { set.fir (48000, { 1 }).fir (96000, { 1 }); });
    EXPECT_EQ (16u, plan (description).totalBytes);

    // At 96000 Hz the receiver serves FR alone: the module would send it the first filter.
    device.mutable_configurations (0)->mutable_samplerates()->RemoveLast();
    auto& half = *device.add_configurations();
    half.add_samplerates (96000);
    half.add_channels (1);
    EXPECT_NE (std::string::npos, failureOf (description, kExitChannels).find ("at 96000 Hz"));

    half.set_channels (0, 0);
    EXPECT_EQ (12u, plan (description).totalBytes);
    EXPECT_EQ (
        1u,
        plan (test::DescriptionBuilder().channel ("FL", 1).fir (48000, { 1 }).fir (96000, { 1 })).sentChannels.size());

    device.mutable_configurations (0)->set_channels (0, 1);
    device.mutable_configurations (0)->set_channels (1, 0);
    half.set_channels (0, 1);
    const auto swapped =
        plan (test::DescriptionBuilder().channel ("FR", 2).fir (96000, { 1 }).channel ("FL", 1).fir (96000, { 1 }));
    EXPECT_EQ ((std::vector<std::string> {
                   "Gain, delay and EQ mark go by place in the receiver's list of channels; those of FR reach FL." }),
               swapped.warnings);
}

}

}
