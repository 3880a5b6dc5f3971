// Rigid elements, forces and combines in static and eigen analyses: against hand-made matrices and beam
// theory.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/eigen/eigen_analysis.h"
#include "analysis/explicit/explicit_analysis.h"
#include "analysis/nonlinear/nonlinear_analysis.h"
#include "analysis/static/static_analysis.h"
#include "conditions/rigid_combines.h"
#include "support/analysis_run.h"
#include "support/finite_problem.h"
#include "system/model_check.h"

namespace kestralum {
namespace {

using testing::ModelText;
using testing::rect;

class RigidAnalysis : public testing::AnalysisTest {
protected:
    RunReport run(const ModelText& text, Analyse method = analyse_static, RunStatus ends = RunStatus::done) {
        EXPECT_TRUE(read(text));
        const RunReport report = analyse(method);
        EXPECT_EQ(report.status, ends) << testing::joined(report.remarks.errors);
        return report;
    }
};

// Two blocks, 0.1 m apart, each all rigid, with six springs between reference points that lie off the
// centres.
ModelText two_blocks(const std::string& springs = "rigid_combine S A B 3e6 2e6 5e6 4e4 6e4 3e4 %",
                     const std::string& supports = "FIX plane x 0 0 0 0 0 0") {
    return {.material = "1000 200e9 0.3",
            .parts = rect("A", "0.4 0.3 0.2", "2 1 1") + rect("B", "0.2 0.3 0.5", "1 2 2", "0.5 0.05 -0.1"),
            .supports = supports,
            .rigid =
                "A area 0.35 0.1 0.05 0 0.4 0 0.3 0 0.2 B area 0.55 0.2 0.3 0.5 0.7 0.05 0.35 -0.1 0.4 "
                "% " +
                springs,
            .others = "mode_num 12 %\n"};
}

// The springs' stiffnesses and the middle between the reference points, where they act.
constexpr Vec3 along{3e6, 2e6, 5e6}, about{4e4, 6e4, 3e4}, middle{0.45, 0.15, 0.175};

// Σ λ is the trace of M⁻¹ K: a spring counts 1/m for a force and r²/I for its moment about each mass centre.
TEST_F(RigidAnalysis, TwoBlocksOnSpringsHaveTheFrequenciesOfTheirMassesAndInertias) {
    double trace = 0;
    const std::pair<Vec3, Vec3> blocks[] = {{{0, 0, 0}, {0.4, 0.3, 0.2}},
                                            {{0.5, 0.05, -0.1}, {0.2, 0.3, 0.5}}};
    for (const auto& [corner, size] : blocks) {
        const double m = 1000 * size[0] * size[1] * size[2];
        const Vec3 r = minus(middle, plus(corner, times(0.5, size)));
        for (int x = 0, y = 1, z = 2; x < 3; ++x, y = (y + 1) % 3, z = (z + 1) % 3) {
            const double I = m * (size[y] * size[y] + size[z] * size[z]) / 12;
            trace += along[x] / m + (about[x] + along[y] * r[z] * r[z] + along[z] * r[y] * r[y]) / I;
        }
    }
    for (const Analyse method : {analyse_eigen_subspace, analyse_eigen_lanczos}) {
        ModelText free = two_blocks();
        free.supports.clear();
        const RunReport report = run(free, method);
        ASSERT_EQ(report.modes.size(), 12u);
        double mass = 0, sum = 0;
        for (int j = 0; j < 12; ++j) {
            EXPECT_EQ(report.modes[j].zero, j < 6) << j;
            sum += report.modes[j].lambda;
            mass += report.modes[j].effective_mass[0];
        }
        EXPECT_NEAR(sum, trace, 1e-8 * trace);
        EXPECT_NEAR(mass, 54, 1e-6);  // all of it
        // one block alone: nothing is stiff
        const RunReport alone = run(ModelText{.parts = rect("A", "0.4 0.3 0.2", "2 1 1"),
                                              .rigid = "A area 0.3 0.1 0.05 0 0.4 0 0.3 0 0.2 %",
                                              .others = "mode_num 6 %\n"},
                                    method);
        EXPECT_EQ(alone.modes.size(), 6u);
        for (const ModeReport& mode : alone.modes) EXPECT_TRUE(mode.zero);
    }
}

TEST_F(RigidAnalysis, TwoBlocksOnSpringsMoveAsTheirStiffnessSays) {
    ModelText held = two_blocks();
    held.rigid += " rigid_force F B y 700 G B rz 50 %";
    const RunReport report = run(held);
    const Vec3 force{0, 700, 0}, moment = plus(cross(minus({0.55, 0.2, 0.3}, middle), force), {0, 0, 50});
    Vec3 moved, turn;
    for (int c = 0; c < 3; ++c) {
        moved[c] = force[c] / along[c];
        turn[c] = moment[c] / about[c];
    }
    for (const Vec3& x : {Vec3{0.5, 0.05, -0.1}, Vec3{0.7, 0.35, 0.4}, Vec3{0.5, 0.2, 0.15}}) {
        const Vec3 exact = plus(moved, cross(turn, minus(x, middle))), got = displacement(x[0], x[1], x[2]);
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(got[c], exact[c], 1e-8 * 1e-3);
    }
    EXPECT_NEAR(report.reaction[1], -700, 1e-6);
    EXPECT_NEAR(report.reaction[0], 0, 1e-6);
}

// The nodes inside a rigid block have a share of an area force too: on a symmetric face its middle line is
// loaded.
TEST_F(RigidAnalysis, AnAreaForceOnARigidBlockActsAtTheMiddleOfTheArea) {
    ModelText by_area = two_blocks(), by_force = by_area;
    by_area.forces = "P area y 700 0.7 0.7 0.05 0.35 -0.1 0.4";
    by_force.rigid += " rigid_force F B y 700 X B rx 105 Z B rz 105 %";
    EXPECT_NEAR(run(by_area).applied[1], 700, 1e-9);
    const std::vector<double> moved = frame().mode_vec;
    EXPECT_NEAR(run(by_force).applied[1], 700, 1e-9);
    for (std::size_t d = 0; d < moved.size(); ++d) ASSERT_NEAR(moved[d], frame().mode_vec[d], 1e-11);
}

TEST_F(RigidAnalysis, TheCheckSeesWhatRigidRecordsHoldTogether) {
    const RunReport report = run(two_blocks());
    const ModelCheck joined = check_model(model, settings, said);
    EXPECT_EQ(joined.bodies.size(), 1u);
    EXPECT_TRUE(joined.remarks.notices.empty()) << joined.remarks.notices[0];
    EXPECT_EQ(joined.rigid_members, (std::vector<std::int32_t>{12, 18}));
    EXPECT_EQ(joined.free_dofs, report.free_dofs) << "members have no rows of their own";
    model.rigid_elements[1].region = {9, 10, 9, 10, 9, 10};
    EXPECT_EQ(check_model(model, settings, said).remarks.notices.at(0),
              "rigid element B: no node of its own in its region");
    ASSERT_TRUE(read(two_blocks("")));
    const ModelCheck loose = check_model(model, settings, said);
    EXPECT_EQ(loose.bodies.size(), 2u);
    EXPECT_EQ(loose.remarks.notices, std::vector<std::string>{"body 2 (part B): no support holds it"});
}

// A square cantilever, 0.1 × 0.1 m, ν = 0, whose end face, or what `region` cuts from it, is rigid.
struct Cantilever {
    std::string rigid = "%";  // what follows the face's record
    int cells = 2, along = 100;
    std::string region = "0 0.1 0 0.1 2 2", supports = "FIX plane z 0 0 0 0 0 0", length = "2";
    std::string reference = "0.05 0.05", others = {}, more_parts = {};
    operator ModelText() const {
        return {.material = "8000 200e9 0",
                .parts = rect("BEAM", "0.1 0.1 " + length, formatted("%d %d %d", cells, cells, along)) +
                         more_parts,
                .supports = supports,
                .rigid = "END_FACE area " + reference + " " + length + " " + region + " " + rigid,
                .others = others};
    }
};

TEST_F(RigidAnalysis, ACantileverBendsAndTwistsAsItsRigidEndIsLoaded) {
    const double E = 200e9, G = E / 2, a = 0.1, L = 2, I = a * a * a * a / 12, J = 0.1406 * a * a * a * a;
    const double kappa = 10.0 / 12;  // Cowper (1966)
    const auto end_motion = [&](const std::string& force) {
        EXPECT_LT(run(Cantilever{"% rigid_force F END_FACE " + force + " %", 4, 200}).residual, 1e-8);
        return std::pair(displacement(0, 0, 2), displacement(0.1, 0.1, 2));
    };
    const auto bend = end_motion("rx 1000"), push = end_motion("y 1000");
    expect_figure("end moment", (bend.second[2] - bend.first[2]) / a, 1000 * L / (E * I), 0.01);
    expect_figure("end force", push.first[1], 1000 * L * L * L / (3 * E * I) + 1000 * L / (kappa * G * a * a),
                  0.01);
    // long and fine enough that the warping held at both ends and the section's mesh do not show
    run(Cantilever{"% rigid_force F END_FACE rz 1000 %", 10, 80, "0 0.1 0 0.1 4 4", "FIX plane z 0 0 0 0 0 0",
                   "4"});
    expect_figure("end torque", (displacement(0.1, 0.1, 4)[1] - displacement(0, 0, 4)[1]) / a,
                  2 * 1000 * L / (G * J), 0.01);
}

TEST_F(RigidAnalysis, SupportedMembersLeaveTheMotionsAboutThem) {
    const auto motions = [&](const std::string& support, const std::string& region) {
        EXPECT_TRUE(read(ModelText(Cantilever{.region = region, .supports = "FIX " + support})));
        const NodeElements around = elements_of_nodes(model.mesh);
        std::int32_t fn = model.mesh.dof_num();
        const DofNumbering numbering =
            apply_boundary_conditions(model.boundary_conditions, model.mesh, around, {}, fn, said);
        const RigidSystem rigid =
            build_rigid_system(model.rigid_elements, model.mesh, around, numbering.fixed_nodes);
        EXPECT_EQ(rigid.error, "");
        return rigid;
    };
    const std::string face = "0 0.1 0 0.1 2 2", foot = "plane z 0 0 0 0 0 0", edge = "volume x 0 0.1 0 0 2 2",
                      corner = "volume x 0 0 0 0 2 2";
    EXPECT_EQ(motions(foot, face).equations, 6);
    const RigidSystem hinged = motions(edge, face);  // only the rotation about the edge is left
    ASSERT_EQ(hinged.equations, 1);
    EXPECT_NEAR(std::abs(hinged.bodies[0].motions[0][3]), 1, 1e-12);
    const RigidSystem held = motions(corner, face);
    EXPECT_EQ(held.equations, 3);
    EXPECT_EQ(held.bodies[0].pivot, (Vec3{0, 0, 2}));
    EXPECT_EQ(motions("plane z 2 2 2 2 2 2", face).equations, 0);
    const RigidSystem line = motions(foot, "0 0 0 0.1 2 2");  // members on a line
    EXPECT_EQ(line.equations, 5);
    EXPECT_EQ(line.notices.size(), 1u);
    EXPECT_EQ(motions(foot, "0 0 0 0 2 2").equations, 3);  // one member
    for (const std::string& support : {edge, corner}) {
        const RunReport report = run(Cantilever{.rigid = "% rigid_force M END_FACE rx 100 %",
                                                .supports = "FIX " + foot + " TOO " + support});
        EXPECT_NE(displacement(0.1, 0.1, 2)[2], 0) << support;
        EXPECT_EQ(displacement(0, 0, 2), (std::array<double, 3>{0, 0, 0})) << support;
        for (double r : report.reaction)
            EXPECT_NEAR(r, 0, 1e-6) << support;  // a moment asks for no net force
    }
}

TEST_F(RigidAnalysis, SharedNodesEmptyElementsLostForcesAndMechanismsAreTold) {
    ModelText normal = two_blocks();
    normal.rigid += " rigid_force N B n 1 %";
    const std::string turned = "% rigid_force M END_FACE rz 100 %";
    const Cantilever free{.rigid = turned, .supports = ""};
    settings.nl_conv = 1e-6;
    const struct {
        ModelText text;
        RunStatus ends;
        const char* says;
        Analyse method = analyse_static;
    } cases[] = {
        {normal, RunStatus::bad_input, "no mean outward normal"},
        // shares the edge x = 0, z = 2
        {Cantilever{"SIDE area 0 0 0 0 0 0 0.1 1.5 2 %"}, RunStatus::done, "share 3 nodes"},
        {Cantilever{"TWIN area 0 0 0 0 0.1 0 0.1 1.9 2 %"}, RunStatus::bad_input, "END_FACE and TWIN"},
        {Cantilever{"VOID area 0 0 0 5 6 5 6 5 6 %"}, RunStatus::bad_input, "VOID"},
        {free, RunStatus::failed, "END_FACE"},
        {free, RunStatus::failed, "the body is free", analyse_nonlinear},
        // a moment about the line that all members lie on
        {Cantilever{.rigid = "% rigid_force M END_FACE ry 1000 %", .region = "0 0 0 0.1 2 2"},
         RunStatus::done, "is lost"}};
    for (const auto& c : cases) {
        const Remarks remarks = run(c.text, c.method, c.ends).remarks;
        const bool done = c.ends == RunStatus::done;
        EXPECT_TRUE(testing::contains(done ? remarks.notices : remarks.errors, c.says)) << c.says;
    }
    settings.nl_conv = 0;
    run(free, analyse_nonlinear, RunStatus::bad_input);
}

TEST_F(RigidAnalysis, TheNormalIsThatOfTheFaceAndAReferencePointFarOffChangesNothing) {
    // half of the end face: its nodes' normals lean outwards at the edges, the face's own does not
    const RunReport report =
        run(Cantilever{.rigid = "% rigid_force N END_FACE n 1000 %", .region = "0 0.05 0 0.1 2 2"});
    EXPECT_NEAR(report.applied[0], 0, 1e-9);
    EXPECT_NEAR(report.applied[2], 1000, 1e-9);
    Cantilever turned{"% rigid_force F END_FACE rx 10 %"};
    run(turned);
    const Vec3 near = displacement(0, 0, 2);
    turned.reference = "5000 -9000";
    run(turned);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(displacement(0, 0, 2)[c], near[c], 1e-9 * std::abs(near[1]));
}

// Pure bending: κ = M/EI everywhere, so that M = (π/2) EI/L makes a quarter circle (elastica; strains 1.6 %).
TEST(RigidNonlinear, AnEndPlateTurnedByAMomentRollsTheStripIntoAQuarterCircle) {
    const double E = 1e9, L = 1, t = 0.02, I = t * t * t * t / 12, pi = M_PI;
    const Material material{.young = E};
    testing::FiniteProblem problem(
        testing::box_mesh({{1, 1, 30}, {t, t, L}}, ElementKind::tetrahedron10), material,
        [](const double* x, int) { return x[2] < 1e-12; }, 1e-7);
    const RigidElement plate{.name = "PLATE", .reference = {t / 2, t / 2, L}, .region = {0, t, 0, t, L, L}};
    const RigidSystem rigid =
        build_rigid_system(std::span(&plate, 1), problem.mesh, problem.freedoms.node_elements, {});
    problem.freedoms.rigid = rigid;
    problem.model.rigid_forces = {{.element = 0,
                                   .direction = RigidDirection::rx,
                                   .value = -pi / 2 * E * I / L}};  // lifts the end towards +y
    problem.start({});
    for (int k = 1; k <= 5; ++k) {
        const IncrementReport report = problem.solver->advance(k, 0.2 * k);
        ASSERT_TRUE(report.converged) << k;
        const auto& e = report.ratios;  // quadratic to the end: the moment's own stiffness is in the tangent
        EXPECT_TRUE(e.back() < 1e-3 * e[e.size() - 2] || e[e.size() - 2] < 1e-5)
            << e[e.size() - 2] << ' ' << e.back();
    }
    const RigidState& end = problem.solver->states()[0];
    const Vec3 turn = rotation_vector(end.R);
    EXPECT_NEAR(turn[0], -pi / 2, 0.01 * pi / 2);
    EXPECT_NEAR(turn[1], 0, 1e-3);
    EXPECT_NEAR(end.u[1], 2 * L / pi, 0.01 * L);  // the end lies at (R, R) with R = 2L/π
    EXPECT_NEAR(end.u[2], 2 * L / pi - L, 0.01 * L);
    // members stay as far apart as they were
    Vec3 side{0, t, 0};
    for (int c = 0; c < 3; ++c)
        side[c] += problem.displacement({0, t, L}, c) - problem.displacement({0, 0, L}, c);
    EXPECT_NEAR(norm(side), t, 1e-13);
}

// Bodies on a spring about their common axis: M = kφ has a solution beyond half a turn only where the turns
// are counted, and a free one swings as ½ I φ'² + ½ k φ² wants.
class TurningBlocks : public RigidAnalysis {
protected:
    static constexpr double about = 20;  // N m/rad
    static ModelText blocks(double moment, const std::string& more = {}) {
        const std::string cube = "0.1 0.1 0.1";
        return {.material = "1000 1e9 0.3",
                .parts = rect("A", cube, "1 1 1") + rect("B", cube, "1 1 1", "0 0 0.3"),
                .supports = "FIX volume x 0 0.1 0 0.1 0 0.1",
                .rigid =
                    "A area 0.05 0.05 0.2 0 0.1 0 0.1 0 0.1 B area 0.05 0.05 0.2 0 0.1 0 0.1 0.3 0.4 %\n"
                    "rigid_force M B rz " +
                    formatted("%.17g", moment) + " %\nrigid_combine S A B 1e5 1e5 1e5 " +
                    formatted("%g %g %g ", about, about, about) + more + " %"};
    }
};

TEST_F(TurningBlocks, AMomentTurnsOneThreeTimes) {
    const double angle = 6 * M_PI + 0.5;
    for (const char* axes : {"", "axes=body"}) {
        ASSERT_TRUE(read(blocks(about * angle, axes)));
        for (int k = 1; k <= 60; ++k) model.control.load_factors.push_back(k / 60.0);
        EXPECT_EQ(analyse(analyse_nonlinear).status, RunStatus::done);
        const std::size_t n = node_at(0.1, 0.1, 0.3);
        for (const std::size_t k : {20, 40, 60}) {
            const double phi = angle * static_cast<double>(k) / 60, *u = &frame(k - 1).mode_vec[3 * n];
            EXPECT_NEAR(u[0], 0.05 * (std::cos(phi) - std::sin(phi)) - 0.05, 1e-7) << k;
            EXPECT_NEAR(u[1], 0.05 * (std::sin(phi) + std::cos(phi)) - 0.05, 1e-7) << k;
        }
    }
}

TEST_F(TurningBlocks, AFreeOneSwingsThroughItsTurns) {
    // φ = M/k (1 - cos ωt), up to 5 turns; the lumped masses of a cube's corners turn at a/√2 from its axis
    const double moment = 5 * M_PI * about, omega = std::sqrt(about / (1.0 * 0.1 * 0.1 / 2));
    ASSERT_TRUE(read(blocks(moment)));
    model.control.d_time = 2e-5;
    model.control.end_time = 2 * M_PI / omega;
    model.control.output_frequency = 200;
    const RunReport report = analyse(analyse_explicit);
    ASSERT_EQ(report.status, RunStatus::done) << testing::joined(report.remarks.errors);
    for (std::size_t row = 0; row < result.history.rows(); ++row) {
        const double phi = moment / about * (1 - std::cos(omega * result.history.value(row, "time")));
        EXPECT_NEAR(result.history.value(row, "internal"), 0.5 * about * phi * phi,
                    2e-3 * moment * moment / about)
            << row;
    }
    EXPECT_LT(std::abs(report.dynamics.drift), 1e-4);
}

TEST(RigidSprings, ResistWithTheGradientOfTheirEnergyAtLargeRotations) {
    for (const bool body_axes : {false, true}) {
        RigidSystem system;
        for (int b = 0; b < 2; ++b) {
            RigidBody body;
            body.reference = {0.3 * b, 0.1, -0.2 * b};
            body.pivot = {0.1, 0.2 * b, 0};
            for (std::size_t c = 0; c < 6; ++c) body.motions.add()[c] = 1;
            body.first = 6 * b;
            system.bodies.push_back(body);
        }
        system.equations = 12;
        const RigidCombine record{
            .element = {0, 1}, .stiffness = {3, 2, 5, 0.4, 0.6, 0.3}, .body_axes = body_axes};
        // a rotation in the axes of the record after that of the first body
        const auto after_first = [&](const Mat3& by, const Mat3& first) {
            return body_axes ? multiply3(first, by) : multiply3(by, first);
        };
        std::vector<RigidState> states{{{0.1, 0, -0.3}, rotation_of({0.3, -0.4, 0.2})},
                                       {{0.2, 0.5, 0}, rotation_of({-0.7, 1.1, 0.9})}};
        constexpr double h = 1e-5;
        std::array<Vec6, 2> unused{};
        const Vec3 axis = times(1 / std::sqrt(1.73), {0.3, -0.8, 1.0});
        // within half a turn, a little beyond it, and with turns that are counted, whole ones among them
        const CombineTurn none, beyond{.rotation = {-2, 2.6, 0.9}};
        std::vector<CombineTurn> turns{none, beyond};
        for (const double twist : {4.0, -7.0, 4 * M_PI})
            turns.push_back({.rotation = times(twist, axis), .counted = true, .axis = axis, .twist = twist});
        for (const CombineTurn& turn : turns) {
            if (&turn == &turns[1]) states[1].R = after_first(rotation_of({-1.9, 2.7, 0.8}), states[0].R);
            if (turn.counted)
                states[1].R = after_first(
                    multiply3(rotation_of({0.1, -0.2, 0.05}), rotation_of(times(turn.twist + 0.2, axis))),
                    states[0].R);
            std::vector<double> Q(12, 0.0);
            add_combine_forces(std::span(&record, 1), system, states, std::span(&turn, 1), Q);
            for (std::size_t k = 0; k < 12; ++k) {
                const auto energy = [&](double moved_by) {
                    std::vector<RigidState> moved = states;
                    double q[6] = {};
                    q[k % 6] = moved_by;
                    moved[k / 6] = advanced(system.bodies[k / 6], states[k / 6], q);
                    return combine_forces(record, system, moved, turn, unused);
                };
                EXPECT_NEAR(Q[k], (energy(h) - energy(-h)) / (2 * h), 2e-8) << k << ", twist " << turn.twist;
            }
            // in the axes of a body no moment is left over
            std::array<Vec6, 2> force{};
            combine_forces(record, system, states, turn, force);
            Vec3 rest{};
            for (std::size_t b = 0; b < 2 && body_axes; ++b)
                rest = plus(rest, plus({force[b][3], force[b][4], force[b][5]},
                                       cross(plus(system.bodies[b].pivot, states[b].u),
                                             {force[b][0], force[b][1], force[b][2]})));
            EXPECT_LT(norm(rest), 1e-12);
        }
        // a common rigid motion stores nothing
        for (RigidState& s : states) s.R = rotation_of({2.0, 1.0, -1.5});
        for (std::size_t b = 0; b < 2; ++b) {
            const Vec3& pivot = system.bodies[b].pivot;
            states[b].u = minus(turned(states[b].R, pivot), pivot);
        }
        EXPECT_NEAR(combine_forces(record, system, states, none, unused), 0, 1e-28);
        for (const Vec3& v : {Vec3{0, 0, 0}, Vec3{1e-9, 0, 2e-9}, Vec3{3.1, 0.2, -0.1}, Vec3{-1, 2, 0.5}}) {
            EXPECT_LT(norm(minus(rotation_vector(rotation_of(v)), v)), 1e-13);
        }
    }
}

}  // namespace
}  // namespace kestralum
