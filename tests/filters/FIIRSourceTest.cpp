// SPDX-License-Identifier: GPL-3.0-or-later

#include "filters/FIIRSourceImpl.h"
#include "filters/FilterDescriptionParser.h"
#include "tests/support/DescriptionBuilder.h"
#include "tests/support/LogLines.h"
#include "tests/support/Testing.h"

namespace {

using namespace veltra::filters;
using veltra::test::DescriptionBuilder;

TEST (FIIRSource, TheListOfIdsDecidesHowManyChannelsThereAreAndCoefficientsAreNeverResampled)
{
    const auto text = DescriptionBuilder()
                          .channel ("FL", 1, "MaxFilterGaindB='4'")
                          .fiir (96000, { 1, 2 }, { { 0.1f, 0.2f, 0.3f, 0.4f } })
                          .channel ("FR", 2)
                          .channel ("C", 3)
                          .text();
    FilterSetsImpl set;
    ASSERT_EQ (veltra::parser::FIIR::Success, veltra::parser::FIIR::parse (text.c_str(), &set, "Veltra"));

    FIIRSourceImpl source (set, { 11, 22 }, 96000);
    EXPECT_EQ (2u, source.getChannelCount());
    EXPECT_EQ (22u, source.getChannelId (1));
    EXPECT_EQ ("FR", source.getChannelName (1));
    EXPECT_EQ (4.0f, source.getMaxGaindB (0));
    EXPECT_EQ (2.0f, source.getFIIR (0).taps[1]);
    EXPECT_EQ (0.4f, source.getFIIR (0).sections.at (0).b1);
    EXPECT_EQ (0, source.getFIIR (3).taps.size()) << "beyond the last filter";

    FIIRSourceImpl other (set, { 11 }, 48000);
    EXPECT_EQ (0, other.getFIIR (0).taps.size());
    EXPECT_EQ (48000, other.getFIR (0).size());
}

TEST (FIIRSource, LevelsOfTheLogAreThoseOfTheTopologies)
{
    FilterSetsImpl set;
    FIIRSourceImpl source (set, {}, 48000);
    const LogLines lines;

    for (const int level : { -1, 0, 1, 2, 3, 4, 5 })
        source.log (level, "level " + std::to_string (level));

    source.log (2, "C\nD");

    std::string all;

    for (const auto& line : lines.all())
        all += line.level + " " + line.text + "|";

    EXPECT_EQ ("TRACE level 0|DEBUG level 1|INFO level 2|WARN level 3|ERROR level 4|INFO C\\nD|", all);
}

}
