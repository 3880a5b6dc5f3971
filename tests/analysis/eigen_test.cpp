// Eigen analyses: the two methods against each other, against theory and published values, and what
// small, free, loose and ill-posed models do.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "analysis/eigen_driver.h"
#include "analysis/eigen_problem.h"
#include "analysis/linear_system.h"
#include "input/model_reader.h"
#include "model/console.h"
#include "support/box_mesh.h"
#include "support/temp_folder.h"

namespace kestralum {
namespace {

using testing::TempFolder;

class EigenAnalysis : public ::testing::Test {
protected:
    RunReport run(const std::string& text, EigenMethod method, EigenTolerances tolerances = {}) {
        store = placeholder_model();
        store.model_file_name = folder.write("model.txt", text);
        const ModelReadReport read = read_model_file(store, {});
        for (const auto& error : read.remarks.errors) ADD_FAILURE() << error;
        if (!read.ok) return {};
        return run_eigen(store, settings, method, tolerances);
    }
    // Done, and complete by the count of negative pivots.
    RunReport run_complete(const std::string& text, EigenMethod method, EigenTolerances tolerances = {}) {
        RunReport report = run(text, method, tolerances);
        EXPECT_EQ(report.status, RunStatus::done) << (report.remarks.errors.empty() ? "" : report.remarks.errors[0]);
        EXPECT_GT(report.check_frequency, 0);
        EXPECT_EQ(report.modes_found, report.modes_counted);
        EXPECT_EQ(static_cast<std::size_t>(store.results.mode_num()), report.modes.size());
        for (std::size_t j = 1; j < report.modes.size(); ++j) EXPECT_LE(report.modes[j - 1].lambda, report.modes[j].lambda);
        return report;
    }
    std::vector<double> frequencies(const RunReport& report) const {
        std::vector<double> f;
        for (const ModeReport& mode : report.modes) f.push_back(mode.frequency);
        return f;
    }
    // Share of one direction in the squared motion of a mode.
    double share(std::size_t mode, std::size_t direction) const {
        const auto dofs = static_cast<std::size_t>(store.mesh.dof_num);
        double all = 0, one = 0;
        for (std::size_t k = 0; k < dofs; ++k) {
            const double u = store.results.mode_vec[mode * dofs + k];
            all += u * u;
            if (k % 3 == direction) one += u * u;
        }
        return one / all;
    }
    std::string vol_part(const testing::Grid& grid, ElementKind kind) {
        folder.write("part.vol", testing::vol_text(testing::box_mesh(grid, kind)));
        return "part_info b red M VOL part.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 %\n";
    }
    static Settings make_settings() {
        Settings s;
        s.memory_size = 4000;
        s.free_hd_size = 20000;
        s.div_memory_size = 1;
        s.ordering_type = "LALL";
        s.c_eigen_shift = 0.5;
        s.n_threads = 2;
        return s;
    }

    console::Capture console_;
    TempFolder folder;
    ModelStore store;
    Settings settings = make_settings();
};

const std::string material = "material_info M 7850 200e9 0.3 %\n";

TEST_F(EigenAnalysis, BothMethodsAgree) {
    constexpr EigenTolerances tight{.subspace = 1e-12, .lanczos = 1e-12};
    for (ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10})
        for (const char* support : {"boundary_condition c plane z 0 0 0 0 0 0 %\n", ""}) {
            const std::string part = kind == ElementKind::hexahedron ? "part_info b red M RECT 0.2 0.3 1 0 0 0 3 4 12 0 0 0 0 0 0 0 0 0 %\n"
                                                                     : vol_part({{2, 3, 6}, {0.2, 0.3, 1}}, kind);
            const std::string text = material + "mode_num 12 %\n" + part + support + "END\n";
            const auto a = frequencies(run_complete(text, EigenMethod::subspace, tight));
            const auto b = frequencies(run_complete(text, EigenMethod::lanczos, tight));
            const auto c = frequencies(run_complete(text, EigenMethod::subspace));
            ASSERT_EQ(a.size(), 12u);
            ASSERT_EQ(b.size(), 12u);
            for (std::size_t j = *support ? 0 : 6; j < 12; ++j) {
                EXPECT_NEAR(a[j], b[j], 1e-8 * a[j]) << "mode " << j + 1;
                EXPECT_NEAR(c[j], b[j], 1e-5 * b[j]) << "mode " << j + 1;
            }
        }
}

TEST_F(EigenAnalysis, AFreeBodyHasSixZeroModesAndEverySquareSectionItsPairs) {
    const std::string text = material + "mode_num 14 %\npart_info b red M RECT 0.1 0.1 0.8 0 0 0 3 3 16 0 0 0 0 0 0 0 0 0 % END\n";
    for (EigenMethod method : {EigenMethod::subspace, EigenMethod::lanczos}) {
        const RunReport report = run_complete(text, method);
        for (std::size_t j = 0; j < report.modes.size(); ++j) EXPECT_EQ(report.modes[j].zero, j < 6) << j;
        double mass[3] = {};
        for (std::size_t j = 0; j < 6; ++j)
            for (std::size_t c = 0; c < 3; ++c) mass[c] += report.modes[j].effective_mass[c];
        for (double m : mass) EXPECT_NEAR(m, 7850 * 0.1 * 0.1 * 0.8, 1e-6 * m) << "rigid motions carry the whole mass";
        EXPECT_NEAR(report.modes[6].frequency, report.modes[7].frequency, 1e-6 * report.modes[6].frequency);
        EXPECT_GT(report.modes[8].frequency, 1.1 * report.modes[7].frequency);
        for (const ModeReport& mode : report.modes) EXPECT_LT(mode.residual, 1e-2);
    }
}

// Published and closed-form values, by the faster method; Lanczos is held to it above.
TEST_F(EigenAnalysis, ClampedBeam) {
    // Euler and Bernoulli; Timoshenko with Cowper's (1966) κ = 0.850, from the roots of his frequency
    // equation. The solid lies between: its clamps hold the sections' contraction too.
    const double beam[3] = {259.42, 715.11, 1401.90}, timoshenko[3] = {255.12, 688.54, 1314.06};
    const RunReport report = run_complete(material + "mode_num 8 %\n" + vol_part({{2, 2, 30}, {0.05, 0.05, 1}}, ElementKind::tetrahedron10) +
                                          "boundary_condition a plane z 0 0 0 0 0 0 b plane z 0 0 0 0 0 1 % END\n", EigenMethod::lanczos);
    std::vector<double> pairs;
    for (std::size_t j = 0; j + 1 < report.modes.size(); ++j)
        if (std::abs(report.modes[j].frequency - report.modes[j + 1].frequency) < 2e-3 * report.modes[j].frequency) pairs.push_back(report.modes[j].frequency);
    ASSERT_GE(pairs.size(), 3u);
    for (std::size_t k = 0; k < 3; ++k) {
        std::printf("    clamped beam: %.2f Hz (beam theory %.2f, %+.2f %%)\n", pairs[k], beam[k], 100 * (pairs[k] / beam[k] - 1));
        EXPECT_LT(pairs[k], beam[k]);
        EXPECT_GT(pairs[k], timoshenko[k]);
        EXPECT_NEAR(pairs[k], timoshenko[k], 0.01 * timoshenko[k]);
    }
}

TEST_F(EigenAnalysis, FreeRodAlongItsAxis) {
    const RunReport report = run_complete("material_info M 7850 200e9 0 %\nmode_num 22 %\n"
                                          "part_info b red M RECT 0.1 0.1 1 0 0 0 2 2 40 0 0 0 0 0 0 0 0 0 % END\n", EigenMethod::subspace);
    int n = 0;
    for (std::size_t j = 6; j < report.modes.size(); ++j) {
        if (share(j, 2) < 0.999) continue;  // bending and torsion
        ++n;
        const double exact = n * 2523.77;  // n/2L √(E/ρ)
        std::printf("    free rod: %.2f Hz (%.2f)\n", report.modes[j].frequency, exact);
        EXPECT_GE(report.modes[j].frequency, exact * 0.99999);
        EXPECT_NEAR(report.modes[j].frequency, exact, 1e-3 * n * n * exact);
    }
    EXPECT_GE(n, 1);
}

// Two half rings of quadratic tetrahedra, joined at their ends.
TEST_F(EigenAnalysis, FreeRingInItsPlane) {
    const testing::Grid half{{30, 2, 1}, {M_PI, 0.048, 0.05}, [](double* x) {
                                 const double r = 0.345 + x[1], angle = M_PI - x[0];
                                 x[0] = r * std::cos(angle);
                                 x[1] = r * std::sin(angle);
                             }};
    folder.write("half.vol", testing::vol_text(testing::tetra_box(half, ElementKind::tetrahedron10)));
    const std::string vol = " red M VOL half.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 ";
    const RunReport report = run_complete("material_info M 7800 185e9 0.3 %\nmode_num 16 %\npart_info a" + vol + "0 0 0 b" + vol + "180 0 0 % END\n", EigenMethod::subspace);
    const double ring[2] = {211.65, 598.64};  // thin ring, two and three waves
    std::vector<double> in_plane;
    for (std::size_t j = 6; j < report.modes.size(); ++j)
        if (share(j, 2) < 0.02) in_plane.push_back(report.modes[j].frequency);
    ASSERT_GE(in_plane.size(), 4u);
    for (std::size_t k = 0; k < 2; ++k) {
        std::printf("    free ring: %.2f and %.2f Hz (%.2f)\n", in_plane[2 * k], in_plane[2 * k + 1], ring[k]);
        EXPECT_NEAR(in_plane[2 * k], in_plane[2 * k + 1], 1e-3 * ring[k]);
        EXPECT_LT(in_plane[2 * k], ring[k]);
        EXPECT_GT(in_plane[2 * k], 0.96 * ring[k]);
    }
}

TEST_F(EigenAnalysis, FreeSquarePlate) {
    constexpr double a = 1, t = 0.02;
    const RunReport report = run_complete(material + "mode_num 11 %\n" + vol_part({{14, 14, 1}, {a, a, t}}, ElementKind::tetrahedron10) + "END\n", EigenMethod::subspace);
    const double value[5] = {13.49, 19.79, 24.43, 35.02, 35.02};  // Leissa (1969), ν = 0.3
    for (std::size_t k = 0; k < 5; ++k) {
        const double exact = value[k] / (2 * M_PI * a * a) * std::sqrt(200e9 * t * t / (12 * 7850 * (1 - 0.09)));
        const double f = report.modes.at(6 + k).frequency;
        std::printf("    free plate: %.2f Hz (%.2f, %+.2f %%)\n", f, exact, 100 * (f / exact - 1));
        EXPECT_NEAR(f, exact, 0.015 * exact);
    }
}

TEST_F(EigenAnalysis, CantileverOfTenNodeTetrahedra) {
    const RunReport report = run_complete("material_info M 2700 70e9 0.35 %\nmode_num 3 %\n" + vol_part({{15, 3, 2}, {0.15, 0.03, 0.01}}, ElementKind::tetrahedron10) +
                                          "boundary_condition c plane x 0 0 0 0 0 0 % END\n", EigenMethod::subspace);
    std::printf("    cantilever: %.2f Hz\n", report.modes.at(0).frequency);
    EXPECT_GT(report.modes[0].frequency, 370);
    EXPECT_LT(report.modes[0].frequency, 372);
}

TEST_F(EigenAnalysis, MeshesConvergeToTheSameFrequencyFromAbove) {
    // a chunky body, for which no mesh locks; reference: the finest quadratic one
    auto first = [&](ElementKind kind, int cells) {
        return run_complete(material + "mode_num 1 %\n" + (kind == ElementKind::hexahedron
                                ? console::format("part_info b red M RECT 1 0.8 1.2 0 0 0 %d %d %d 0 0 0 0 0 0 0 0 0 %%\n", cells, cells, cells)
                                : vol_part({{cells, cells, cells}, {1, 0.8, 1.2}}, kind)) +
                            "boundary_condition c plane z 0 0 0 0 0 0 % END\n", EigenMethod::subspace).modes.at(0).frequency;
    };
    const double reference = first(ElementKind::tetrahedron10, 8);
    for (ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron4, ElementKind::tetrahedron10}) {
        const bool quadratic = kind == ElementKind::tetrahedron10;
        const double f1 = first(kind, quadratic ? 2 : 5), f2 = first(kind, quadratic ? 4 : 10);
        const double order = std::log2((f1 / reference - 1) / (f2 / reference - 1));
        std::printf("    first frequency, kind %d: %.3f, %.3f -> %.3f Hz, order %.2f\n", static_cast<int>(kind), f1, f2, reference, order);
        EXPECT_GT(f1, f2);
        EXPECT_GT(f2, reference);
        EXPECT_NEAR(f2, reference, 0.03 * reference);
        EXPECT_GT(order, 1.2);  // the clamp's edges are singular: less than the element's own order
    }
}

TEST_F(EigenAnalysis, GivesTheSameBytesForAnyThreadsAndMemory) {
    const std::string text = material + "mode_num 9 %\npart_info b red M RECT 0.2 0.2 1 0 0 0 3 3 20 0 0 0 0 0 0 0 0 0 %\n"
                                        "boundary_condition c plane z 0 0 0 0 0 0 % END\n";
    for (EigenMethod method : {EigenMethod::subspace, EigenMethod::lanczos}) {
        std::string reference;
        for (int threads : {1, 2})
            for (double memory : {4000.0, 0.05}) {
                settings.n_threads = threads;
                settings.memory_size = memory;
                run_complete(text, method);
                const std::string bytes = testing::read_file(folder.path() / "log" / "result_model.txt");
                if (reference.empty()) reference = bytes;
                EXPECT_TRUE(bytes == reference) << threads << " threads, " << memory << " MB";
            }
    }
}

TEST_F(EigenAnalysis, SmallModelsGiveAllTheirModesAndNoMore) {
    const std::string part = "part_info b red M RECT 1 1 1 0 0 0 1 1 1 0 0 0 0 0 0 0 0 0 %\n", clamp = "boundary_condition c plane z 0 0 0 0 0 0 %\n";
    for (EigenMethod method : {EigenMethod::subspace, EigenMethod::lanczos}) {
        const RunReport report = run_complete(material + "mode_num 50 %\n" + part + clamp + "END\n", method);
        ASSERT_EQ(report.modes.size(), 12u);
        EXPECT_NE(report.remarks.notices.at(0).find("50 modes were asked for: 12"), std::string::npos) << report.remarks.notices[0];
        EXPECT_EQ(report.modes_counted, 12);
        const RunReport free_body = run_complete(material + "mode_num 24 %\n" + part + "END\n", method);
        ASSERT_EQ(free_body.modes.size(), 24u);
        EXPECT_EQ(std::count_if(free_body.modes.begin(), free_body.modes.end(), [](const ModeReport& m) { return m.zero; }), 6);
    }
}

TEST_F(EigenAnalysis, LooseBodiesAndAZeroShiftKeepTheFirstShift) {
    const std::string two = "part_info a red M RECT 1 1 2 0 0 0 2 2 4 0 0 0 0 0 0 0 0 0 b red M RECT 1 1 2 0 0 0 2 2 4 0 0 0 5 0 0 0 0 0 %\n";
    for (EigenMethod method : {EigenMethod::subspace, EigenMethod::lanczos}) {
        const RunReport loose = run_complete(material + "mode_num 16 %\n" + two + "END\n", method);
        EXPECT_EQ(std::count_if(loose.modes.begin(), loose.modes.end(), [](const ModeReport& m) { return m.zero; }), 12);
        bool said = false;
        for (const auto& notice : loose.remarks.notices) said = said || notice.find("is kept") != std::string::npos;
        EXPECT_TRUE(said);
        const RunReport half = run_complete(material + "mode_num 10 %\n" + two + "boundary_condition c plane z 0 0 0 0 0 0 d volume x 4 4.1 0 0.1 0 0.1 % END\n", method);
        EXPECT_EQ(half.modes[0].zero, false) << "both bodies stand on the plane";
        settings.c_eigen_shift = 0;
        const RunReport free_body = run_complete(material + "mode_num 8 %\npart_info a red M RECT 1 1 2 0 0 0 2 2 4 0 0 0 0 0 0 0 0 0 % END\n", method);
        EXPECT_EQ(std::count_if(free_body.modes.begin(), free_body.modes.end(), [](const ModeReport& m) { return m.zero; }), 6);
        settings.c_eigen_shift = 1;  // the second shift falls on the first frequency
        run_complete(material + "mode_num 4 %\npart_info a red M RECT 1 1 2 0 0 0 2 2 4 0 0 0 0 0 0 0 0 0 %\nboundary_condition c plane z 0 0 0 0 0 0 % END\n", method,
                     {.subspace = 1e-10, .lanczos = 1e-10});
        settings.c_eigen_shift = 0.5;
    }
}

TEST_F(EigenAnalysis, ModesThatAreNotResolvedFailTheRun) {
    settings.c_eigen_shift = 1e5;  // so far above the wanted modes that double precision cannot tell them
    const RunReport report = run(material + "mode_num 3 %\npart_info b red M RECT 0.1 0.1 1 0 0 0 2 2 8 0 0 0 0 0 0 0 0 0 %\n"
                                            "boundary_condition c plane z 0 0 0 0 0 0 % END\n", EigenMethod::lanczos);
    EXPECT_EQ(report.status, RunStatus::failed);
}

TEST_F(EigenAnalysis, WithoutDensityNothingRuns) {
    const RunReport report = run("material_info M 0 200e9 0.3 %\npart_info a red M RECT 1 1 2 0 0 0 2 2 4 0 0 0 0 0 0 0 0 0 % END\n", EigenMethod::subspace);
    EXPECT_EQ(report.status, RunStatus::bad_input);
    EXPECT_NE(report.remarks.errors.at(0).find("density"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "log" / "result_model.txt"));
}

// The printed coefficients are those of A = Wᵀ (K - σM)⁻¹ W from the vector of equal components:
// recomputed here with dense matrices and the plain recurrence.
TEST_F(EigenAnalysis, LanczosPrintsTheCoefficientsOfTheOperator) {
    run_complete(material + "mode_num 2 %\npart_info a red M RECT 1 1 1 0 0 0 1 1 2 0 0 0 0 0 0 0 0 0 %\nboundary_condition c plane z 0 0 0 0 0 0 % END\n", EigenMethod::lanczos);
    std::vector<double> alpha, beta;
    double shift = 0;
    for (std::size_t at = console_.lines.find("Shift K sparse complete"); at < console_.lines.size();) {
        const std::size_t end = console_.lines.find('\n', at);
        const std::string line = console_.lines.substr(at, end - at);
        int j;
        double a, b;
        if (std::sscanf(line.c_str(), "  Shift frequency=%lf", &a) == 1 && shift == 0) shift = a;
        if (std::sscanf(line.c_str(), "%d: %lf, %lf", &j, &a, &b) == 3) {
            alpha.push_back(a);
            beta.push_back(b);
        }
        at = end == std::string::npos ? end : end + 1;
    }
    ASSERT_GE(alpha.size(), 4u);
    // dense K and M of the free degrees of freedom, through the product with unit vectors
    LinearSystem system;
    RunReport report;
    ASSERT_TRUE(build_linear_system(store, settings, system, report));
    const auto n = static_cast<std::size_t>(system.km.rows());
    const double sigma = lambda_of(shift);
    std::vector<std::vector<double>> A(n, std::vector<double>(n)), W = A;
    std::vector<double> unit(n), column(n);
    for (std::size_t c = 0; c < n; ++c) {
        std::fill(unit.begin(), unit.end(), 0.0);
        unit[c] = 1;
        multiply(system.km, system.km.K_value, unit, column);
        for (std::size_t r = 0; r < n; ++r) A[r][c] = column[r];
        multiply(system.km, system.km.M_value, unit, column);
        for (std::size_t r = 0; r < n; ++r) {
            A[r][c] -= sigma * column[r];
            W[r][c] = column[r];
        }
    }
    for (std::size_t i = 0; i < n; ++i)  // Cholesky in place
        for (std::size_t j = 0; j <= i; ++j) {
            double sum = W[i][j];
            for (std::size_t k = 0; k < j; ++k) sum -= W[i][k] * W[j][k];
            W[i][j] = i == j ? std::sqrt(sum) : sum / W[j][j];
        }
    auto apply = [&](const std::vector<double>& q) {
        std::vector<double> x(n, 0.0);
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t j = 0; j <= i; ++j) x[i] += W[i][j] * q[j];
        auto a = A;  // Gauss
        for (std::size_t p = 0; p < n; ++p)
            for (std::size_t i = p + 1; i < n; ++i) {
                const double f = a[i][p] / a[p][p];
                for (std::size_t j = p; j < n; ++j) a[i][j] -= f * a[p][j];
                x[i] -= f * x[p];
            }
        for (std::size_t i = n; i-- > 0;) {
            for (std::size_t j = i + 1; j < n; ++j) x[i] -= a[i][j] * x[j];
            x[i] /= a[i][i];
        }
        std::vector<double> y(n, 0.0);
        for (std::size_t i = 0; i < n; ++i)
            for (std::size_t j = 0; j <= i; ++j) y[j] += W[i][j] * x[i];
        return y;
    };
    std::vector<double> q(n, 1 / std::sqrt(static_cast<double>(n))), before(n, 0.0);
    double last_beta = 0;
    for (std::size_t j = 0; j < 4; ++j) {
        std::vector<double> w = apply(q);
        double a = 0, b = 0;
        for (std::size_t i = 0; i < n; ++i) {
            w[i] -= last_beta * before[i];
            a += w[i] * q[i];
        }
        for (std::size_t i = 0; i < n; ++i) w[i] -= a * q[i];
        for (double v : w) b += v * v;
        b = std::sqrt(b);
        EXPECT_NEAR(alpha[j], a, 1e-3 * a) << j;  // four printed digits
        EXPECT_NEAR(beta[j], b, 1e-3 * b) << j;
        before = q;
        for (std::size_t i = 0; i < n; ++i) q[i] = w[i] / b;
        last_beta = b;
    }
}

}  // namespace
}  // namespace kestralum
