// The multifrontal factor against LAPACK and the skyline: residuals, inertia, the same bytes on one thread
// and many, kept or read back, Lagrange multipliers, and what happens when memory, the file or the user ends
// it.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <random>

#include "model/format.h"
#include "solver/factor_files.h"
#include "solver/ldl.h"
#include "solver/multifrontal.h"
#include "support/collected.h"
#include "support/temp_folder.h"
#include "support/text_checks.h"

extern "C" void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w,
                       double* work, const int* lwork, int* info, std::size_t, std::size_t);

namespace kestralum {
namespace {

SparseKM from_entries(int n, const std::function<double(int, int)>& entry,
                      const std::function<bool(int, int)>& has) {
    SparseKM km;
    km.row_start.push_back(0);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            if (has(i, j))
                km.col_index.push_back(j), km.K_value.push_back(entry(std::min(i, j), std::max(i, j)));
        km.row_count.push_back(static_cast<std::int32_t>(km.entries() - km.row_start.back()));
        km.row_start.push_back(km.entries());
    }
    find_diagonals(km);
    return km;
}

// Nodes of a grid, neighbours as hexahedra make them, three equations each of which some are missing;
// `spread` beside 1 on the diagonal: below 1 the matrix is positive, above it is not.
SparseKM grid_matrix(std::array<int, 3> nodes, double spread, double missing, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1, 1), chance(0, 1);
    std::vector<std::array<int, 3>> place;
    for (int k = 0; k < nodes[2]; ++k)
        for (int j = 0; j < nodes[1]; ++j)
            for (int i = 0; i < nodes[0]; ++i)
                for (int c = 0; c < 3; ++c)
                    if (chance(random) >= missing) place.push_back({i, j, k});
    const int n = static_cast<int>(place.size());
    std::vector<double> noise(n);
    for (double& v : noise) v = value(random);
    return from_entries(
        n,
        [&](int i, int j) {
            return i == j ? 81 + noise[i] : spread * std::sin(17 * noise[i] + 29 * noise[j] + i + j);
        },
        [&](int i, int j) {
            for (int c = 0; c < 3; ++c)
                if (std::abs(place[i][c] - place[j][c]) > 1) return false;
            return true;
        });
}

std::vector<double> eigenvalues(const SparseKM& km) {
    const int n = km.rows(), size = 64 * n;
    std::vector<double> a(std::size_t(n) * n), w(n), work(size);
    for (int r = 0; r < n; ++r)
        for (std::int64_t e = km.row_start[r]; e < km.row_start[r + 1]; ++e)
            a[std::size_t(r) * n + km.col_index[e]] = km.K_value[e];
    int info = 0;
    dsyev_("N", "L", &n, a.data(), &n, w.data(), work.data(), &size, &info, 1, 1);
    EXPECT_EQ(info, 0);
    return w;
}

std::vector<double> right_hand_sides(int n, int k) {
    std::vector<double> b(std::size_t(n) * k);
    for (std::size_t i = 0; i < b.size(); ++i) b[i] = std::sin(1.0 + 0.37 * static_cast<double>(i));
    return b;
}

// ‖b - A x‖ / (‖A‖ ‖x‖ + ‖b‖), ‖A‖ its largest row.
double backward_error(const SparseKM& km, std::span<const double> b, std::span<const double> x) {
    std::vector<double> Ax(x.size());
    multiply(km, km.K_value, x, Ax);
    for (std::size_t i = 0; i < b.size(); ++i) Ax[i] -= b[i];
    double size = 0;
    for (int r = 0; r < km.rows(); ++r)
        size = std::max(size, norm(std::span(km.K_value).subspan(km.row_start[r], km.row_count[r])));
    return norm(Ax) / (size * norm(x) + norm(b));
}

class Multifrontal : public ::testing::Test {
protected:
    MultifrontalOptions options(int threads, bool keep = true) const {
        return {threads, (folder.path() / "log").string(), keep};
    }
    void expect_sound(const SparseKM& km, std::span<const char> late = {}) {
        MultifrontalFactor factor(analyse_pattern(km, late), options(2));
        ASSERT_EQ(factor.factor(km, km.K_value, progress), FactorStatus::ok) << factor.error();
        const std::vector<double> b = right_hand_sides(km.rows(), 3);
        std::vector<double> x = b;
        ASSERT_TRUE(factor.solve(x, 3));
        for (int c = 0; c < 3; ++c) {
            const auto column = [&](const std::vector<double>& v) {
                return std::span(v).subspan(std::size_t(c) * km.rows(), km.rows());
            };
            EXPECT_LT(backward_error(km, column(b), column(x)), 1e-14);
        }
        const std::vector<double> values = eigenvalues(km);
        EXPECT_EQ(factor.negative_pivots(), std::ranges::count_if(values, [](double v) { return v < 0; }));
    }
    testing::Collected progress;
    testing::TempFolder folder;
};

TEST_F(Multifrontal, SolvesAndCountsNegativeEigenvaluesAsLapackDoes) {
    for (const double spread : {0.9, 40.0, 4000.0})  // positive, indefinite, next to no diagonal
        for (const double missing : {0.0, 0.3})
            for (const auto& nodes : {std::array{1, 1, 1}, std::array{2, 1, 30}, std::array{5, 5, 6}}) {
                SCOPED_TRACE(formatted("%g %g %d", spread, missing, nodes[2]));
                const SparseKM km = grid_matrix(nodes, spread, missing, 3 + nodes[2]);
                if (km.rows() > 0) expect_sound(km);
            }
    SparseKM shifted = grid_matrix({4, 4, 5}, 30, 0.1, 8);
    const std::vector<double> values = eigenvalues(shifted), original = shifted.K_value;
    for (const double beside : {-1e-8, 1e-8}) {  // of an eigenvalue in the middle
        shifted.K_value = original;
        for (const std::int64_t at : shifted.diag_pos)
            shifted.K_value[at] -= values[values.size() / 2] + beside;
        expect_sound(shifted);
    }
    // loose pieces, one of them a single equation
    expect_sound(from_entries(
        41, [](int i, int j) { return i == j ? (i % 3 ? 2.5 : -2.5) : 1.0; },
        [](int i, int j) {
            return i == j || (i != 20 && j != 20 && std::abs(i - j) < 3 && (i < 20) == (j < 20));
        }));
}

// [K Bᵀ; B 0] with a positive K: as many negative pivots as rows of B, whose equations hold.
TEST_F(Multifrontal, LagrangeMultipliersHaveTheirPlace) {
    const SparseKM K = grid_matrix({4, 4, 4}, 0.9, 0, 5);
    const int n = K.rows(), ties = 20;
    const auto tied = [&](int tie, int j) { return j == 7 * tie || j == 7 * tie + 40; };
    SparseKM km = from_entries(
        n + ties,
        [&](int i, int j) {
            if (j >= n) return i == 7 * (j - n) ? 1.0 : i < n ? -1.0 : 0.0;
            const auto row = K.col_index.begin() + K.row_start[i];
            return K.K_value[std::lower_bound(row, row + K.row_count[i], j) - K.col_index.begin()];
        },
        [&](int i, int j) {
            if (std::max(i, j) >= n)
                return i == j || (std::min(i, j) < n && tied(std::max(i, j) - n, std::min(i, j)));
            const auto row = K.col_index.begin() + K.row_start[i];
            return std::binary_search(row, row + K.row_count[i], j);
        });
    std::vector<char> late(n + ties, 0);
    std::fill(late.begin() + n, late.end(), 1);
    expect_sound(km, late);
    MultifrontalFactor factor(analyse_pattern(km, late), options(1));
    ASSERT_EQ(factor.factor(km, km.K_value, progress), FactorStatus::ok);
    EXPECT_EQ(factor.negative_pivots(), ties);
    std::vector<double> x(n + ties, 1.0);
    for (int t = 0; t < ties; ++t) x[n + t] = 0.25 * t;  // the differences asked for
    ASSERT_TRUE(factor.solve(x));
    for (int t = 0; t < ties; ++t) EXPECT_NEAR(x[7 * t] - x[7 * t + 40], 0.25 * t, 1e-12);
}

// Fronts large enough to be split among threads: of a grid, and one dense one.
TEST_F(Multifrontal, IsTheSameOnAnyNumberOfThreadsInAndOutOfMemoryAndAgreesWithTheSkyline) {
    const SparseKM grid = grid_matrix({12, 12, 13}, 0.9, 0.02, 1),
                   indefinite = grid_matrix({12, 12, 13}, 30, 0.02, 2);
    const SparseKM dense = from_entries(
        2500, [](int i, int j) { return i == j ? 2500 : std::sin(i + 0.3 * j); },
        [](int, int) { return true; });
    for (const SparseKM* km : {&grid, &indefinite, &dense}) {
        const FrontTree tree = analyse_pattern(*km);
        const std::vector<double> b = right_hand_sides(km->rows(), 35);
        std::vector<double> first;
        for (const bool keep : {true, false})
            for (const int threads : {1, 2, 5}) {
                MultifrontalFactor factor(tree, options(threads, keep));
                ASSERT_EQ(factor.factor(*km, km->K_value, progress), FactorStatus::ok) << factor.error();
                std::vector<double> x = b, one(b.begin(), b.begin() + km->rows());
                ASSERT_TRUE(factor.solve(x, 35) && factor.solve(one)) << factor.error();
                x.insert(x.end(), one.begin(), one.end());
                if (first.empty()) first = x;
                EXPECT_TRUE(x == first) << threads << keep;
                EXPECT_EQ(std::filesystem::exists(folder.path() / "log/Stemp_0.txt"), !keep);
                remove_factor_files((folder.path() / "log").string());
            }
        if (km != &grid) continue;
        Profile profile = make_profile(*km);
        Divisions divisions = plan_divisions(profile, 1e9, 1, profile.max_height, progress);
        SkylineFactor skyline(profile, divisions,
                              {.threads = 2, .log_folder = (folder.path() / "log").string()});
        ASSERT_EQ(skyline.factor(*km, km->K_value, progress), FactorStatus::ok);
        std::vector<double> x(b.begin(), b.begin() + km->rows());
        ASSERT_TRUE(skyline.solve(x));
        for (int i = 0; i < km->rows(); ++i) EXPECT_NEAR(x[i], first[i], 1e-9 * norm(x));
        remove_factor_files((folder.path() / "log").string());
    }
}

// A chain of springs that nothing holds, with masses of very different size on it.
TEST_F(Multifrontal, PivotsThatVanishAreListedByEquation) {
    SparseKM km = from_entries(
        60, [](int i, int j) { return i != j                        ? -1.0
                                      : i % 20 == 0 || i % 20 == 19 ? 1.0
                                                                    : 2.0; },
        [](int i, int j) { return std::abs(i - j) < 2 && i / 20 == j / 20; });
    for (const int held : {0, 1, 3}) {  // of three chains
        if (held > 0) km.K_value[km.diag_pos[20 * (held - 1) + 5]] += held == 3 ? 1e-3 : 1;
        if (held == 3) km.K_value[km.diag_pos[25]] += 1;
        MultifrontalFactor factor(analyse_pattern(km), options(1));
        ASSERT_EQ(factor.factor(km, km.K_value, progress), FactorStatus::ok);
        const std::vector<SmallPivot> small = factor.small_pivots(1e-10);
        EXPECT_EQ(small.size(), 3 - held);
        for (const SmallPivot& pivot : small) EXPECT_GE(pivot.equation, 20 * held);
        std::vector<double> x(60, 1.0);
        ASSERT_TRUE(factor.solve(x));
        EXPECT_TRUE(std::isfinite(norm(x)));
    }
    km.K_value[km.diag_pos[33]] = NAN;
    MultifrontalFactor factor(analyse_pattern(km), options(1));
    ASSERT_EQ(factor.factor(km, km.K_value, progress), FactorStatus::ok);
    EXPECT_FALSE(factor.small_pivots(1e-10).empty());
}

TEST_F(Multifrontal, ACancelMissingMemoryAndAFileThatFailsEndIt) {
    const SparseKM km = grid_matrix({9, 9, 9}, 0.9, 0, 4);
    const FrontTree tree = analyse_pattern(km);
    for (const bool no_memory : {false, true})
        for (const int after : {1, 2, 30, 90}) {
            testing::StopsAtLook ending(after, no_memory), again(std::min(after, 20), no_memory);
            MultifrontalFactor factor(tree, options(2));
            EXPECT_EQ(factor.factor(km, km.K_value, ending),
                      no_memory ? FactorStatus::out_of_memory : FactorStatus::cancelled);
            EXPECT_EQ(factor.error(), no_memory ? "not enough memory" : "stopped on request");
            ASSERT_EQ(factor.factor(km, km.K_value, progress), FactorStatus::ok);
            std::vector<double> x = right_hand_sides(km.rows(), 2);
            EXPECT_FALSE(factor.solve(x, 2, &again));
        }
    const std::string file = (folder.path() / "log/Stemp_0.txt").string();
    MultifrontalFactor spilled(tree, options(2, false));
    ASSERT_EQ(spilled.factor(km, km.K_value, progress), FactorStatus::ok);
    std::filesystem::resize_file(file, 1000);  // cut behind the factor's back
    std::vector<double> x = right_hand_sides(km.rows(), 1);
    EXPECT_FALSE(spilled.solve(x));
    EXPECT_TRUE(testing::contains(spilled.error(), "Stemp_0.txt cannot be read")) << spilled.error();
    std::filesystem::remove(file);
    std::filesystem::create_symlink("/dev/full", file);
    EXPECT_EQ(spilled.factor(km, km.K_value, progress), FactorStatus::file_failed);
    EXPECT_TRUE(testing::contains(spilled.error(), "Stemp_0.txt cannot be written: No space"))
        << spilled.error();
    std::filesystem::remove_all(folder.path() / "log");
    EXPECT_EQ(spilled.factor(km, km.K_value, progress), FactorStatus::file_failed);
    EXPECT_TRUE(testing::contains(spilled.error(), "Stemp_0.txt cannot be opened: ")) << spilled.error();
}

}  // namespace
}  // namespace kestralum
