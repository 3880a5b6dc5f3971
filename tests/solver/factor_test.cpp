// The skyline factorization on random sparse symmetric matrices: ‖A - LDLᵀ‖, the same bytes in one
// division and in many and on one thread and two, solves, and what happens when a file cannot be written.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "model/console.h"
#include "solver/ldl.h"
#include "support/temp_folder.h"

namespace kestralum {
namespace {

using testing::TempFolder;

// Symmetric, diagonally dominant with diagonal entries of both signs, rows reaching back by ragged
// lengths up to `band` - 1, about `fill` of the entries between present.
SparseKM random_matrix(int n, int band, double fill, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1, 1), chance(0, 1);
    std::vector<std::map<int, double>> rows(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        const int reach = i == 0 ? 0 : static_cast<int>(random() % static_cast<unsigned>(std::min(i, band - 1) + 1));
        for (int j = i - reach; j < i; ++j)
            if (j == i - reach || chance(random) < fill) {
                const double v = value(random);
                rows[static_cast<std::size_t>(i)][j] = v;
                rows[static_cast<std::size_t>(j)][i] = v;
            }
    }
    for (int i = 0; i < n; ++i) {
        double sum = 1;
        for (const auto& [j, v] : rows[static_cast<std::size_t>(i)]) sum += std::abs(v);
        rows[static_cast<std::size_t>(i)][i] = chance(random) < 0.5 ? -sum : sum;
    }
    SparseKM km;
    km.row_start.push_back(0);
    for (const auto& row : rows) {
        for (const auto& [j, v] : row) {
            km.col_index.push_back(j);
            km.K_value.push_back(v);
        }
        km.row_count.push_back(static_cast<std::int32_t>(row.size()));
        km.row_start.push_back(static_cast<std::int64_t>(km.col_index.size()));
    }
    find_diagonals(km);
    return km;
}

Divisions cut(const Profile& profile, const std::vector<std::int32_t>& rows) {
    Divisions divisions;
    for (std::int32_t r : rows) {
        divisions.div_row.push_back(r);
        divisions.div_profile.push_back(profile.sky_start[static_cast<std::size_t>(r)]);
    }
    return divisions;
}

// ‖A - LDLᵀ‖ / ‖A‖, Frobenius, from the rows of the factor.
double residual(const SparseKM& km, SkylineFactor& factor) {
    const auto n = static_cast<std::size_t>(km.rows());
    std::vector<std::vector<double>> L(n, std::vector<double>(n, 0.0));
    for (std::size_t i = 0; i < n; ++i) {
        const auto first = static_cast<std::size_t>(factor.profile().first_column(static_cast<std::int32_t>(i)));
        EXPECT_TRUE(factor.read_row(static_cast<std::int32_t>(i), std::span(L[i]).subspan(first, i - first + 1)));
        EXPECT_EQ(L[i][i], 1.0);
    }
    double error = 0, size = 0;
    for (std::size_t i = 0; i < n; ++i) {
        std::vector<double> row(n, 0.0);
        for (std::int64_t k = km.row_start[i]; k < km.row_start[i + 1]; ++k) {
            row[static_cast<std::size_t>(km.col_index[static_cast<std::size_t>(k)])] = km.K_value[static_cast<std::size_t>(k)];
            size += km.K_value[static_cast<std::size_t>(k)] * km.K_value[static_cast<std::size_t>(k)];
        }
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = row[j];
            for (std::size_t m = 0; m <= j; ++m) sum -= L[i][m] * factor.D()[m] * L[j][m];
            error += (i == j ? 1 : 2) * sum * sum;
        }
    }
    return std::sqrt(error / size);
}

// The factor's rows as they lie in the files, one after the other.
std::string factor_bytes(const TempFolder& folder, int divisions) {
    std::string bytes;
    for (int b = 0; b < divisions; ++b) bytes += testing::read_file(folder.path() / "log" / ("Ltemp_" + std::to_string(b) + ".txt"));
    return bytes;
}

std::vector<double> right_hand_sides(int n, int k) {
    std::vector<double> b(static_cast<std::size_t>(n * k));
    for (std::size_t i = 0; i < b.size(); ++i) b[i] = std::sin(1.0 + 0.37 * static_cast<double>(i));
    return b;
}

struct Case {
    int n, band;
    double fill;
    std::vector<int> last_rows;  // rows of the last division, tried one after the other
};

class Factor : public ::testing::TestWithParam<Case> {
protected:
    console::Capture quiet_;
};

TEST_P(Factor, IsExactAndTheSameInOneDivisionAndManyOnOneThreadAndTwo) {
    const auto& [n, band, fill, last_rows] = GetParam();
    const SparseKM km = random_matrix(n, band, fill, static_cast<unsigned>(n + band));
    const Profile profile = make_profile(km);
    const TempFolder folder;
    std::string bytes;
    std::vector<double> solution, pivots;
    auto run = [&](const Divisions& divisions, int threads, bool past_the_cache = false) {
        FactorOptions options{.threads = threads};
        if (past_the_cache) options.direct_bytes = 1;
        SkylineFactor factor(profile, divisions, options);
        ASSERT_EQ(factor.factor_ldl(km, km.K_value), FactorStatus::ok) << factor.error();
        EXPECT_LT(residual(km, factor), 1e-14 * n);
        std::vector<double> x = right_hand_sides(n, 3);
        ASSERT_TRUE(factor.solve_ldl(x, 3)) << factor.error();
        const std::string written = factor_bytes(folder, divisions.count());
        EXPECT_EQ(written.size(), 8 * static_cast<std::size_t>(profile.Ls_num));
        EXPECT_FALSE(std::filesystem::exists(folder.path() / "log" / ("Ltemp_" + std::to_string(divisions.count()) + ".txt")));
        if (bytes.empty()) {
            bytes = written;
            solution = x;
            pivots = factor.D();
        }
        EXPECT_TRUE(written == bytes) << divisions.count() << " divisions, " << threads << " threads";
        EXPECT_TRUE(x == solution) << divisions.count() << " divisions, " << threads << " threads";
        EXPECT_TRUE(factor.D() == pivots);
        EXPECT_EQ(factor.negative_pivots(), std::count_if(pivots.begin(), pivots.end(), [](double d) { return d < 0; }));
    };
    for (int threads : {1, 2, 5}) run(cut(profile, {0, n}), threads);
    run(cut(profile, {0, n}), 2, true);
    for (int last : last_rows) {
        std::vector<std::int32_t> rows{0};
        while (rows.back() + band + 12 < n - last) rows.push_back(rows.back() + band + 12);
        rows.push_back(n - last);
        rows.push_back(n);
        for (int threads : {2, 1}) run(cut(profile, rows), threads);
    }
    // the solution solves A x = b
    std::vector<double> ax(static_cast<std::size_t>(n)), b = right_hand_sides(n, 3);
    for (std::size_t c = 0; c < 3; ++c) {
        const auto shift = static_cast<std::ptrdiff_t>(c) * n;
        multiply(km, km.K_value, std::span(solution).subspan(static_cast<std::size_t>(shift), static_cast<std::size_t>(n)), ax);
        for (std::size_t i = 0; i < ax.size(); ++i) EXPECT_NEAR(ax[i], b[static_cast<std::size_t>(shift) + i], 1e-11);
    }
}

INSTANTIATE_TEST_SUITE_P(Matrices, Factor,
                         ::testing::Values(Case{1, 1, 1, {}}, Case{7, 20, 0.5, {1}}, Case{200, 30, 0.3, {1, 30, 31}},
                                           Case{501, 100, 0.05, {1, 100, 101}}, Case{700, 401, 0.02, {1, 50}},
                                           Case{330, 3, 0.9, {1, 3, 4}}));

// Wide panels leave out the rows that have not begun: what they leave out must be zero.
TEST(FactorFilesTest, PanelsOfEveryWidthGiveTheSameFactor) {
    const console::Capture quiet;
    const TempFolder folder;
    const SparseKM km = random_matrix(1100, 380, 0.02, 5);
    const Profile profile = make_profile(km);
    for (const std::int32_t panel_rows : {32, 128, 256, 512}) {
        FactorOptions options{.threads = 2, .panel_rows = panel_rows};
        SkylineFactor factor(profile, cut(profile, {0, 1100}), options);
        ASSERT_EQ(factor.factor_ldl(km, km.K_value), FactorStatus::ok) << factor.error();
        EXPECT_LT(residual(km, factor), 1e-14 * 1100) << panel_rows;
    }
}

TEST(FactorFilesTest, AFailedWriteEndsTheFactorizationWithItsReason) {
    const console::Capture quiet;
    const SparseKM km = random_matrix(300, 40, 0.5, 1);
    const Profile profile = make_profile(km);
    for (const bool folder_missing : {true, false}) {
        const TempFolder folder;
        if (folder_missing) std::filesystem::remove(folder.path() / "log");
        else std::filesystem::create_directory(folder.path() / "log" / "Ltemp_1.txt");  // a name that is taken
        SkylineFactor factor(profile, cut(profile, {0, 150, 300}), {.threads = 2});
        EXPECT_EQ(factor.factor_ldl(km, km.K_value), FactorStatus::write_failed);
        EXPECT_NE(factor.error().find("Ltemp_"), std::string::npos) << factor.error();
    }
    // a file cut behind the factor's back is told when it is read
    const TempFolder folder;
    SkylineFactor factor(profile, cut(profile, {0, 150, 300}), {.threads = 1});
    ASSERT_EQ(factor.factor_ldl(km, km.K_value), FactorStatus::ok);
    std::filesystem::resize_file(folder.path() / "log" / "Ltemp_0.txt", 100);
    std::vector<double> x(300, 1.0);
    EXPECT_FALSE(factor.solve_ldl(x));
    EXPECT_NE(factor.error().find("Ltemp_0"), std::string::npos) << factor.error();
}

TEST(FactorFilesTest, FilesOfAnEarlierRunThatThisOneDoesNotWriteAreRemoved) {
    const console::Capture quiet;
    const TempFolder folder;
    for (const char* name : {"log/Ltemp_2.txt", "log/Ltemp_17.txt", "log/Ltemp_x.txt", "log/Wtemp_3.txt"}) folder.write(name, "old");
    const SparseKM km = random_matrix(100, 10, 0.5, 2);
    const Profile profile = make_profile(km);
    SkylineFactor factor(profile, cut(profile, {0, 60, 100}), {.threads = 1});
    ASSERT_EQ(factor.factor_ldl(km, km.K_value), FactorStatus::ok);
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path() / "log")) left.push_back(entry.path().filename());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"Ltemp_0.txt", "Ltemp_1.txt", "Ltemp_x.txt", "Wtemp_3.txt"}));
}

TEST(FactorFilesTest, NegativePivotsAreTold) {
    console::Capture captured;
    const TempFolder folder;
    SparseKM km = random_matrix(5, 1, 1, 3);
    km.K_value = {2, -3, 4, 5, -6};
    const Profile profile = make_profile(km);
    SkylineFactor factor(profile, cut(profile, {0, 5}), {.threads = 1});
    ASSERT_EQ(factor.factor_ldl(km, km.K_value), FactorStatus::ok);
    EXPECT_NE(captured.lines.find("Warning   D[1]:-3.000e+00\n"), std::string::npos);
    EXPECT_NE(captured.lines.find("Warning   D[4]:-6.000e+00\n"), std::string::npos);
    EXPECT_EQ(factor.negative_pivots(), 2);
}

// W Wᵀ = M: products and solves with W against products with M.
TEST(CholeskyFactor, MultipliesAndSolvesAsTheMatrixDoes) {
    const console::Capture quiet;
    const TempFolder folder;
    SparseKM km = random_matrix(400, 70, 0.2, 9);
    for (std::int64_t at : km.diag_pos) km.K_value[static_cast<std::size_t>(at)] = std::abs(km.K_value[static_cast<std::size_t>(at)]);
    const Profile profile = make_profile(km);
    std::vector<double> first;
    for (const auto& rows : {std::vector<std::int32_t>{0, 400}, {0, 150, 399, 400}})
        for (int threads : {1, 2}) {
            SkylineFactor W(profile, cut(profile, rows), {.threads = threads, .file_stem = "Wtemp"});
            ASSERT_EQ(W.factor_ww(km, km.K_value), FactorStatus::ok) << W.error();
            EXPECT_EQ(W.negative_pivots(), 0);
            EXPECT_TRUE(std::filesystem::exists(folder.path() / "log" / "Wtemp_0.txt"));
            for (int k : {1, 3, 20}) {
                const std::vector<double> x = right_hand_sides(400, k);
                std::vector<double> y = x, product(x.size());
                ASSERT_TRUE(W.multiply_wt(y, k));
                std::vector<double> back = y;
                ASSERT_TRUE(W.solve_wt(back, k));
                ASSERT_TRUE(W.multiply_w(y, k));
                for (std::size_t c = 0; c < static_cast<std::size_t>(k); ++c)
                    multiply(km, km.K_value, std::span(x).subspan(400 * c, 400), std::span(product).subspan(400 * c, 400));
                for (std::size_t i = 0; i < x.size(); ++i) {
                    ASSERT_NEAR(y[i], product[i], 1e-11);
                    ASSERT_NEAR(back[i], x[i], 1e-11);
                }
                if (k == 20) {
                    if (first.empty()) first = back;
                    EXPECT_TRUE(back == first) << threads << " threads, " << rows.size() - 1 << " divisions";
                }
            }
        }
}

TEST(CholeskyFactor, TellsAMatrixThatIsNotPositiveDefinite) {
    console::Capture captured;
    const TempFolder folder;
    SparseKM km = random_matrix(4, 1, 1, 3);
    km.K_value = {4, -9, 1, 16};
    const Profile profile = make_profile(km);
    SkylineFactor W(profile, cut(profile, {0, 4}), {.file_stem = "Wtemp"});
    ASSERT_EQ(W.factor_ww(km, km.K_value), FactorStatus::ok);
    EXPECT_NE(captured.lines.find("[M] is not positive define at 1th row\n  W[1][1]^2: -9.000e+00 = sqrt( -9.000e+00 - 0.000e+00 )\n"), std::string::npos) << captured.lines;
    EXPECT_TRUE(captured.lines.ends_with("   WW M_sparse complete\n[M] is not positive define at 1th row\n")) << captured.lines;
    double w;
    ASSERT_TRUE(W.read_row(1, std::span(&w, 1)));
    EXPECT_EQ(w, 3);
}

TEST(Divisions, FollowTheBudgetAndTheBand) {
    const console::Capture quiet;
    const SparseKM km = random_matrix(1000, 50, 1, 4);
    const Profile profile = make_profile(km);
    const double megabytes = profile.megabytes();
    EXPECT_EQ(plan_divisions(profile, megabytes, 1, 50).count(), 1) << "a profile that just fits";
    EXPECT_EQ(plan_divisions(profile, megabytes, 0, 50).count(), 1) << "no divisor: no limit";
    const Divisions divisions = plan_divisions(profile, megabytes, 2, 50);
    EXPECT_LE(divisions.count(), most_divisions(1000, 50));
    ASSERT_GT(divisions.count(), 10);
    for (int b = 0; b < divisions.count(); ++b) {
        const auto at = static_cast<std::size_t>(b);
        if (b + 1 < divisions.count()) {
            EXPECT_EQ(divisions.div_row[at + 1] - divisions.div_row[at], 50 + 12);
        }
        EXPECT_EQ(divisions.div_profile[at], profile.sky_start[static_cast<std::size_t>(divisions.div_row[at])]);
    }
    EXPECT_EQ(divisions.div_row.back(), 1000);
    EXPECT_EQ(divisions.div_profile.back(), profile.Ls_num);
    // fewer rows than a band: one division even beyond the budget
    EXPECT_EQ(plan_divisions(profile, 0, 1, 2000).count(), 1);
    // n = 2·(band + 12): the cut that would fall on row n is not made
    const Profile even = make_profile(random_matrix(124, 50, 1, 5));
    EXPECT_EQ(plan_divisions(even, 0, 1, 50).div_row, (std::vector<std::int32_t>{0, 62, 124}));
}

}  // namespace
}  // namespace kestralum
