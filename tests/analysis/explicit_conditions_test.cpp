// Supports with options, ties and loads over time in the explicit analysis: against the static analysis where
// it comes to rest, against momentum, work and hand calculation where it moves.
#include <numbers>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "support/explicit_run.h"
#include "support/heap_count.h"

namespace kestralum {
namespace {

using namespace testing;

class ExplicitConditions : public ExplicitTest {
protected:
    // A bar of 0.5 × 0.2 × 0.1 turned about z by 30 degrees, with sets of its faces; α = 1e-5.
    std::string turned_bar(ElementKind kind, const std::string& supports, const std::string& more) {
        const double c = std::cos(std::numbers::pi / 6), s = 0.5;
        const auto at = [&](double x, double y, double z) {
            return formatted("%.17g %.17g %.17g", c * x - s * y, s * x + c * y, z);
        };
        std::string part = part_of(kind, Grid{{5, 2, 1}, {0.5, 0.2, 0.1}});
        part.replace(part.rfind("0 0 0"), 5, "30 0 0");
        return ModelText{.material = "7800 2e11 0.3 alpha=1e-5",
                         .parts = part,
                         .supports = supports,
                         .rigid = "% " + more,
                         .others = "set_info ROOT patch " + at(0, 0.1, 0.05) + " 5 TIP patch " +
                                   at(0.5, 0.1, 0.05) + " 5 SIDE patch " + at(0.25, 0, 0.05) +
                                   " 5 LOW patch " + at(0.25, 0.1, 0) + " 5 %\n"};
    }
    // Two blocks one above the other with unlike meshes; the upper one is tied to the lower.
    std::string tied_blocks(ElementKind kind, const std::string& supports, const std::string& more) {
        const auto block = [&](const std::string& name, const Grid& g, double z) {
            if (kind == ElementKind::hexahedron)
                return rect(name, formatted("%g %g %g", g.size[0], g.size[1], g.size[2]),
                            formatted("%d %d %d", g.cells[0], g.cells[1], g.cells[2]),
                            formatted("0 0 %g", z));
            folder.write(name + ".vol", vol_text(box_mesh(g, kind)));
            return name + " red M VOL " + name + ".vol 0 0 0 0 0 0 0 0 0 0 0 0 0 " + formatted("%g", z) +
                   " 0 0 0\n";
        };
        return ModelText{.parts = block("LOW", {{2, 2, 2}, {0.2, 0.2, 0.2}}, 0) +
                                  block("HIGH", {{3, 3, 1}, {0.2, 0.2, 0.1}}, 0.20001),
                         .supports = supports,
                         .rigid = "% tie_info T S R tolerance=1e-4 % " + more,
                         .others = "set_info R plane z 0.2 S plane z 0.20001 TOP plane z 0.30001 %\n"};
    }
    // Runs `text` damped to rest and compares with the static analysis: displacements, stresses (with the
    // largest, or `stress`, Pa) and reactions.
    void expect_static_answer(const std::string& text, const std::string& control, double tolerance,
                              double stress = 0) {
        read(text, control);
        settings.ordering_type = "LMAX";  // the same numbers
        expect_done(analyse(analyse_static));
        const kestralum::Run linear = std::move(result);
        run();
        ASSERT_EQ(result.mesh.coordinates, linear.mesh.coordinates);
        EXPECT_LT(largest_drift(), 1e-5) << "the balance holds with what supports and heat do";
        result.results.clear();
        store_frame(*job, *state);
        expect_equal(frame().mode_vec, linear.results[0]->mode_vec, tolerance);
        const std::size_t stresses = 2 * result.mesh.dof_num();
        const auto& exact = linear.results[0]->node_stress;
        for (std::size_t k = 0; k < stresses && stress > 0; ++k)
            ASSERT_NEAR(frame().node_stress[k], exact[k], tolerance * stress);
        if (stress > 0) return;
        expect_equal(frame().node_stress, exact, 10 * tolerance, 0, stresses);
        double size = 0;
        for (const auto& s : linear.report.supports)
            for (double f : s.force) size = std::max(size, std::abs(f));
        ASSERT_EQ(state->reactions.size(), linear.report.supports.size());
        std::array<double, 3> sum{};
        for (std::size_t b = 0; b < state->reactions.size(); ++b)
            for (std::size_t c = 0; c < 3; ++c) {
                EXPECT_NEAR(state->reactions[b].force[c], linear.report.supports[b].force[c],
                            10 * tolerance * size)
                    << state->reactions[b].name;
                sum[c] += state->reactions[b].force[c];
            }
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(sum[c], state->reaction[c], 1e-9 * size + 1e-9);
    }
};

const std::string damped = "end_time 15e-3 output_frequency 50 C_alfa 0.04";

TEST_F(ExplicitConditions, DampedToRestSupportsGiveTheStaticAnswer) {
    const std::string rollers = "A set ROOT fix=normal B set SIDE fix=normal C set LOW fix=z",
                      moved = "A set ROOT ux=2e-7*(1+z) B set SIDE fix=normal C set LOW fix=z",
                      bed = "A set ROOT spring=3e12 spring_normal=2e12 C set LOW fix=z",
                      heat = "load_info H temperature all 293+100*x*time reference=293 ";
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        expect_static_answer(turned_bar(kind, rollers, "load_info P pressure TIP -1e5 %"), damped, 1e-4);
        expect_static_answer(turned_bar(kind, bed, "load_info P traction TIP 1e5 2e4*(1+z) 0 %"), damped,
                             1e-3);
    }
    // what varies with `time` rises and stays; the static analysis has time 1
    const std::string rising = "SWITCH(time-1e-3,1,1,time*1e3)";
    expect_static_answer(turned_bar(ElementKind::hexahedron, moved, ""), damped, 1e-4);
    expect_static_answer(turned_bar(ElementKind::tetrahedron10, rollers,
                                    "load_info P pressure TIP -1e5 factor=" + rising + " %"),
                         damped, 1e-3);
    for (const auto& [kind, form] : every_form) {
        options.hexahedra = form;
        SCOPED_TRACE(formatted("element type %d, form %d", static_cast<int>(kind), static_cast<int>(form)));
        expect_static_answer(
            replaced(turned_bar(kind, rollers + " D set TIP fix=normal", heat + "%"), "time", rising), damped,
            2e-3);
        expect_static_answer(turned_bar(kind, rollers, "load_info H temperature all 294 reference=293 %"),
                             damped, 1e-3, 2e11 * 1e-5);
    }
}

TEST_F(ExplicitConditions, TiedMeshesGiveTheStaticAnswerAndKeepTheirMomentum) {
    for (const ElementKind kind : every_kind) {
        expect_static_answer(
            tied_blocks(kind, "A plane z 0 0 0 0 0 0", "load_info P traction TOP 2e4 0 1e5 %"), damped, 1e-3);
        read(tied_blocks(kind, "", "load_info P traction TOP 0 0 1e6 factor=SWITCH(time-1e-4,0,0,1) %"),
             "end_time 5e-4 output_frequency 10 INITIAL_VELOCITY HIGH part x 3 0 0 0 0 0 0 %");
        run();
        double mass = 0, least = 1;
        for (std::size_t k = 0; k < state->mass.size(); k += 4) {
            mass += state->mass[k];
            least = std::min(least, state->mass[k]);
        }
        EXPECT_NEAR(mass, 7800 * 0.2 * 0.2 * 0.3, 1e-9);
        EXPECT_EQ(least, 0) << "of tied nodes; none has less";
        expect_kept("momentum_x", 1e-9 * history(0, "momentum_x"));
        // the pulse's impulse, to half a step at each end
        EXPECT_NEAR(last("momentum_z"), 1e6 * 0.04 * 1e-4, 1.01 * 1e6 * 0.04 * state->d_time);
        EXPECT_LT(largest_drift(), 1e-4);
        EXPECT_GT(last("external"), 0.9 * (last("kinetic") - history(0, "kinetic")));
    }
}

// A block that is led up in waves: its reaction is its mass times the acceleration, the work its energy.
TEST_F(ExplicitConditions, APrescribedMotionBringsItsReactionAndItsWork) {
    const double A = 1e-3, w = 800, m = 7800 * 0.2 * 0.1 * 0.1;
    run(ModelText{.parts = rect("b", "0.2 0.1 0.1", "4 2 2"),
                  .supports = "S plane y 0 0 0 0 0 0 fix=y T plane z 0 0 0 0 0 0 "
                              "uz=1e-3*(800*time-sin(800*time)) U plane x 0 0 0 0 0 0 fix=x"},
        "end_time 10e-3 output_frequency 20");
    for (std::size_t r = 1; r < rows(); ++r) {
        const double t = history(r, "time"), v = A * w * (1 - std::cos(w * t)),
                     a = A * w * w * std::sin(w * t);
        EXPECT_NEAR(history(r, "support_T_z"), m * a, 0.1 * m * A * w * w);
        EXPECT_NEAR(history(r, "support"), 0.5 * m * v * v, 0.02 * m * A * w * A * w);
        EXPECT_NEAR(history(r, "support_T_z"), history(r, "reaction_z"), 1e-6);
    }
    EXPECT_LT(largest_drift(), 1e-4);
    const double t = w * static_cast<double>(state->step) * state->d_time;
    EXPECT_NEAR(u(node_at(0.1, 0.05, 0), 2), A * (t - std::sin(t)), 1e-15);
}

// On a spinning box that it squeezes all round, pressure that follows makes neither force nor moment.
TEST_F(ExplicitConditions, APressureAllRoundATurningBodyDoesNotMoveIt) {
    for (const ElementKind kind : every_kind) {
        read(ModelText{.parts = part_of(kind, Grid{{2, 2, 2}, {0.2, 0.15, 0.1}}),
                       .rigid = "% load_info P pressure ALL 1e10*time %",
                       .others = "set_info ALL patch 0 0.07 0.05 91 %\n"},
             "end_time 2e-3 output_frequency 20");
        ASSERT_TRUE(begin());
        const double spin[3] = {300, -500, 800};
        for (std::size_t d = 0; d < state->v.size(); ++d) {
            const double* x = &state->x[d - d % 4];
            const std::size_t a = (d % 4 + 1) % 3, b = (d % 4 + 2) % 3;
            if (d % 4 < 3) state->v[d] = spin[a] * x[b] - spin[b] * x[a];
        }
        state->velocities_known = false;
        result.results.clear();
        state->history.values.clear();
        state->largest_energy = 0;
        store_frame(*job, *state);
        run_to(state->time_num - 1);
        double size = 0;
        for (const char* axis : {"x", "y", "z"})
            size = std::max(size, std::abs(last(std::string("angular_momentum_") + axis)));
        for (const char* axis : {"x", "y", "z"}) {
            expect_kept(std::string("momentum_") + axis, 1e-9 * size);
            expect_kept(std::string("angular_momentum_") + axis, 1e-9 * size);
        }
        EXPECT_LT(largest_drift(), 2e-3);
        EXPECT_GT(most("external"), 1);
    }
}

// A rigid block held along z on its foot slides and turns in the plane; a force with a factor and a case.
TEST_F(ExplicitConditions, ARigidBodyHeldInOneDirectionMovesInItsPlane) {
    const std::string text = ModelText{
        .parts = rect("b", "0.2 0.1 0.1", "2 1 1"),
        .supports = "S plane z 0 0 0 0 0 0 fix=z",
        .rigid =
            "R area 0.1 0.05 0.05 -1 1 -1 1 -1 1 % rigid_force F R x 100 factor=2*time*1e3 case=a G R z 50 "
            "case=a H R y 1e9 case=b M R rz 1 case=a %"};
    options.load_case = "a";
    run(text, "end_time 1e-3 d_time 1e-6 output_frequency 10");
    const double m = 7800 * 0.2 * 0.1 * 0.1;
    EXPECT_NEAR(last("momentum_x"), 0.1, 1e-3);
    EXPECT_NEAR(most("momentum_y"), 0, 1e-12);
    EXPECT_EQ(most("momentum_z"), 0);
    EXPECT_NEAR(last("reaction_z"), -50, 1e-9);
    EXPECT_NEAR(last("support_S_z"), -50, 1e-9);
    EXPECT_NEAR(last("external"), last("kinetic"), 1e-6 * last("kinetic"));
    EXPECT_GT(state->bodies->bodies()[0].omega[2], 0);
    const double middle = 0.5 * (u(node_at(0.1, 0, 0), 0) + u(node_at(0.1, 0.1, 0), 0));
    EXPECT_NEAR(middle, 2e5 / 6 * 1e-9 / m, 0.01 * 2e5 / 6 * 1e-9 / m);
}

// What a step needs it has: nothing is taken from the heap, and threads do not change a bit.
TEST_F(ExplicitConditions, StepsTakeNoMemoryAndAreTheSameOnAnyNumberOfThreads) {
    const std::string loads =
        "load_info P pressure TOP 1e5*time F traction TOP 1e5*time*x 0 0 factor=time G gravity 0 1 0 "
        "factor=cos(time) H temperature all 300+time*x reference=300 %";
    read(replaced(tied_blocks(ElementKind::hexahedron, "A plane z 0 0 0 0 0 0 uz=1e-6*sin(1e4*time) ", loads),
                  "2e11 0.3", "2e11 0.3 alpha=1e-5"),
         "end_time 1e-3 output_frequency 1000 Plastic on MATERIAL_EXTRA_INFO M 0 1e6 0 kinematic=1e9 %");
    std::vector<double> displacement;
    for (const int threads : {1, 2}) {
        ASSERT_TRUE(begin(threads));
        state->team = threads;
        run_to(40);
        const std::int64_t before = heap.news;
        find_forces(*state);
        find_velocities(*job, *state);
        if (KESTRALUM_COUNTS_HEAP && threads == 1) {
            EXPECT_EQ(heap.news - before, 0);
        }
        displacement.insert(displacement.end(), state->u.begin(), state->u.end());
    }
    const std::size_t half = displacement.size() / 2;
    EXPECT_TRUE(std::equal(displacement.begin(), displacement.begin() + half, displacement.begin() + half));
}

TEST_F(ExplicitConditions, WhatCannotBeIsRefusedWithALine) {
    const std::string control = "end_time 1e-3 d_time 1e-6 output_frequency 100 ";
    const auto bar = [&](const std::string& supports, const std::string& more = "") {
        return turned_bar(ElementKind::hexahedron, supports, more);
    };
    const std::string cube = ModelText{.parts = rect("b", "1 1 1", "1 1 1"),
                                       .supports = "S plane z 0 0 0 0 0 0 fix=z T plane x 0 0 0 0 0 0 fix=x",
                                       .rigid = "R area 0 0 0 -1 2 -1 2 -1 2 %"};
    const std::string input = "VELOCITY_INPUT D volume x 1 -1 1 -1 1 -1 1 %";
    const struct {
        std::string text, control, says;
    } cases[] = {
        {bar("A set ROOT fix=normal"), control + input, "velocity input D: its node at"},
        {tied_blocks(ElementKind::hexahedron, "", ""), control + input, "is tied to others"},
        {cube, control, "rigid element R: supports hold its members in several directions"},
        {bar("A set ROOT ux=1/time"), control, "support A: its displacement at"},
        {bar("A set ROOT", "load_info P pressure TIP 1 factor=1/time %"), control, "factor '1/time' is inf"},
        {bar("A set ROOT spring=x-1"), control, "support A: 'x-1' is -1"},
        {bar("A set ROOT"), control + "Plastic on MATERIAL_EXTRA_INFO M 0 1 0 table=0:2e9,1e-6:1e6 %",
         "falls faster"},
    };
    for (const auto& c : cases) {
        read(c.text, c.control);
        const RunReport refused = analyse(analyse_explicit);
        EXPECT_EQ(refused.status, RunStatus::bad_input) << c.says;
        ASSERT_EQ(refused.remarks.errors.size(), 1u) << c.says;
        EXPECT_TRUE(contains(refused.remarks.errors, c.says)) << refused.remarks.errors[0];
    }
    // a factor that loses its value on the way ends the run with what was reached
    read(bar("A set ROOT",
             "load_info P pressure TIP 1 factor=acos(SWITCH((time-99.5e-6)*(0.5-time),2,0,0)) %"),
         control);
    const RunReport ended = analyse(analyse_explicit);
    EXPECT_EQ(ended.status, RunStatus::failed);
    EXPECT_TRUE(ended.written);
    EXPECT_TRUE(contains(ended.remarks.errors, "step 100: load P: its factor"))
        << joined(ended.remarks.errors);
}

TEST_F(ExplicitConditions, EveryAnalysisSaysWhichShearModulusItUses) {
    for (const char* elastic : {"", " shear=elastic"}) {
        read(ModelText{.parts = rect("b", "1 0.5 0.5", "2 1 1"),
                       .supports = "A plane x 0 0 0 0 0 0",
                       .forces = "F area y 1 1 1 0 0.5 0 0.5"},
             std::string("end_time 1e-5 output_frequency 1 MATERIAL_EXTRA_INFO M 1e11 1e9 0") + elastic +
                 " %");
        double bent[2] = {};
        for (const Analyse analysis :
             {analyse_static, analyse_eigen_lanczos, analyse_nonlinear, analyse_explicit}) {
            const RunReport done = analyse(analysis);
            expect_done(done);
            const bool nonlinear = analysis == analyse_nonlinear;
            const std::string says =
                nonlinear ? "this nonlinear analysis uses G" : "a nonlinear analysis uses G";
            EXPECT_EQ(contains(done.remarks.notices, says), *elastic == 0);
            if (nonlinear || analysis == analyse_static) bent[nonlinear] = displacement(1, 0, 0)[1];
        }
        EXPECT_NEAR(bent[1] / bent[0], *elastic ? 1 : 0.86, *elastic ? 1e-5 : 0.08);
    }
}

}  // namespace
}  // namespace kestralum
