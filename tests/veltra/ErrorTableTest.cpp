// SPDX-License-Identifier: GPL-3.0-or-later
#include <sstream>

#include <gtest/gtest.h>

#include "tools/veltra/report/ErrorTable.h"

namespace veltra::host {

namespace {

TEST (ErrorTable, PrintsWhatIsExactOrSilentInWordsAndNoNegativeZero)
{
    const Eigen::VectorXf wanted = Eigen::VectorXf::Unit (100, 3), silence = Eigen::VectorXf::Zero (100);
    const auto row = [&] (const char* name, const char* detail, const Eigen::VectorXf& played) {
        return ErrorRow { name, { detail }, dsp::compareResponses (wanted, played, 0, 500.0) };
    };

    std::ostringstream text;
    printErrors (text, { "x" },
                 { row ("FL", "1", 1.1f * wanted), row ("Center left", "12.5", wanted), row ("C", "", silence),
                   row ("SW", "", wanted + Eigen::VectorXf::Unit (100, 50)) });
    EXPECT_EQ ("channel         x   error     15   31   62  125\n"
               "FL              1   -20.0    -20  -20  -20  -20\n"
               "Center left  12.5   exact\n"
               "C                 silence\n"
               "SW                    0.0      0    0    0    0\n",
               text.str());

    EXPECT_EQ ("0.0", fixedText (-0.04, 1));
    EXPECT_EQ ("-0.1", fixedText (-0.06, 1));
    EXPECT_EQ ("-inf", fixedText (-HUGE_VAL, 1));
    EXPECT_EQ ("0", fixedText (-0.3, 0));

    // Where the filter has next to nothing, an error relative to it says nothing.
    Eigen::VectorXf low (4096);

    for (Eigen::Index i = 0; i < low.size(); ++i)
        low[i] = static_cast<float> (std::sin (M_PI * static_cast<double> (i) / 4096.0));

    text.str ("");
    printErrors (text, {}, { { "SW", {}, dsp::compareResponses (low, 0.9f * low, 0, 48000.0) } });
    EXPECT_TRUE (text.str().ends_with ("  -20  -20    .    .    .    .    .\n")) << text.str();
}

}

}
