// Planes and lines on the command line: tables, files, refusals.
#include "batch_run.h"
#include "support/text_checks.h"

namespace kestralum {
namespace {

using testing::numbers_of;

class BatchSections : public testing::Batch {};

TEST_F(BatchSections, TellWhatThePlanesCarryAndWriteTheTable) {
    const auto ended = run("static bar.txt --quiet --section x=0.11 --section \"0.05 0 0 -2 0.5 0\"");
    ASSERT_EQ(ended.status, 0) << ended.err;
    EXPECT_TRUE(testing::contains(ended.out, "section x=0.11")) << ended.out;
    EXPECT_TRUE(testing::contains(ended.out, "log/section_bar.csv"));
    const auto carried = numbers_of(ended.out, "  carried");
    ASSERT_EQ(carried.size(), 6u);
    EXPECT_NEAR(carried[0], 1000, 1e-3);
    const auto kinds = numbers_of(ended.out, "  normal force");
    ASSERT_EQ(kinds.size(), 5u);
    EXPECT_NEAR(kinds[0], 1000, 1e-3);
    EXPECT_LT(kinds[4], 1e-6);
    const auto lines = testing::lines_of(bytes("log/section_bar.csv"));
    ASSERT_EQ(lines.size(), 5u);  // heading, two planes of one part
    const auto columns = std::ranges::count(lines[0], ',');
    for (const std::string& line : lines) EXPECT_EQ(std::ranges::count(line, ','), columns) << line;
    EXPECT_TRUE(lines[3].starts_with("0.05 0 0 -2 0.5 0,1,,")) << lines[3];
    EXPECT_TRUE(testing::contains(lines[4], ",BAR,"));
}

TEST_F(BatchSections, APlaneBesideTheBodyIsNoted) {
    const auto ended = run("static bar.txt --quiet --section y=3");
    EXPECT_EQ(ended.status, 0);
    EXPECT_TRUE(testing::contains(ended.out + ended.err, "section y=3: the plane cuts no element"));
}

TEST_F(BatchSections, WhatIsNoPlaneIsRefused) {
    for (const char* text :
         {"x=", "w=1", "x=1m", "1 2 3", "1 2 3 4 5 6 7", "0 0 0 0 0 0", "nan 0 0 1 0 0", ""})
        EXPECT_TRUE(testing::contains(refused("static bar.txt --section \"" + std::string(text) + "\"").err,
                                      "--section"))
            << text;
    for (const char* line : {"check bar.txt --section x=1", "eigen-lanczos bar.txt --section x=1",
                             "verify --section x=1", "static bar.txt --sweep P=1,2 --section x=1"})
        refused(line);
}

}  // namespace
}  // namespace kestralum
