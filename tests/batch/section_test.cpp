// Planes and lines on the command line: tables, files, refusals.
#include "batch_run.h"
#include "model/token_reader.h"

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

// The bar's displacement is linear, its stress the same everywhere.
TEST_F(BatchSections, LinesTellWhatIsAlongThem) {
    const auto ended = run("static bar.txt --quiet --line \"-0.05 0.01 0.01 0.2 0.01 0.01 6\"");
    ASSERT_EQ(ended.status, 0) << ended.err;
    EXPECT_TRUE(testing::contains(ended.out, "1 of its 6 points are outside the body")) << ended.out;
    const auto lines = testing::lines_of(bytes("log/line_bar.csv"));
    ASSERT_EQ(lines.size(), 7u);
    for (std::size_t k = 0; k < lines.size(); ++k) {
        std::vector<std::string> fields(1);
        for (const char c : lines[k]) {
            if (c == ',')
                fields.emplace_back();
            else
                fields.back() += c;
        }
        ASSERT_GE(fields.size(), 22u);
        if (k == 0) {
            EXPECT_EQ(fields[9], "ux[m]");
            EXPECT_EQ(fields[18], "mises[Pa]");
        } else if (k == 1) {
            EXPECT_EQ(fields[8], "0");
            EXPECT_TRUE(fields[9].empty() && fields.back().empty());
        } else {
            const double x = 0.05 * (static_cast<double>(k) - 2);
            EXPECT_NEAR(*parse_double(fields[4]), x + 0.05, 1e-9);
            EXPECT_NEAR(*parse_double(fields[9]), testing::bar_end * x / 0.2, 1e-6 * testing::bar_end);
            EXPECT_NEAR(*parse_double(fields[18]), testing::bar_mises, 1e-6 * testing::bar_mises);
        }
    }
}

TEST_F(BatchSections, SetsTellWhatIsAtTheirNodes) {
    std::string text = testing::bar_text;
    text.insert(text.find("boundary_condition"), "set_info END_ plane x L %\n");
    folder.write("set.txt", text);
    ASSERT_EQ(run("static set.txt --quiet --line \"set END_\"").status, 0);
    const auto lines = testing::lines_of(bytes("log/line_set.csv"));
    ASSERT_EQ(lines.size(), 10u);  // heading, three by three nodes
    for (std::size_t k = 1; k < lines.size(); ++k) {
        EXPECT_TRUE(lines[k].starts_with("set END_,1,,")) << lines[k];
        EXPECT_TRUE(testing::contains(lines[k], ",2.000000e-01,")) << lines[k];
        EXPECT_TRUE(testing::contains(lines[k], ",2.500000e-06,")) << lines[k];
    }
    EXPECT_TRUE(testing::contains(refused("static set.txt --line \"set START\"").err, "no set 'START'"));
}

TEST_F(BatchSections, FurtherQuantitiesStandInTheFilesForParaView) {
    folder.write("bar.ana", "x explicit d_time 1e-7 end_time 2e-6 output_frequency 10 END");
    ASSERT_EQ(run("static bar.txt --quiet --vtu").status, 0);
    EXPECT_FALSE(testing::contains(bytes("log/bar.vtu"), "principal_stress_1"));
    ASSERT_EQ(run("static bar.txt --quiet --vtu --quantities").status, 0);
    ASSERT_EQ(run("explicit bar.txt --quiet --vtu --quantities").status, 0);
    for (const char* file : {"log/bar.vtu", "log/bar_000002.vtu"})
        for (const char* name : {"\"mises\"", "\"principal_stress_1\"", "\"principal_direction_3\"",
                                 "\"strain_energy_density\"", "\"safety_factor\""})
            EXPECT_TRUE(testing::contains(bytes(file), std::string("Name=") + name)) << file << name;
    EXPECT_TRUE(testing::contains(bytes("log/bar.vtu"), "Name=\"stress_error\""));
    EXPECT_TRUE(testing::contains(bytes("log/bar.vtu"), "Name=\"reaction\""));
    EXPECT_FALSE(testing::contains(bytes("log/bar.vtu"), "Name=\"velocity\""));
    EXPECT_TRUE(testing::contains(bytes("log/bar_000002.vtu"), "Name=\"acceleration\""));
    // along lines their components and size stand last
    const std::string line = " --quiet --line \"0 0.01 0.01 0.2 0.01 0.01 3\"";
    ASSERT_EQ(run("static bar.txt" + line).status, 0);
    EXPECT_TRUE(testing::lines_of(bytes("log/line_bar.csv"))[0].ends_with(
        ",safety_factor,reaction_x[N],reaction_y[N],reaction_z[N],reaction[N]"));
    ASSERT_EQ(run("explicit bar.txt" + line).status, 0);
    EXPECT_TRUE(testing::contains(testing::lines_of(bytes("log/line_bar.csv"))[0],
                                  ",velocity[m/s],acceleration_x[m/s^2],"));
}

TEST_F(BatchSections, WhatIsNoLineIsRefused) {
    for (const char* text : {"", "0 0 0 1 1 1", "0 0 0 1 1 1 1", "0 0 0 1 1 x 5", "0 0 0 1 1 1 5 6", "set",
                             "set A B", "0 0 0 1 1 1 2.5"})
        EXPECT_TRUE(
            testing::contains(refused("static bar.txt --line \"" + std::string(text) + "\"").err, "--line"))
            << text;
    for (const char* line : {"check bar.txt --line \"0 0 0 1 1 1 2\"", "static bar.txt --quantities",
                             "eigen-lanczos bar.txt --vtu --quantities", "frames bar.txt --vtu --quantities"})
        refused(line);
}

}  // namespace
}  // namespace kestralum
