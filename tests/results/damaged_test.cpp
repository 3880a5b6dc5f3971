// Result files that were cut, changed or are none: one clear line, or a run that everybody can use.
#include <gtest/gtest.h>

#include <chrono>

#include "full_run.h"
#include "results/displacement_file.h"
#include "results/vtu_file.h"
#include "support/text_damage.h"
#include "usable_run.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Damaged : ::testing::Test {
    TempFolder folder;
    std::string good, log = folder.file("log");
    int read = 0, refused = 0;
    bool displacements = false;

    void SetUp() override { good = written(full_run(folder, ElementKind::hexahedron, 2), folder); }

    // Reads the text; gives the error line, "" where it was read.
    std::string check(const std::string& text, const std::string& what) {
        folder.write("log/damaged.txt", text);
        Collected console;
        auto stored = displacements ? read_displacement_file("log\\damaged.txt", log, nullptr, console)
                                    : read_result_file("log\\damaged.txt", log, console);
        if (stored) {
            ++read;
            EXPECT_EQ(console.errors, "") << what;
            expect_usable(*stored, what);
            EXPECT_TRUE(write_vtu(stored->model, stored->run, console)) << what;
            return "";
        }
        ++refused;
        EXPECT_TRUE(console.errors.starts_with("log\\damaged.txt: ") &&
                    lines_of(console.errors).size() == 1 && console.errors.size() < 250)
            << what << console.errors;
        return console.errors + ".";
    }
    // The good file with the first line after `mark` replaced.
    std::string with_line(const std::string& mark, const std::string& line) const {
        const std::size_t at = good.find(mark) + mark.size();
        EXPECT_LT(mark.size(), at) << mark;
        return good.substr(0, at) + line + good.substr(good.find('\n', at));
    }
};

// Both files that the program reads back.
struct DamagedFile : Damaged, ::testing::WithParamInterface<bool> {
    void SetUp() override {
        Damaged::SetUp();
        if (!(displacements = GetParam())) return;
        Collected quiet;
        const StoredRun stored = full_run(folder, ElementKind::hexahedron, 2);
        EXPECT_TRUE(write_displacements(stored.model, stored.run, quiet));
        good = read_file(folder.path() / "log/disp_full.txt");
    }
};
INSTANTIATE_TEST_SUITE_P(Displacements, DamagedFile, ::testing::Bool());

}  // namespace

TEST_P(DamagedFile, EveryPrefixIsRefused) {
    const std::size_t stride = good.size() / 1200 + 1;
    std::vector<std::size_t> lengths;
    for (std::size_t length = 0; length + 3 < good.size(); length += stride) lengths.push_back(length);
    // the hard ones: cut exactly between two sections, and within the last lines
    for (std::size_t at = good.find("%\n"); at + 2 < good.size(); at = good.find("%\n", at + 1))
        lengths.push_back(at + 2);
    for (std::size_t length = good.size() - 60; length + 2 < good.size(); ++length) lengths.push_back(length);
    for (std::size_t length : lengths) {
        ASSERT_NE(check(good.substr(0, length), "prefix of " + std::to_string(length)), "") << length;
    }
    EXPECT_EQ(check(good.substr(0, good.size() - 1), "without the last newline"), "");
}

TEST_P(DamagedFile, RandomTokenChanges) {
    const std::vector<std::string> tokens = tokens_of(good);
    std::mt19937 random(20260711);
    for (int k = 0; k < 200 && !HasFailure(); ++k) {
        // every other change in what is not plain values: heads, counts, records
        std::size_t at = random() % tokens.size();
        while (k % 2 && contains(tokens[at], "e+")) at = random() % tokens.size();
        check(damaged(tokens, at, random), "change " + std::to_string(k) + " at token " + std::to_string(at));
    }
    EXPECT_GT(refused, 100);
    EXPECT_GT(read, 0) << "a changed value is a value";
}

TEST_F(Damaged, CountsThatLieAreRefusedBeforeAnythingIsAllocated) {
    const auto start = std::chrono::steady_clock::now();
    for (const char* keyword : {"Node\n", "Element\n", "mode_num\n", "part_num_o\n", "part_num\n", "bc_num\n",
                                "force_num\n", "rigid_element_info\n", "rigid_force_info\n"})
        for (const char* count : {"2147483647", "-1", "-2147483648", "4294967297", "1e3", "1000000", "x"}) {
            const std::string error =
                check(with_line(std::string("%\n") + keyword, count), std::string(keyword) + count + "\n");
            EXPECT_TRUE(contains(error, std::string("'") + count + "'")) << keyword << error;
        }
    EXPECT_NE(check(with_line("%\nmode_num\n", "0"), "no mode"), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(Damaged, ValuesThatNobodyCanUseAreRefusedWithTheirToken) {
    for (const auto& [from, to, expected] : {
             std::tuple{"\n22\n0.000000e+00 ", "\n22\nnan ", "token 5 'nan'"},
             {"\n22\n0.000000e+00 0.000000e+00", "\n22\n0 inf", "token 6 'inf'"},
             {"%\nElement\n4\n", "%\nElement\n4\n23 ", "'23'"},
             {"%\nElement\n4\n", "%\nElement\n4\n0 ", "'0'"},
             {"%\np_ele_part_id\n0", "%\np_ele_part_id\n2", "'2'"},
             {"%\np_ele_part_id\n0", "%\np_ele_part_id\n-1", "'-1'"},
             {"ana_type\n1", "ana_type\n5", "'5': expected an analysis type 0 … 4"},
             {"size_info\n0.0", "size_info\nnan", "'nan"},
             // numbers that stand for something
             {"HOLLOWRECT  3 ", "HOLLOWRECT  19 ", "'19': expected the number of a shape"},
             {"HOLLOWRECT  3 ", "HOLLOWRECT  2005 ", "'2005'"},
             {"  plane  x  0 0 ", "  plane  x  3 0 ", "'3': expected a selection 0, 1 or 2"},
             {"  plane  x  0 0 ", "  plane  x  0 3 ", "'3': expected an axis"},
             {"  node 0 ", "  node 2 ", "'2': expected a kind of force"},
             {"  node 0  y 1 ", "  node 0  y -1 ", "'-1': expected an axis"},
             {"  round 1 ", "  round 2 ", "'2': expected a selection 0 or 1"},
             {"  ry  4 ", "  ry  7 ", "'7': expected a direction"},
         }) {
        const std::string error = check(replaced(good, from, to), to);
        EXPECT_TRUE(contains(error, expected)) << to << "\n" << error;
    }
    // any other type of element has eight nodes
    EXPECT_EQ(check(with_line("%\nElement_type\n", "7"), "type"), "");
    // results may hold what a failed analysis left
    EXPECT_EQ(check(with_line("%\nmode_vec\n", "nan inf"), "values"), "");
}

TEST_F(Damaged, ForeignFilesAreNotResultFiles) {
    std::string words = "ver3.01 % Node 1 0 0 0";
    for (int k = 0; k < 20000; ++k) words += " % nothing";
    for (const std::string& text : {words, std::string(100000, '%'), std::string(1000, '\0')})
        EXPECT_NE(check(text, text.substr(0, 20)), "");
    // a whole section left out takes its table with it and nothing else
    const std::size_t parts = good.find("part_num\n"), end = good.find("bc_num\n"),
                      ids = good.find("p_ele_part_id\n"), type = good.find("ana_type\n");
    const std::string without = good.substr(0, parts) + good.substr(end, ids - end) + good.substr(type);
    EXPECT_TRUE(contains(check(without, "no parts and no part of any element"), "no part that they belong"));
    const std::size_t forces = good.find("force_num\n"), rigid = good.find("rigid_element_info\n");
    EXPECT_EQ(check(good.substr(0, forces) + good.substr(rigid), "no forces"), "");
    Collected console;
    EXPECT_FALSE(read_result_file("log\\absent.txt", log, console));
    EXPECT_EQ(console.lines + console.errors,
              "----------read_data-----------\nFILE OPEN ERROR\n"
              "log\\absent.txt cannot be read: No such file or directory\n");
    EXPECT_FALSE(read_result_file("log", log, console)) << "a folder";
}
