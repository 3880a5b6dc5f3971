// Whole static analyses from a model file against theory and published values.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/linear_driver.h"
#include "analysis/model_check.h"
#include "input/model_reader.h"
#include "model/console.h"
#include "results/result_file.h"
#include "support/box_mesh.h"
#include "support/temp_folder.h"

namespace kestralum {
namespace {

using testing::TempFolder;

Settings default_settings(int threads = 2) {
    Settings settings;
    settings.memory_size = 4000;
    settings.free_hd_size = 20000;
    settings.div_memory_size = 1;
    settings.ordering_type = "LALL";
    settings.n_threads = threads;
    return settings;
}

class StaticAnalysis : public ::testing::Test {
protected:
    // Reads and analyses a model text; the store keeps mesh and results.
    RunReport run(const std::string& text, const Settings& settings = default_settings()) {
        store = placeholder_model();
        store.model_file_name = folder.write("model.txt", text);
        const ModelReadReport read = read_model_file(store, {});
        for (const auto& error : read.remarks.errors) ADD_FAILURE() << error;
        if (!read.ok) return {};
        return run_static(store, settings);
    }
    // Displacement of the node nearest to a place.
    std::array<double, 3> displacement(double x, double y, double z) const {
        std::size_t nearest = 0;
        double best = 1e300;
        const auto& c = store.mesh.coordinates;
        for (std::size_t n = 0; n < c.size() / 3; ++n) {
            const double d = std::hypot(c[3 * n] - x, c[3 * n + 1] - y, c[3 * n + 2] - z);
            if (d < best) {
                best = d;
                nearest = n;
            }
        }
        EXPECT_LT(best, 1e-6) << "no node at the place asked for";
        return {store.results.mode_vec[3 * nearest], store.results.mode_vec[3 * nearest + 1], store.results.mode_vec[3 * nearest + 2]};
    }
    static void expect_balanced(const RunReport& report, std::array<double, 3> applied) {
        const double size = std::abs(applied[0]) + std::abs(applied[1]) + std::abs(applied[2]);
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(report.applied[c], applied[c], 1e-9 * size);
            EXPECT_NEAR(report.reaction[c], -applied[c], 1e-6 * size);
        }
    }

    console::Capture console_;
    TempFolder folder;
    ModelStore store;
};

std::string number(double v) { return console::format("%.17g", v); }

TEST_F(StaticAnalysis, ABarInTensionStretchesByFLOverEA) {
    const RunReport report = run(
        "material_info NU0 1000 7e10 0 %\n"
        "part_info bar red NU0 RECT 0.02 0.03 0.5 0 0 0 2 3 10 0 0 0 0 0 0 0 0 0 %\n"
        "boundary_condition clamp area z 0 0.02 0 0.03 0 0 %\n"
        "apply_force pull area z 3000 0 0.02 0 0.03 0.5 0.5 % END\n");
    ASSERT_EQ(report.status, RunStatus::done);
    const double exact = 3000 * 0.5 / (7e10 * 0.02 * 0.03);
    for (double x : {0.0, 0.01, 0.02}) EXPECT_NEAR(displacement(x, 0.01, 0.5)[2], exact, 1e-9 * exact);
    EXPECT_NEAR(displacement(0.01, 0.03, 0.2)[2], 0.4 * exact, 1e-9 * exact);
    expect_balanced(report, {0, 0, 3000});
    EXPECT_LT(report.residual, 1e-9);
    EXPECT_NEAR(report.largest_mises.value, 5e6, 1e-3);
    EXPECT_EQ(report.largest_displacement.place[2], 0.5);
    EXPECT_EQ(store.results.mode_num(), 6);
    EXPECT_EQ(store.results.node_stress.size(), 30 * static_cast<std::size_t>(store.mesh.dof_num));
    EXPECT_NE(console_.lines.find("Mass total=3.000000e-01[kg]\n"), std::string::npos);
}

// MacNeal and Harder (1985), straight cantilever 6 × 0.2 × 0.1, E = 1e7, ν = 0.3, unit forces at
// the end: tip displacements 3.0e-5 (extension), 0.1081 (in plane), 0.4321 (out of plane). The solid
// clamp holds Poisson's contraction too: half a percent stiffer than the beam. Fully integrated
// hexahedra lock in bending; fine ones are asked for extension and in-plane bending.
TEST_F(StaticAnalysis, MacNealHarderStraightBeam) {
    const double reference[3] = {3.0e-5, 0.1081, 0.4321};
    const testing::Grid grid{{30, 2, 2}, {6, 0.2, 0.1}};
    folder.write("beam.vol", testing::vol_text(testing::tetra_box(grid, ElementKind::tetrahedron10)));
    const std::string parts[] = {
        "beam red M VOL beam.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0",
        "beam red M RECT 6 0.2 0.1 0 0 0 240 12 8 0 0 0 0 0 0 0 0 0",
    };
    for (const std::string& part : parts)
        for (std::size_t axis = 0; axis < (part == parts[0] ? 3 : 2); ++axis) {
            const RunReport report = run("material_info M 1 1e7 0.3 %\npart_info " + part + " %\nboundary_condition clamp plane x 0 0 0 0 0 0 %\n" +
                                         "apply_force unit area " + "xyz"[axis] + " 1 6 6 0 0.2 0 0.1 % END\n");
            ASSERT_EQ(report.status, RunStatus::done);
            const double tip = displacement(6, 0.1, 0.05)[axis];
            std::printf("    MacNeal-Harder beam, %s, %c: %.5g (reference %.5g, %+.2f %%)\n", part.find("VOL") != std::string::npos ? "10-node tetrahedra" : "hexahedra",
                        "xyz"[axis], tip, reference[axis], 100 * (tip / reference[axis] - 1));
            EXPECT_NEAR(tip, reference[axis], 0.01 * reference[axis]);
            std::array<double, 3> applied{};
            applied[axis] = 1;
            expect_balanced(report, applied);
        }
}

// Plate of width 2W with a hole of radius R in tension: the largest stress beside the hole is
// K_tg P / (2W t), K_tg = 0.284 + 2/(1 - d/w) - 0.600 (1 - d/w) + 1.32 (1 - d/w)² with d/w = R/W
// (Pilkey, Peterson's Stress Concentration Factors, 2nd ed. 1997, eq. 4.1, gross section).
TEST_F(StaticAnalysis, PlateWithAHole) {
    constexpr double R = 0.01, W = 0.1, t = 0.005, load = 1e5;
    const std::string arch = " red M ARCH 0.01 0.1 0.005 0 0 0 48 24 1 0 0 0 ";
    const RunReport report = run(
        "material_info M 7800 2e11 0 %\n"
        "part_info upper" + arch + "0 0 0 0 0 0 lower" + arch + "0 0 0 180 0 0\n" +
        "right red M RECT 0.2 0.2 0.005 0 0 0 12 48 1 0 0 0 0.1 -0.1 0 0 0 0\n"
        "left red M RECT 0.2 0.2 0.005 0 0 0 12 48 1 0 0 0 -0.3 -0.1 0 0 0 0 %\n"
        "boundary_condition clamp plane x 0 -0.3 0 0 0 0 %\n"
        "apply_force pull area x 1e5 0.3 0.3 -0.1 0.1 0 0.005 % END\n");
    ASSERT_EQ(report.status, RunStatus::done);
    const double dw = R / W, factor = 0.284 + 2 / (1 - dw) - 0.6 * (1 - dw) + 1.32 * (1 - dw) * (1 - dw);
    const double exact = factor * load / (2 * W * t);
    // σxx on the hole's rim where it is largest, (0, ±R)
    double largest = 0;
    for (std::size_t n = 0; n < static_cast<std::size_t>(store.mesh.node_num()); ++n) {
        const double* x = &store.mesh.coordinates[3 * n];
        if (std::abs(x[0]) < 1e-9 && std::abs(std::abs(x[1]) - R) < 1e-9) largest = std::max(largest, store.results.node_stress[3 * n]);
    }
    std::printf("    plate with a hole: σ/σ0 = %.3f, finite-width factor %.3f (%+.2f %%)\n", largest / (load / (2 * W * t)), factor, 100 * (largest / exact - 1));
    EXPECT_NEAR(largest, exact, 0.03 * exact);
    expect_balanced(report, {load, 0, 0});
}

// Clamped square plate under pressure q: centre 0.00126 q a⁴ / D (Timoshenko and Woinowsky-Krieger,
// 1959, table 35), D = E h³ / 12(1 - ν²): 8.60e-4 m; with shear 8.66e-4 m.
TEST_F(StaticAnalysis, ClampedSquarePlate) {
    constexpr int n = 28;
    constexpr double a = 1, h = 0.02, q = 1e5;
    folder.write("plate.vol", testing::vol_text(testing::tetra_box({{n, n, 2}, {a, a, h}}, ElementKind::tetrahedron10)));
    // the load on the upper face's free nodes; half an edge inside the rim is clamped
    const double rim = a / (4 * n), inner = a - a / (2.0 * n);
    const RunReport report = run(
        "material_info M 7800 200e9 0.3 %\npart_info plate red M VOL plate.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 %\n"
        "boundary_condition x0 plane x 0 0 0 0 0 0 x1 plane x 0 1 0 0 0 0 y0 plane y 0 0 0 0 0 0 y1 plane y 0 0 0 1 0 0 %\n"
        "apply_force q area z " + number(-q * inner * inner) + " " + number(rim) + " " + number(a - rim) + " " + number(rim) + " " + number(a - rim) + " " +
        number(h) + " " + number(h) + " % END\n");
    ASSERT_EQ(report.status, RunStatus::done);
    const double centre = -displacement(0.5, 0.5, 0.01)[2];
    std::printf("    clamped plate: centre %.4e m (8.66e-4, %+.2f %%)\n", centre, 100 * (centre / 8.66e-4 - 1));
    EXPECT_NEAR(centre, 8.66e-4, 0.02 * 8.66e-4);
    EXPECT_NE(console_.notices.find("selected by more than one support"), std::string::npos) << "corner nodes are on two supports";
}

TEST_F(StaticAnalysis, AThickTubeUnderEndTorqueAndBendingAgreesWithBeamTheory) {
    // HOLLOWCYLI R = 0.05, t = 0.01, L = 1, tip force F across: F L³ / 3 E I + F L / (κ G A)
    const RunReport report = run(
        "material_info M 7800 2e11 0.3 %\n"
        "part_info tube red M HOLLOWCYLI 0.05 0.01 1 0 0 0 48 2 80 0 0 0 0 0 0 0 0 0 %\n"
        "boundary_condition clamp plane z 0 0 0 0 0 0 %\napply_force tip area y 1000 -1 1 -1 1 1 1 % END\n");
    ASSERT_EQ(report.status, RunStatus::done);
    const double E = 2e11, G = E / 2.6, I = M_PI / 4 * (std::pow(0.05, 4) - std::pow(0.04, 4)), A = M_PI * (0.0025 - 0.0016);
    const double exact = 1000 / (3 * E * I) + 1000 / (0.53 * G * A);  // κ ≈ 0.53 of a tube of this wall (Cowper, 1966)
    EXPECT_NEAR(displacement(0.05, 0, 1)[1], exact, 0.015 * exact);
    expect_balanced(report, {0, 1000, 0});
}

TEST_F(StaticAnalysis, AFreeBodyIsToldAndStillWritesItsFile) {
    for (const char* support : {"", "boundary_condition point volume x -0.001 0.001 -0.001 0.001 -0.001 0.001 %\n"}) {
        const RunReport report = run(std::string("material_info M 7800 2e11 0.3 %\npart_info b red M RECT 0.1 0.1 0.1 0 0 0 3 3 3 0 0 0 0 0 0 0 0 0 %\n") + support +
                                     "apply_force f area x 1 0.1 0.1 0 0.1 0 0.1 % END\n");
        EXPECT_EQ(report.status, RunStatus::failed);
        ASSERT_EQ(report.remarks.errors.size(), 1u);
        EXPECT_NE(report.remarks.errors[0].find("the body is free"), std::string::npos) << report.remarks.errors[0];
        EXPECT_TRUE(std::filesystem::exists(folder.path() / "log" / "result_model.txt"));
        std::filesystem::remove(folder.path() / "log" / "result_model.txt");
    }
    // two bodies of which one is held
    const RunReport report = run("material_info M 7800 2e11 0.3 %\npart_info a red M RECT 1 1 1 0 0 0 2 2 2 0 0 0 0 0 0 0 0 0 "
                                 "b red M RECT 1 1 1 0 0 0 2 2 2 0 0 0 3 0 0 0 0 0 %\nboundary_condition c plane x 0 0 0 0 0 0 % END\n");
    EXPECT_EQ(report.status, RunStatus::failed);
    double x = 0;  // the place named lies in the loose body
    EXPECT_EQ(std::sscanf(report.remarks.errors.at(0).c_str(), "the body is free: the supports do not hold node %*d at (%lf", &x), 1) << report.remarks.errors[0];
    EXPECT_GE(x, 3);
}

const char* small_model =
    "material_info M 7800 2e11 0.3 %\npart_info b red M RECT 0.3 0.2 1 0 0 0 3 2 24 0 0 0 0 0 0 0 0 0 %\n"
    "boundary_condition c plane z 0 0 0 0 0 0 %\napply_force f area x 1000 0 0.3 0 0.2 1 1 % END\n";

TEST_F(StaticAnalysis, GivesTheSameBytesForAnyThreadsAndMemory) {
    std::string reference;
    for (const int threads : {1, 2, 3})
        for (const double memory : {4000.0, 0.05}) {
            Settings settings = default_settings(threads);
            settings.memory_size = memory;
            ASSERT_EQ(run(small_model, settings).status, RunStatus::done);
            EXPECT_EQ(std::filesystem::exists(folder.path() / "log" / "Ltemp_1.txt"), memory < 1) << "spilled or not";
            const std::string text = testing::read_file(folder.path() / "log" / "result_model.txt");
            if (reference.empty()) reference = text;
            EXPECT_TRUE(text == reference) << threads << " threads, " << memory << " MB";
        }
}

TEST_F(StaticAnalysis, EndsWithoutATornFileWhereItCannotGoOn) {
    const auto result = folder.path() / "log" / "result_model.txt", held = folder.path() / "log" / "result_model.txt.part";
    Settings settings = default_settings();
    settings.free_hd_size = 1e-3;
    EXPECT_EQ(run(small_model, settings).status, RunStatus::disk_budget);
    EXPECT_NE(console_.lines.find("Warning:HD"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(result)) << "no earlier file: the mesh takes the name";
    EXPECT_FALSE(std::filesystem::exists(held));
    folder.write("log/result_model.txt", "an earlier run's");
    EXPECT_EQ(run(small_model, settings).status, RunStatus::disk_budget);
    EXPECT_EQ(testing::read_file(result), "an earlier run's");
    EXPECT_FALSE(std::filesystem::exists(held));
    // an inverted element stops the analysis with element, part and place
    Mesh mesh = testing::tetra_box({{2, 2, 2}, {1, 1, 1}}, ElementKind::tetrahedron4);
    std::swap(mesh.connectivity[4 * 20], mesh.connectivity[4 * 20 + 1]);
    folder.write("inverted.vol", testing::vol_text(mesh));
    const RunReport report = run("material_info M 7800 2e11 0.3 %\npart_info lump red M VOL inverted.vol 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 %\n"
                                 "boundary_condition c plane z 0 0 0 0 0 0 % END\n");
    EXPECT_EQ(report.status, RunStatus::failed);
    EXPECT_TRUE(report.remarks.errors.at(0).starts_with("element 21 of part lump at (")) << report.remarks.errors[0];
    EXPECT_EQ(check_model(store, default_settings()).bad.at(0).element, 20);
}

TEST_F(StaticAnalysis, ARunWithoutFiniteDisplacementsKeepsTheEarlierFile) {
    ASSERT_EQ(run(small_model).status, RunStatus::done);
    const std::string good = testing::read_file(folder.path() / "log" / "result_model.txt");
    const RunReport report = run(std::string(small_model).replace(std::string(small_model).find("1000"), 4, "1e300"));
    EXPECT_EQ(report.status, RunStatus::failed);
    EXPECT_FALSE(report.has_results());
    EXPECT_TRUE(testing::read_file(folder.path() / "log" / "result_model.txt") == good);
}

TEST_F(StaticAnalysis, RefusesWhatItDoesNotConsider) {
    RunReport report = run("material_info M 1 1 0 % END\n");
    EXPECT_EQ(report.status, RunStatus::bad_input) << "no elements";
    store = placeholder_model();
    EXPECT_EQ(run_static(store, default_settings()).status, RunStatus::bad_input);
}

TEST_F(StaticAnalysis, CheckTellsWhatAModelIsMadeOf) {
    ASSERT_EQ(run("material_info M 1000 2e11 0.3 %\npart_info a red M RECT 1 1 1 0 0 0 2 2 2 0 0 0 0 0 0 0 0 0 "
                  "b red M RECT 1 2 1 0 0 0 1 1 1 0 0 0 3 0 0 0 0 0 %\n"
                  "boundary_condition c plane x 0 0 0 0 0 0 near area x 0 4.00000000001 0 2 0 1 %\n"
                  "apply_force f node x 1 9 9 9 g area y 1 0 1 0 1 1 1 % END\n").status, RunStatus::failed);
    const ModelCheck check = check_model(store, default_settings());
    EXPECT_NEAR(check.mass, 3000, 1e-9);
    EXPECT_NEAR(check.smallest.volume, 0.125, 1e-12);
    EXPECT_NEAR(check.largest.volume, 2, 1e-12);
    EXPECT_NEAR(check.largest.centre[0], 3.5, 1e-12);
    ASSERT_EQ(check.bodies.size(), 2u);
    EXPECT_EQ(check.bodies[0].supported + check.bodies[1].supported, 1);
    EXPECT_EQ(check.support_nodes, (std::vector<std::int32_t>{9, 0}));
    EXPECT_EQ(check.force_nodes, (std::vector<std::int32_t>{0, 9}));
    EXPECT_EQ(check.bad_count, 0);
    std::string notices;
    for (const auto& notice : check.remarks.notices) notices += notice + "\n";
    EXPECT_NE(notices.find("`plane`"), std::string::npos) << notices;
    EXPECT_NE(notices.find("no node at its point"), std::string::npos);
    // what it says of the factor is what a run writes
    ASSERT_EQ(run(small_model).status, RunStatus::done);
    const ModelCheck small = check_model(store, default_settings());
    EXPECT_NEAR(small.factor_megabytes * 1e6, static_cast<double>(std::filesystem::file_size(folder.path() / "log" / "Ltemp_0.txt")), 0.5);
}

}  // namespace
}  // namespace kestralum
