// Numbers and names as other programs take them.
#include "results/export_text.h"

#include <gtest/gtest.h>

#include <charconv>
#include <random>

#include "support/text_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST(ExportText, FieldsHaveAPointTwentyCharactersAndTheirDigits) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> digits(-1, 1), exponent(-30, 30);
    std::vector<double> values{0,         -0.0,    1,    -1,    1e8,     2e-7,           0.5,
                               1e300,     5e-324,  7800, 206e9, -1e-300, 1.0 / 3 * 1e-5, -1.0 / 3,
                               -0.02 / 3, 1e22 / 3};
    for (int k = 0; k < 20000; ++k) {
        values.push_back(digits(random));
        values.push_back(digits(random) * std::pow(10, exponent(random)));
    }
    for (const double value : values) {
        std::string text;
        append_field(text, value);
        double back = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), back);
        ASSERT_TRUE(error == std::errc() && end == text.data() + text.size() && text.size() <= 20) << text;
        EXPECT_TRUE(contains(text, ".")) << text;
        const double size = std::abs(value);
        // all digits where no exponent is needed, else at least fourteen
        const bool whole = size >= 0.01 && size < 1e10;
        EXPECT_LE(std::abs(back - value), whole ? 0 : 1e-13 * size) << text;
    }
}

TEST(ExportText, NamesAreLegalAndEachOnce) {
    std::vector<std::string> notices;
    ExportNames deck(ExportNames::Rule::deck, notices);
    const std::string wide(90, 'w');
    const std::pair<std::string, std::string> names[] = {{"Top", "Top"},
                                                         {"PART.top", "PART_top"},
                                                         {"a b,c", "a_b_c"},
                                                         {"TOP", "TOP_2"},
                                                         {"top_2", "top_2_2"},
                                                         {"1", "_1"},
                                                         {"a_b_c", "a_b_c_2"},
                                                         {"", "_"},
                                                         {"*x=\"", "_x__"},
                                                         {wide, wide.substr(0, 80)},
                                                         {wide + "x", wide.substr(0, 78) + "_2"}};
    for (const auto& [name, written] : names) EXPECT_EQ(deck.take("set", name), written);
    EXPECT_EQ(notices.size(), std::size(names) - 1) << "each but the first is changed";
    EXPECT_TRUE(contains(notices, "set \"TOP\" is written as \"TOP_2\": another name is the same"));
    ExportNames quoted(ExportNames::Rule::quoted, notices);
    EXPECT_EQ(quoted.take("set", "PART.top \"x\""), "PART.top _x_");
    EXPECT_EQ(quoted.take("set", "part.top"), "part.top");
}
