// Tokens and numbers in, console lines and file names out.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>

#include "model/console.h"
#include "model/paths.h"
#include "model/token_reader.h"
#include "support/comma_locale.h"
#include "support/temp_folder.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST(Tokens, AreNumberedFromOneWhateverSeparatesThem) {
    TokenReader reader(" a\t b\r\n\n  c\v\fd");
    for (const char* expected : {"a", "b", "c", "d"}) EXPECT_EQ(reader.next(), expected);
    EXPECT_EQ(reader.token_number(), 4);
    EXPECT_TRUE(reader.at_end());
    EXPECT_EQ(reader.next(), "");
    EXPECT_EQ(reader.next(), "");
    EXPECT_EQ(reader.token_number(), 5) << "the end counts once, however often it is asked for";
    TokenReader zero_bytes(std::string_view("x\0y", 3));
    EXPECT_EQ(zero_bytes.next(), "x");
    EXPECT_EQ(zero_bytes.next(), "y");
}

TEST(Tokens, PeekLeavesTheReaderAndSkipTellsTheEnd) {
    TokenReader reader("1 2 3 4 5");
    EXPECT_EQ(reader.peek(), "1");
    EXPECT_EQ(reader.peek(), "1");
    EXPECT_EQ(reader.token_number(), 0);
    EXPECT_GE(reader.most_tokens_left(), 5);
    EXPECT_TRUE(reader.skip(3));
    EXPECT_EQ(reader.token_number(), 3);
    EXPECT_EQ(reader.last(), "3");
    EXPECT_GE(reader.most_tokens_left(), 2);
    EXPECT_FALSE(reader.skip(3));
    EXPECT_EQ(TokenReader("").most_tokens_left(), 0);
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

TEST(Console, NumbersKeepTheirPointAndTheCallersLocale) {
    const CommaLocale locale;
    EXPECT_EQ(console::format("%e %.3f %lf %d", 1.5, 1234.25, 0.5, 1234567),
              "1.500000e+00 1234.250 0.500000 1234567");
    char text[16];
    std::snprintf(text, sizeof text, "%.1f", 1.5);
    EXPECT_STREQ(text, "1,5") << "the locale of the caller must be left as it was";
    const std::string longer(100000, 'y');
    EXPECT_EQ(console::format("<%s|%.1f>", longer.c_str(), 0.5), "<" + longer + "|0.5>");
    EXPECT_EQ(console::format("%511s", "").size(), 511u);
    EXPECT_EQ(console::format("%512s", "").size(), 512u);
}

TEST(Console, KindsComeApartAndGoBackToTheFormerSink) {
    std::string outer;
    const console::Sink former =
        console::set_sink([&](console::Kind, std::string_view text) { outer += text; });
    {
        console::Capture capture;
        console::print("n=%d\n", 3);
        console::write("raw");
        console::notice("note %s", "a");
        console::error("wrong %s", "b");
        console::summary("sum\n");
        EXPECT_EQ(capture.lines, "n=3\nraw");
        EXPECT_EQ(capture.notices, "note a\n");
        EXPECT_EQ(capture.errors, "wrong b\n");
        EXPECT_EQ(capture.summaries, "sum\n");
        // a quiet run: the progress lines fall away, what must be known does not
        console::set_lines_enabled(false);
        console::print("lost");
        console::counter(1, 2);
        console::write("lost");
        console::error("kept");
        console::summary("kept\n");
        EXPECT_EQ(capture.lines, "n=3\nraw");
        EXPECT_EQ(capture.errors, "wrong b\nkept\n");
        EXPECT_EQ(capture.summaries, "sum\nkept\n");
    }
    EXPECT_TRUE(console::lines_enabled()) << "the capture's end brings the lines back";
    console::print("after");
    console::set_sink(former);
    EXPECT_EQ(outer, "after");
}

TEST(Console, TheCounterOverwritesItsLineAndKeepsProgressInStep) {
    console::Capture capture;
    console::set_stage("factor");
    console::counter(7, 20);
    EXPECT_EQ(console::progress().stage, "factor");
    EXPECT_EQ(console::progress().count, 7);
    EXPECT_EQ(console::progress().total, 20);
    console::counter(8, 20, "row ");
    console::set_lines_enabled(false);
    console::counter(9, 20);
    EXPECT_EQ(console::progress().count, 9) << "a quiet run still tells how far it is";
    console::set_lines_enabled(true);
    const auto most = std::numeric_limits<std::int64_t>::min();
    console::counter(most, most, "a prefix that is longer than the room for it");
    EXPECT_EQ(capture.lines, "  7/20\rrow 8/20\ra prefix that is-9223372036854775808/-9223372036854775808\r");
    console::set_stage("solve");
    EXPECT_EQ(console::progress().total, 0);
    console::request_cancel(true);
    bool seen = false;
    std::thread([&] { seen = console::cancel_requested(); }).join();
    console::request_cancel(false);
    EXPECT_TRUE(seen);
    EXPECT_FALSE(console::cancel_requested());
}

TEST(Paths, EitherSeparatorIsTaken) {
    EXPECT_EQ(paths::last_separator("data\\sub/m.txt"), 8);
    EXPECT_EQ(paths::last_separator("data/sub\\m.txt"), 8);
    EXPECT_EQ(paths::last_separator("m.txt"), -1);
    EXPECT_EQ(paths::base_name("data/sub\\m.txt"), "m.txt");
    EXPECT_EQ(paths::base_name("m.txt"), "m.txt");
    EXPECT_EQ(paths::base_name("data\\"), "");
    EXPECT_EQ(paths::directory_of("data\\sub/m.txt"), "data\\sub/");
    EXPECT_EQ(paths::directory_of("m.txt"), "");
    EXPECT_EQ(paths::to_platform("data\\a/b\\c"), "data/a/b/c");
}

TEST(Paths, NamesUnderLogFollowTheDirectoryInForce) {
    const TempFolder folder;  // brings the former directory back
    paths::set_log_directory("out/run1///");
    EXPECT_EQ(paths::log_directory(), "out/run1");
    EXPECT_EQ(paths::to_platform("log\\result_a"), "out/run1/result_a");
    EXPECT_EQ(paths::to_platform("log/model.txt"), "log/model.txt") << "the user's own folder of that name";
    EXPECT_EQ(paths::to_platform("logs\\x"), "logs/x");
    EXPECT_EQ(paths::to_platform("data\\log\\x"), "data/log/x");
    paths::set_log_directory("out\\run2\\");
    EXPECT_EQ(paths::to_platform("log\\x"), "out/run2/x") << "a directory may be given with either separator";
    paths::set_log_directory("/");
    EXPECT_EQ(paths::log_directory(), "/");
}

TEST(Paths, FilesAreReadWholeOrTheReasonIsTold) {
    const TempFolder folder;
    const std::string bytes("a\0b\r\n\xff", 6);
    folder.write("log/f.bin", bytes);
    std::string text = "old", error;
    EXPECT_TRUE(paths::read_text("log\\f.bin", text, error));
    EXPECT_EQ(text, bytes);
    EXPECT_FALSE(paths::read_text("log\\none.bin", text, error));
    EXPECT_EQ(error, "No such file or directory");
    EXPECT_EQ(text, "");
    EXPECT_FALSE(paths::read_text(folder.path().string(), text, error));
    EXPECT_EQ(error, "Is a directory");
    EXPECT_EQ(paths::open(folder.path().string(), "r"), nullptr);
    EXPECT_EQ(paths::open("log\\none\\f", "w"), nullptr);
}
