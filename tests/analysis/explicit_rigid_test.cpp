// Rigid bodies in explicit runs: tumbling, impact, springs, gravity, hinges and prescribed velocities.
#include <cmath>

#include "analysis/buckling/buckling_analysis.h"
#include "analysis/explicit/explicit_rigid.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

// What a block of 0.3 × 0.2 × 0.1 m, its 24 nodes of 0.25 kg one body, does in a second without forces.
struct Tumble {
    double momentum = 0, energy = 0;  // largest relative change
    int turns = 0;                    // sign changes of the spin about the body's middle axis
};

Tumble tumble(int steps) {
    const Mesh mesh = hexa_box({{3, 2, 1}, {0.3, 0.2, 0.1}});
    const std::vector<double> lumped(mesh.coordinates.size(), 0.25);
    const RigidElement element{.name = "B", .reference = {0.02, 0.03, 0.01}, .region = {-1, 1, -1, 1, -1, 1}};
    ExplicitBodies bodies(build_rigid_system(std::span(&element, 1), mesh, elements_of_nodes(mesh), {}), mesh,
                          lumped, {}, {});
    Vec3 I{};  // about the axes through the centre
    std::vector<std::int32_t> top, bottom, left, right;
    std::vector<double> X;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const Vec3 x = place_of(mesh, n), r = minus(x, {0.15, 0.1, 0.05});
        for (int c = 0; c < 3; ++c) I[c] += 0.25 * (dot(r, r) - r[c] * r[c]);
        (x[2] > 0.05 ? top : bottom).push_back(n);
        if (x[1] < 0.05) left.push_back(n);
        if (x[1] > 0.15) right.push_back(n);
        X.insert(X.end(), {x[0], x[1], x[2], 0});
    }
    const double dt = 1.0 / steps;
    // spin about the middle axis, y, with a hundredth of it about x
    const std::vector<DrivenMembers> given{
        {0, top, 0, 5.0}, {0, bottom, 0, -5.0}, {0, left, 2, -0.05}, {0, right, 2, 0.05}};
    bodies.start(given, dt);
    const ExplicitBody& body = bodies.bodies()[0];
    std::vector<double> u(X.size(), 0.0), force = u, v = u, du = u, x = u;
    Tumble out;
    Vec3 L0{};
    double T0 = 0, spin = 0;
    for (int step = 0; step <= steps; ++step) {
        std::array<double, 2> driving{}, loads{};
        bodies.advance({u.data(), force.data(), v.data()}, {}, {dt, dt}, driving, loads);
        // L = R I Rᵀ ω of the middle of the step
        const Vec3 turn = rotation_vector(multiply3(body.next.R, transposed(body.state.R)));
        const Mat3 R = multiply3(rotation_of(times(0.5, turn)), body.state.R);
        Vec3 of_body = kestralum::turned(transposed(R), times(1 / dt, turn));
        const double now = of_body[1];
        for (int c = 0; c < 3; ++c) of_body[c] *= I[c];
        const Vec3 L = kestralum::turned(R, of_body);
        const double T = bodies.kinetic();
        if (step == 0) L0 = L, T0 = T;
        out.momentum = std::max(out.momentum, norm(minus(L, L0)) / norm(L0));
        out.energy = std::max(out.energy, std::abs(T / T0 - 1));
        out.turns += spin * now < 0;
        spin = now;
        bodies.arrive(u, du, x, X);
    }
    return out;
}

// Euler's equations: the momentum, by the inertias that the nodes have and the turn of each step, is kept.
TEST(ExplicitRigidBody, TumblesAboutItsMiddleAxisByEulersEquations) {
    const Tumble coarse = tumble(4000), fine = tumble(8000);
    EXPECT_LT(std::max(coarse.momentum, fine.momentum), 1e-9);
    EXPECT_GE(std::min(coarse.turns, fine.turns), 1) << "the middle axis is unstable: the body turns over";
    EXPECT_NEAR(coarse.energy / fine.energy, 4, 0.5);  // second order
}

using ExplicitRigid = ExplicitTest;

TEST_F(ExplicitRigid, TwoBlocksOnASpringSwingAtTheirFrequencyAndFallTogether) {
    // k on the reduced mass of two equal blocks of 1 kg (through their centres): ω = √(2k/m)
    const std::string cube = "0.1 0.1 0.1";
    const std::string blocks =
        ModelText{.material = "1000 1e9 0.3",
                  .parts = rect("A", cube, "1 1 1") + rect("B", cube, "1 1 1", "0.3 0 0"),
                  .rigid =
                      "A area 0.05 0.05 0.05 0 0.1 0 0.1 0 0.1 B area 0.35 0.05 0.05 0.3 0.4 0 0.1 0 0.1 "
                      "%\nrigid_combine S A B 5000 5000 5000 10 10 10 %"};
    const double omega = std::sqrt(2 * 5000.0), period = 2 * M_PI / omega;
    const std::string thrown = " output_frequency 1 INITIAL_VELOCITY B part x 1 0 0 0 0 0 0 %";
    run(blocks, formatted("d_time 1e-5 end_time %.12g", 0.75 * period) + thrown);
    // internal energy: ½ k w², w = sin(ωt)/ω
    for (std::size_t r = 0; r < rows(); r += 97) {
        const double w = std::sin(omega * history(r, "time")) / omega;
        EXPECT_NEAR(history(r, "internal"), 0.5 * 5000 * w * w, 2e-3 * 0.25);
    }
    EXPECT_LT(largest_drift(), 1e-3);
    run(blocks, "d_time 1e-5 end_time 0.02 output_frequency 100 Gravity +x");
    const double t = last("time");  // the leapfrog sum
    for (std::size_t n = 0; n < 16; ++n) EXPECT_NEAR(u(n, 0), 0.5 * 9.80665 * t * (t + 1e-5), 1e-12);
}

TEST_F(ExplicitRigid, HingesPendulumsAndDrivenMembersMoveAsTheyMust) {
    // a rigid rod hinged at one edge: a physical pendulum that starts at rest from the horizontal
    ModelText rod{.material = "1000 1e9 0.3",
                  .parts = rect("A", "0.5 0.1 0.02", "10 2 1"),
                  .supports = "HINGE volume x 0 0 0 0.1 0 0",
                  .rigid = "A area 0 0 0 0 0.5 0 0.1 0 0.02 %"};
    run(rod, "d_time 1e-4 end_time 0.4 output_frequency 10 Gravity -z");
    EXPECT_LT(largest_drift(), 1e-3);
    double deepest = 0;
    for (std::int32_t d = 0; d < job->mesh().dof_num(); ++d) {
        const double* X = &job->mesh().coordinates[d / 3 * 3];
        deepest = std::min(deepest, u(d / 3, 2));
        EXPECT_TRUE(X[0] > 1e-9 || X[2] > 1e-9 || u(d / 3, d % 3) == 0) << "the hinge has moved";
    }
    EXPECT_LT(deepest, -0.3);
    // the hinge carries the weight and what turns the mass: reaction less weight is the change of momentum
    double carried = 0, weight = 0;
    for (std::size_t r = 1; r < rows(); ++r) {
        const double step = history(r, "time") - history(r - 1, "time");
        carried += history(r, "reaction_z") * step;
        weight += 9.80665 * step;  // 1 kg
    }
    EXPECT_NEAR(carried - weight, last("momentum_z"), 0.02 * weight);
    EXPECT_GT(std::abs(last("momentum_z")), 0.1);
    EXPECT_EQ(last("angular_momentum_x"), 0);  // only the hinge's direction turns
    // members driven along x: all of the body follows
    rod.supports.clear();
    run(rod, "d_time 1e-5 end_time 0.01 output_frequency 100 VELOCITY_INPUT A part x 3*time 0 0 0 0 0 0 %");
    for (std::int32_t n = 0; n < job->mesh().node_num(); ++n) EXPECT_NEAR(u(n, 0), 1.5 * 1e-4, 1e-9);
    EXPECT_NEAR(last("support"), last("kinetic"), 1e-9);
}

// The step must suit the fine surface that is hit, though nothing inside the body can be strained.
TEST_F(ExplicitRigid, AFineRigidBodyIsNotDrivenThrough) {
    run(ModelText{.material = "8000 2e11 0.3",
                  .parts = rect("B", "0.1 0.02 0.02", "30 6 6") +
                           rect("C", "0.1 0.02 0.02", "5 1 1", "0.1001 0.003 0.002"),
                  .rigid = "R area 0.05 0.01 0.01 0 0.1 0 0.02 0 0.02 %"},
        "end_time 100e-6 output_frequency 20 Element_contact on INITIAL_VELOCITY C part x -200 0 0 0 0 0 0 % "
        "ELEMENT_CONTACT H B C 1 0 0 0 0 0 0 0 0 0 0 %");
    const double face = 0.1 + u(node_at(0.1, 0, 0), 0);
    for (double y : {0.003, 0.023})
        for (double z : {0.002, 0.022}) EXPECT_GT(0.1001 + u(node_at(0.1001, y, z), 0) - face, -0.001);
    EXPECT_LT(u(node_at(0, 0, 0), 0), -0.004) << "it is pushed ahead";
    const double p = 8000 * 0.1 * 4e-4 * 200;
    EXPECT_NEAR(last("momentum_x"), -p, 1e-9 * p);
    for (const char* axis : {"momentum_x", "momentum_y"}) expect_kept(axis, 1e-9 * p);
    expect_kept("angular_momentum_z", 1e-6 * p);
    EXPECT_LT(largest_drift(), 0.01);
}

TEST_F(ExplicitRigid, ASmallBodyTurnsAsItsEndsAreDriven) {
    read(ModelText{.material = "8000 2e11 0.3",
                   .parts = rect("A", "1e-5 2e-6 3e-6", "2 1 1"),
                   .rigid = "A area 0 0 0 0 1 0 1 0 1 %"},
         "d_time 1e-13 end_time 1e-12 output_frequency 1 INITIAL_VELOCITY E volume y 5 1e-5 1e-5 0 1 0 1 "
         "S volume y -3 0 0 0 1 0 1 %");
    ASSERT_TRUE(begin());
    EXPECT_NEAR(state->bodies->bodies()[0].omega[2], 8 / 1e-5, 1e-6 * 8 / 1e-5);
}

// Two blocks of 1 kg, A and B, through whose middle the springs and dashpots of `S A B` go.
ModelText two_cubes(const std::string& springs, const std::string& supports = {}) {
    return {.material = "1000 1e9 0.3",
            .parts = rect("A", "0.1 0.1 0.1", "1 1 1") + rect("B", "0.1 0.1 0.1", "1 1 1", "0.3 0 0"),
            .supports = supports,
            .rigid =
                "A area 0.05 0.05 0.05 0 0.1 0 0.1 0 0.1 B area 0.35 0.05 0.05 0.3 0.4 0 0.1 0 0.1 "
                "%\nrigid_combine S A B " +
                springs + " %"};
}

// w = v/ω' e^(-ζωt) sin ω't of the reduced mass, and ω = ω0 e^(-ct/I) of a spin that nothing drives.
TEST_F(ExplicitRigid, DashpotsDampAsTheoryWants) {
    for (const char* axes : {"", " axes=body"}) {
        const double k = 5000, c = 10, omega = std::sqrt(2 * k), zeta = c / (2 * std::sqrt(0.5 * k)),
                     damped = omega * std::sqrt(1 - zeta * zeta);
        run(two_cubes(formatted("%g %g %g 10 10 10 cx=%g cy=3 crz=1e-3", k, k, k, c) + axes),
            "d_time 2e-5 end_time 0.2 output_frequency 100 INITIAL_VELOCITY B part x 1 0 0 0 0 0 0 %");
        const std::size_t a = node_at(0, 0, 0), b = node_at(0.4, 0.1, 0.1);
        for (std::size_t r = 0; r < rows(); ++r) {
            const double at = history(r, "time"),
                         w = std::exp(-zeta * omega * at) * std::sin(damped * at) / damped;
            const std::vector<double>& of = result.results[r]->mode_vec;
            EXPECT_NEAR(of[3 * b] - of[3 * a], w, 2e-3 / damped);
        }
        EXPECT_LT(largest_drift(), 1e-6);
        EXPECT_NEAR(last("damping"), 0.25 * (1 - std::exp(-2 * zeta * omega * 0.2)), 1e-3);
        expect_kept("momentum_x", 1e-12);

        run(two_cubes(formatted("0 0 0 0 0 0 crz=0.05%s", axes), "HOLD volume x 0 0.1 0 0.1 0 0.1"),
            "end_time 0.1 output_frequency 50 INITIAL_VELOCITY U volume x 1 0.3 0.4 0 0 0 0.1 O volume x -1 "
            "0.3 0.4 0.1 0.1 0 0.1 %");
        const double I = 0.005;  // corners of 1/8 kg at a/√2
        EXPECT_NEAR(history(0, "kinetic"), 0.5 * I * 400, 0.01);
        for (std::size_t r = 0; r < rows(); r += 5)
            EXPECT_NEAR(history(r, "kinetic") / history(0, "kinetic"),
                        std::exp(-2 * 0.05 / I * history(r, "time")), 1e-5);
        EXPECT_LT(largest_drift(), 1e-9);
    }
}

// What is stiffer than the bodies' own step allows lowers it; at that step nothing swings up.
TEST_F(ExplicitRigid, StiffDashpotsLowerTheStableStep) {
    read(two_cubes("0 0 0 0 0 0 cx=5e4"),
         "end_time 1e-2 output_frequency 100 INITIAL_VELOCITY B part x 1 0 0 0 0 0 0 %");
    for (const bool automatic : {false, true}) {
        model.control.auto_step = automatic;
        ASSERT_TRUE(begin());
        EXPECT_LE(state->stable_step, (1 + 1e-9) / (2 * 5e4));  // c/(m/2), or a bound of it
        EXPECT_GE(state->stable_step, 0.2 / (2 * 5e4));
        while (!state->ended() && !state->diverged) explicit_step(*job, *state);
        EXPECT_NEAR(state->v[0], 0.5, 1e-9);
        EXPECT_LT(largest_drift(), 1e-6);
    }
}

// Two blocks turn about their common centre: what holds them together turns with them, whatever its other
// stiffness, and k w = m Ω² D/2 at rest in the turning frame. Forces in the first body's axes keep the
// angular momentum.
TEST_F(ExplicitRigid, SpringsInTheAxesOfABodyTurnWithIt) {
    const double k = 5000, spin = 20, d = 0.3, I = 0.005;
    std::string velocities;
    for (const double y : {0.0, 0.1})
        velocities += formatted("V volume x %g 0 0.4 %g %g 0 0.1 ", -spin * (y - 0.05), y, y);
    for (const double x : {0.0, 0.1, 0.3, 0.4})
        velocities += formatted("V volume y %g %g %g 0 0.1 0 0.1 ", spin * (x - 0.2), x, x);
    run(two_cubes("5000 20000 8000 50 50 50 cx=25 cy=25 crz=0.1 axes=body"),
        "d_time 5e-5 end_time 0.8 output_frequency 400 INITIAL_VELOCITY " + velocities + "%");
    expect_kept("angular_momentum_z", 1e-6);
    expect_kept("momentum_x", 1e-10);
    EXPECT_LT(largest_drift(), 1e-4);
    const double L = 2 * (I + 0.25 * d * d) * spin;
    double D = d;
    for (int round = 0; round < 100; ++round) {
        const double omega = L / (2 * (I + 0.25 * D * D));
        D = d + 0.5 * omega * omega * D / k;
    }
    EXPECT_GT(D, d + 0.005);
    const auto centre = [&](double x) {
        Vec3 sum{};
        for (double dx : {0.0, 0.1})
            for (double y : {0.0, 0.1})
                for (double z : {0.0, 0.1})
                    for (std::size_t c = 0; c < 3; ++c) sum[c] += state->x[4 * node_at(x + dx, y, z) + c] / 8;
        return sum;
    };
    EXPECT_NEAR(norm(minus(centre(0.3), centre(0))), D, 1e-5);
    const double t = last("time");
    EXPECT_GT(spin * t, 4 * M_PI) << "two turns at least";
}

TEST_F(ExplicitRigid, DashpotsAreReadAndOtherAnalysesSayThatTheyDoNotAct) {
    read(two_cubes("1 2 3 4 5 6 cy=2*3 axes=body crx=0.5", "HOLD volume x 0 0.1 0 0.1 0 0.1"), "end_time 0");
    const RigidCombine& record = model.rigid_combines.at(0);
    EXPECT_EQ(record.damping, (std::array<double, 6>{0, 6, 0, 0.5, 0, 0}));
    EXPECT_TRUE(record.body_axes);
    EXPECT_TRUE(contains(analyse(analyse_static).remarks.notices,
                         "rigid combine S: its dashpots act in the explicit analysis alone"));
    EXPECT_TRUE(contains(analyse(analyse_buckling).remarks.errors, "axes=body is not known to buckling"));
    for (const auto& [word, says] : {std::pair{"cx=-1", "a damping coefficient of at least 0"},
                                     {"axes=fixed", "axes=body"},
                                     {"cx=1 cx=1", "the option cx= once in a record"}}) {
        Model other = placeholder_model();
        other.model_file_name = folder.write("other.txt", two_cubes(std::string("1 2 3 4 5 6 ") + word));
        const ModelReadReport refused = read_input_file(other, {}, said);
        EXPECT_TRUE(contains(refused.remarks.errors, says)) << joined(refused.remarks.errors);
    }
}

}  // namespace
}  // namespace kestralum
