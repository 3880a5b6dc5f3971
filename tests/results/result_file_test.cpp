// The result file: what is written, and that reading and writing are each other's inverse.
#include "results/result_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <iostream>
#include <sstream>

#include "full_store.h"
#include "model/console.h"
#include "results/text_output.h"
#include "support/comma_locale.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Section {
    std::string keyword;
    std::vector<std::string> lines;
};

// Splits at the lines "%". The first section has no keyword, its line is the version.
std::vector<Section> sections_of(const std::string& text) {
    EXPECT_TRUE(text.ends_with("%\n"));
    std::vector<Section> sections(1);
    bool begins = false;
    for (const std::string& line : lines_of(text)) {
        if (line == "%") {
            begins = true;
            continue;
        }
        if (begins)
            sections.push_back({line, {}});
        else
            sections.back().lines.push_back(line);
        begins = false;
    }
    return sections;
}

// Writes the store and gives the bytes of the file.
std::string written(ModelStore store, const TempFolder& folder, const char* name = "full.txt",
                    int threads = 2) {
    console::Capture quiet;
    store.model_file_name = std::string("data\\") + name;
    EXPECT_TRUE(write_results(store, Publish::now, threads)) << quiet.errors;
    return read_file(folder.path() / "log" / (std::string("result_") + name));
}

ModelStore read_back(const char* name = "full.txt") {
    console::Capture quiet;
    ModelStore store = placeholder_model();
    EXPECT_TRUE(read_result_file(std::string("log\\result_") + name, store)) << quiet.errors;
    return store;
}

std::string e(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%e", value);
    return text;
}

}  // namespace

TEST(ResultNumbers, AreThePrintfOnes) {
    std::mt19937_64 random(11);
    std::vector<double> values{0.0, -0.0, 1, -1, 9.9999995, 0.1, 1e100, -1e-100, 5e-324, 1.0000005, 2.5e-7};
    for (double special : {1.7976931348623157e308, std::nan(""), HUGE_VAL})
        values.insert(values.end(), {special, -special});
    while (values.size() < 100000) values.push_back(std::bit_cast<double>(random()));
    std::string text;
    for (double value : values) {
        text.clear();
        append_e(text, value);
        ASSERT_EQ(text, e(value));
    }
    text.clear();
    for (std::int64_t value : {std::int64_t{0}, std::int64_t{-7}, INT64_MAX, INT64_MIN})
        append_d(text, value);
    EXPECT_EQ(text, "0-79223372036854775807-9223372036854775808");
}

TEST(ResultFile, SectionsStandInOrderWithTheirCountsAndLines) {
    const TempFolder folder;
    const ModelStore store = full_store(ElementKind::tetrahedron4, 2);
    const Results& results = store.results;
    const auto nodes = static_cast<std::size_t>(store.mesh.node_num()), dofs = 3 * nodes,
               elements = static_cast<std::size_t>(store.mesh.element_num());
    // row of degree of freedom 7: frame 1 shows vector 1, frame 2 vector 0
    const std::string row = e(results.mode_vec[dofs + 7]) + " " + e(results.mode_vec[7]);
    std::string stress;
    for (std::size_t c = 0; c < 10; ++c) stress += (c ? " " : "") + e(results.node_stress[c * dofs + 7]);
    const Part& part = store.parts[1];
    std::string block = "1  BLOCK  blue  1.000000e-01 3.333333e-01 9.000000e-01  STEEL  1  HOLLOWRECT  3 ";
    for (double v : part.size) block += " " + e(v);
    block += "  1 20 300 0 -5 2147483647 ";
    for (double v : part.origin) block += " " + e(v);
    block += " ";
    for (double v : part.euler_angles) block += " " + e(v);
    const double* n = store.mesh.node_n_dir.data() + 3;
    const std::string normal = e(n[0]) + "  " + e(n[1]) + "  " + e(n[2]);
    // keyword, number of lines, some of them by their index
    const struct {
        const char* keyword;
        std::size_t lines;
        std::vector<std::pair<std::size_t, std::string>> some;
    } expected[] = {
        {"", 1, {{0, "ver3.01"}}},
        {"Node", nodes + 1, {{0, "18"}, {18, "1.375000e+00 6.666667e-01 3.000000e+00"}}},
        {"Element_type", 1, {{0, "1"}}},
        {"Element", elements + 1, {{0, "24"}, {1, "1 2 5 11"}}},
        {"mode_num", 1, {{0, "2"}}},
        {"n_freq", 2, {{1, e(results.n_freq[1])}}},
        {"mode_vec", dofs, {{7, row}}},
        {"node_stress", dofs, {{7, stress}}},
        {"part_num_o", 1, {{0, "1"}}},
        {"part_info", 1, {}},
        {"part_num", 1, {{0, "2"}}},
        {"part_info", 2, {{1, block + "  1"}}},
        {"bc_num", 1, {{0, "2"}}},
        {"bc_info",
         2,
         {{0,
           "0  CLAMP  plane  x  0 0  0.000000e+00 0.000000e+00 -1.000000e+00 1.000000e+00 -2.000000e+00 "
           "3.333333e-01"}}},
        {"force_num", 1, {{0, "2"}}},
        {"force_info",
         2,
         {{0,
           "0  PUSH  node 0  y 1  -1.234568e+03  1.000000e-01 2.000000e-01 3.000000e-01"
           "  0.000000e+00 0.000000e+00 0.000000e+00 0.000000e+00 0.000000e+00 0.000000e+00  3"}}},
        {"rigid_element_info",
         3,
         {{1,
           "0  HEAD  round 1  1.000000e+00 2.000000e+00 3.000000e+00"
           "  0.000000e+00 0.000000e+00 0.000000e+00 2.500000e-01 2.000000e+00 1.000000e-03"}}},
        {"rigid_force_info", 2, {{0, "1"}, {1, "0  TURN  FOOT  ry  4  3.500000e+00"}}},
        {"node_n_dir", nodes, {{1, normal}}},
        {"p_ele_part_id", elements, {{11, "0"}, {12, "1"}}},
        {"ana_type", 1, {{0, "1"}}},
        {"size_info",
         2,
         {{0, "0.000000e+00 0.000000e+00 0.000000e+00"}, {1, "1.375000e+00 6.666667e-01 3.000000e+00"}}},
    };
    const auto sections = sections_of(written(store, folder));
    ASSERT_EQ(sections.size(), std::size(expected));
    for (std::size_t k = 0; k < sections.size(); ++k) {
        SCOPED_TRACE(expected[k].keyword);
        EXPECT_EQ(sections[k].keyword, expected[k].keyword);
        ASSERT_EQ(sections[k].lines.size(), expected[k].lines);
        for (const auto& [index, line] : expected[k].some) EXPECT_EQ(sections[k].lines[index], line);
    }
}

TEST(ResultFile, ASingleModeStandsAloneOnItsLine) {
    const TempFolder folder;
    const auto sections = sections_of(written(full_store(ElementKind::hexahedron, 1), folder));
    for (const std::string& line : sections[6].lines) ASSERT_FALSE(contains(line, " "));
    EXPECT_EQ(tokens_of(sections[7].lines[0]).size(), 5u);
    EXPECT_EQ(tokens_of(sections[3].lines[1]).size(), 8u);
}

TEST(ResultFile, TheConsoleFollowsTheWritingAndTheReading) {
    const TempFolder folder;
    const ModelStore store = full_store(ElementKind::tetrahedron10, 2);
    console::Capture console;
    ASSERT_TRUE(write_results(store, Publish::now, 1));
    EXPECT_EQ(
        console.lines,
        "index = 4\nfile_name = full.txt\nn_=8\nresfile_name:log\\result_full.txt\nRESULT FILE OPEN !!\n"
        "   ver_name\n   Node\n   Element\n   mode_num\n   n_freq\n   mode_vec\n   node_stress\n   "
        "part_num_o\n   PART_O\n   part_num\n"
        "   PART\n   bc_num\n   B_COND\n   force_num\n   A_FORCE\n   R_ELEMENT\n   R_FORCE\n   node_n_dir\n  "
        " p_ele_part_id\n"
        "   ana_type\n   size_info\nFILE CLOSE !!\n");
    console.lines.clear();
    ModelStore other = placeholder_model();
    ASSERT_TRUE(read_result_file(full_target, other));
    const std::string start = console::format(
        "----------read_data-----------\nFILE OPEN "
        "!!\nver3.01\nNode:%d\nElement:24\n2\n,str=n_freq\n0,%f\n1,%f\nstr=mode_vec\nstr=node_stress\n 0, "
        "BAR_AS_READ, blue, 1.000e-01, 3.333e-01,",
        store.mesh.node_num(), other.results.n_freq[0], other.results.n_freq[1]);
    EXPECT_TRUE(console.lines.starts_with(start)) << console.lines.substr(0, 400);
    EXPECT_TRUE(console.lines.ends_with("FILE CLOSE !!\n"));
    EXPECT_EQ(console.notices + console.errors, "");
}

class RoundTrip : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(ResultFile, RoundTrip,
                         ::testing::Values(ElementKind::hexahedron, ElementKind::tetrahedron4,
                                           ElementKind::tetrahedron10));

TEST_P(RoundTrip, RewritingGivesTheSameBytes) {
    const TempFolder folder;
    const std::size_t modes = 3;
    const ModelStore store = full_store(GetParam(), modes);
    const std::string first = written(store, folder);
    const ModelStore read = read_back();
    EXPECT_EQ(written(read, folder, "again.txt"), first);

    EXPECT_EQ(read.mesh.connectivity, store.mesh.connectivity);
    EXPECT_EQ(read.mesh.dof_num, store.mesh.dof_num);
    EXPECT_NEAR(read.mesh.max_length, store.mesh.max_length, 1e-6);
    EXPECT_EQ(read.rigid_forces[0].element, 1) << "the name becomes the index again";
    // column i of the file held the vector that frame i showed; now it is vector i
    const auto dofs = static_cast<std::size_t>(store.mesh.dof_num);
    for (std::size_t k = 0; k < modes; ++k) {
        EXPECT_EQ(read.results.frame_vector[k], static_cast<std::int32_t>(k));
        const auto row = static_cast<std::size_t>(store.results.frame_vector[k]);
        for (std::size_t r = 0; r < dofs; ++r) {
            const double value = store.results.mode_vec[row * dofs + r];
            ASSERT_NEAR(read.results.mode_vec[k * dofs + r], value, 1e-6 * std::abs(value));
        }
    }
}

TEST(ResultFile, EverythingOfTheFormerModelIsReplaced) {
    const TempFolder folder;
    ModelStore small = full_store(ElementKind::tetrahedron4, 1);
    small.boundary_conditions.clear();
    small.rigid_elements.clear();
    small.rigid_forces.clear();
    const std::string bytes = written(small, folder);
    ModelStore store = full_store(ElementKind::hexahedron, 4);
    store.rigid_combines.resize(2);
    store.mesh.surface_facets = {1, 2, 3};
    store.mesh.surface_part_id = {0};
    console::Capture quiet;
    ASSERT_TRUE(read_result_file(full_target, store));
    EXPECT_TRUE(store.rigid_combines.empty() && store.mesh.surface_facets.empty() &&
                store.mesh.surface_part_id.empty());
    EXPECT_EQ(written(store, folder, "again.txt"), bytes);
}

TEST(ResultFile, OfTheStartUpModelIsReadBackWithItsNodeAndNoValues) {
    const TempFolder folder;
    const std::string bytes = written(placeholder_model(), folder);
    EXPECT_TRUE(contains(bytes, "\nmode_vec\n%\nnode_stress\n%\n"));
    EXPECT_TRUE(contains(bytes, "\nnode_n_dir\n0.000000e+00  0.000000e+00  0.000000e+00\n%\n"))
        << "one line per node";
    const ModelStore read = read_back();
    EXPECT_EQ(read.mesh.node_num(), 1);
    EXPECT_EQ(read.mesh.dof_num, 0);
    EXPECT_EQ(read.results.mode_vec.size(), 0u);
    EXPECT_EQ(written(read, folder, "again.txt"), bytes);

    ModelStore frames = placeholder_model();
    frames.results.resize(3, 0);
    frames.results.n_freq = {1, 2, 3};
    const std::string three = written(frames, folder);
    EXPECT_EQ(read_back().results.n_freq, frames.results.n_freq);
    EXPECT_EQ(written(read_back(), folder, "again.txt"), three);
}

TEST(ResultFile, BytesDoNotDependOnThreadsOrLocale) {
    const TempFolder folder;
    const ModelStore store =
        full_store(ElementKind::hexahedron, 1, {14, 14, 14});  // more rows than one round of blocks
    const std::string one = written(store, folder, "full.txt", 1);
    const CommaLocale locale;
    paths::set_log_directory(folder.file("log"));
    for (int threads : {2, 3, 7})
        EXPECT_TRUE(written(store, folder, "full.txt", threads) == one) << threads << " threads";
    EXPECT_TRUE(written(store, folder, "full.txt", -1) == one);
    console::Capture quiet;
    ModelStore read = placeholder_model();
    ASSERT_TRUE(read_result_file(full_target, read)) << quiet.errors;
    EXPECT_TRUE(written(read, folder, "again.txt") == one);
}

TEST(ResultFile, NameIsMadeOfWhatFollowsTheLastSeparator) {
    ModelStore store;
    for (const auto& [model, expected] : {std::pair{"data\\a.txt", "log\\result_a.txt"},
                                          {"a.txt", "log\\result_a.txt"},
                                          {"/abs/path.d/a b", "log\\result_a b"},
                                          {"x\\y/z.dat", "log\\result_z.dat"}}) {
        store.model_file_name = model;
        EXPECT_EQ(result_file_name(store), expected);
    }
}

TEST(ResultFile, IsAskedForOnTheConsoleUntilOneIsRead) {
    const TempFolder folder;
    ModelStore& store = model_store();
    store = placeholder_model();
    written(full_store(ElementKind::tetrahedron4, 1), folder);
    std::istringstream answers("log\\absent.txt log\\result_full.txt");
    std::streambuf* former = std::cin.rdbuf(answers.rdbuf());
    console::Capture console;
    EXPECT_FALSE(read_results());
    EXPECT_FALSE(store.result_file_known) << "a name that leads nowhere is not kept";
    EXPECT_TRUE(read_results());
    EXPECT_TRUE(store.result_file_known);
    EXPECT_EQ(store.mesh.node_num(), 18);
    EXPECT_EQ(console.lines.find("Result File Name ?\x81\x46----------read_data"), 0u);
    console.lines.clear();
    EXPECT_TRUE(read_results()) << "the name is known now";
    EXPECT_EQ(console.lines.find("----------read_data"), 0u);
    store = placeholder_model();
    EXPECT_FALSE(read_results()) << "the console has ended";
    EXPECT_TRUE(contains(console.errors, "result file")) << "and that is said";
    std::cin.clear();
    std::cin.rdbuf(former);
}
