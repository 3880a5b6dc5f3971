// Tokens and numbers in, console lines and file names out.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "model/format.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "support/collected.h"
#include "support/comma_locale.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST(Tokens, PeekLeavesTheReaderAndSkipTellsTheEnd) {
    TokenReader reader("1 2 3 4");
    EXPECT_EQ(reader.peek(), "1");
    EXPECT_TRUE(reader.skip(3));
    EXPECT_EQ(reader.last(), "3");
    EXPECT_FALSE(reader.skip(7));
    EXPECT_EQ(reader.token_number(), 5) << "the end counts once";
}

TEST(Tokens, CommentLinesBeginWithTheirSign) {
    const char* text = "# one\n  # two two\na #b\nc# d\n#";
    TokenReader passed_over(text, true);
    for (const char* expected : {"a", "#b", "c#", "d", ""}) EXPECT_EQ(passed_over.next(), expected);
    EXPECT_EQ(TokenReader(text).next(), "#");
}

TEST(Numbers, AreWholeTokensOrNothing) {
    const CommaLocale locale;
    const double largest = std::numeric_limits<double>::max();
    EXPECT_EQ(parse_double("1.5"), 1.5);
    EXPECT_EQ(parse_double("+2.5e-3"), 2.5e-3);
    EXPECT_EQ(parse_double("-.5"), -0.5);
    EXPECT_EQ(parse_double("1.7976931348623157e308"), largest);
    EXPECT_EQ(parse_double("4.940656e-324"), std::numeric_limits<double>::denorm_min());
    EXPECT_TRUE(std::isnan(*parse_double("nan")));
    EXPECT_EQ(parse_double("-inf"), -std::numeric_limits<double>::infinity());
    for (const char* wrong : {"", "+", "-", "1,5", "1.5x", "0x10", "+-1", "++1", "1e999", "1.2.3", " 1", "%"})
        EXPECT_FALSE(parse_double(wrong)) << wrong;
    EXPECT_EQ(parse_int32("-2147483648"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(parse_int32("+7"), 7);
    for (const char* wrong : {"2147483648", "-2147483649", "1.0", "", "7a", "1e3"})
        EXPECT_FALSE(parse_int32(wrong)) << wrong;
    EXPECT_EQ(parse_int64("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_FALSE(parse_int64("9223372036854775808"));
}

TEST(Format, NumbersKeepTheirPointAndTheCallersLocale) {
    const CommaLocale locale;
    EXPECT_EQ(formatted("%e %.3f %lf %d", 1.5, 1234.25, 0.5, 1234567),
              "1.500000e+00 1234.250 0.500000 1234567");
    char text[16];
    std::snprintf(text, sizeof text, "%.1f", 1.5);
    EXPECT_STREQ(text, "1,5") << "the locale of the caller must be left as it was";
    const std::string longer(100000, 'y');
    EXPECT_EQ(formatted("<%s|%.1f>", longer.c_str(), 0.5), "<" + longer + "|0.5>");
    EXPECT_EQ(formatted("%511s", "").size(), 511u);
    EXPECT_EQ(formatted("%512s", "").size(), 512u);
}

TEST(ProgressLines, TheCounterHasRoomForEveryNumberAndIsForgottenWithItsStage) {
    Collected said;
    const auto most = std::numeric_limits<std::int64_t>::min();
    said.counter(most, most, "a prefix that is longer than the room for it");
    EXPECT_EQ(said.lines, "a prefix that is-9223372036854775808/-9223372036854775808\r");
    EXPECT_EQ(said.place().total, most);
    said.set_stage("solve");
    EXPECT_EQ(said.place().total, 0);
}

TEST(ProgressLines, ACancelIsSeenByThePartsOfAWork) {
    Collected said;
    SilentProgress part(said), other;
    said.cancel();
    EXPECT_TRUE(said.cancelled() && part.cancelled());
    EXPECT_FALSE(other.cancelled()) << "another run's";
    EXPECT_FALSE(part.lines_wanted());
}

TEST(Paths, NamesUnderLogLieInTheFolderGiven) {
    EXPECT_EQ(paths::base_name("data\\sub/m.txt") + paths::base_name("data/sub\\n"), "m.txtn");
    EXPECT_EQ(paths::to_platform("log\\result_a", "out/run1///"), "out/run1/result_a");
    EXPECT_EQ(paths::to_platform("log/model.txt", "out"), "log/model.txt")
        << "the user's own folder of that name";
    EXPECT_EQ(paths::to_platform("logs\\x", "out"), "logs/x");
    EXPECT_EQ(paths::to_platform("data\\log\\x", "out"), "data/log/x");
    EXPECT_EQ(paths::to_platform("log\\x", "out\\run2\\"), "out/run2/x") << "given with either separator";
}
