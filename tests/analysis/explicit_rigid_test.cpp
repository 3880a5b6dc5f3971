// Rigid bodies in explicit runs: tumbling, impact, springs, gravity, hinges and prescribed velocities.
#include <cmath>

#include "analysis/explicit_rigid.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

// A block of 0.3 × 0.2 × 0.1 m as one body.
struct Block {
    Block() : mesh(box_mesh({{3, 2, 1}, {0.3, 0.2, 0.1}}, ElementKind::hexahedron)), lumped(mesh.coordinates.size(), 0.25) {
        element.name = "B";
        element.reference = {0.02, 0.03, 0.01};
        element.region = {-1, 1, -1, 1, -1, 1};
        system = build_rigid_system(std::span(&element, 1), mesh, elements_of_nodes(mesh), {});
    }
    // Runs free for `time`; the largest change of |L| and of the energy, and the end's rotation.
    struct Outcome {
        double momentum = 0, energy = 0;
        std::array<double, 9> R{};
        Vec3 start{};   // angular velocity at t = 0
        int turns = 0;  // sign changes of the spin about the body's middle axis
    };
    Outcome tumble(double time, int steps) {
        ExplicitBodies bodies(system, mesh, lumped, {}, {});
        std::vector<DrivenMembers> given;
        // spin about the middle axis, y, with a hundredth of it about x
        std::vector<std::int32_t> top, bottom, left, right;
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            const double* x = &mesh.coordinates[3 * static_cast<std::size_t>(n)];
            (x[2] > 0.05 ? top : bottom).push_back(n);
            if (x[1] < 0.05) left.push_back(n);
            if (x[1] > 0.15) right.push_back(n);
        }
        given.push_back({0, top, 0, 5.0});
        given.push_back({0, bottom, 0, -5.0});
        given.push_back({0, left, 2, -0.05});
        given.push_back({0, right, 2, 0.05});
        const double dt = time / steps;
        bodies.start(given, dt);
        Outcome out;
        out.start = bodies.bodies()[0].omega;
        std::vector<double> u(4 * static_cast<std::size_t>(mesh.node_num()), 0.0), force = u, v = u, du = u, x = u, X = u;
        for (std::size_t k = 0; k < mesh.coordinates.size(); ++k) X[4 * (k / 3) + k % 3] = mesh.coordinates[k];
        Vec3 L0{};
        double T0 = 0;
        double spin = 0;
        for (int step = 0; step <= steps; ++step) {
            std::array<double, 2> driving{}, loads{};
            bodies.advance({u.data(), force.data(), v.data()}, {}, dt, driving, loads);
            const Vec3 L = bodies.angular_momentum();
            const double T = bodies.kinetic();
            if (step == 0) L0 = L, T0 = T;
            for (std::size_t c = 0; c < 3; ++c) out.momentum = std::max(out.momentum, std::abs(L[c] - L0[c]));
            out.energy = std::max(out.energy, std::abs(T / T0 - 1));
            const ExplicitBody& body = bodies.bodies()[0];
            const double now = body.state.R[1] * body.omega[0] + body.state.R[4] * body.omega[1] + body.state.R[7] * body.omega[2];
            out.turns += spin * now < 0;
            spin = now;
            out.R = body.state.R;
            if (step < steps) bodies.arrive(u, du, x, X);
        }
        out.momentum /= std::sqrt(L0[0] * L0[0] + L0[1] * L0[1] + L0[2] * L0[2]);
        return out;
    }
    Mesh mesh;
    std::vector<double> lumped;
    RigidElement element;
    RigidSystem system;
};

TEST(ExplicitRigidBody, TumblesAboutItsMiddleAxisByEulersEquations) {
    Block block;
    const double time = 1.0;
    const Block::Outcome coarse = block.tumble(time, 4000), fine = block.tumble(time, 8000), finest = block.tumble(time, 16000);
    EXPECT_LT(coarse.momentum, 1e-12);
    EXPECT_LT(finest.momentum, 1e-12);
    EXPECT_GE(finest.turns, 1) << "the middle axis is unstable: the body turns over";
    EXPECT_GT(coarse.energy / fine.energy, 3.5);  // second order
    EXPECT_LT(coarse.energy / fine.energy, 4.5);
    std::printf("    tumble: angular momentum %.1e %.1e, energy error %.2e %.2e %.2e, %d turns\n", coarse.momentum, finest.momentum, coarse.energy,
                fine.energy, finest.energy, finest.turns);
    // attitude against the Euler equations and R' = R [Ω] in body axes by Runge and Kutta's method, 4th order
    double I[3] = {}, w[3];
    Vec3 centre{};
    for (std::size_t n = 0; n < block.lumped.size() / 3; ++n)
        for (std::size_t c = 0; c < 3; ++c) centre[c] += block.mesh.coordinates[3 * n + c] / static_cast<double>(block.lumped.size() / 3);
    for (std::size_t n = 0; n < block.lumped.size() / 3; ++n)
        for (std::size_t c = 0; c < 3; ++c)
            for (std::size_t d = 1; d < 3; ++d) I[c] += 0.25 * std::pow(block.mesh.coordinates[3 * n + (c + d) % 3] - centre[(c + d) % 3], 2);
    for (std::size_t c = 0; c < 3; ++c) w[c] = finest.start[c];  // L is constant: what it is half a step before t = 0
    double R[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const auto rate = [&](const double* y, double* d) {
        const double* Q = y + 3;
        for (int c = 0; c < 3; ++c) d[c] = (I[(c + 1) % 3] - I[(c + 2) % 3]) * y[(c + 1) % 3] * y[(c + 2) % 3] / I[c];
        for (int i = 0; i < 3; ++i) {
            d[3 + 3 * i] = Q[3 * i + 1] * y[2] - Q[3 * i + 2] * y[1];
            d[4 + 3 * i] = Q[3 * i + 2] * y[0] - Q[3 * i] * y[2];
            d[5 + 3 * i] = Q[3 * i] * y[1] - Q[3 * i + 1] * y[0];
        }
    };
    double y[12];
    std::copy(w, w + 3, y);
    std::copy(R, R + 9, y + 3);
    const int steps = 200000;
    const double h = time / steps;
    for (int s = 0; s < steps; ++s) {
        double k[4][12], z[12];
        rate(y, k[0]);
        for (int stage = 1; stage < 4; ++stage) {
            for (int i = 0; i < 12; ++i) z[i] = y[i] + (stage == 3 ? h : h / 2) * k[stage - 1][i];
            rate(z, k[stage]);
        }
        for (int i = 0; i < 12; ++i) y[i] += h / 6 * (k[0][i] + 2 * k[1][i] + 2 * k[2][i] + k[3][i]);
    }
    double error[3] = {};
    const Block::Outcome* runs[] = {&coarse, &fine, &finest};
    for (int r = 0; r < 3; ++r)
        for (std::size_t i = 0; i < 9; ++i) error[r] = std::max(error[r], std::abs(runs[r]->R[i] - y[3 + i]));
    std::printf("    attitude against Euler's equations: %.2e %.2e %.2e\n", error[0], error[1], error[2]);
    EXPECT_LT(error[2], 0.01);
    EXPECT_GT(error[1] / error[2], 3.5);  // second order
}

class ExplicitRigid : public ExplicitTest {
protected:
    double last(const std::string& column) const { return history(rows() - 1, column); }
};

// A rigid hammer flies into an elastic block.
TEST_F(ExplicitRigid, AHammerHandsItsMomentumToTheBlockThatItHits) {
    read("material_info M 7800 206e9 0.3 %\npart_info HAMMER red M RECT 0.05 0.05 0.05 0 0 0 2 2 2 0 0 0 -0.0505 0.005 0 0 0 0 "
         "BLOCK blue M RECT 0.1 0.06 0.06 0 0 0 6 4 4 0 0 0 0 0 0 0 0 0 %\n"
         "rigid_element HAMMER area -0.02 0.02 0.02 -0.06 -0.0004 0 0.06 0 0.06 % END",
         "end_time 120e-6 output_frequency 5 Element_contact on ELEMENT_CONTACT C HAMMER BLOCK 1 0 0 0 0 0 0 0 0 0 0 % "
         "INITIAL_VELOCITY HAMMER part x 20 0 0 0 0 0 0 %");
    run();
    ASSERT_EQ(report.status, RunStatus::done) << (report.remarks.errors.empty() ? "" : report.remarks.errors[0]);
    const double p = 7800 * 0.05 * 0.05 * 0.05 * 20;
    for (std::size_t r = 0; r < rows(); ++r) {
        EXPECT_NEAR(history(r, "momentum_x"), p, 1e-9 * p);
        EXPECT_NEAR(history(r, "momentum_y"), 0, 1e-9 * p);
        EXPECT_NEAR(history(r, "angular_momentum_z"), history(0, "angular_momentum_z"), 1e-6 * p);
    }
    EXPECT_LT(largest_drift(), 0.01);
    EXPECT_GT(last("internal"), 0);
    std::printf("    hammer: momentum %.3e of %.3e, drift %.1e\n", last("momentum_x"), p, largest_drift());
}

TEST_F(ExplicitRigid, TwoBlocksOnASpringSwingAtTheirFrequencyAndFallTogether) {
    // k on the reduced mass of two equal blocks of 1 kg (through their centres): ω = √(2k/m)
    const std::string parts = "material_info M 1000 1e9 0.3 %\npart_info A red M RECT 0.1 0.1 0.1 0 0 0 1 1 1 0 0 0 0 0 0 0 0 0 "
                              "B blue M RECT 0.1 0.1 0.1 0 0 0 1 1 1 0 0 0 0.3 0 0 0 0 0 %\n"
                              "rigid_element A area 0.05 0.05 0.05 0 0.1 0 0.1 0 0.1 B area 0.35 0.05 0.05 0.3 0.4 0 0.1 0 0.1 %\n"
                              "rigid_combine S A B 5000 5000 5000 10 10 10 % END";
    const double omega = std::sqrt(2 * 5000.0), period = 2 * std::acos(-1.0) / omega;
    read(parts, console::format("d_time 1e-5 end_time %.12g output_frequency 1 INITIAL_VELOCITY B part x 1 0 0 0 0 0 0 %%", 0.75 * period));
    run();
    ASSERT_EQ(report.status, RunStatus::done);
    // internal energy: ½ k w², w = sin(ωt)/ω
    for (std::size_t r = 0; r < rows(); r += 97) {
        const double w = std::sin(omega * history(r, "time")) / omega;
        EXPECT_NEAR(history(r, "internal"), 0.5 * 5000 * w * w, 2e-3 * 0.25);
    }
    EXPECT_LT(largest_drift(), 1e-3);
    read(parts, "d_time 1e-5 end_time 0.02 output_frequency 100 Gravity -z");
    run();
    ASSERT_EQ(report.status, RunStatus::done);
    const double t = last("time");
    for (std::size_t d = 2; d < static_cast<std::size_t>(store.mesh.dof_num); d += 3)
        EXPECT_NEAR(store.results.mode_vec[store.results.mode_vec.size() - static_cast<std::size_t>(store.mesh.dof_num) + d],
                    -0.5 * 9.80665 * t * (t + 1e-5), 1e-12);
}

TEST_F(ExplicitRigid, HingesPendulumsAndDrivenMembersMoveAsTheyMust) {
    // a rigid rod hinged at one edge: a physical pendulum that starts at rest from the horizontal
    const std::string rod = "material_info M 1000 1e9 0.3 %\npart_info A red M RECT 0.5 0.1 0.02 0 0 0 10 2 1 0 0 0 0 0 0 0 0 0 %\n"
                            "rigid_element A area 0 0 0 0 0.5 0 0.1 0 0.02 %\n";
    read(rod + "boundary_condition HINGE volume x 0 0 0 0.1 0 0 % END", "d_time 1e-4 end_time 0.4 output_frequency 10 Gravity -z");
    run();
    ASSERT_EQ(report.status, RunStatus::done);
    EXPECT_LT(largest_drift(), 1e-3);
    const double* end = store.results.mode_vec.data() + store.results.mode_vec.size() - static_cast<std::size_t>(store.mesh.dof_num);
    double deepest = 0, hinge = 0;
    for (std::size_t n = 0; n < static_cast<std::size_t>(store.mesh.node_num()); ++n) {
        deepest = std::min(deepest, end[3 * n + 2]);
        if (store.mesh.coordinates[3 * n] < 1e-9 && store.mesh.coordinates[3 * n + 2] < 1e-9)
            for (std::size_t c = 0; c < 3; ++c) hinge = std::max(hinge, std::abs(end[3 * n + c]));
    }
    EXPECT_EQ(hinge, 0);
    // the hinge carries the weight and what turns the mass: reaction less weight is the change of momentum
    double carried = 0, weight = 0;
    for (std::size_t r = 1; r < rows(); ++r) {
        carried += history(r, "reaction_z") * (history(r, "time") - history(r - 1, "time"));
        weight += 9.80665 * (history(r, "time") - history(r - 1, "time"));  // 1 kg
    }
    EXPECT_NEAR(carried - weight, last("momentum_z"), 0.02 * weight);
    EXPECT_GT(std::abs(last("momentum_z")), 0.1);
    EXPECT_EQ(last("angular_momentum_x"), 0);  // only the hinge's direction turns
    EXPECT_LT(deepest, -0.3);
    // members driven along x: all of the body follows
    read(rod + "END", "d_time 1e-5 end_time 0.01 output_frequency 100 VELOCITY_INPUT A part x 3*time 0 0 0 0 0 0 %");
    run();
    ASSERT_EQ(report.status, RunStatus::done);
    end = store.results.mode_vec.data() + store.results.mode_vec.size() - static_cast<std::size_t>(store.mesh.dof_num);
    for (std::size_t n = 0; n < static_cast<std::size_t>(store.mesh.node_num()); ++n) EXPECT_NEAR(end[3 * n], 1.5 * 1e-4, 1e-9);
    EXPECT_NEAR(last("support"), last("kinetic"), 1e-9);
}

}  // namespace
}  // namespace kestralum
