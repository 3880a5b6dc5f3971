// The explicit analysis without contact: motion, conservation, waves, supports, outputs.
#include <algorithm>
#include <filesystem>

#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

const std::string clamp = "clamp plane x 0 0 0 0 0 0";

class Explicit : public ExplicitTest {
protected:
    static std::string bar(const std::string& supports = "", const std::string& forces = "") {
        return ModelText{.material = "8000 2e11 0",
                         .parts = rect("BAR", "0.2 0.02 0.02", "100 2 2"),
                         .supports = supports,
                         .forces = forces};
    }
    void make_cube() { make(hexa_box({{1, 1, 1}, {1, 1, 1}}), steel); }
};

const std::string pulled = "pull area y 4000 0.2 0.2 0 0.02 0 0.02";

// A body set spinning about an oblique axis: the pull of the centrifugal forces makes waves, the momenta
// stay.
TEST_F(Explicit, ASpinningBodyKeepsItsMomenta) {
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        make(box_mesh({{3, 2, 2}, {0.3, 0.2, 0.15}}, kind), steel);
        read_control("output_frequency 10 end_time 2e-3");
        ASSERT_TRUE(begin());
        const double w[3] = {300, -500, 800};
        for (std::size_t d = 0; d < state->v.size(); ++d) {
            const double* x = &state->x[d - d % 4];
            const std::size_t a = (d % 4 + 1) % 3, b = (d % 4 + 2) % 3;
            if (d % 4 < 3) state->v[d] = w[a] * x[b] - w[b] * x[a] + 10;
        }
        state->velocities_known = false;
        result.results.clear();
        state->history.values.clear();
        state->largest_energy = 0;
        store_frame(*job, *state);
        run_to(state->time_num - 1);
        ASSERT_FALSE(state->diverged);
        ASSERT_GT(rows(), 10u);
        for (const std::string momentum : {"momentum_", "angular_momentum_"}) {
            double size = 0;
            for (const char* axis : {"x", "y", "z"})
                size = std::max(size, std::abs(history(0, momentum + axis)));
            for (const char* axis : {"x", "y", "z"}) expect_kept(momentum + axis, 1e-10 * size);
        }
        EXPECT_LT(largest_drift(), 0.01);
        EXPECT_GT(last("internal"), 1e-5 * last("kinetic")) << "the body was to be strained";
    }
}

// Damped to rest the body stands where the linear analysis puts it, for every element type.
TEST_F(Explicit, DampedToRestItIsTheLinearStaticAnswer) {
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        read(ModelText{.parts = part_of(kind, {{4, 2, 2}, {0.2, 0.1, 0.1}}),
                       .supports = clamp,
                       .forces = "push area y 100 0.2 0.2 -1 1 -1 1"},
             "end_time 15e-3 output_frequency 100000 C_alfa 0.03");
        settings.ordering_type = "LMAX";  // the same numbers
        expect_done(analyse(analyse_static));
        const kestralum::Run linear = std::move(result);
        run();
        ASSERT_EQ(result.mesh.coordinates, linear.mesh.coordinates);
        result.results.clear();
        store_frame(*job, *state);
        const std::size_t dofs = result.mesh.dof_num();
        expect_equal(frame().mode_vec, linear.results[0]->mode_vec, 1e-4);
        expect_equal(frame().node_stress, linear.results[0]->node_stress, 1e-3, 0, dofs);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(state->reaction[c], c == 1 ? -100 : 0, 1e-2);
    }
}

// The steps have an order of nodes of their own; frames, loads, probes and the summary have the run's.
TEST_F(Explicit, WhatLeavesTheRunCountsTheRunsNodes) {
    read(bar("", "push node x -3 0.2 0.02 0.02"),
         "end_time 4e-5 output_frequency 20 INITIAL_VELOCITY BAR part x -5 0 0 0 0 0 0 % RIGID_WALL W plane "
         "+x 0 0 "
         "0 0 0 0 0 0 0 0 0 0 0 %");
    options.probes = {{0.1, 0.02, 0}};
    expect_done(analyse(analyse_explicit));
    for (std::size_t d = 0; d < result.load.size(); ++d)
        ASSERT_EQ(result.load[d], d == 3 * AnalysisTest::node_at(0.2, 0.02, 0.02) ? -3 : 0);
    const std::size_t probe = AnalysisTest::node_at(0.1, 0.02, 0);
    const std::size_t row = result.history.rows() - 1;
    const std::string name = "node" + std::to_string(probe + 1);
    const std::vector<double>& u = result.results.back()->mode_vec;
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_EQ(result.history.value(row, name + "_u_" + "xyz"[c]), u[3 * probe + c]);
    EXPECT_NE(u[3 * probe], 0);
    const Penetration& deepest = result.report.dynamics.deepest_wall;
    ASSERT_GT(deepest.node, 0);
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(result.mesh.node(deepest.node - 1)[c], deepest.place[c], 1e-3);
    const auto& mises = result.report.largest_mises;
    const std::size_t stress = 4 * u.size() + 3 * std::size_t(mises.node - 1);
    EXPECT_EQ(result.results.back()->node_stress[stress], mises.value);
}

// A driven face moves as prescribed, though a support holds it; its forces do the work that the body takes.
TEST_F(Explicit, APrescribedVelocityMovesASupportAndItsWorkIsCounted) {
    run(bar(clamp),
        "end_time 100e-6 output_frequency 20 VELOCITY_INPUT face plane x 40*sin(1e5*time) 0 0 0 0 0 0 %");
    const double t = static_cast<double>(state->step) * state->d_time;
    EXPECT_NEAR(u(node_at(0, 0.01, 0.01), 0), 40 / 1e5 * (1 - std::cos(1e5 * t)), 2e-3 * 40 / 1e5);
    EXPECT_EQ(u(node_at(0, 0.01, 0.01), 1), 0) << "its other directions stay held";
    EXPECT_GT(most("support"), 1.0);
    EXPECT_LT(largest_drift(), 1e-6);
    // the wave that runs in: σ = ρ c v
    double force = 0;
    for (std::size_t r = 0; r < rows(); ++r)
        if (history(r, "time") < 40e-6) force = std::max(force, std::abs(history(r, "reaction_x")));
    EXPECT_NEAR(force, 8000 * 5000 * 40 * 4e-4, 0.05 * 8000 * 5000 * 40 * 4e-4);
}

TEST_F(Explicit, InitialVelocityGoesToWhatTheRecordSelects) {
    read(ModelText{.material = "1000 1e9 0.2",
                   .parts = rect("A", "1 1 1", "2 1 1") + rect("B", "1 1 1", "1 1 1", "5 0 0"),
                   .supports = "foot plane z 0 0 0 0 0 0"},
         "end_time 1e-5 d_time 1e-6 INITIAL_VELOCITY B part y 3 0 0 0 0 0 0 some volume x 2*time+7 0 0.5 0 1 "
         "0.5 1 face area y -4 0 1 1 1 0 1 %");
    ASSERT_TRUE(begin());
    auto v = [&](double x, double y, double z, int c) { return state->v[4 * node_at(x, y, z) + c]; };
    EXPECT_EQ(v(6, 0, 1, 1), 3);
    EXPECT_EQ(v(6, 0, 0, 1), 0) << "the support holds";
    EXPECT_EQ(v(0.5, 0, 1, 0), 7);
    EXPECT_EQ(v(1, 0, 1, 0), 0);
    EXPECT_EQ(v(1, 1, 1, 1), -4);
    EXPECT_TRUE(contains(said.lines, " INITIAL_VELOCITY[0]: 3, 1\n  c_ = 8\n"));
}

TEST_F(Explicit, StepAndFrameCounts) {
    const struct {
        double end, step;
        int every;
        std::int64_t time_num, out_time_num;
    } cases[] = {{1e-5, 1e-6, 5, 11, 3},
                 {0.9e-6, 1e-6, 1, 1, 1},
                 {1e-5, 1e-6, 1, 11, 11},
                 {0.7, 0.1, 2, 8, 4},
                 {1e-5, 1e-6, 0, 11, 11}};
    for (const auto& c : cases) {
        make(hexa_box({{1, 1, 1}, {1e6, 1e6, 1e6}}), steel);
        read_control(formatted("end_time %g d_time %g output_frequency 1", c.end, c.step));
        model.control.output_frequency = c.every;
        const RunReport done = analyse(analyse_explicit);
        expect_done(done);
        EXPECT_EQ(done.dynamics.steps, c.time_num - 1);
        EXPECT_EQ(result.mode_num(), c.out_time_num);
        const auto last_step = static_cast<double>((c.out_time_num - 1) * std::max(c.every, 1));
        EXPECT_NEAR(result.results.back()->n_freq, last_step * c.step, 1e-12);
        EXPECT_EQ(done.remarks.notices.size(), c.every < 1 ? 1u : 0u);
    }
}

TEST_F(Explicit, LostNodesAreListedElementByElement) {
    make(box_mesh({{2, 1, 1}, {2, 1, 1}}, ElementKind::hexahedron), steel);
    read_control("end_time 1e-3 d_time 1e-5 output_frequency 1");
    ASSERT_TRUE(begin());
    run_to(3);
    state->v[4 * node_at(2, 0, 0) + 1] = std::nan("");
    state->velocities_known = false;
    said.lines.clear();
    explicit_step(*job, *state);
    EXPECT_TRUE(state->diverged);
    EXPECT_TRUE(contains(said.lines,
                         "########## Time: 4.000e-05[s]  4/101##########\nEle=1,5; part=0[BODY], "
                         "coord:2.000e+00, 0.000e+00, 0.000e+00\n         :"))
        << said.lines;
    EXPECT_FALSE(contains(said.lines, "Ele=0"));
    EXPECT_EQ(result.mode_num(), 4);
}

// What a user may get wrong: one line, nothing computed.
TEST_F(Explicit, RefusesWhatItCannotStep) {
    const struct {
        std::function<void(Model&)> spoil;
        const char* says;
    } cases[] = {
        {[](Model& s) { s.materials[0].density = 0; }, "density"},
        {[](Model& s) { s.materials[0].poisson = 0.5; }, "Poisson"},
        {[](Model& s) { s.control.d_time = -1; }, "d_time"},
        {[](Model& s) { s.control.end_time = std::nan(""); }, "end_time"},
        {[](Model& s) { s.control.d_time = 1e-300; }, "too many steps"},
        {[](Model& s) { s.control.d_time = 1e-14; }, "raise output_frequency"},
        {[](Model& s) { s.rigid_elements.emplace_back().region.fill(9); }, "no node of its own"},
        {[](Model& s) { s.mesh.connectivity = s.mesh.p_ele_part_id = {}; }, "no solid elements"},
        {[](Model& s) { s.control.c_alfa = -0.1; }, "C_alfa"},
    };
    for (const auto& c : cases) {
        make_cube();
        read_control("end_time 1 output_frequency 1 d_time 0.1");
        c.spoil(model);
        const RunReport refused = analyse(analyse_explicit);
        EXPECT_EQ(refused.status, RunStatus::bad_input) << c.says;
        EXPECT_TRUE(contains(refused.remarks.errors, c.says)) << c.says;
        EXPECT_FALSE(refused.written || refused.has_results());
        EXPECT_FALSE(std::filesystem::exists(log("result_model.txt")));
    }
}

TEST_F(Explicit, RemarksOnPlasticConstantsDampingAndTheStep) {
    make_cube();
    model.materials[0].yield_stress = 1e8;
    model.materials[0].shear_modulus = 1.2 * 2e11 / 2.6;
    read_control("Plastic on end_time 1e-4 d_time 1 output_frequency 1");
    ASSERT_TRUE(begin());
    const std::string differs =
        "G = 9.230769e+10 of the control file differs from E/(2(1+nu)) = 7.692308e+10";
    EXPECT_TRUE(contains(report.remarks.notices, differs));
    EXPECT_TRUE(contains(said.notices, "d_time = 1.000e+00 s is above the stable step"));
    model.materials[0].shear_modulus = 2e11 / 2.6;
    read_control("d_time 0 output_frequency 1 C_alfa 0.1");
    said.notices.clear();
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(said.notices, "C_alfa damps the rigid motion"));
    EXPECT_FALSE(contains(report.remarks.notices, "differs"));
    EXPECT_TRUE(contains(said.notices, "d_time is not given"));
    EXPECT_NEAR(state->d_time, 0.9 * state->stable_step, 1e-15);
}

// A body squeezed flat: the bound of its shapes passes the step in force, and that is said once.
TEST_F(Explicit, TheStepIsWatchedAsShapesChange) {
    make(box_mesh({{2, 2, 4}, {0.1, 0.1, 0.2}}, ElementKind::hexahedron), steel);
    model.materials[0].yield_stress = 1e7;
    read_control(
        "Plastic on end_time 2e-3 output_frequency 1000 VELOCITY_INPUT top volume z -80 0 0.1 0 0.1 0.2 0.2 "
        "bottom volume z 0 0 0.1 0 0.1 0 0 %");
    ASSERT_TRUE(begin());
    run_to(state->time_num - 1);
    const std::size_t first = said.notices.find("passes the stable step of");
    ASSERT_NE(first, std::string::npos);
    EXPECT_FALSE(contains(said.notices.substr(first + 1), "passes the stable step of"));
}

// Stepped by a window, with its lines, or at once: the same bytes on disk.
TEST_F(Explicit, RealTimeIsTheBatchRunInPieces) {
    read(bar(clamp, pulled), "end_time 20e-6 output_frequency 4 d_time 2.5e-7 Gravity -y C_alfa 0.001");
    ASSERT_EQ(analyse(analyse_explicit).status, RunStatus::done);
    const std::string batch = file("disp_model.txt"), batch_results = file("result_model.txt");
    EXPECT_GT(batch.size(), 10000u);
    const HistoryRows rows_of_batch = result.history;
    EXPECT_EQ(rows_of_batch.rows(), result.results.size());

    const Settings of_all = analysis_settings();
    ExplicitAnalysis live(model, of_all, options, said);
    ASSERT_TRUE(live.begin());
    EXPECT_EQ(live.run().mode_num(), 1);
    said.lines.clear();
    ASSERT_TRUE(live.advance());
    EXPECT_EQ(live.run().mode_num(), 2);
    EXPECT_EQ(live.run().history.rows(), 2u);
    EXPECT_TRUE(contains(said.lines, "  4/81##########\n ti_current = 2\n"));
    EXPECT_FALSE(contains(said.lines, "  5/81####"));
    int calls = 2;
    while (live.advance()) ++calls;
    EXPECT_EQ(calls, 20);
    live.finish();
    const kestralum::Run run_in_pieces = live.take();
    EXPECT_EQ(run_in_pieces.report.status, RunStatus::done);
    EXPECT_EQ(run_in_pieces.history.values, rows_of_batch.values);
    EXPECT_EQ(file("disp_model.txt"), batch);
    EXPECT_EQ(file("result_model.txt"), batch_results);
}

TEST_F(Explicit, ADivergedRunEndsWithItsFiles) {
    read(bar(clamp, pulled), "end_time 1e-2 output_frequency 4 d_time 1e-5");
    const RunReport ended = analyse(analyse_explicit);
    EXPECT_EQ(ended.status, RunStatus::failed);
    EXPECT_TRUE(ended.has_results() && ended.written && ended.dynamics.displacements_written &&
                ended.dynamics.history_written);
    EXPECT_LT(result.mode_num(), 250);
}

}  // namespace
}  // namespace kestralum
