// Linear buckling and the modes of stressed bodies: columns, a plate and rings against theory, all factors of
// a small model against dense algebra, rigid bodies, what is refused.
#include "analysis/buckling/buckling_analysis.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/static/static_analysis.h"
#include "conditions/surface_loads.h"
#include "elements/linear_element.h"
#include "elements/stresses.h"
#include "model/mesh_sets.h"
#include "support/analysis_run.h"

extern "C" void dsygv_(const int* type, const char* vectors, const char* triangle, const int* n, double* a,
                       const int* lda, double* b, const int* ldb, double* values, double* work,
                       const int* lwork, int* info, std::size_t, std::size_t);

namespace kestralum {
namespace {

using testing::contains;
using testing::replaced;
constexpr double E = 2e11, pi = std::numbers::pi;

// A column of 0.04 × 0.06 × 1 m about the z axis, and the lines across the middle of its ends.
struct Column {
    std::string poisson = "0.3", section = "0.04 0.06 1", cells = "2 2 20", corner = "-0.02 -0.03 0";
    friend std::string operator+(const Column& c, const std::string& more) {
        return "mode_num 3 % material_info M 7800 2e11 " + c.poisson + " % part_info b red M RECT " +
               c.section + " 0 0 0 " + c.cells + " 0 0 0 " + c.corner +
               " 0 0 0 % set_info FOOT plane z 0 TOP plane z 1 FOOT_LINE where 1e-12-x*x-z*z "
               "FOOT_CROSS where 1e-12-y*y-z*z TOP_LINE where 1e-12-x*x-(z-1)^2 "
               "BLOCK where 0.1001-z BALL where 1e-12-x*x-y*y-z*z % " +
               more;
    }
};
const std::string clamp =
                      "boundary_condition A set FOOT fix=z B set FOOT_LINE fix=x C set FOOT_CROSS fix=y % ",
                  push = "load_info P force TOP 0 0 -1 % ",
                  hinges =
                      "boundary_condition B set FOOT_LINE fix=xyz C set TOP_LINE fix=xy % "
                      "rigid_element R1 set 0 0 0 FOOT R2 set 0 0 1 TOP % ";
constexpr double EI = E * 0.06 * 0.04 * 0.04 * 0.04 / 12, euler = pi * pi * EI;

class Buckling : public testing::AnalysisTest {
protected:
    RunReport run(const std::string& text, Analyse analysis = analyse_buckling) {
        options.hexahedra = HexahedronForm::enhanced;
        return read(text + "END\n") ? analyse(analysis) : RunReport{};
    }
    // Done and complete by the count of pivots; the first factor.
    double first(const std::string& text) {
        const RunReport report = run(text);
        testing::expect_done(report);
        EXPECT_GT(report.buckling.check_factor, 0);
        EXPECT_EQ(report.buckling.found, report.buckling.counted);
        if (report.status != RunStatus::done) return 0;
        for (std::size_t j = 0; j < report.buckling.factors.size(); ++j) {
            EXPECT_LT(report.buckling.factors[j].residual, 1e-6);
            EXPECT_EQ(frame(j).n_freq, report.buckling.factors[j].factor);
            double largest = 0;
            for (std::size_t d = 0; d < frame(j).mode_vec.size(); d += 3)
                largest = std::max(largest, norm(triple(frame(j).mode_vec, std::int64_t(d / 3))));
            EXPECT_NEAR(largest, 1, 1e-12);
        }
        return report.buckling.factors.at(0).factor;
    }
};

TEST_F(Buckling, ColumnsPlateAndRingsOfTheory) {
    const std::string plate =
        "mode_num 2 % material_info M 7800 2e11 0.3 % part_info b red M RECT 1 1 0.02 0 0 0 16 16 2 0 0 0 "
        "-0.5 -0.5 -0.01 0 0 0 % set_info XA plane x -0.5 XB plane x 0.5 C where 1e-9-x*x-y*y "
        "EDGE where 1e-12-((x*x-0.25)*(y*y-0.25))^2-z*z CY where 1e-9-(x-0.5)^2-y*y % "
        "boundary_condition W set EDGE fix=z X set C fix=xy Y set CY fix=y % "
        "load_info A traction XA 1e6 0 0 B traction XB -1e6 0 0 % ";
    const auto ring = [](const std::string& load) {
        return "mode_num 1 % material_info M 7800 2e11 0 % part_info b red M QUART_HOLLOWCYLI 1.005 0.01 "
               "0.02 "
               "0 0 0 48 2 1 0 0 0 0 0 0 0 0 0 % set_info OUT cylinder z 0 0 0 1.005 tol=1e-4 AX plane x 0 "
               "AY plane y 0 % boundary_condition Z volume z -9 9 -9 9 -9 9 fix=z X set AX fix=x Y set AY "
               "fix=y % load_info P " +
               load + " % ";
    };
    const double D = E * std::pow(0.02, 3) / 12 / (1 - 0.09), of_ring = E * 1e-6 / 12 / 1.005;
    const double x = 1.2199520138;  // x tan x = 1/0.3: a load 0.3 above the end on a rigid arm
    const struct {
        const char* what;
        std::string text;
        double exact, tolerance;
    } cases[] = {
        {"clamped, free", Column{} + clamp + push, euler / 4, 0.02},
        {"hinged", Column{} + hinges + "rigid_force F R2 z -1 % ", euler, 0.02},
        {"clamped, hinged",
         Column{} + std::string("boundary_condition B set FOOT fix=xyz C set TOP_LINE fix=xy % rigid_element "
                                "R2 set 0 0 1 TOP % rigid_force F R2 z -1 % "),
         2.0457 * euler, 0.02},
        {"clamped, pushed by a support",
         Column{.poisson = "0"} +
             std::string("boundary_condition B set FOOT fix=xyz C set TOP fix=xy uz=-1e-6 % "),
         4 * euler / (E * 0.0024 * 1e-6), 0.02},
        {"hinged, heated between walls",
         replaced(Column{.poisson = "0 alpha=1e-5"} + hinges, "C set TOP_LINE fix=xy",
                  "C set TOP_LINE fix=xyz") +
             "load_info T temperature all 10 reference=0 % ",
         euler / (E * 0.0024 * 1e-4), 0.02},
        {"a rigid arm on a column",
         Column{} + clamp + "rigid_element R set 0 0 1.3 TOP % rigid_force F R z -1 % ", x * x * EI, 0.01},
        {"square plate, supported at its edges", plate, 4 * pi * pi * D / 0.02 / 1e6, 0.01},  // Timoshenko
        // Boresi, J. Appl. Mech. 22, 1955: pressure that follows the ring, and loads that keep their
        // direction
        {"ring under pressure", ring("pressure OUT 1"), 3 * of_ring, 0.01},
        {"ring under dead load", ring("traction OUT -x/1.005 -y/1.005 0"), 4 * of_ring, 0.01},
    };
    for (const auto& c : cases) expect_figure(c.what, first(c.text), c.exact, c.tolerance);
}

// K and G on all degrees of freedom from the elements and the state that the static analysis leaves, reduced
// by a dense T; all factors by LAPACK.
TEST_F(Buckling, AllFactorsOfASmallModelAreThoseOfDenseAlgebra) {
    const std::string text =
        "mode_num 200 % material_info M 7800 2e11 0.3 % part_info b red M QUART_HOLLOWCYLI 0.3 0.1 0.4 0 0 0 "
        "2 1 2 0 0 0 0 0 0 0 0 0 % set_info BORE cylinder z 0 0 0 0.2 tol=1e-3 OUT cylinder z 0 0 0 0.3 "
        "tol=1e-3 TOP plane z 0.4 END plane x 0 % boundary_condition A plane z 0 0 0 0 0 0 fix=z B set BORE "
        "fix=normal C plane y 0 0 0 0 0 0 fix=y uy=1e-5 % load_info P pressure OUT 1e7*(1+z) Q traction TOP "
        "1e6 0 -1e8 R pressure END -3e6 % ";
    testing::expect_done(run(text, analyse_static));
    const std::vector<double> u = frame().mode_vec;
    AssembledSystem system;
    ASSERT_TRUE(assemble(system));
    const Mesh mesh = result.mesh;
    const ElementType& type = element_type(mesh.element_type);
    const std::size_t N = mesh.dof_num(), size = 3 * std::size_t(type.nodes);
    std::vector<double> K(N * N), G(N * N), ke(size * size), kg(size * size);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        ElementPoints points;
        evaluate_points(type, mesh, e, points);
        std::vector<double> own, stress(6 * most_points), strain(6 * most_points);
        std::vector<std::size_t> dof;
        for (const std::int32_t n : mesh.element(e))
            for (std::size_t c = 0; c < 3; ++c) dof.push_back(3 * node_index(n) + c);
        for (const std::size_t d : dof) own.push_back(u[d]);
        const IsotropicModuli D = moduli(system.elasticity, 0);
        element_stiffness(type, points, D, HexahedronForm::enhanced, ke.data());
        element_stresses(type, points, D, HexahedronForm::enhanced, own.data(), nullptr, strain.data(),
                         stress.data());
        geometric_stiffness(type, points, stress.data(), kg.data());
        for (std::size_t i = 0; i < size; ++i)
            for (std::size_t j = 0; j < size; ++j) {
                K[dof[i] * N + dof[j]] += ke[i * size + j];
                G[dof[i] * N + dof[j]] += kg[i * size + j];
            }
    }
    const AddBlock add = [&](std::span<const std::int32_t> nodes, std::span<const double> block) {
        for (std::size_t i = 0; i < 3 * nodes.size(); ++i)
            for (std::size_t j = 0; j < 3 * nodes.size(); ++j)
                G[(3 * nodes[i / 3] + i % 3) * N + 3 * nodes[j / 3] + j % 3] +=
                    block[i * 3 * nodes.size() + j];
    };
    for (const Load& load : model.loads)
        if (load.kind == LoadKind::pressure)
            pressure_stiffness(mesh, find_set(mesh, load.set_name)->faces, load.value, 1, 1, {}, add);
    const std::vector<std::int32_t>& free = system.freedoms.numbering.free_dofs;
    const int n = static_cast<int>(free.size());
    std::vector<std::vector<double>> T;
    for (const std::int32_t dof : free) {
        T.emplace_back(N, 0.0)[dof] = 1;
        system.freedoms.constraints.map.expand(T.back());
    }
    const auto reduced = [&](const std::vector<double>& A, double sign) {
        std::vector<double> out(free.size() * free.size());
        for (std::size_t j = 0; j < free.size(); ++j) {
            std::vector<double> product(N, 0.0);
            for (std::size_t r = 0; r < N; ++r)
                for (std::size_t c = 0; c < N; ++c) product[r] += A[r * N + c] * T[j][c];
            for (std::size_t i = 0; i < free.size(); ++i)
                for (std::size_t r = 0; r < N; ++r) out[j * free.size() + i] += sign * T[i][r] * product[r];
        }
        return out;
    };
    std::vector<double> a = reduced(G, -1), b = reduced(K, 1), nu(free.size()), work(64 * free.size());
    const int lwork = static_cast<int>(work.size()), kind = 1;
    int info = 0;
    dsygv_(&kind, "N", "L", &n, a.data(), &n, b.data(), &n, nu.data(), work.data(), &lwork, &info, 1, 1);
    ASSERT_EQ(info, 0);
    const std::ptrdiff_t above = std::ranges::count_if(nu, [&](double v) { return v > 1e-6 * nu.back(); });
    const RunReport report = run(text);
    testing::expect_done(report);
    ASSERT_EQ(std::ssize(report.buckling.factors), above);
    EXPECT_EQ(report.buckling.found, above);
    EXPECT_TRUE(contains(report.remarks.notices, formatted("200 load factors were asked for: %td", above)));
    for (std::ptrdiff_t j = 0; j < above; ++j)
        EXPECT_NEAR(report.buckling.factors[j].factor * nu[n - 1 - j], 1, 1e-7) << j;
}

TEST_F(Buckling, RigidBodiesTurnWithTheirForces) {
    // a rigid rod on hinge springs in the middle between the reference points, 0.6 m below the load
    const std::string rod =
        "mode_num 3 % material_info M 7800 2e11 0.3 % part_info b red M RECT 0.1 0.1 1 0 0 0 1 1 4 0 0 0 "
        "-0.05 "
        "-0.05 0 0 0 0 c red M RECT 0.1 0.1 0.2 0 0 0 1 1 2 0 0 0 -0.05 -0.05 -0.4 0 0 0 % set_info LOW "
        "plane z "
        "-0.4 ROD part b BASE where -0.19-z % boundary_condition A set LOW % rigid_element R1 set 0 0 1 ROD "
        "R2 "
        "set 0 0 -0.2 BASE % rigid_force F R1 z -1 % rigid_combine S R2 R1 1e9 1e9 1e9 300 500 1e6 % ";
    EXPECT_NEAR(first(rod), 300 / 0.6, 1e-7);
    ASSERT_EQ(result.report.buckling.factors.size(), 2u);
    EXPECT_NEAR(result.report.buckling.factors[1].factor, 500 / 0.6, 1e-7);
    // a thick rigid foot on a ball joint: a node that is fixed, about which it turns, or one that is held in
    // all directions, away from the point that its motions are told at
    const auto joint = [](const std::string& how) {
        return Column{} + "boundary_condition B set BALL" + how +
               " T set TOP fix=xy U set FOOT_LINE fix=y % " +
               "rigid_element R set 0 0 0 BLOCK % load_info P force TOP 0 0 -1 % ";
    };
    const double whole = first(joint("")), held = first(joint(" fix=xyz"));
    EXPECT_NEAR(held / whole, 1, 1e-7);
}

// Three columns beside each other: every factor six times, of which one run finds but some.
TEST_F(Buckling, ManifoldFactorsAreFoundBecauseTheyAreCounted) {
    std::string parts;
    for (const char* at : {"0", "1", "2"})
        parts += std::string(" c") + at + " red M RECT 0.05 0.05 1 0 0 0 2 2 8 0 0 0 " + at + " 0 0 0 0 0";
    const std::string columns = "mode_num 7 % material_info M 7800 2e11 0.3 % part_info" + parts +
                                " % set_info TOP plane z 1 % boundary_condition A plane z 0 0 0 0 0 0 % ";
    const double one = first(columns + push);
    const auto factors = result.report.buckling.factors;
    ASSERT_EQ(factors.size(), 7u);
    for (const std::size_t j : {1, 2, 3, 4, 5}) EXPECT_NEAR(factors[j].factor / one, 1, 1e-9);
    EXPECT_GT(factors[6].factor, 8 * one);
    options.lanczos_tolerance = 1e-2;  // a run that ends before it has all
    const RunReport rough = run(replaced(columns, "mode_num 7", "mode_num 2") + push);
    EXPECT_EQ(rough.status, RunStatus::done);
    EXPECT_EQ(rough.buckling.found, 6);
    EXPECT_EQ(rough.buckling.counted, 6);
    EXPECT_TRUE(contains(rough.remarks.notices, "5 load factors are found where 6 are counted"));
    options = {};
    // cases and their sums are loads of their own
    options.load_case = "TRIPLE";
    const std::string cases = replaced(push, "-1", "-1 case=a") + "load_combination TRIPLE 3*a % ";
    EXPECT_NEAR(first(columns + cases) * 3 / one, 1, 1e-9);
    EXPECT_NEAR(result.report.applied[2], -3, 1e-12);
    EXPECT_EQ(run(columns + push).status, RunStatus::bad_input);
}

TEST_F(Buckling, AStressedBeamSwingsFasterOrSlower) {
    const std::string beam = Column{} + hinges;
    const auto pulled = [&](double force) { return beam + formatted("rigid_force F R2 z %.17g %% ", force); };
    const double critical = first(pulled(-1));
    for (Analyse method : {analyse_eigen_subspace, analyse_eigen_lanczos}) {
        options.prestress = false;
        const double f0 = run(beam, method).modes.at(0).frequency;
        options.prestress = true;
        for (const double share : {-0.9, -0.5, 1.0}) {
            const RunReport report = run(pulled(share * critical), method);
            testing::expect_done(report);
            EXPECT_EQ(report.modes_found, report.modes_counted);
            expect_figure("frequency", report.modes.at(0).frequency, f0 * std::sqrt(1 + share), 0.01);
        }
        const RunReport beyond = run(pulled(-1.2 * critical), method);
        EXPECT_TRUE(contains(beyond.remarks.notices, "the prestress is beyond buckling: 1 eigenvalue is"));
        EXPECT_LT(beyond.modes.at(0).lambda, 0);
        const RunReport none = run(beam, method);
        EXPECT_NEAR(none.modes.at(0).frequency, f0, 1e-9 * f0);
        EXPECT_TRUE(contains(none.remarks.notices, "no load stresses the body"));
    }
}

TEST_F(Buckling, WhatCannotBuckleIsALine) {
    const std::string column = Column{} + "";
    const struct {
        std::string text;
        const char* line;
    } cases[] = {
        {column + clamp, "no load stresses the body"},
        {Column{.poisson = "0.3 alpha=1e-5"} + clamp + "load_info T temperature all 100 % ",
         "no load stresses"},
        {column + push, "the body is free"},
        {column + clamp + "load_info P traction TOP 0 0 1e6 % ", "no load factor is above zero"},
    };
    for (const auto& c : cases) {
        folder.write("log/result_model.txt", "an earlier run's");
        const RunReport report = run(c.text);
        EXPECT_EQ(report.status, RunStatus::failed) << c.line;
        ASSERT_EQ(report.remarks.errors.size(), 1u);
        EXPECT_TRUE(contains(report.remarks.errors, c.line)) << report.remarks.errors[0];
        EXPECT_EQ(file("result_model.txt"), "an earlier run's");
    }
    EXPECT_LT(first(column + clamp + "load_info P traction TOP 0 0 -1e8 % "), 1);
    EXPECT_TRUE(contains(result.report.remarks.notices, "the loads are beyond buckling"));
    // bent, it buckles sideways at half the load the one way and the other
    first(column + clamp + "load_info P force TOP 0 1 0.001 % ");
    EXPECT_TRUE(contains(result.report.remarks.notices, "with the loads reversed"));
}

}  // namespace
}  // namespace kestralum
