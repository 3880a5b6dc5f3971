// Result files that were cut, changed or are none: one clear line and the store as it was, or a store
// that everybody can use.
#include <gtest/gtest.h>

#include <chrono>

#include "full_store.h"
#include "model/console.h"
#include "results/displacement_file.h"
#include "results/result_file.h"
#include "results/vtu_file.h"
#include "support/temp_folder.h"
#include "support/text_damage.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// What drawing, analyses and writers rely on.
void expect_usable(const ModelStore& store, const std::string& what) {
    const Mesh& mesh = store.mesh;
    ASSERT_GE(mesh.node_num(), 1) << what;
    ASSERT_TRUE(mesh.dof_num == 0 || mesh.dof_num == 3 * mesh.node_num()) << what;
    ASSERT_EQ(mesh.node_n_dir.size(), mesh.coordinates.size()) << what;
    ASSERT_EQ(mesh.connectivity.size() % static_cast<std::size_t>(mesh.node_per_element()), 0u) << what;
    for (std::int32_t node : mesh.connectivity) ASSERT_TRUE(node >= 1 && node <= mesh.node_num()) << what;
    ASSERT_EQ(mesh.p_ele_part_id.size(), static_cast<std::size_t>(mesh.element_num())) << what;
    for (std::int32_t part : mesh.p_ele_part_id)
        ASSERT_LT(static_cast<std::size_t>(part), store.parts.size()) << what;
    for (double x : mesh.coordinates) ASSERT_TRUE(std::isfinite(x)) << what;
    for (double x : mesh.size_info) ASSERT_TRUE(std::isfinite(x)) << what;
    ASSERT_TRUE(std::isfinite(mesh.max_length) && mesh.max_length > 0) << what;
    const Results& results = store.results;
    const auto modes = static_cast<std::size_t>(results.mode_num()),
               dofs = static_cast<std::size_t>(mesh.dof_num);
    ASSERT_GE(modes, 1u) << what;
    ASSERT_EQ(results.frame_vector.size(), modes) << what;
    ASSERT_EQ(results.mode_vec.size(), modes * dofs) << what;
    ASSERT_EQ(results.node_stress.size(), 5 * modes * dofs) << what;
}

struct Damaged : ::testing::Test {
    TempFolder folder;
    ModelStore before = full_store(ElementKind::tetrahedron10, 1, {1, 1, 1});
    std::string good, before_bytes;
    int read = 0, refused = 0;
    bool (*read_it)(std::string_view, ModelStore&) = read_result_file;

    void SetUp() override {
        ModelStore store = full_store(ElementKind::hexahedron, 2);
        good = bytes_of(store);
        before_bytes = bytes_of(before);
    }
    std::string bytes_of(ModelStore store) const {
        console::Capture quiet;
        store.model_file_name = "probe.txt";
        EXPECT_TRUE(write_results(store, Publish::now, 1));
        return read_file(folder.path() / "log/result_probe.txt");
    }
    // Reads the text over the store `before`; gives the error line, "" where it was read.
    std::string check(const std::string& text, const std::string& what) {
        folder.write("log/damaged.txt", text);
        ModelStore store = before;
        store.materials.push_back({.id = 1, .name = "MARK"});
        console::Capture console;
        if (read_it("log\\damaged.txt", store)) {
            ++read;
            EXPECT_EQ(console.errors, "") << what;
            expect_usable(store, what);
            EXPECT_TRUE(write_vtu(store)) << what;
            return "";
        }
        ++refused;
        EXPECT_TRUE(console.errors.starts_with("log\\damaged.txt: ")) << what << console.errors;
        EXPECT_EQ(lines_of(console.errors).size(), 1u) << what << console.errors;
        EXPECT_LT(console.errors.size(), 250u) << what;
        EXPECT_EQ(store.materials.size(), before.materials.size() + 1);
        EXPECT_TRUE(bytes_of(store) == before_bytes) << what << ": the store was changed";
        return console.errors.empty() ? "failed without a word" : console.errors;
    }
    // The good file with the first line after `mark` replaced.
    std::string with_line(const std::string& mark, const std::string& line) const {
        const std::size_t at = good.find(mark) + mark.size();
        EXPECT_LT(mark.size(), at);
        return good.substr(0, at) + line + good.substr(good.find('\n', at));
    }
};

// Both files that the program reads back.
struct DamagedFile : Damaged, ::testing::WithParamInterface<const char*> {
    void SetUp() override {
        Damaged::SetUp();
        if (std::string(GetParam()) == "result") return;
        console::Capture quiet;
        ModelStore store = full_store(ElementKind::hexahedron, 2);
        store.model_file_name = "probe.txt";
        EXPECT_TRUE(write_displacements(store, 1));
        good = read_file(folder.path() / "log/disp_probe.txt");
        read_it = read_displacement_file;
    }
};
INSTANTIATE_TEST_SUITE_P(Kinds, DamagedFile, ::testing::Values("result", "displacement"),
                         [](const auto& p) { return std::string(p.param); });

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
        EXPECT_NE(check(good.substr(0, length), "prefix of " + std::to_string(length)), "")
            << "cut at " << length;
        if (HasFailure()) return;
    }
    EXPECT_EQ(check(good, "whole"), "");
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
    for (const auto& [mark, line, expected] : {
             std::tuple{"%\nNode\n18\n", "nan 0 0", "token 5 'nan'"},
             {"%\nNode\n18\n", "0 inf 0", "token 6 'inf'"},
             {"%\nElement\n4\n", "1 2 3 4 5 6 7 19", "'19'"},
             {"%\nElement\n4\n", "1 2 3 4 5 6 7 0", "'0'"},
             {"%\np_ele_part_id\n", "2", "'2'"},
             {"%\np_ele_part_id\n", "-1", "'-1'"},
             {"%\nana_type\n", "4", "'4'"},
             {"%\nsize_info\n", "nan 0 0", "'nan'"},
         }) {
        const std::string error = check(with_line(mark, line), std::string(mark) + line);
        EXPECT_TRUE(contains(error, expected)) << mark << line << "\n" << error;
    }
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
    check(without, "no parts and no part of any element");
    ModelStore store = placeholder_model();
    console::Capture console;
    EXPECT_FALSE(read_result_file("log\\absent.txt", store));
    EXPECT_EQ(console.lines, "----------read_data-----------\nFILE OPEN ERROR\n");
    EXPECT_EQ(console.errors, "log\\absent.txt cannot be read: No such file or directory\n");
    EXPECT_FALSE(read_result_file("log", store)) << "a folder";
}
