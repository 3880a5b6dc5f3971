// Eigen analyses: the two methods against each other, against theory and published values, and what
// small, free, loose and ill-posed models do.
#include <gtest/gtest.h>
#include <tnt/tnt_array1d.h>
#include <tnt/tnt_array2d.h>

#include <jama/jama_cholesky.h>
#include <jama/jama_qr.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/eigen/eigen_problem.h"
#include "support/analysis_run.h"

namespace kestralum {
namespace {

using testing::every_kind;
using testing::Grid;
using testing::rect;
constexpr Analyse both_methods[] = {analyse_eigen_subspace, analyse_eigen_lanczos};
constexpr auto tetra10 = ElementKind::tetrahedron10;

const std::string foot = "c plane z 0 0 0 0 0 0";

std::string model_text(int modes, const std::string& parts, const std::string& supports = "",
                       const std::string& material = "7850 200e9 0.3") {
    return testing::ModelText{.material = material,
                              .parts = parts,
                              .supports = supports,
                              .others = formatted("mode_num %d %%\n", modes)};
}

class EigenAnalysis : public testing::AnalysisTest {
protected:
    // tolerance: of either method, 0 for the usual ones
    RunReport run(Analyse method, const std::string& text, double tolerance = 0) {
        options = {};
        if (tolerance > 0) options.subspace_tolerance = options.lanczos_tolerance = tolerance;
        return read(text) ? analyse(method) : RunReport{};
    }
    // Done, and complete by the count of negative pivots.
    RunReport run_complete(Analyse method, const std::string& text, double tolerance = 0) {
        RunReport report = run(method, text, tolerance);
        testing::expect_done(report);
        EXPECT_GT(report.check_frequency, 0);
        EXPECT_EQ(report.modes_found, report.modes_counted);
        EXPECT_EQ(result.mode_num(), report.modes.size());
        EXPECT_TRUE(std::is_sorted(report.modes.begin(), report.modes.end(),
                                   [](const auto& a, const auto& b) { return a.lambda < b.lambda; }));
        return report;
    }
    static std::ptrdiff_t zero_modes(const RunReport& report) {
        return std::count_if(report.modes.begin(), report.modes.end(),
                             [](const ModeReport& mode) { return mode.zero; });
    }
};

TEST_F(EigenAnalysis, BothMethodsAgree) {
    constexpr double tight = 1e-12;
    for (ElementKind kind : every_kind)
        for (const std::string& support : {foot, std::string()}) {
            const int fine = kind == ElementKind::hexahedron;
            const Grid grid{{2 + fine, 3 + fine, 6 + 6 * fine}, {0.2, 0.3, 1}};
            const std::string text = model_text(12, part_of(kind, grid), support);
            const auto a = run_complete(analyse_eigen_subspace, text, tight).modes;
            const auto b = run_complete(analyse_eigen_lanczos, text, tight).modes;
            const auto c = run_complete(analyse_eigen_subspace, text).modes;
            ASSERT_EQ(a.size(), 12u);
            ASSERT_EQ(b.size(), 12u);
            for (std::size_t j = support.empty() ? 6 : 0; j < 12; ++j) {
                const double f = b[j].frequency;
                EXPECT_NEAR(a[j].frequency, f, 1e-8 * f) << "mode " << j + 1;
                EXPECT_NEAR(c[j].frequency, f, 1e-5 * f) << "mode " << j + 1;
                EXPECT_LT(std::max(b[j].residual, c[j].residual), 1e-2);
            }
        }
}

TEST_F(EigenAnalysis, FreeSquarePlateAndCantilever) {
    constexpr double a = 1, t = 0.02;
    const std::string part = part_of(tetra10, {{14, 14, 1}, {a, a, t}});
    const auto plate = run_complete(analyse_eigen_subspace, model_text(11, part));
    const double value[5] = {13.49, 19.79, 24.43, 35.02, 35.02};  // Leissa (1969), ν = 0.3
    for (int k = 0; k < 5; ++k) {
        const double unit = std::sqrt(200e9 * t * t / (12 * 7850 * (1 - 0.09))) / (2 * M_PI * a * a);
        expect_figure("free plate", plate.modes.at(6 + k).frequency, value[k] * unit, 0.015);
    }
    const auto beam =
        run_complete(analyse_eigen_subspace, model_text(3, part_of(tetra10, {{15, 3, 2}, {0.15, 0.03, 0.01}}),
                                                        "c plane x 0 0 0 0 0 0", "2700 70e9 0.35"));
    expect_figure("cantilever", beam.modes.at(0).frequency, 371, 1 / 371.0);
}

TEST_F(EigenAnalysis, SmallAndLooseBodiesGiveAllTheirModesAndNoMore) {
    const std::string cube = rect("b", "1 1 1", "1 1 1"), one = rect("a", "1 1 2", "2 2 4"),
                      two = one + rect("b", "1 1 2", "2 2 4", "5 0 0");
    for (Analyse method : both_methods) {
        settings.c_eigen_shift = 0.5;
        const RunReport few = run_complete(method, model_text(50, cube, foot));
        EXPECT_EQ(few.modes.size(), 12u);
        EXPECT_TRUE(testing::contains(few.remarks.notices, "50 modes were asked for: 12"));
        const RunReport free_cube = run_complete(method, model_text(24, cube));
        EXPECT_EQ(free_cube.modes.size(), 24u);
        EXPECT_EQ(zero_modes(free_cube), 6);
        const RunReport loose = run_complete(method, model_text(16, two));
        EXPECT_EQ(zero_modes(loose), 12);
        EXPECT_TRUE(testing::contains(loose.remarks.notices, "is kept"));
        EXPECT_EQ(zero_modes(run_complete(method, model_text(10, two, foot))), 0);
        settings.c_eigen_shift = 0;
        EXPECT_EQ(zero_modes(run_complete(method, model_text(8, one))), 6);
        settings.c_eigen_shift = 1;  // the second shift falls on the first frequency
        run_complete(method, model_text(4, one, foot), 1e-10);
    }
}

TEST_F(EigenAnalysis, UnresolvedModesAndMissingDensityFailTheRun) {
    const std::string part = rect("b", "0.1 0.1 1", "2 2 8");
    const RunReport massless = run(analyse_eigen_subspace, model_text(3, part, "", "0 200e9 0.3"));
    EXPECT_EQ(massless.status, RunStatus::bad_input);
    EXPECT_TRUE(testing::contains(massless.remarks.errors, "density"));
    EXPECT_FALSE(std::filesystem::exists(log("result_model.txt")));
    // rounds that cannot settle end, and what they have reached is resolved all the same
    const RunReport endless = run(analyse_eigen_subspace, model_text(3, part, foot), 1e-300);
    EXPECT_EQ(endless.status, RunStatus::done);
    EXPECT_GE(endless.rounds, 100);
    EXPECT_TRUE(testing::contains(endless.remarks.notices, "has not converged in 100 rounds"));
    settings.c_eigen_shift = 1e7;  // so far above the wanted modes that double precision cannot tell them
    EXPECT_EQ(run(analyse_eigen_lanczos, model_text(3, part, foot)).status, RunStatus::failed);
}

// The first printed coefficients are those of A = Wᵀ (K - σM)⁻¹ W, M = W Wᵀ, and the vector q of equal
// components: α = qᵀ A q and β = |A q - α q|. What follows from them the modes show.
TEST_F(EigenAnalysis, LanczosPrintsTheCoefficientsOfTheOperator) {
    run_complete(analyse_eigen_lanczos, model_text(2, rect("a", "1 1 1", "1 1 2"), foot));
    double shift = 0, alpha = 0, beta = 0;
    const auto printed = [&](const char* from) { return said.lines.data() + said.lines.find(from); };
    ASSERT_EQ(std::sscanf(printed("  Shift frequency="), "  Shift frequency=%lf", &shift), 1);
    ASSERT_EQ(std::sscanf(printed("Lanczos Start"), "Lanczos Start: 0: %*f 0: %lf, %lf", &alpha, &beta), 2);
    AssembledSystem system;
    ASSERT_TRUE(assemble(system));
    const SparseKM& km = system.km;
    const int n = km.rows();
    TNT::Array2D<double> K(n, n, 0.0), M(n, n, 0.0);
    for (int r = 0; r < n; ++r)
        for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k) {
            M[r][km.col_index[k]] = km.M_value[k];
            K[r][km.col_index[k]] = km.K_value[k] - lambda_of(shift) * km.M_value[k];
        }
    const auto W = JAMA::Cholesky<double>(M).getL();
    const auto X = JAMA::QR<double>(K).solve(W);
    const double q = 1 / std::sqrt(n);
    std::vector<double> Aq(n, 0.0);
    for (int r = 0; r < n; ++r)
        for (int i = 0; i < n; ++i) Aq[i] += W[r][i] * std::accumulate(X[r], X[r] + n, 0.0) * q;
    const double exact = std::accumulate(Aq.begin(), Aq.end(), 0.0) * q,
                 square = std::inner_product(Aq.begin(), Aq.end(), Aq.begin(), 0.0);
    EXPECT_NEAR(alpha, exact, 1e-3 * exact);  // four printed digits
    EXPECT_NEAR(beta, std::sqrt(square - exact * exact), 1e-3 * beta);
}

// α and β as the console shows them.
std::vector<std::array<double, 2>> coefficients(const std::string& lines) {
    std::vector<std::array<double, 2>> out;
    const char* at = lines.data() + lines.find("Lanczos Start:");
    int step = 0, length = 0;
    std::array<double, 2> values{};
    at += std::string("Lanczos Start:\n").size();
    while (std::sscanf(at, "%*d: %*f\n%d: %lf, %lf\n%n", &step, &values[0], &values[1], &length) == 3) {
        EXPECT_EQ(step, static_cast<int>(out.size()));
        out.push_back(values);
        at += length;
    }
    return out;
}

// A factor that stays in no cache: the vectors come in blocks. The modes are those of single vectors, double
// ones without a second run, and so is the tridiagonal matrix until its first pairs converge.
TEST_F(EigenAnalysis, BlocksOfLanczosVectorsGiveTheModesOfSingleOnes) {
    for (const std::string& support : {foot, std::string()}) {
        const std::string text = model_text(12, rect("b", "1 1 1.2", "10 10 17"), support);
        settings.solver = "skyline";
        const auto single = run_complete(analyse_eigen_lanczos, text);
        const auto expected = coefficients(said.lines);
        said.lines.clear();
        settings.solver = "auto";
        const auto blocks = run_complete(analyse_eigen_lanczos, text);
        const auto printed = coefficients(said.lines);
        said.lines.clear();
        ASSERT_EQ(single.modes.size(), blocks.modes.size());
        EXPECT_EQ(zero_modes(blocks), support.empty() ? 6 : 0);
        for (std::size_t j = support.empty() ? 6 : 0; j < single.modes.size(); ++j) {
            const double f = single.modes[j].frequency;
            EXPECT_NEAR(blocks.modes[j].frequency, f, 1e-9 * f);
            EXPECT_LT(blocks.modes[j].residual, 1e-8);
        }
        ASSERT_EQ(expected.size(), 100u);
        ASSERT_EQ(printed.size(), 100u);
        for (int j = 0; j < 5; ++j)
            for (int c = 0; c < 2; ++c)
                EXPECT_NEAR(printed[j][c], expected[j][c], 2e-3 * std::abs(expected[0][0])) << j;
        EXPECT_NE(printed[60], expected[60]) << "no blocks were taken";
        if (!support.empty()) {
            EXPECT_FALSE(testing::contains(blocks.remarks.notices, "orthogonal to the former ones"));
        }
    }
}

}  // namespace
}  // namespace kestralum
