// The skyline factorization on random sparse symmetric matrices: ‖A x - b‖, the same bytes in one division
// and in many, kept or read back, on one thread and two, solves, and what happens when a file cannot be
// written, memory is missing or the user stops.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "model/format.h"
#include "solver/ldl.h"
#include "solver/memory_limits.h"
#include "support/collected.h"
#include "support/heap_count.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

namespace kestralum {
namespace {

// Symmetric, diagonally dominant with diagonal entries of both signs, rows reaching back by ragged
// lengths up to `band` - 1 (from row `even` on by all of it), about `fill` of the entries between present.
SparseKM random_matrix(int n, int band, double fill, unsigned seed, int even = 1 << 30) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1, 1), chance(0, 1);
    std::vector<std::map<int, double>> rows(n);
    for (int i = 1; i < n; ++i) {
        const int longest = std::min(i, band - 1),
                  reach = i < even ? static_cast<int>(random() % (longest + 1)) : longest;
        for (int j = i - reach; j < i; ++j)
            if (j == i - reach || chance(random) < fill) rows[i][j] = rows[j][i] = value(random);
    }
    SparseKM km;
    km.row_start.push_back(0);
    for (int i = 0; i < n; ++i) {
        double sum = 1;
        for (const auto& [j, v] : rows[i]) sum += std::abs(v);
        rows[i][i] = chance(random) < 0.5 ? -sum : sum;
        for (const auto& [j, v] : rows[i]) km.col_index.push_back(j), km.K_value.push_back(v);
        km.row_count.push_back(static_cast<std::int32_t>(rows[i].size()));
        km.row_start.push_back(km.entries());
    }
    find_diagonals(km);
    return km;
}

Divisions cut(const Profile& profile, const std::vector<std::int32_t>& rows) {
    Divisions divisions{{}, rows};
    for (std::int32_t r : rows) divisions.div_profile.push_back(profile.sky_start[r]);
    return divisions;
}

std::vector<double> right_hand_sides(int n, int k) {
    std::vector<double> b(n * k);
    for (int i = 0; i < n * k; ++i) b[i] = std::sin(1.0 + 0.37 * i);
    return b;
}

// k products at once.
std::vector<double> times(const SparseKM& km, const std::vector<double>& x) {
    std::vector<double> y(x.size());
    for (std::size_t c = 0; c < x.size(); c += km.rows())
        multiply(km, km.K_value, std::span(x).subspan(c, km.rows()), std::span(y).subspan(c, km.rows()));
    return y;
}

class FactorFiles : public ::testing::Test {
protected:
    std::filesystem::path file(const std::string& name) const { return folder.path() / "log" / name; }
    FactorOptions options(int threads, bool keep = true, int panel_rows = 0,
                          const char* stem = stiffness_stem) const {
        return {threads, 0, panel_rows, file(""), stem, keep};
    }
    testing::Collected progress;
    testing::TempFolder folder;
};
struct Case {
    int n, band;
    double fill;
    std::vector<int> last_rows;  // rows of the last division, tried one after the other
};

class Factor : public FactorFiles, public ::testing::WithParamInterface<Case> {};

TEST_P(Factor, IsExactAndTheSameInOneDivisionAndManyOnOneThreadAndTwo) {
    const int n = GetParam().n, band = GetParam().band;
    const SparseKM km = random_matrix(n, band, GetParam().fill, n + band);
    const Profile profile = make_profile(km);
    std::vector<double> L, solution, pivots;
    auto run = [&](const Divisions& divisions, FactorOptions chosen, std::int64_t direct_bytes = 1 << 30) {
        SCOPED_TRACE(formatted("%d divisions, %d threads, panels of %d", divisions.count(), chosen.threads,
                               chosen.panel_rows));
        chosen.direct_bytes = direct_bytes;
        SkylineFactor factor(profile, divisions, chosen);
        ASSERT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok) << factor.error();
        std::vector<double> x = right_hand_sides(n, 3);
        ASSERT_TRUE(factor.solve_ldl(x, 3)) << factor.error();
        std::string written;  // the factor's rows as they lie in the files, one after the other
        for (int b = 0; b < divisions.count(); ++b)
            written += testing::read_file(file("Ltemp_" + std::to_string(b) + ".txt"));
        ASSERT_EQ(written.size(), 8 * profile.Ls_num);
        EXPECT_FALSE(std::filesystem::exists(file("Ltemp_" + std::to_string(divisions.count()) + ".txt")));
        std::vector<double> rows(profile.Ls_num), stored(profile.Ls_num);
        std::memcpy(stored.data(), written.data(), written.size());
        for (int i = 0; i < n; ++i) {
            ASSERT_TRUE(factor.read_row(i, std::span(rows).subspan(profile.sky_start[i], profile.height[i])));
            EXPECT_EQ(rows[profile.sky_start[i + 1] - 1], 1.0);
        }
        EXPECT_TRUE(rows == stored);
        if (L.empty()) L = stored, solution = x, pivots = factor.D();
        for (std::size_t i = 0; i < x.size(); ++i) ASSERT_NEAR(x[i], solution[i], 1e-11);
        if (chosen.panel_rows > 0) return;  // other products, other last digits
        EXPECT_TRUE(stored == L && x == solution && factor.D() == pivots);
        EXPECT_EQ(factor.negative_pivots(), std::ranges::count_if(pivots, [](double d) { return d < 0; }));
    };
    const Divisions one = cut(profile, {0, n});
    for (int threads : {1, 2, 5})
        for (const bool keep : {true, false}) run(one, options(threads, keep));
    run(one, options(2), 1);
    // wide panels leave out the rows that have not begun: what they leave out must be zero
    for (const int panel_rows : {32, 128, 512}) run(one, options(2, true, panel_rows));
    for (int last : GetParam().last_rows) {
        std::vector<std::int32_t> rows{0};
        while (rows.back() + band + 12 < n - last) rows.push_back(rows.back() + band + 12);
        rows.insert(rows.end(), {n - last, n});
        for (int threads : {2, 1}) run(cut(profile, rows), options(threads));
    }
    const std::vector<double> Ax = times(km, solution), b = right_hand_sides(n, 3);
    for (std::size_t i = 0; i < b.size(); ++i) EXPECT_NEAR(Ax[i], b[i], 1e-11);
}

INSTANTIATE_TEST_SUITE_P(Matrices, Factor,
                         ::testing::Values(Case{1, 1, 1, {}}, Case{7, 20, 0.5, {1}},
                                           Case{200, 30, 0.3, {1, 30, 31}},
                                           Case{501, 100, 0.05, {1, 100, 101}},
                                           Case{1100, 401, 0.02, {1, 50}}, Case{330, 3, 0.9, {1, 3, 4}}));

TEST_F(FactorFiles, AFailedWriteAndACutFileAreToldAndOldFilesGo) {
    const SparseKM km = random_matrix(300, 40, 0.5, 1);
    const Profile profile = make_profile(km);
    for (const char* name : {"Ltemp_2.txt", "Ltemp_17.txt", "Ltemp_x.txt", "Wtemp_3.txt"})
        folder.write(std::string("log/") + name, "old");
    SkylineFactor factor(profile, cut(profile, {0, 150, 300}), options(1));
    ASSERT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
    const auto left = [&] {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(file("")))
            names.insert(entry.path().filename());
        return names;
    };
    EXPECT_EQ(left(), (std::set<std::string>{"Ltemp_0.txt", "Ltemp_1.txt", "Ltemp_x.txt", "Wtemp_3.txt"}));
    // cut behind the factor's back
    std::filesystem::resize_file(file("Ltemp_0.txt"), 100);
    std::vector<double> x(300, 1.0);
    EXPECT_FALSE(factor.solve_ldl(x));
    EXPECT_TRUE(testing::contains(factor.error(), "Ltemp_0")) << factor.error();
    std::filesystem::resize_file(file("Ltemp_1.txt"), 1000000);
    const FactorFileList removed = remove_factor_files(file("").string());
    EXPECT_EQ(removed.names.size(), 3);
    EXPECT_EQ(removed.names.front(), file("Ltemp_0.txt"));
    EXPECT_NEAR(removed.megabytes, 1.000103, 1e-9);
    EXPECT_EQ(left(), std::set<std::string>{"Ltemp_x.txt"});
    EXPECT_TRUE(list_factor_files(file("nowhere").string()).names.empty());
    for (const bool folder_missing : {false, true}) {
        std::filesystem::remove_all(file(""));
        if (!folder_missing)
            std::filesystem::create_directories(file("Ltemp_1.txt"));  // a name that is taken
        SkylineFactor failed(profile, cut(profile, {0, 150, 300}), options(2));
        EXPECT_EQ(failed.factor_ldl(km, km.K_value, progress), FactorStatus::file_failed);
        EXPECT_TRUE(testing::contains(failed.error(), "Ltemp_")) << failed.error();
    }
}

// At every place, within one panel as well, and in the threads.
TEST_F(FactorFiles, ACancelAndMissingMemoryEndAFactorAndASolve) {
    const SparseKM km = random_matrix(512, 512, 0.1, 6);
    const Profile profile = make_profile(km);
    for (int c = 0; c < 16; ++c) {
        const bool no_memory = c & 1, one_panel = c & 2;
        const int after = 1 + c / 4 * 3;
        SkylineFactor factor(profile, cut(profile, {0, 512}), options(2, c & 4, one_panel ? 512 : 32));
        testing::StopsAtLook ending(after, no_memory);
        const std::string said = no_memory ? "not enough memory for the factor" : "stopped by the user";
        EXPECT_EQ(factor.factor_ldl(km, km.K_value, ending),
                  no_memory ? FactorStatus::out_of_memory : FactorStatus::cancelled);
        EXPECT_EQ(factor.error(), said);
        ASSERT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
        for (const auto& [k, block] : {std::pair(1, false), {20, false}, {20, true}}) {
            testing::StopsAtLook again(one_panel ? 1 : after, no_memory);
            std::vector<double> x = right_hand_sides(512, k);
            EXPECT_FALSE(block ? factor.solve_block(x, k, &again) : factor.solve_ldl(x, k, &again));
            EXPECT_EQ(factor.error(), said);
        }
    }
}

// Lets the writer of a file go on only when it is told to.
struct Holding : testing::Collected {
    std::atomic<bool> go_on{false};
    bool cancelled() const override {
        while (!go_on) std::this_thread::yield();
        return Collected::cancelled();
    }
};

TEST_F(FactorFiles, AWriterThatLagsHoldsUpNothingAndTellsWhatFailed) {
    const SparseKM km = random_matrix(900, 90, 0.3, 3, 500);
    const Profile profile = make_profile(km);
    for (const bool next : {false, true})
        for (const FactorStatus wanted :
             {FactorStatus::ok, FactorStatus::cancelled, FactorStatus::file_failed}) {
            std::filesystem::remove_all(file(""));
            std::filesystem::create_directories(wanted == FactorStatus::file_failed ? file("Ltemp_0.txt")
                                                                                    : file(""));
            Holding held;
            FactorOptions chosen = options(2);
            chosen.write_behind = &held;
            SkylineFactor factor(profile, cut(profile, {0, 900}), chosen);
            ASSERT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
            std::vector<double> x = right_hand_sides(900, 1);
            ASSERT_TRUE(factor.solve_ldl(x));
            const std::vector<double> Ax = times(km, x), b = right_hand_sides(900, 1);
            for (std::size_t i = 0; i < b.size(); ++i) ASSERT_NEAR(Ax[i], b[i], 1e-11);
            if (wanted == FactorStatus::cancelled) held.cancel();
            held.go_on = true;
            // what failed is told by the next factorization as well
            EXPECT_EQ(!next ? factor.await_files() : factor.factor_ldl(km, km.K_value, progress), wanted);
            EXPECT_EQ(testing::contains(factor.error(), "Ltemp_0"), wanted == FactorStatus::file_failed);
            if (wanted != FactorStatus::ok) continue;
            ASSERT_EQ(factor.await_files(), FactorStatus::ok);
            std::vector<double> row(profile.max_height);
            std::string rows;
            for (int i = 0; i < 900; ++i) {
                ASSERT_TRUE(factor.read_row(i, row));
                rows.append(reinterpret_cast<const char*>(row.data()), 8 * profile.height[i]);
            }
            EXPECT_TRUE(testing::read_file(file("Ltemp_0.txt")) == rows);
        }
}

TEST_F(FactorFiles, OfFactorsThatFollowEachOtherTheLastOneIsWritten) {
    const SparseKM km = random_matrix(900, 90, 0.3, 3, 500);
    const Profile profile = make_profile(km);
    const auto written = [&](bool last, bool ask) {
        std::filesystem::remove_all(file(""));
        std::filesystem::create_directories(file(""));
        FactorOptions chosen = options(2);
        chosen.write_behind = &progress;
        chosen.write_last = last;
        SkylineFactor factor(profile, cut(profile, {0, 900}), chosen);
        std::vector<double> twice = km.K_value;
        for (double& v : twice) v *= 2;
        EXPECT_EQ(factor.factor_ldl(km, twice, progress), FactorStatus::ok);
        EXPECT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
        EXPECT_EQ(std::filesystem::exists(file("Ltemp_0.txt")), !last);
        if (ask) factor.begin_files();
        EXPECT_EQ(factor.await_files(), FactorStatus::ok);
        return testing::read_file(file("Ltemp_0.txt"));
    };
    const std::string bytes = written(false, false);
    EXPECT_EQ(bytes.size(), 8 * std::size_t(profile.Ls_num));
    EXPECT_TRUE(written(true, false) == bytes && written(true, true) == bytes);
}

// Panels of all kinds; a factor that is read back solves on one thread, panel after panel.
TEST_F(FactorFiles, ASolveHasTheSameBytesOnAnyNumberOfThreads) {
    const SparseKM km = random_matrix(1500, 401, 0.02, 8, 700);
    const Profile profile = make_profile(km);
    for (const int panel_rows : {0, 40, 300})
        for (const auto& [k, block] : {std::pair(1, false), {8, false}, {8, true}, {27, true}}) {
            const auto solve = [k = k, block = block](SkylineFactor& by, std::vector<double>& x) {
                return block ? by.solve_block(x, k) : by.solve(x, k);
            };
            std::vector<double> read_back = right_hand_sides(1500, k);
            SkylineFactor spilled(profile, cut(profile, {0, 1500}), options(1, false, panel_rows));
            ASSERT_EQ(spilled.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
            ASSERT_TRUE(solve(spilled, read_back));
            const std::vector<double> Ax = times(km, read_back), b = right_hand_sides(1500, k);
            for (std::size_t i = 0; i < b.size(); ++i) ASSERT_NEAR(Ax[i], b[i], 1e-10);
            for (const int threads : {1, 2, 5}) {
                SkylineFactor factor(profile, cut(profile, {0, 1500}), options(threads, true, panel_rows));
                ASSERT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
                for (int again = 0; again < 5; ++again) {
                    std::vector<double> x = right_hand_sides(1500, k);
                    ASSERT_TRUE(solve(factor, x));
                    ASSERT_TRUE(x == read_back) << threads << " threads, panels of " << panel_rows;
                }
            }
        }
}

// Rows of very different lengths, as unstructured meshes have them.
TEST_F(FactorFiles, MemoryFollowsTheProfileAndIsForetold) {
    const SparseKM km = random_matrix(6000, 700, 0.004, 2);
    const Profile profile = make_profile(km);
    const PanelGrid grid = make_panel_grid(profile);
    EXPECT_LT(grid.kept_start.back(), profile.Ls_num / 100 * 115 + grid.n * (grid.nb - 1) / 2);
    if (!KESTRALUM_COUNTS_HEAP) GTEST_SKIP() << "a sanitizer's heap";
    // from the heap alone: a block with a mapping of its own counts the gaps that its alignment leaves
    mallopt(M_MMAP_MAX, 0);
    const std::int64_t page = 2 << 20;  // a large one
    const double kept = 1e-6 * static_cast<double>((8 * grid.kept_start.back() + page - 1) / page * page),
                 in_work = spilled_megabytes(profile, 2), all = panel_megabytes(profile, 2);
    EXPECT_LT(in_work, 0.7 * profile.megabytes());
    EXPECT_LT(all, 1.5 * profile.megabytes());
    // beside the panels: D and the matrix's diagonal, which grows by doubling, and 0.1 MB for the threads,
    // the files and their names
    const double beside = 8e-6 * 4 * grid.n + 0.1;
    for (const bool keep : {true, false}) {
        SkylineFactor factor(profile, cut(profile, {0, 6000}), options(2, keep));
        SilentProgress silent;  // which keeps no lines
        const std::int64_t before = testing::heap.live;
        testing::heap.peak = before;
        ASSERT_EQ(factor.factor_ldl(km, km.K_value, silent), FactorStatus::ok);
        const auto megabytes = [&](std::int64_t now) { return 1e-6 * static_cast<double>(now - before); };
        // the block of the kept rows is taken whole at the start, but written as its panels leave the work
        EXPECT_LT(megabytes(testing::heap.peak), in_work + (keep ? kept : 0) + beside);
        EXPECT_LT(megabytes(testing::heap.live), keep ? all : beside);
    }
}

TEST_F(FactorFiles, TheMachinesMemoryIsThatOfItsControlGroups) {
    const std::string groups = "sys/fs/cgroup/";
    for (const std::string name : {"proc/self", "sys/fs/cgroup/a/b", "sys/fs/cgroup/memory/a/b"})
        std::filesystem::create_directories(folder.path() / name);
    folder.write("proc/self/cgroup", "5:cpu,memory:/a/b\n0::/a/b\n");
    const std::tuple<std::string, const char*, double> limits[] = {
        {"proc/meminfo", "", HUGE_VAL},
        {"proc/meminfo", "MemFree: 1 kB\nMemTotal:    16000000 kB\n", 16384},
        {groups + "a/b/memory.max", "max\n", 16384},
        {groups + "a/memory.max", "8000000000\n", 8000},
        {groups + "a/b/memory.max", "7000000000\n", 7000},
        {groups + "memory.max", "6000000000\n", 6000},
        {groups + "memory/a/b/memory.limit_in_bytes", "5000000000\n", 5000},
        {groups + "memory/memory.limit_in_bytes", "9223372036854771712\n", 5000}};
    for (const auto& [name, text, megabytes] : limits) {
        folder.write(name, text);
        EXPECT_DOUBLE_EQ(machine_megabytes(folder.path()), megabytes) << name;
    }
}

TEST_F(FactorFiles, NegativePivotsAndMassesAreTold) {
    SparseKM km = random_matrix(5, 1, 1, 3);
    km.K_value = {2, -3, 4, 5, -6};
    const Profile profile = make_profile(km);
    SkylineFactor factor(profile, cut(profile, {0, 5}), options(1));
    ASSERT_EQ(factor.factor_ldl(km, km.K_value, progress), FactorStatus::ok);
    for (const char* line : {"Warning   D[1]:-3.000e+00\n", "Warning   D[4]:-6.000e+00\n"})
        EXPECT_TRUE(testing::contains(progress.lines, line)) << progress.lines;
    EXPECT_EQ(factor.negative_pivots(), 2);
    km.K_value = {4, -9, 1, 16, 25};
    SkylineFactor W(profile, cut(profile, {0, 5}), options(1, true, 0, mass_stem));
    ASSERT_EQ(W.factor_ww(km, km.K_value, progress), FactorStatus::ok);
    const std::string said = "[M] is not positive define at 1th row\n";
    EXPECT_TRUE(testing::contains(progress.lines,
                                  said + "  W[1][1]^2: -9.000e+00 = sqrt( -9.000e+00 - 0.000e+00 )\n"));
    EXPECT_TRUE(progress.lines.ends_with("   WW M_sparse complete\n" + said)) << progress.lines;
    double w;
    ASSERT_TRUE(W.read_row(1, std::span(&w, 1)));
    EXPECT_EQ(w, 3);
}

// W Wᵀ = M: products and solves with W against products with M.
TEST_F(FactorFiles, CholeskyMultipliesAndSolvesAsTheMatrixDoes) {
    SparseKM km = random_matrix(400, 70, 0.2, 9);
    for (std::int64_t at : km.diag_pos) km.K_value[at] = std::abs(km.K_value[at]);
    const Profile profile = make_profile(km);
    std::vector<double> first;
    for (const auto& rows : {std::vector<std::int32_t>{0, 400}, {0, 150, 399, 400}})
        for (int threads : {1, 2}) {
            SkylineFactor W(profile, cut(profile, rows), options(threads, true, 0, mass_stem));
            ASSERT_EQ(W.factor_ww(km, km.K_value, progress), FactorStatus::ok) << W.error();
            EXPECT_EQ(W.negative_pivots(), 0);
            for (int k : {1, 3, 20}) {
                const std::vector<double> x = right_hand_sides(400, k), Mx = times(km, x);
                std::vector<double> y = x;
                ASSERT_TRUE(W.multiply_wt(y, k));
                std::vector<double> back = y;
                ASSERT_TRUE(W.solve_wt(back, k) && W.multiply_w(y, k));
                for (std::size_t i = 0; i < x.size(); ++i)
                    ASSERT_TRUE(std::abs(y[i] - Mx[i]) < 1e-11 && std::abs(back[i] - x[i]) < 1e-11) << i;
                if (first.size() < back.size()) first = back;
                EXPECT_TRUE(k < 20 || back == first) << threads << " threads, " << rows.size() << " cuts";
            }
        }
}

TEST_F(FactorFiles, DivisionsFollowTheBudgetAndTheBand) {
    const Profile profile = make_profile(random_matrix(1000, 50, 1, 4));
    const double megabytes = profile.megabytes();
    for (const int divisor : {1, 0})  // just fits; no limit
        EXPECT_EQ(plan_divisions(profile, megabytes, divisor, 50, progress).count(), 1) << divisor;
    const Divisions divisions = plan_divisions(profile, megabytes, 2, 50, progress);
    ASSERT_GT(divisions.count(), 10);
    for (int b = 0; b <= divisions.count(); ++b) {
        EXPECT_EQ(divisions.div_row[b], b < divisions.count() ? b * (50 + 12) : 1000);
        EXPECT_EQ(divisions.div_profile[b], profile.sky_start[divisions.div_row[b]]);
    }
    // fewer rows than a band: one division even beyond the budget
    EXPECT_EQ(plan_divisions(profile, 0, 1, 2000, progress).count(), 1);
    // n = 2·(band + 12): the cut that would fall on row n is not made
    const Profile even = make_profile(random_matrix(124, 50, 1, 5));
    EXPECT_EQ(plan_divisions(even, 0, 1, 50, progress).div_row, (std::vector<std::int32_t>{0, 62, 124}));
}

}  // namespace
}  // namespace kestralum
