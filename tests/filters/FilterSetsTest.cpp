// SPDX-License-Identifier: GPL-3.0-or-later

#include "dsp/Resampling.h"
#include "filters/FilterSetsImpl.h"
#include "tests/support/DescriptionBuilder.h"
#include "tests/support/Testing.h"

namespace {

using namespace veltra::filters;
using namespace veltra::parser::FIIR;
using veltra::test::DescriptionBuilder;
using Taps = std::vector<float>;

struct Loaded
{
    explicit Loaded (const DescriptionBuilder& description)
        : result (parse (description.text().c_str(), &set, "Veltra", &problem))
    {
    }

    FilterSetsImpl set;
    DescriptionProblem problem;
    EResult result;
};

DescriptionBuilder channel (const std::string& attributes = {})
{
    return DescriptionBuilder().channel ("FL", 1, attributes);
}

TEST (FilterSets, ShowWhatTheDescriptionSays)
{
    Loaded loaded (DescriptionBuilder ("Living room", "FIIR")
                       .channel ("FL", 1, R"(GaindB="-3" Delayms="1.5" MaxFilterGaindB="9")")
                       .rawChannel ({}));
    ASSERT_EQ (Success, loaded.result);
    EXPECT_STREQ ("Living room", loaded.set.GetName());
    EXPECT_STREQ ("FIIR", loaded.set.GetTechnology());

    veltratune_io::Filter* filter = nullptr;
    ASSERT_TRUE (loaded.set.GetFilter (0, &filter));
    EXPECT_STREQ ("FL", filter->GetName());
    EXPECT_STREQ ("", filter->GetDescription());
    EXPECT_EQ (0u, filter->GetChannel());
    EXPECT_EQ (-3.0f, filter->GetGaindB());
    EXPECT_EQ (1.5f, filter->GetDelayMs());
    EXPECT_EQ (veltratune_io::kResultNotSupported, filter->UnsupportedQuery1 (0, 0));
    EXPECT_EQ (9.0f, loaded.set.getMaxFilterGaindB (0));

    ASSERT_TRUE (loaded.set.GetFilter (1, &filter));
    EXPECT_STREQ ("", filter->GetName()) << "absent";
    EXPECT_EQ (0xFFFFFFFFu, filter->GetChannel()) << "absent";

    EXPECT_TRUE (loaded.set.GetFilter (1, nullptr));
    EXPECT_FALSE (loaded.set.GetFilter (2, &filter));
    EXPECT_EQ (0.0f, loaded.set.getMaxFilterGaindB (2));
    EXPECT_EQ ("", loaded.set.getChannelName (2));
    EXPECT_EQ (nullptr, loaded.set.getFilterImpl (2));
    EXPECT_FALSE (FilterSetsImpl().GetFilter (0, nullptr));

    const Loaded bare (DescriptionBuilder::withHeader ({}).rawChannel ({}));
    EXPECT_STREQ ("", bare.set.GetName());
    EXPECT_STREQ ("", bare.set.GetTechnology());
}

TEST (FilterSets, TheExampleOfTheDocumentLoads)
{
    std::ifstream file ("docs/filter-description.md");
    const std::string page { std::istreambuf_iterator<char> (file), {} };
    const auto start = page.find ("```xml\n") + 7;
    const auto example = page.substr (start, page.find ("```", start) - start);

    FilterSetsImpl set;
    ASSERT_EQ (Success, parse (example.c_str(), &set, "Veltra"));
    EXPECT_STREQ ("Living room", set.GetName());
    ASSERT_EQ (2u, set.getFilterCount());
    EXPECT_EQ (1.0f, set.getFilterImpl (0)->getExtraDelayMs());
    EXPECT_EQ (2u, set.getFilterImpl (0)->findCoefficientSet ({ 48000, false })->sections.size());
    EXPECT_FLOAT_EQ (0.06f, set.getFIR (48000, 0)[3]) << "where both sections begin";
    EXPECT_EQ (0.5f, set.getFIR (48000, 1)[1]);
}

TEST (FilterSets, TheLastSetOfARateIsKeptAndMinimumPhaseSetsAreDropped)
{
    Loaded loaded (channel()
                       .fir (48000, Taps { 1 })
                       .fir (48000, Taps { 2, 3 })
                       .fir (44100, Taps { 4 }, {}, true)
                       .channel ("FR", 2)
                       .fir (48000, Taps { 5 }, {}, true));
    ASSERT_EQ (Success, loaded.result);

    const auto& sets = loaded.set.getFilterImpl (0)->getCoefficientSets();
    ASSERT_EQ (1u, sets.size());
    EXPECT_EQ (2, sets.begin()->second.taps.size());
    EXPECT_TRUE (loaded.set.getFilterImpl (1)->getCoefficientSets().empty());
    EXPECT_EQ (0, loaded.set.getFIR (48000, 1).size());
}

TEST (FilterSets, TheFirstDelayThatIsNotZeroWins)
{
    const auto delay = [] (const DescriptionBuilder& description) {
        return Loaded (description).set.getFilterImpl (0)->getExtraDelayMs();
    };
    EXPECT_EQ (1.0f, delay (channel().fir (48000, Taps { 1 }, "a=b;delay=48;c=d").fir (44100, Taps { 1 }, "Delay=96")));
    EXPECT_EQ (2.0f, delay (channel()
                                .fir (48000, Taps { 1 }, "Delays=48")
                                .fir (96000, Taps { 1 }, "Delay=0")
                                .fir (44100, Taps { 1 }, "Delay=88.2")));
    EXPECT_EQ (0.0f, delay (channel().fir (48000, Taps { 1 })));
    EXPECT_EQ (0.0f, delay (channel().fir (0, Taps { 1 }, "Delay=48"))) << "samples at no rate are no time";
    EXPECT_EQ (1.0f, delay (channel().fir (48000, Taps { 1 }, "\xf0\x9f=\xe2;Delay=48;\xf0")))
        << "text that is no UTF-8";
}

/** Each of them would reach the amplifier. */
TEST (FilterSets, NumbersThatAreNotFiniteAsFloatsAreRefused)
{
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const Taps one { 1 };

    const std::pair<DescriptionBuilder, std::string> rows[] {
        { channel ("GaindB='nan'"), "Channel: GaindB is not a finite 32-bit number" },
        { channel ("Delayms='1e39'"), "Channel: Delayms is" },
        { channel ("MaxFilterGaindB='1e400'"), "Channel: MaxFilterGaindB is" },
        { channel ("xoverFreq='-inf'"), "Channel: xoverFreq is" },
        { channel().fir (48000, { 1, nan }), "Coefficients: number 2 of taps is" },
        { channel().fiir (48000, one, { {}, { 0, 0, infinity, 0 } }), "Coefficients: number 2 of section is" },
        { channel().fir (48000, one, "Delay=inf"), "Coefficients: Delay in Extra is" },
        { channel().fir (48000, one, "Delay=1").fir (96000, one, "Delay=1e39"), "Coefficients: Delay in Extra is" },
        { channel().fir (1, one, "Delay=3e38"), "Coefficients: Delay in Extra is" },
    };

    for (const auto& [description, problem] : rows)
    {
        const Loaded loaded (description);
        EXPECT_EQ (CallbackRefused, loaded.result) << problem;
        EXPECT_EQ (problem, loaded.problem.text.substr (0, problem.size()));
    }

    EXPECT_EQ (Success, Loaded (channel ("GaindB='3e38'").fir (48000, one, "Delay=1e38")).result);
}

TEST (FilterSets, AResponseIsOneSecondOfTapsAndSections)
{
    Loaded loaded (channel().fiir (48000, { 0.5f, -0.25f }, { { -0.5f, 0.0f, 2.0f, 0.0f } }));
    const auto& response = loaded.set.getFIR (48000, 0);
    ASSERT_EQ (48000, response.size());
    EXPECT_EQ ((Taps { 0.5f, -0.25f, 2.0f, 1.0f, 0.5f }), Taps (response.begin(), response.begin() + 5));
    EXPECT_EQ (&response, &loaded.set.getFIR (48000, 0)) << "made once";
    EXPECT_EQ (0, loaded.set.getFIR (48000, 1).size()) << "beyond the last filter";
}

TEST (FilterSets, AMissingRateComesFromTheNextHigherOneMadeOrGiven)
{
    Loaded loaded (channel().fir (44100, Taps { 1 }).fir (96000, Taps { 0, 1 }).fir (192000, Taps { 3 }));
    EXPECT_EQ (46000, loaded.set.getFIR (46000, 0).size());
    const Eigen::VectorXf expected = 2.0f * veltra::dsp::resampleFloat (loaded.set.getFIR (96000, 0), 0.5, 80.0);
    EXPECT_EQ (expected, loaded.set.getFIR (48000, 0));
    EXPECT_EQ (0, loaded.set.getFIR (47000, 0).size()) << "48000 is the next higher rate now and has no coefficients";
    EXPECT_EQ (0, loaded.set.getFIR (384000, 0).size()) << "a lower rate is never used";
}

TEST (FilterSets, ResponsesAreKeptForTheRatesToComeAndTheOrderOfRatesForGood)
{
    using Rates = std::vector<std::uint32_t>;
    const auto description = channel().fir (44100, Taps { 1 }).fir (96000, Taps { 0, 1 });
    Loaded plain (description), kept (description);

    const struct
    {
        Rates toCome;
        std::size_t count; ///< of responses in memory once the first of these rates has been asked for
    } rows[] {
        { { 48000, 96000, 47000 }, 2 }, // also the one at 96000, which 48000 is made from
        { { 96000, 47000 }, 1 },
        { { 47000, 64000 }, 1 }, // none at 47000, which 48000 has none for; 64000 will be made from 96000
        { { 64000 }, 2 },
        { { 44100 }, 1 },
    };

    for (const auto& [toCome, count] : rows)
    {
        kept.set.keepResponsesFor (toCome);
        EXPECT_EQ (plain.set.getFIR (toCome[0], 0), kept.set.getFIR (toCome[0], 0)) << toCome[0];
        EXPECT_EQ (count, kept.set.getResponseCount()) << toCome[0];
    }

    kept.set.keepResponsesFor ({});
    EXPECT_EQ (0u, kept.set.getResponseCount());
    EXPECT_EQ (0, kept.set.getFIR (47000, 0).size()) << "48000 was asked for before";
}

TEST (FilterSets, ARateBelongsToAllFilters)
{
    Loaded loaded (channel()
                       .fir (48000, Taps { 1 })
                       .channel ("FR", 2)
                       .fir (96000, Taps { 1 })
                       .channel ("FL again", 1)
                       .fir (48000, Taps { 7 })
                       .channel ("FL without", 1));
    EXPECT_EQ (0, loaded.set.getFIR (48000, 1).size()) << "no set at a rate that another filter has";
    EXPECT_EQ (7.0f, loaded.set.getFIR (48000, 0)[0]) << "one channel number, one response: the last one";
    EXPECT_EQ (7.0f, loaded.set.getFIR (48000, 3)[0]);
}

TEST (FilterSets, SetsWithoutASecondOfResponseAreLeftOut)
{
    const std::vector<veltra::dsp::FIIRSection> tooMany (kMaxSections + 1, { 0, 0, 1, 0 });
    Loaded loaded (channel()
                       .fir (0, Taps { 1 })
                       .fir (-1, Taps { 1 })
                       .fir (1536001, Taps { 1 })
                       .fir (2147483647, Taps { 1 })
                       .fiir (1000, { 1 }, tooMany)
                       .fiir (2000, { 1 }, { { -3, 2, 1, 0 } })
                       .fir (3000, Taps { 1 }));
    ASSERT_EQ (Success, loaded.result);

    EXPECT_EQ (3000, loaded.set.getFIR (3000, 0).size());
    EXPECT_EQ (2500, loaded.set.getFIR (2500, 0).size()) << "made from 3000";
    EXPECT_EQ (0, loaded.set.getFIR (1000, 0).size()) << "too many sections: made from 2000, which has none";
    EXPECT_EQ (0, loaded.set.getFIR (2000, 0).size()) << "its response grows without bound";
    EXPECT_EQ (0, loaded.set.getFIR (0, 0).size());
    EXPECT_EQ (0, loaded.set.getFIR (1536001, 0).size());
}

}
