// Collisions and friction of bodies, piece by piece: what a node may lend to a contact, what a closed contact
// keeps, and what is said of it.
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

class ExplicitCollision : public ExplicitTest {
protected:
    // Momentum of the nodes whose coordinate at rest passes a limit, kg m/s.
    double momentum_above(double limit, std::size_t axis) const {
        double sum = 0;
        for (std::size_t n = 0; n < state->x.size() / 4; ++n)
            if (state->X[4 * n + 2] > limit) sum += state->mass[4 * n] * state->v[4 * n + axis];
        return sum;
    }
    double time() const { return static_cast<double>(state->step) * state->d_time; }
    // A block of 0.1 × 0.1 × 0.05 m on a floor of 1 m that falls off along y by an angle, degrees.
    static std::string slope(double angle, const std::string& cells = "1 2 1") {
        const double turn = angle * M_PI / 180, y = 0.7, z = 1e-5;
        const auto at = [&](double b, double c, std::size_t axis) {
            return axis == 1 ? b * std::cos(turn) + c * std::sin(turn)
                             : c * std::cos(turn) - b * std::sin(turn);
        };
        const auto part = [&](const char* name, const char* size, const std::string& divided, double b,
                              double c) {
            return name + formatted(" red M RECT %s 0 0 0 %s 0 0 0 0.0 %.15g %.15g 0 %.15g 0\n", size,
                                    divided.c_str(), at(b, c, 1), at(b, c, 2), -angle);
        };
        return ModelText{.material = "7800 1e8 0",
                         .parts = part("FLOOR", "0.1 2 0.1", "1 20 1", 0, -0.1) +
                                  part("BLOCK", "0.1 0.1 0.05", cells, y, z)};
    }
};

const std::string pair = " Element_contact on ELEMENT_CONTACT HIT A B 1 0 0 0 0 0 0 0 0 0 0 % ";

// What is driven in x is free along z: a bar that strikes another one does so as if nothing held x.
TEST_F(ExplicitCollision, ANodeHeldAcrossTheNormalMeetsWithItsMass) {
    const std::string bars = ModelText{
        .material = "8000 2e11 0",
        .parts = rect("A", "0.02 0.02 0.1", "2 2 20") + rect("B", "0.02 0.02 0.1", "2 2 20", "0 0 0.1001")};
    const std::string control =
        "end_time 60e-6 output_frequency 5 INITIAL_VELOCITY A part z 20 0 0 0 0 0 0 %" + pair;
    run(bars, control);
    const double free = momentum_above(0.10005, 2), force = most("contact_HIT_z");
    ASSERT_GT(free, 0.9 * 8000 * 0.1 * 4e-4 * 20);
    for (const char* held :
         {"A part x 0 0 0 0 0 0 0 B part x 0 0 0 0 0 0 0", "A part y 0 0 0 0 0 0 0 B part y 0 0 0 0 0 0 0"}) {
        run(bars, control + "VELOCITY_INPUT " + held + " %");
        EXPECT_NEAR(momentum_above(0.10005, 2), free, 1e-9 * free) << held;
        EXPECT_LT(largest_drift(), 1e-4);
    }
    // half of bars that bulge, with a plane of symmetry that only some of a triangle's nodes are on
    const auto halved = [&](double width) {
        return std::string(ModelText{
            .material = "8000 2e11 0.3",
            .parts = rect("A", formatted("%g 0.02 0.1", width), formatted("%d 2 20", width > 0.03 ? 4 : 2)) +
                     rect("B", formatted("%g 0.02 0.1", width), formatted("%d 3 20", width > 0.03 ? 6 : 3),
                          "0 0 0.1001")});
    };
    run(halved(0.04), control);
    const double whole = momentum_above(0.10005, 2), whole_force = most("contact_HIT_z");
    run(halved(0.02), control + "VELOCITY_INPUT SYM plane x 0 0.02 0.02 0 0 0 0 %");
    EXPECT_NEAR(2 * momentum_above(0.10005, 2), whole, 0.005 * whole);
    EXPECT_NEAR(2 * most("contact_HIT_z"), whole_force, 0.03 * whole_force);
    EXPECT_LT(std::abs(last("contact")), 0.01 * history(0, "kinetic"));
    EXPECT_LT(largest_drift(), 1e-4);
    EXPECT_GT(force, 0);
}

// tan 15° = 0.268: with μ = 0.25 the block slides down as if on a plane, with 0.3 it stays where it is, and
// thrown down it stops after v²/2a with a = g (μ cos θ - sin θ).
TEST_F(ExplicitCollision, ABlockOnASlopeSlidesStopsAndStays) {
    const double turn = 15 * M_PI / 180, g = 9.80665;
    const auto control = [](double mu, double end, double v) {
        return formatted(
            "end_time %g output_frequency 500 Gravity -z Element_contact on VELOCITY_INPUT FLOOR part x 0 0 "
            "0 "
            "0 0 0 0 FLOOR part y 0 0 0 0 0 0 0 FLOOR part z 0 0 0 0 0 0 0 %% INITIAL_VELOCITY BLOCK part y "
            "%.15g 0 0 0 0 0 0 BLOCK part z %.15g 0 0 0 0 0 0 %% ELEMENT_CONTACT SLIDE BLOCK FLOOR 1 %g 0.2 "
            "0 0 0 0 0 0 0 0 %%",
            end, v * std::cos(15 * M_PI / 180), -v * std::sin(15 * M_PI / 180), mu);
    };
    const auto down = [&](std::size_t n) { return u(n, 1) * std::cos(turn) - u(n, 2) * std::sin(turn); };
    const auto corner = [&] {
        return node_at(0, 0.7 * std::cos(turn) + 0.05001 * std::sin(turn),
                       0.05001 * std::cos(turn) - 0.7 * std::sin(turn));
    };
    run(slope(15), control(0.25, 0.3, 0.5));
    const double t = time();
    expect_figure("slides down", down(corner()),
                  0.5 * t + 0.5 * g * (std::sin(turn) - 0.25 * std::cos(turn)) * t * t, 0.005);
    run(slope(15), control(0.4, 0.3, 0.3));
    const double a = g * (0.4 * std::cos(turn) - std::sin(turn));
    expect_figure("thrown down, stops after", down(corner()), 0.09 / (2 * a), 0.01);
    // at rest: what has been reached after the first third does not change
    std::vector<double> place;
    read(slope(15), control(0.3, 0.6, 0));
    ASSERT_TRUE(begin());
    const std::int64_t part = state->time_num / 10;
    for (int k = 1; k < 10; ++k) {
        run_to(k * part);
        place.push_back(down(corner()));
    }
    EXPECT_NEAR(place[8], place[2], 2e-7) << "it creeps";
    EXPECT_LT(std::abs(place[8]), 1e-4);
    EXPECT_LT(largest_drift(), 1e-3);
}

// A wall's friction on a rigid block: 0.3 m g holds what pushes with less and lets the rest accelerate it.
TEST_F(ExplicitCollision, WallsRubRigidBodiesByTheirMotion) {
    const double mass = 1000 * 0.2 * 0.1 * 0.1, weight = mass * 9.80665;
    for (const double push : {0.2, 0.5}) {
        run(ModelText{.material = "1000 1e7 0.3",
                      .parts = rect("A", "0.2 0.1 0.1", "2 1 1", "0 0 1e-6"),
                      .forces = formatted("push area x %.15g 0 0 -1 1 -1 1", push * weight),
                      .rigid = "R area 0 0 0 0 0.2 0 0.1 0 0.2 %"},
            "end_time 0.1 output_frequency 50 Gravity -z RIGID_WALL W plane +z 0 0 0.3 0.1 0 0 0 0 0 0 0 0 0 "
            "%");
        const double t = time(), moved = u(0, 0);
        if (push < 0.3)
            EXPECT_LT(std::abs(moved), 3e-5) << "it sticks";
        else
            expect_figure("slides", moved, 0.5 * (push - 0.3) * 9.80665 * t * t, 0.02);
        EXPECT_NEAR(last("wall_W_x"), -std::min(push, 0.3) * weight, 0.05 * weight);
        EXPECT_LT(largest_drift(), 1e-3);
    }
}

// Springs of a hundredth of the stiffness let the nodes sink deeper than half an edge: they are held all the
// same, and the depth is told.
TEST_F(ExplicitCollision, ADeepNodeIsHeldAndTold) {
    read(
        ModelText{.material = "8000 1e8 0",
                  .parts = rect("A", "0.1 0.1 0.1", "4 4 4") +
                           rect("B", "0.06 0.06 0.02", "3 3 1", "0.021 0.022 0.1001")},
        "end_time 16e-3 output_frequency 20 INITIAL_VELOCITY B part z -10 0 0 0 0 0 0 A part z 0 0 0 0 0 0 0 "
        "% "
        "VELOCITY_INPUT FOOT plane z 0 0 0 0 0 0 0 % Element_contact on ELEMENT_CONTACT HIT A B 0.005 0 0 0 "
        "0 0 0 0 0 0 0 %");
    run();
    double deepest = 0;
    for (std::size_t n = 0; n < state->x.size() / 4; ++n)
        if (state->X[4 * n + 2] > 0.10005) deepest = std::max(deepest, 0.1 - state->x[4 * n + 2]);
    EXPECT_LT(deepest, 0.1) << "it has fallen through";
    EXPECT_GT(momentum_above(0.10005, 2), 0) << "it is thrown back";
    EXPECT_LT(largest_drift(), 1e-3);
}

// A block that slides over another one's border a hundredth of a millimetre below its face comes out.
TEST_F(ExplicitCollision, WhatComesInFromTheSideIsPushedOut) {
    run(ModelText{.material = "8000 2e11 0.3",
                  .parts = rect("A", "0.04 0.02 0.01", "8 4 2") +
                           rect("B", "0.02 0.012 0.01", "4 3 2", "0.04001 0.003 0.00999")},
        "end_time 100e-6 output_frequency 20 INITIAL_VELOCITY B part x -50 0 0 0 0 0 0 %" + pair);
    const double edge = 0.01 + u(node_at(0.04, 0.005, 0.01), 2);
    for (const double y : {0.003, 0.007, 0.011, 0.015}) {
        const std::size_t front = node_at(0.04001, y, 0.00999);
        EXPECT_GT(0.00999 + u(front, 2), edge) << y;
        EXPECT_LT(u(front, 0), -0.004) << "it was to come in";
    }
    EXPECT_LT(last("contact"), 1e-4 * history(0, "kinetic"));
    EXPECT_GT(last("contact"), -0.01 * history(0, "kinetic"));
    EXPECT_LT(largest_drift(), 1e-4);
}

// What flies in from the side by more in a step than it is below the face has come through the side.
TEST_F(ExplicitCollision, AFastNodeIsMetByTheFaceItCameThrough) {
    read(ModelText{.material = "1000 2e9 0.3",
                   .parts = rect("A", "0.04 0.02 0.01", "8 4 2") +
                            rect("B", "0.02 0.012 0.01", "4 3 2", "0.0401 0.003 0.0094")},
         "end_time 30e-6 output_frequency 1 INITIAL_VELOCITY B part x -400 0 0 0 0 0 0 %" + pair);
    ASSERT_TRUE(begin());
    ASSERT_GT(400 * state->d_time, 7e-4);
    run_to(1);
    const std::array<double, 3> force = state->contacts->force(0);
    EXPECT_LT(force[0], 0);
    EXPECT_LT(std::abs(force[2]), 0.1 * std::abs(force[0]));
    EXPECT_GE(state->contacts->touching(), 4) << "B's foremost nodes";
}

TEST_F(ExplicitCollision, ContactThatCannotActIsSaid) {
    const std::string cubes =
        ModelText{.material = "1000 1e9 0",
                  .parts = rect("A", "1 1 1", "1 1 1") + rect("B", "1 1 1", "1 1 1", "2 0 0")};
    read(cubes, "end_time 1e-6 Element_contact on");
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(said.notices, "Element_contact is on, but ELEMENT_CONTACT names no pair"));
    // a pair that stays from an earlier model
    read(cubes, "end_time 1e-6" + pair);
    model.explicit_tables.contacts[0].part_name[1] = "C";
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(said.notices, "contact HIT: this model has no part C"));
}

TEST_F(ExplicitCollision, ALaterVelocityOfRigidMembersRules) {
    const std::string rod = ModelText{.material = "1000 1e9 0.3",
                                      .parts = rect("A", "0.5 0.1 0.02", "10 2 1"),
                                      .rigid = "R area 0 0 0 0 0.5 0 0.1 0 0.02 %"};
    const std::string both = "A part x 5 0 0 0 0 0 0 A part x 1 0 0 0 0 0 0 A part y 0 0 0 0 0 0 0 %";
    for (const char* table : {"VELOCITY_INPUT ", "INITIAL_VELOCITY "}) {
        run(rod, std::string("d_time 1e-5 end_time 1e-3 output_frequency 50 ") + table + both);
        for (std::size_t n : {std::size_t(0), node_at(0.5, 0.1, 0.02)})
            EXPECT_NEAR(u(n, 0), 1e-3, 1e-9) << table;
    }
}

// Between the rows the forces of a collision rise and fall: their largest sizes are kept.
TEST_F(ExplicitCollision, PeaksBetweenTheRowsAreKept) {
    const std::string bars = ModelText{.material = "8000 2e11 0",
                                       .parts = rect("A", "0.05 0.02 0.02", "10 2 2") +
                                                rect("B", "0.05 0.02 0.02", "10 3 3", "0.0501 0 0")},
                      control =
                          " INITIAL_VELOCITY A part x 20 0 0 0 0 0 0 % RIGID_WALL W plane -x 0 0 0 0 "
                          "0.1002 0.1002 0 0 0 0 0 0 0 % " +
                          pair;
    run(bars, "end_time 60e-6 output_frequency 1" + control);
    const std::int64_t steps = state->step;
    double contact = 0, wall = 0;
    for (std::size_t r = 0; r < rows(); ++r) {
        contact = std::max(contact, std::hypot(history(r, "contact_HIT_x"), history(r, "contact_HIT_y"),
                                               history(r, "contact_HIT_z")));
        wall = std::max(wall,
                        std::hypot(history(r, "wall_W_x"), history(r, "wall_W_y"), history(r, "wall_W_z")));
        EXPECT_EQ(history(r, "contact_HIT_peak"),
                  std::hypot(history(r, "contact_HIT_x"), history(r, "contact_HIT_y"),
                             history(r, "contact_HIT_z")));
    }
    run(bars, formatted("end_time 60e-6 output_frequency %ld", long(steps)) + control);
    ASSERT_EQ(rows(), 2u);
    EXPECT_EQ(last("contact_HIT_peak"), contact);
    EXPECT_EQ(last("wall_W_peak"), wall);
    EXPECT_GT(contact, 0);
    EXPECT_GT(wall, 0);
    const auto& columns = state->history.columns;
    EXPECT_EQ(columns[columns.size() - 1], "contact_HIT_peak");
    EXPECT_EQ(columns[columns.size() - 2], "wall_W_peak");
}

// Beams that cross, flat on flat, edge on edge and with a corner ahead, meshed so coarsely that no node of
// either comes near the other: they part again with what they had.
TEST_F(ExplicitCollision, CrossedBeamsMeetByTheirEdges) {
    const auto beams = [&](int cells, bool turned, double shift) {
        const auto part = [&](const char* name, const char* size, const std::string& divided,
                              const std::string& at) {
            return std::string(name) + " red M RECT " + size + " 0 0 0 " + divided + " 0 0 0 " + at + "\n";
        };
        const std::string along = formatted("1 1 %d", cells);
        // drawn out along local z, which points along x or y; the section turned by 45 degrees
        const double h = turned ? 0.02 * std::sqrt(0.5) : 0.0;
        return std::string(ModelText{
            .material = "8000 2e11 0.3",
            .parts = turned
                         ? part("A", "0.02 0.02 0.2", along, formatted("-0.1 0 %.15g 90 90 45", -h - h)) +
                               part("B", "0.02 0.02 0.2", along, formatted("%.15g 0.1 1e-4 0 90 45", shift))
                         : part("A", "0.2 0.02 0.02", formatted("%d 1 1", cells), "-0.1 -0.01 -0.02 0 0 0") +
                               part("B", "0.02 0.2 0.02", formatted("1 %d 1", cells),
                                    formatted("%.15g -0.1 1e-4 0 0 0", shift - 0.01))});
    };
    for (const bool turned : {false, true})
        for (const int cells : {5, 9})
            for (const double shift : {0.0, 0.0123}) {
                run(beams(cells, turned, shift),
                    "end_time 400e-6 output_frequency 20 INITIAL_VELOCITY B part z -10 0 0 0 0 0 0 %" + pair);
                const std::string what = formatted("turned %d cells %d shift %g", int(turned), cells, shift);
                const double given = 8000 * 8e-5 * 10;
                double of_b = 0;
                for (std::size_t n = 0; n < state->x.size() / 4; ++n)
                    if (state->X[4 * n + 2] > 0.5e-4) of_b += state->mass[4 * n] * state->v[4 * n + 2];
                EXPECT_GT(of_b, -0.7 * given) << what;
                EXPECT_LT(state->contacts->deepest().depth, 2e-4) << what;
                EXPECT_EQ(last("contact_HIT_peak"), 0) << "they have parted";
                expect_kept("momentum_z", 1e-9 * given);
                expect_kept("angular_momentum_x", 1e-6 * given);
                EXPECT_LT(std::abs(last("contact")), 5e-3 * history(0, "kinetic")) << what;
                EXPECT_LT(largest_drift(), 1e-4) << what;
            }
}

// A cube that falls corner down beside the edge of a block that stands on another one's edge: none of its
// nodes comes behind the block's surface before its own edge has met the block's.
TEST_F(ExplicitCollision, ABoxCornerMeetsABoxEdge) {
    const double tip = std::atan(std::sqrt(2.0)) * 180 / M_PI;  // of a cube's diagonal against an edge
    for (const double beside : {0.004, 0.009, 0.014}) {
        // the cube's edges rise by 0.707 of their way along the ground, the block's sides fall by all of it
        run(ModelText{.material = "8000 2e11 0.3",
                      .parts =
                          formatted("A red M RECT 0.1 0.1 0.3 0 0 0 1 1 3 0 0 0 -0.15 0 %.15g 90 90 45\n",
                                    -0.1 * std::sqrt(2.0)) +
                          formatted("B red M RECT 0.05 0.05 0.05 0 0 0 1 1 1 0 0 0 0.013 %g %.15g 20 "
                                    "%.15g 45\n",
                                    beside, -0.7 * beside, tip)},
            "end_time 600e-6 output_frequency 20 INITIAL_VELOCITY B part z -20 0 0 0 0 0 0 %" + pair);
        const double given = 8000 * 1.25e-4 * 20;
        double of_b = 0;
        for (std::size_t n = 0; n < state->x.size() / 4; ++n)
            if (state->mass[4 * n] < 0.2) of_b += state->mass[4 * n] * state->v[4 * n + 2];
        EXPECT_GT(of_b, -0.8 * given) << beside;
        EXPECT_LT(state->contacts->deepest().depth, 8e-4) << beside;
        expect_kept("momentum_z", 1e-9 * given);
        EXPECT_LT(last("contact"), 2e-3 * history(0, "kinetic")) << beside;
        EXPECT_GT(last("contact"), -0.01 * history(0, "kinetic")) << beside;
    }
}

}  // namespace
}  // namespace kestralum
