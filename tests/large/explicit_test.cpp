// Explicit dynamics on several ranks against one process.
#include <filesystem>
#include <map>
#include <numbers>

#include "analysis/explicit/explicit_state.h"
#include "input/analysis_info_reader.h"
#include "large_run.h"
#include "results/result_file.h"
#include "support/box_mesh.h"

namespace kestralum::testing {
namespace {

const std::string steel_wall = " RIGID_WALL WALL plane +x 0 0 0 0 0 0 0 0 0 0 0 0 0 % ";

// The columns that are measured by one another: energies, the axes of a vector.
std::string kind_of(const std::string& column) {
    for (const char* energy : {"kinetic", "internal", "plastic", "damping", "wall", "contact", "external",
                               "support", "viscous", "friction"})
        if (column == energy) return "energy";
    const std::size_t end = column.size() - 2;
    return column[end] == '_' ? column.substr(0, end) : column;
}

class LargeExplicit : public LargeTest {
protected:
    bool read(const std::string& text, const std::string& control) {
        folder.write("model.ana", "x explicit " + control + " END");
        if (!AnalysisTest::read(text)) return false;
        const AnalysisInfoReport of_control = read_analysis_info_file(model, said);
        for (const auto& error : of_control.remarks.errors) ADD_FAILURE() << error;
        return of_control.remarks.errors.empty();
    }
    std::string box(ElementKind kind, const Grid& grid, const std::string& others = "",
                    const std::string& supports = "", const std::string& loads = "") {
        return ModelText{.parts = part_of(kind, grid),
                         .supports = supports,
                         .rigid = loads.empty() ? "" : "% load_info " + loads + " %",
                         .others = others};
    }

    // Runs both; every value of every frame and every row on the first rank.
    void expect_agreement(double tolerance = 1e-9) {
        large = run_large("explicit");
        const kestralum::Run alone = run_alone("explicit");
        expect_done(alone.report);
        ASSERT_EQ(large.report.status, RunStatus::done);
        EXPECT_EQ(large.report.dynamics.steps, alone.report.dynamics.steps);
        EXPECT_NEAR(large.report.dynamics.d_time, alone.report.dynamics.d_time,
                    1e-9 * alone.report.dynamics.d_time);
        EXPECT_EQ(large.report.dynamics.deepest_wall.node > 0, alone.report.dynamics.deepest_wall.node > 0);
        EXPECT_NEAR(large.report.dynamics.deepest_wall.depth, alone.report.dynamics.deepest_wall.depth,
                    tolerance * alone.report.dynamics.deepest_wall.depth);
        EXPECT_EQ(large.report.dynamics.deepest_wall.name, alone.report.dynamics.deepest_wall.name);
        const Penetration &got = large.report.dynamics.deepest_contact,
                          &exact = alone.report.dynamics.deepest_contact;
        EXPECT_EQ(got.name, exact.name);
        EXPECT_EQ(got.node, exact.node);
        EXPECT_NEAR(got.depth, exact.depth, tolerance * exact.depth);
        EXPECT_EQ(large.report.dynamics.eroded_elements, alone.report.dynamics.eroded_elements);
        EXPECT_NEAR(large.report.dynamics.eroded_mass_share, alone.report.dynamics.eroded_mass_share, 1e-12);
        if (!team.first()) return;
        EXPECT_TRUE(large.report.written);
        ASSERT_EQ(large.results.size(), alone.results.size());
        ASSERT_GT(alone.results.size(), 1u);
        held = 0;  // what holds a body may be nothing but rounding at the start
        for (const auto& frame : alone.results)
            for (const double force : frame->reaction) held = std::max(held, std::abs(force));
        for (std::size_t k = 0; k < alone.results.size(); ++k) {
            SCOPED_TRACE(k);
            expect_frame(*large.results[k], *alone.results[k], tolerance);
        }
        expect_rows(alone.history, tolerance);
    }
    void expect_values(const auto& got, const auto& exact, double tolerance, std::size_t first = 0,
                       std::size_t count = std::size_t(-1), double least = 0) {
        ASSERT_EQ(got.size(), exact.size());
        const auto end = std::min(exact.size(), count == std::size_t(-1) ? exact.size() : first + count);
        double largest = least, worst = 0;
        for (std::size_t d = first; d < end; ++d) {
            largest = std::max<double>(largest, std::abs(exact[d]));
            worst = std::max<double>(worst, std::abs(got[d] - exact[d]));
        }
        EXPECT_LE(worst, tolerance * largest);
    }
    void expect_frame(const Frame& got, const Frame& exact, double tolerance) {
        const double of_floats = std::max(tolerance, 2e-7);
        const std::size_t dofs = exact.mode_vec.size();
        EXPECT_NEAR(got.n_freq, exact.n_freq, 1e-12 * exact.n_freq);
        expect_values(got.mode_vec, exact.mode_vec, tolerance);
        for (const std::size_t group : {0, 2})  // stresses, strains
            expect_values(got.node_stress, exact.node_stress, tolerance, group * dofs, 2 * dofs);
        std::array<double, 3> largest{}, worst{};
        for (std::size_t d = 0; d < dofs; ++d) {
            largest[d % 3] = std::max(largest[d % 3], std::abs(exact.node_stress[4 * dofs + d]));
            worst[d % 3] = std::max(
                worst[d % 3], std::abs(got.node_stress[4 * dofs + d] - exact.node_stress[4 * dofs + d]));
        }
        largest[2] = std::max(largest[0], largest[2]);  // a principal stress may be nothing but rounding
        for (std::size_t c = 0; c < 3; ++c) EXPECT_LE(worst[c], tolerance * largest[c]) << c;
        expect_values(got.reaction, exact.reaction, tolerance, 0, exact.reaction.size(), held);
        expect_values(got.velocity, exact.velocity, of_floats);
        expect_values(got.acceleration, exact.acceleration, of_floats);
        expect_values(got.element_stress, exact.element_stress, of_floats);
        expect_values(got.element_plastic, exact.element_plastic, of_floats);
        EXPECT_EQ(got.removed, exact.removed);
    }
    void expect_rows(const HistoryRows& exact, double tolerance) {
        const HistoryRows& got = large.history;
        ASSERT_EQ(got.columns, exact.columns);
        ASSERT_EQ(got.values.size(), exact.values.size());
        const std::size_t columns = exact.columns.size();
        std::map<std::string, double> size;
        for (std::size_t k = 0; k < exact.values.size(); ++k) {
            double& most = size[kind_of(exact.columns[k % columns])];
            most = std::max(most, std::abs(exact.values[k]));
        }
        size["drift"] = 1;
        for (std::size_t k = 0; k < exact.values.size(); ++k) {
            const std::string& column = exact.columns[k % columns];
            ASSERT_NEAR(got.values[k], exact.values[k], tolerance * size[kind_of(column)])
                << column << " in row " << k / columns;
        }
    }
    double history(std::size_t row, const std::string& column) const {
        return large.history.value(row, column);
    }

    // A block that flies onto a ball of a wall, whose elements go.
    bool read_wearing_block() {
        return read(
            ModelText{.material = "7800 2e11 0.3", .parts = rect("B", "0.04 0.02 0.02", "12 5 5")},
            "end_time 60e-6 output_frequency 40 linear_viscosity 0.06 quadratic_viscosity 1.2 Plastic on "
            "MATERIAL_EXTRA_INFO M 0 3e8 1e8 erode=0.25 % RIGID_WALL STAMP sphere +x 0.005 0 0.1 0.2 -0.0051 "
            "-0.0051 0.0105 0.0105 0.01 0.01 0 0 0 % INITIAL_VELOCITY B part x -250 0 0 0 0 0 0 %");
    }

    kestralum::Run large;
    double held = 0;  // N: the largest reaction of a node in a run
};

// With an output in each step p(n+1) - p(n) = Δt (F(n) + F(n+1))/2 to rounding; it leaves as it came.
TEST_F(LargeExplicit, ABarThatStrikesAWallFliesBack) {
    options.probes = {{0, 0, 0}, {0.2, 0.02, 0.02}};
    ASSERT_TRUE(read(
        ModelText{.material = "8000 2e11 0", .parts = rect("BAR", "0.2 0.02 0.02", "50 2 2", "1e-3 0 0")},
        "end_time 120e-6 output_frequency 1 C_alfa 0" + steel_wall +
            "INITIAL_VELOCITY BAR part x -100 0 0 0 0 0 0 %"));
    expect_agreement();
    if (!team.first()) return;
    const double start = history(0, "momentum_x");
    const std::size_t rows = large.history.rows();
    EXPECT_NEAR(start, -100 * 8000 * 0.2 * 4e-4, 1e-9 * 64);
    EXPECT_NEAR(history(rows - 1, "momentum_x"), -start, 0.02 * 64);
    double largest = 0;
    for (std::size_t k = 0; k + 1 < rows; ++k) {
        const double mean = 0.5 * (history(k, "wall_WALL_x") + history(k + 1, "wall_WALL_x"));
        ASSERT_NEAR(history(k + 1, "momentum_x") - history(k, "momentum_x"),
                    mean * large.report.dynamics.d_time, 1e-11 * 64)
            << k;
        largest = std::max(largest, history(k, "wall_WALL_x"));
        EXPECT_LT(std::abs(history(k, "drift")), 1e-10);
    }
    EXPECT_GT(largest, 1.5e6);  // ρ c V A = 1.6 MN
}

TEST_F(LargeExplicit, ARubbingBlockIsDampedByAWallWithASet) {
    ASSERT_TRUE(read(
        box(ElementKind::hexahedron, {{6, 4, 3}, {0.1, 0.06, 0.04}}, "set_info LOW plane z 0 %\n"),
        "end_time 3e-4 output_frequency 7 C_alfa 0.01 Gravity -z RIGID_WALL FLOOR plane +z 0 0 0.3 0.2 set "
        "LOW 0 0 1e-5*sin(2e4*time) % "
        "INITIAL_VELOCITY b part x 20 0 0 0 0 0 0 b part z -5 0 0 0 0 0 0 %"));
    expect_agreement();
    if (!team.first()) return;
    const std::size_t last = large.history.rows() - 1;
    EXPECT_GT(history(last, "friction"), 1e-3 * history(0, "kinetic"));
    EXPECT_GT(history(last, "damping"), 0);
    EXPECT_GT(*large.report.dynamics.friction, 0);
}

TEST_F(LargeExplicit, AShakenBeamCarriesItsReactions) {
    const std::string supports =
        "FOOT plane z 0 0 0 0 0 0 SIDE volume x 0 0 0 0.021 0.05 0.2 ux=1e-5*sin(4e4*time)*(1+9*z) fix=y";
    ASSERT_TRUE(read(
        ModelText{.material = "7800 2e11 0.3",
                  .parts = rect("BEAM", "0.02 0.03 0.2", "2 3 12"),
                  .supports = supports,
                  .forces = "F area y 1e4 0.02 0.02 0 0.03 0.1 0.2 factor=sin(3e4*time)"},
        "end_time 2e-4 output_frequency 12 C_alfa 0.01 Gravity -z VELOCITY_INPUT FOOT volume x "
        "1*sin(9424.8*time) 0 0.02 0 0.03 0 0 EDGE volume y 0.2*cos(5e4*time) 0 0.02 0.03 0.031 0 0.2 %"));
    expect_agreement();
    if (!team.first()) return;
    const std::size_t last = large.history.rows() - 1;
    EXPECT_GT(std::abs(history(last, "support")), 0.1 * history(last, "kinetic"));
    EXPECT_NE(history(last, "support_SIDE_y"), 0);
}

TEST_F(LargeExplicit, ARodThatYieldsSpreadsAlike) {
    for (const std::optional<HexahedronForm> form :
         {std::optional<HexahedronForm>(), {HexahedronForm::enhanced}, {HexahedronForm::mean_dilatation}}) {
        options.hexahedra = form;
        options.mean_dilatation = !form;
        ASSERT_TRUE(read(
            ModelText{.material = "8930 117e9 0.35", .parts = rect("ROD", "3.2e-3 3.2e-3 16e-3", "4 4 20")},
            "d_time 1e-8 end_time 4e-6 output_frequency 80 Plastic on MATERIAL_EXTRA_INFO M "
            "117e9/(2*(1+0.35)) 400e6 100e6 % RIGID_WALL ANVIL plane +z 0 0 0 0.1 0 0 0 0 0 0 0 0 0 % "
            "INITIAL_VELOCITY ROD part z -227 0 0 0 0 0 0 %"));
        expect_agreement();
        if (!team.first()) continue;
        EXPECT_GT(history(large.history.rows() - 1, "plastic"), 0.1 * history(0, "kinetic"));
    }
}

// Steps that follow the shapes, viscosity that follows the lengths, a pressure that follows faces which
// several ranks have, heat, and a dead load.
TEST_F(LargeExplicit, TetrahedraUnderPressureAndHeatFollowTheirStep) {
    for (const ElementKind kind :
         {ElementKind::tetrahedron4, ElementKind::tetrahedron10, ElementKind::hexahedron}) {
        SCOPED_TRACE(static_cast<int>(kind));
        ASSERT_TRUE(
            read(box(kind, {{8, 3, 3}, {0.2, 0.07, 0.05}}, "set_info ALL patch 0 0.035 0.025 91 %\n",
                     "S plane x 0 0 0 0 0 0",
                     "P pressure ALL 1e14*time*(1+x) T traction ALL 1e12*time*x 0 0 factor=cos(time) H "
                     "temperature all "
                     "300+1e8*time*x reference=300"),
                 "d_time auto end_time 6e-5 output_time 1e-5 linear_viscosity 0.06 quadratic_viscosity 1.2"));
        for (Material& m : model.materials) m.expansion = 1e-5;
        expect_agreement();
        EXPECT_EQ(large.report.dynamics.frames, 7);
    }
}

// Fewer elements than ranks, and so many steps between outputs that the largest forces of walls are summed
// before one.
TEST_F(LargeExplicit, AFewElementsBounceBetweenFourWalls) {
    const auto wall = [](const std::string& name, const std::string& axis, const std::string& place) {
        return name + " plane " + axis + " 0 0 0 0.05 " + place + " 0 0 0 ";
    };
    ASSERT_TRUE(read(ModelText{.material = "8000 2e11 0.3", .parts = rect("BAR", "0.3 0.1 0.1", "3 1 1")},
                     "d_time 4e-6 end_time 6e-3 output_frequency 1200 RIGID_WALL " +
                         wall("A", "+x", "-0.001 -0.001 0 0 0 0") + wall("B", "-x", "0.301 0.301 0 0 0 0") +
                         wall("C", "+y", "0 0 -0.001 -0.001 0 0") + wall("D", "-y", "0 0 0.101 0.101 0 0") +
                         "% INITIAL_VELOCITY BAR part x 10 0 0 0 0 0 0 BAR part y 7 0 0 0 0 0 0 %"));
    expect_agreement(1e-8);
    if (!team.first()) return;
    for (const char* const name : {"A", "B", "C", "D"})
        EXPECT_GT(history(1, std::string("wall_") + name + "_peak"), 1e3);
}

// Springs of supports across the pieces' borders, ties between unlike meshes, a tied surface that a wall
// strikes and a spring holds, pressures on it, axes of their own, damping, plastic flow.
TEST_F(LargeExplicit, TiesSpringsAndSlantedSupportsReachAcrossPieces) {
    const std::string plastic =
        " Plastic on MATERIAL_EXTRA_INFO M 0 2e8 0 table=0:2e8,0.01:3e8 kinematic=1e9 % ";
    const ModelText tied{
        .material = "7800 2e11 0.3",
        .parts = rect("LOW", "0.2 0.2 0.2", "4 4 3") + rect("HIGH", "0.2 0.2 0.1", "5 6 2", "0 0 0.20001"),
        .supports =
            "A plane z 0 0 0 0 0 0 uz=1e-3*sin(2e4*time) B set SIDE spring=1e12 "
            "spring_normal=3e11 C set SEAM spring=1e11",
        .rigid =
            "% tie_info T S R tolerance=1e-4 % load_info P pressure TOP 1e12*time F traction TOP "
            "1e10*time*x 0 0 factor=time G pressure SEAM 1e6 %",
        .others =
            "set_info R plane z 0.2 S plane z 0.20001 TOP plane z 0.30001 SIDE plane x 0 SEAM plane z "
            "0.20001 %\n"};
    ASSERT_TRUE(read(tied, "end_time 300e-6 output_frequency 15 C_alfa 0.01 Gravity -z" + plastic +
                               "RIGID_WALL SIDEWAYS plane +x 0 0 0 0.3 0 0 0 0 0 0 -1e-4 0 0 % "
                               "INITIAL_VELOCITY HIGH part x -8 0 0 0 0 0 0 %"));
    expect_agreement();
    if (team.first()) {
        EXPECT_GT(history(large.history.rows() - 1, "plastic"), 0);
        EXPECT_GT(std::abs(history(large.history.rows() - 1, "support_B_x")), 1e3);
    }
    const double c = std::cos(std::numbers::pi / 6);
    ASSERT_TRUE(read(
        ModelText{.parts = "b red M RECT 0.5 0.2 0.1 0 0 0 9 4 2 0 0 0 0 0 0 30 0 0\n",
                  .supports = "A set ROOT fix=normal B set LOW fix=z uz=1e-4*sin(3e4*time)",
                  .forces = "F area x 1e5 0 1 0 1 0 1",
                  .others = formatted("set_info ROOT patch %.17g %.17g 0.05 5 LOW patch %.17g %.17g 0 5 %%\n",
                                      -0.05, 0.1 * c, 0.25 * c - 0.05, 0.125 + 0.1 * c)},
        "d_time auto end_time 300e-6 output_time 3e-5 C_alfa 0.01" + plastic));
    expect_agreement();
}

// Every rank leads every body, of whose members it may have none.
TEST_F(LargeExplicit, RigidBodiesAreLedAlike) {
    const ModelText jointed{
        .material = "8000 2e11 0.3",
        .parts = rect("A", "0.2 0.02 0.02", "16 2 2") + rect("B", "0.2 0.02 0.02", "16 2 2", "0.25 0 0"),
        .supports = "HINGE volume x 0.449 0.451 0 0.0001 0 0.03",
        .rigid =
            "R area 0.1 0.01 0.01 0.05 0.2 0 0.02 0 0.02 S area 0.3 0.01 0.01 0.25 0.35 0 0.02 0 0.02 H "
            "area 0.45 0 0 0.43 0.46 0 0.02 0 0.02 % rigid_combine J R S 5e6 5e6 5e6 1e3 1e3 1e3 cx=200 "
            "crz=1 %"};
    const std::string control =
        " Gravity -y C_alfa 0.01 Plastic on MATERIAL_EXTRA_INFO M 0 3e8 1e9 % "
        "RIGID_WALL FLOOR plane +y 0 0 0.3 0.1 0 0 0 0 0 0 0 -1e-5 0 % "
        "VELOCITY_INPUT D volume z 3*sin(1e4*time) 0.06 0.1 0 0.001 0 0.001 % "
        "INITIAL_VELOCITY A part y -12 0 0 0 0 0 0 B part x -5 0 0 0 0 0 0 %";
    for (const std::string steps : {"end_time 200e-6 output_frequency 20", "d_time auto end_time 200e-6"}) {
        ASSERT_TRUE(read(jointed, steps + control));
        expect_agreement();
        if (!team.first()) continue;
        const std::size_t last = large.history.rows() - 1;
        EXPECT_GT(history(last, "friction"), 0);
        EXPECT_GT(history(last, "damping"), 0);
        EXPECT_NE(history(last, "reaction_y"), 0);
    }
}

// What is laid bare on one rank meets walls on all that have the node.
TEST_F(LargeExplicit, ElementsThatAreWornOutGoOnAllRanks) {
    ASSERT_TRUE(read_wearing_block());
    expect_agreement();
    EXPECT_GT(large.report.dynamics.eroded_elements, 6);
    if (team.first()) {
        EXPECT_GT(large.results.back()->removed.size(), 6u);
    }
    // of four ranks three have an element each, and two lose it
    ASSERT_TRUE(
        read(ModelText{.material = "8000 2e11 0.3", .parts = rect("BAR", "0.3 0.1 0.1", "3 1 1")},
             "end_time 2e-4 output_frequency 5 linear_viscosity 0.06 Plastic on MATERIAL_EXTRA_INFO M 0 "
             "3e8 1e9 erode=0.02 %" +
                 steel_wall + "INITIAL_VELOCITY BAR part x -100 0 0 0 0 0 0 %"));
    expect_agreement();
    EXPECT_EQ(large.report.dynamics.eroded_elements, 2);
}

// Blocks that meet across the pieces' borders, rub, stick and hit edge on edge, one of them a rigid body, one
// tied and held by a roller, and a wall.
TEST_F(LargeExplicit, BodiesMeetAcrossPieces) {
    const ModelText bodies{
        .material = "7800 2e11 0.3",
        .parts = rect("A", "0.1 0.1 0.1", "3 3 3", "0.0095 0 0") +
                 rect("B", "0.1 0.1 0.1", "4 4 4", "0.01 0.005 0.1001") +
                 rect("C", "0.1 0.1 0.1", "2 3 2", "0.1105 0.08 0.06") +
                 rect("D", "0.1 0.1 0.05", "5 5 2", "0.01 0.005 0.20011"),
        .supports = "ROLL set OUTSIDE fix=normal",
        .rigid = "C area 0.16 0.13 0.11 0.11 0.22 0.08 0.19 0.06 0.17 % tie_info T S R tolerance=1e-4 %",
        .others = "set_info R plane z 0.2001 S plane z 0.20011 OUTSIDE plane x 0.2105 %\n"};
    const std::string control =
        "output_frequency 20 Gravity -z Element_contact on Plastic on MATERIAL_EXTRA_INFO M 0 1e8 1e9 % "
        "RIGID_WALL W plane +z 0 0 0.3 0.1 0 0 0 0 -0.0001 -0.0001 0 0 1e-3*sin(2e4*time) % INITIAL_VELOCITY "
        "A "
        "part z -20 0 0 0 0 0 0 B part z -60 0 0 0 0 0 0 B part x 10 0 0 0 0 0 0 D part z -60 0 0 0 0 0 0 A "
        "part "
        "x 30 0 0 0 0 0 0 % ELEMENT_CONTACT HIT A B 1 0.3 0.1 0 0 0 0 0 0 0 10e-6 SIDE A C 1 0 0 0 0 0 0 0 0 "
        "0 "
        "0 EDGE B C 1 0.1 0 0 0 0 0 0 0 0 0 %";
    for (const std::string steps : {"end_time 200e-6 ", "d_time auto end_time 120e-6 C_alfa 0.001 "}) {
        ASSERT_TRUE(read(bodies, steps + control));
        expect_agreement();
        EXPECT_EQ(large.report.dynamics.deepest_contact.node > 0, true);
        if (!team.first()) continue;
        const std::size_t last = large.history.rows() - 1;
        EXPECT_GT(history(last, "friction"), 0);
        EXPECT_NE(history(last, "contact_HIT_peak"), 0);
        EXPECT_NE(history(last, "contact_SIDE_peak"), 0);
    }
}

// A contact that is deeper than candidates are looked for goes on over the surface of a part that is merged
// with the pair's.
TEST_F(LargeExplicit, ADeepContactGoesOnOverAMergedPart) {
    ASSERT_TRUE(
        read(ModelText{.parts = rect("A", "0.2 0.1 0.06", "10 5 3") +
                                rect("A2", "0.2 0.1 0.06", "10 5 3", "0.2 0 0") +
                                rect("B", "0.04 0.04 0.04", "2 2 2", "0.04 0.03 0.0601"),
                       .supports = "F plane z 0 0 0 0 0 0"},
             "end_time 800e-6 output_frequency 20 Element_contact on INITIAL_VELOCITY B part z -80 0 0 "
             "0 0 0 0 B part x 250 0 0 0 0 0 0 % ELEMENT_CONTACT H A B 0.001 0 0 0 0 0 0 0 0 0 0 %"));
    expect_agreement();
    if (!team.first()) return;
    EXPECT_NE(history(large.history.rows() - 1, "contact_H_z"), 0);
}

// A cube goes through a plate: the layer behind is met when the one before has gone, on whichever rank.
TEST_F(LargeExplicit, WhatIsLaidBareIsMetOnAllRanks) {
    ASSERT_TRUE(read(
        ModelText{.material = "7800 2e11 0.3 HARD 7800 2e11 0.3",
                  .parts = rect("PLATE", "0.06 0.06 0.004", "9 9 2") +
                           "CUBE red HARD RECT 0.02 0.02 0.02 0 0 0 2 2 2 0 0 0 0.021 0.019 0.0045 0 0 0\n",
                  .supports = "S plane x 0 0 0 0 0 0 T plane x 0.06 0.06 0 0 0 0"},
        "end_time 60e-6 output_frequency 40 Plastic on Element_contact on MATERIAL_EXTRA_INFO M 0 3e8 1e9 "
        "erode=0.2 % INITIAL_VELOCITY CUBE part z -300 0 0 0 0 0 0 % ELEMENT_CONTACT HIT CUBE PLATE 1 0 0 0 "
        "0 0 0 "
        "0 0 0 0 %"));
    expect_agreement();
    EXPECT_GT(large.report.dynamics.eroded_elements, 4);
}

// A body that is pressed flat: the step falls, and the run ends in the same step with the same line.
TEST_F(LargeExplicit, ARunThatDivergesEndsAllRanksWithOneLine) {
    const std::string soft =
        ModelText{.material = "1000 1e6 0.3", .parts = rect("B", "0.4 0.1 0.1", "16 2 2")};
    for (const std::string control : {"d_time 1e-4 end_time 1", "d_time auto end_time 1 output_time 1e-2"}) {
        ASSERT_TRUE(read(soft, control + " output_frequency 1000 " + steel_wall +
                                   "INITIAL_VELOCITY B part x -30 0 0 0 0 0 0 %"));
        large = run_large("explicit");
        const kestralum::Run alone = run_alone("explicit");
        ASSERT_EQ(alone.report.status, RunStatus::failed) << control;
        EXPECT_EQ(large.report.status, RunStatus::failed);
        EXPECT_EQ(large.report.remarks.errors, alone.report.remarks.errors);
        EXPECT_EQ(large.report.dynamics.steps, alone.report.dynamics.steps);
        EXPECT_EQ(large.report.dynamics.frames, alone.report.dynamics.frames);
    }
}

// Asks to stop in a step.
class StopsInAStep : public Collected {
public:
    bool cancelled() const override { return place().stage == "steps" && place().count >= 40; }
};

TEST_F(LargeExplicit, AStopOnOneRankLeavesTheFilesOfWhatWasReached) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 0.1 0.1", "24 3 3")},
                     "end_time 1 output_frequency 10 INITIAL_VELOCITY A part x 1 0 0 0 0 0 0 %"));
    for (const bool pieces : {false, true}) {
        StopsInAStep stops;
        Collected goes_on;  // until the run stops it too
        LargeOptions chosen{.run = options, .pieces = pieces};
        chosen.run.log_folder = log_folder;
        Progress& here = team.rank() == team.size() - 1 ? static_cast<Progress&>(stops) : goes_on;
        const kestralum::Run run = analyse_large(team, "explicit", model, settings, chosen, here);
        EXPECT_EQ(run.report.status, RunStatus::cancelled);
        EXPECT_NE(joined(run.report.remarks.errors).find("stopped on request after step 4"),
                  std::string::npos)
            << joined(run.report.remarks.errors);
        EXPECT_EQ(run.report.dynamics.frames, 5);
        EXPECT_EQ(run.report.listed_frames, pieces ? 5 : 0);
        EXPECT_EQ(run.report.dynamics.history_written, team.first());
        if (!team.first()) continue;
        EXPECT_EQ(run.results.size(), 5u);
        Collected reads;
        const auto back = pieces
                              ? read_series()
                              : read_result_file(result_file_name(model.model_file_name), log_folder, reads);
        ASSERT_TRUE(back) << reads.errors;
        EXPECT_EQ(back->run.results.size(), 5u);
    }
}

// The pieces of every frame, read back, are the frames of one process; the history and the largest values are
// found all the same.
TEST_F(LargeExplicit, PiecesOfEveryFrameAreTheFramesOfOneProcess) {
    // the nodes of elements, whatever their order
    const auto nodes_of = [](const Mesh& mesh, const std::vector<std::int32_t>& elements) {
        std::vector<std::vector<std::int32_t>> out;
        for (const std::int32_t e : elements)
            out.emplace_back(mesh.element(e).begin(), mesh.element(e).end());
        std::ranges::sort(out);
        return out;
    };
    const auto expect_pieces = [&](double tolerance = 1e-9) {
        large = run_large("explicit", "auto", true);
        const kestralum::Run alone = run_alone("explicit");
        ASSERT_EQ(large.report.status, RunStatus::done) << joined(large.report.remarks.errors);
        EXPECT_GT(alone.mode_num(), 2);
        EXPECT_EQ(large.report.listed_frames, alone.mode_num());
        EXPECT_EQ(large.report.dynamics.frames, alone.mode_num());
        EXPECT_FALSE(large.report.written || large.report.dynamics.displacements_written);
        for (const auto& [got, exact] :
             {std::pair{large.report.largest_mises, alone.report.largest_mises},
              {large.report.largest_displacement, alone.report.largest_displacement}}) {
            EXPECT_NEAR(got.value, exact.value, tolerance * exact.value);
            for (std::size_t c = 0; c < 3; ++c) EXPECT_EQ(got.place[c], alone.mesh.node(got.node - 1)[c]);
        }
        if (!team.first()) return;
        EXPECT_TRUE(large.report.dynamics.history_written);
        for (const char* file : {"/result_model.txt", "/disp_model.txt", "/frames_model.txt"})
            EXPECT_FALSE(std::filesystem::exists(log_folder + file)) << file;
        expect_rows(alone.history, tolerance);
        const auto back = read_series();
        ASSERT_TRUE(back);
        EXPECT_EQ(back->run.ana_type, AnalysisType::explicit_dynamics);
        EXPECT_EQ(back->run.mesh.coordinates, alone.mesh.coordinates);
        EXPECT_EQ(back->run.mesh.element_num(), alone.mesh.element_num());
        ASSERT_EQ(back->run.results.size(), alone.results.size());
        for (std::size_t k = 0; k < alone.results.size(); ++k) {
            SCOPED_TRACE(k);
            expect_fields(*back->run.results[k], *alone.results[k], tolerance, tolerance, tolerance);
            EXPECT_EQ(nodes_of(back->run.mesh, back->run.results[k]->removed),
                      nodes_of(alone.mesh, alone.results[k]->removed));
        }
    };
    ASSERT_TRUE(
        read(ModelText{.material = "8930 117e9 0.35", .parts = rect("ROD", "3.2e-3 3.2e-3 16e-3", "4 4 20")},
             "d_time 1e-8 end_time 4e-6 output_frequency 200 Plastic on MATERIAL_EXTRA_INFO M "
             "117e9/(2*(1+0.35)) 400e6 100e6 % RIGID_WALL ANVIL plane +z 0 0 0 0.1 0 0 0 0 0 0 0 0 0 % "
             "INITIAL_VELOCITY ROD part z -227 0 0 0 0 0 0 %"));
    expect_pieces();
    ASSERT_TRUE(read(box(ElementKind::tetrahedron10, {{8, 3, 3}, {0.2, 0.07, 0.05}},
                         "set_info ALL patch 0 0.035 0.025 91 %\n", "S plane x 0 0 0 0 0 0",
                         "P pressure ALL 1e14*time*(1+x)"),
                     "d_time auto end_time 3e-5 output_time 1e-5"));
    expect_pieces();
    // fewer elements than ranks
    ASSERT_TRUE(read(ModelText{.material = "8000 2e11 0.3", .parts = rect("BAR", "0.3 0.1 0.1", "3 1 1")},
                     "d_time 4e-6 end_time 4e-4 output_frequency 50" + steel_wall +
                         "INITIAL_VELOCITY BAR part x -10 0 0 0 0 0 0 %"));
    expect_pieces();
    ASSERT_TRUE(read_wearing_block());
    expect_pieces(1e-8);
    EXPECT_GT(large.report.dynamics.eroded_elements, 6);
}

TEST_F(LargeExplicit, APieceThatCannotBeWrittenEndsAllRanksWithOneLine) {
    ASSERT_TRUE(read(ModelText{.parts = rect("A", "1 0.1 0.1", "24 3 3")},
                     "end_time 1 output_frequency 10 INITIAL_VELOCITY A part x 1 0 0 0 0 0 0 %"));
    expect_end_at_second_frame("explicit");
}

}  // namespace
}  // namespace kestralum::testing
