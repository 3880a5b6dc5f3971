// Eigen analyses: the two methods against each other, against theory and published values, and what
// small, free, loose and ill-posed models do.
#include <gtest/gtest.h>
#include <tnt/tnt.h>

#include <jama/jama_cholesky.h>
#include <jama/jama_lu.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/eigen/eigen_problem.h"
#include "support/analysis_run.h"
#include "system/assembly.h"

namespace kestralum {
namespace {

using testing::every_kind;
using testing::Grid;
using testing::rect;
using testing::tetra_box;
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
        return read(text) ? analyse(method, settings) : RunReport{};
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
    // Share of one direction in the squared motion of a mode.
    double share(std::size_t mode, int direction) const {
        double sum[3] = {};
        for (int d = 0; d < result.mesh.dof_num(); ++d) sum[d % 3] += std::pow(frame(mode).mode_vec[d], 2);
        return sum[direction] / (sum[0] + sum[1] + sum[2]);
    }
    std::string part_of(ElementKind kind, const Grid& g) {
        if (kind != ElementKind::hexahedron) return vol("b", tetra_box(g, kind));
        return rect("b", formatted("%.17g %.17g %.17g", g.size[0], g.size[1], g.size[2]),
                    formatted("%d %d %d", g.cells[0], g.cells[1], g.cells[2]));
    }
    static std::ptrdiff_t zero_modes(const RunReport& report) {
        return std::count_if(report.modes.begin(), report.modes.end(),
                             [](const ModeReport& mode) { return mode.zero; });
    }
    static void expect_within(const char* what, double f, double reference, double low, double high) {
        std::printf("    %s: %.2f Hz (%.2f, %+.2f %%)\n", what, f, reference, 100 * (f / reference - 1));
        EXPECT_TRUE(f > low * reference && f < high * reference) << what;
    }

    Settings settings = testing::analysis_settings();
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
            }
        }
}

TEST_F(EigenAnalysis, AFreeBodyHasSixZeroModesAndEverySquareSectionItsPairs) {
    for (Analyse method : both_methods) {
        const RunReport report = run_complete(method, model_text(14, rect("b", "0.1 0.1 0.8", "3 3 16")));
        for (int c = 0; c < 3; ++c) {
            double mass = 0;
            for (int j = 0; j < 6; ++j) mass += report.modes[j].effective_mass[c];
            EXPECT_NEAR(mass, 7850 * 0.1 * 0.1 * 0.8, 1e-6 * mass) << "rigid motions carry the whole mass";
        }
        for (std::size_t j = 0; j < report.modes.size(); ++j) {
            EXPECT_EQ(report.modes[j].zero, j < 6) << j;
            EXPECT_LT(report.modes[j].residual, 1e-2);
        }
        EXPECT_NEAR(report.modes[6].frequency, report.modes[7].frequency, 1e-6 * report.modes[6].frequency);
        EXPECT_GT(report.modes[8].frequency, 1.1 * report.modes[7].frequency);
    }
}

// Published and closed-form values, by the faster method; Lanczos is held to it above.
TEST_F(EigenAnalysis, ClampedBeam) {
    // Euler and Bernoulli; Timoshenko with Cowper's (1966) κ = 0.850, from the roots of his frequency
    // equation. The solid lies between: its clamps hold the sections' contraction too.
    const double beam[3] = {259.42, 715.11, 1401.90}, timoshenko[3] = {255.12, 688.54, 1314.06};
    const auto modes =
        run_complete(analyse_eigen_lanczos, model_text(8, part_of(tetra10, {{2, 2, 30}, {0.05, 0.05, 1}}),
                                                       "a plane z 0 0 0 0 0 0 b plane z 0 0 0 0 0 1"))
            .modes;
    std::vector<double> pairs;
    for (std::size_t j = 1; j < modes.size(); ++j)
        if (modes[j].frequency - modes[j - 1].frequency < 2e-3 * modes[j].frequency)
            pairs.push_back(modes[j - 1].frequency);
    ASSERT_GE(pairs.size(), 3u);
    for (int k = 0; k < 3; ++k) {
        expect_within("clamped beam, beam theory", pairs[k], beam[k], 0, 1);
        expect_within("clamped beam, Timoshenko", pairs[k], timoshenko[k], 1, 1.01);
    }
}

TEST_F(EigenAnalysis, FreeRodAlongItsAxis) {
    const auto modes = run_complete(analyse_eigen_subspace,
                                    model_text(22, rect("b", "0.1 0.1 1", "2 2 40"), "", "7850 200e9 0"))
                           .modes;
    int n = 0;
    for (std::size_t j = 6; j < modes.size(); ++j)
        if (share(j, 2) > 0.999) {  // neither bending nor torsion
            ++n;
            const double exact = n * 2523.77;  // n/2L √(E/ρ)
            expect_within("free rod", modes[j].frequency, exact, 0.99999, 1 + 1e-3 * n * n);
        }
    EXPECT_GE(n, 1);
}

// Two half rings of quadratic tetrahedra, joined at their ends.
TEST_F(EigenAnalysis, FreeRingInItsPlane) {
    const Mesh half = tetra_box({{30, 2, 1},
                                 {M_PI, 0.048, 0.05},
                                 [](double* x) {
                                     const double r = 0.345 + x[1], angle = M_PI - x[0];
                                     x[0] = r * std::cos(angle);
                                     x[1] = r * std::sin(angle);
                                 }},
                                tetra10);
    const std::string parts = vol("a", half) + vol("b", half, "180 0 0");
    const auto modes =
        run_complete(analyse_eigen_subspace, model_text(16, parts, "", "7800 185e9 0.3")).modes;
    std::vector<double> in_plane;
    for (std::size_t j = 6; j < modes.size(); ++j)
        if (share(j, 2) < 0.02) in_plane.push_back(modes[j].frequency);
    ASSERT_GE(in_plane.size(), 4u);
    const double thin_ring[2] = {211.65, 598.64};  // two and three waves
    for (int k = 0; k < 2; ++k) {
        expect_within("free ring", in_plane[2 * k], thin_ring[k], 0.96, 1);
        EXPECT_NEAR(in_plane[2 * k], in_plane[2 * k + 1], 1e-3 * thin_ring[k]);
    }
}

TEST_F(EigenAnalysis, FreeSquarePlateAndCantilever) {
    constexpr double a = 1, t = 0.02;
    const std::string part = part_of(tetra10, {{14, 14, 1}, {a, a, t}});
    const auto plate = run_complete(analyse_eigen_subspace, model_text(11, part));
    const double value[5] = {13.49, 19.79, 24.43, 35.02, 35.02};  // Leissa (1969), ν = 0.3
    for (int k = 0; k < 5; ++k) {
        const double unit = std::sqrt(200e9 * t * t / (12 * 7850 * (1 - 0.09))) / (2 * M_PI * a * a);
        expect_within("free plate", plate.modes.at(6 + k).frequency, value[k] * unit, 0.985, 1.015);
    }
    const auto beam =
        run_complete(analyse_eigen_subspace, model_text(3, part_of(tetra10, {{15, 3, 2}, {0.15, 0.03, 0.01}}),
                                                        "c plane x 0 0 0 0 0 0", "2700 70e9 0.35"));
    expect_within("cantilever", beam.modes.at(0).frequency, 371, 370 / 371.0, 372 / 371.0);
}

TEST_F(EigenAnalysis, MeshesConvergeToTheSameFrequencyFromAbove) {
    // a chunky body, for which no mesh locks; reference: the finest quadratic one
    auto first = [&](ElementKind kind, int cells) {
        const std::string part = part_of(kind, {{cells, cells, cells}, {1, 0.8, 1.2}});
        return run_complete(analyse_eigen_subspace, model_text(1, part, foot)).modes.at(0).frequency;
    };
    const double reference = first(tetra10, 8);
    for (ElementKind kind : every_kind) {
        const int coarse = kind == tetra10 ? 2 : 5;
        const double f1 = first(kind, coarse), f2 = first(kind, 2 * coarse);
        EXPECT_GT(f1, f2);
        expect_within("finer mesh", f2, reference, 1, 1.03);
        // the clamp's edges are singular: less than the element's own order
        EXPECT_GT(std::log2((f1 / reference - 1) / (f2 / reference - 1)), 1.2);
    }
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
    settings.c_eigen_shift = 1e5;  // so far above the wanted modes that double precision cannot tell them
    EXPECT_EQ(run(analyse_eigen_lanczos, model_text(3, part, foot)).status, RunStatus::failed);
}

// The printed coefficients are those of A = Wᵀ (K - σM)⁻¹ W from the vector of equal components:
// recomputed here with dense matrices and the plain recurrence.
TEST_F(EigenAnalysis, LanczosPrintsTheCoefficientsOfTheOperator) {
    run_complete(analyse_eigen_lanczos, model_text(2, rect("a", "1 1 1", "1 1 2"), foot));
    std::vector<double> alpha, beta;
    double shift = 0;
    std::istringstream lines(said.lines.substr(said.lines.find("Shift K sparse complete")));
    for (std::string line; std::getline(lines, line);) {
        int j;
        double a, b;
        if (std::sscanf(line.c_str(), "  Shift frequency=%lf", &a) == 1 && shift == 0) shift = a;
        if (std::sscanf(line.c_str(), "%d: %lf, %lf", &j, &a, &b) != 3) continue;
        alpha.push_back(a);
        beta.push_back(b);
    }
    ASSERT_GE(alpha.size(), 4u);
    // dense K and M of the free degrees of freedom, through the product with unit vectors
    AssembledSystem system;
    kestralum::Run again;
    Job job{model, settings, options, said, again};
    ASSERT_TRUE(make_run_mesh(job, Renumbering::by_settings, system.freedoms) &&
                assemble_system(job, system));
    const SparseKM& km = system.km;
    const int n = km.rows();
    TNT::Array2D<double> K(n, n, 0.0), M(n, n, 0.0);
    for (int r = 0; r < n; ++r)
        for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k) {
            M[r][km.col_index[k]] = km.M_value[k];
            K[r][km.col_index[k]] = km.K_value[k] - lambda_of(shift) * km.M_value[k];
        }
    const auto W = JAMA::Cholesky<double>(M).getL();
    const auto X = JAMA::LU<double>(K).solve(W);
    std::vector<double> q(n, 1 / std::sqrt(n)), before(n, 0.0);
    double last_beta = 0;
    const auto times = [](const std::vector<double>& a, const std::vector<double>& b) {
        return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
    };
    for (int j = 0; j < 4; ++j) {
        std::vector<double> w(n), Xq(n, 0.0);
        for (int rc = 0; rc < n * n; ++rc) Xq[rc / n] += X[rc / n][rc % n] * q[rc % n];
        for (int i = 0; i < n; ++i) {
            w[i] = -last_beta * before[i];
            for (int r = 0; r < n; ++r) w[i] += W[r][i] * Xq[r];
        }
        const double a = times(w, q);
        for (int i = 0; i < n; ++i) w[i] -= a * q[i];
        last_beta = std::sqrt(times(w, w));
        EXPECT_NEAR(alpha[j], a, 1e-3 * a) << j;  // four printed digits
        EXPECT_NEAR(beta[j], last_beta, 1e-3 * last_beta) << j;
        before = q;
        for (int i = 0; i < n; ++i) q[i] = w[i] / last_beta;
    }
}

}  // namespace
}  // namespace kestralum
