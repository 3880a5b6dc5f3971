// Impact: rigid walls, contact of bodies, friction, plastic flow.
#include <filesystem>
#include <numeric>

#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

const std::string pair = " Element_contact on ELEMENT_CONTACT HIT A B 1 0 0 0 0 0 0 0 0 0 0 % ";
const std::string wall = " RIGID_WALL WALL plane +x 0 0 0 0 0 0 0 0 0 0 0 0 0 % ";

class ExplicitContact : public ExplicitTest {
protected:
    void make_soft(const Mesh& mesh, double young = 1e8, double poisson = 0.3) {
        make(mesh, {.density = steel.density, .young = young, .poisson = poisson});
    }
};

// A wall that runs into a bar at rest sets it off at twice the wall's speed, for every element type.
TEST_F(ExplicitContact, AMovingWallDoesTheWorkThatTheBodyTakes) {
    for (ElementKind kind : every_kind) {
        make_soft(box_mesh({{30, 2, 2}, {0.2, 0.02, 0.02}}, kind), steel.young, 0);
        read_control(
            "end_time 150e-6 output_frequency 5 RIGID_WALL WALL plane +x 0 0 0 0 -0.001 -0.001 -1 1 -1 1 "
            "50*time 0 0 %");
        run();
        const double mass = 7800 * 0.2 * 4e-4;
        EXPECT_NEAR(last("momentum_x"), mass * 100, 0.03 * mass * 100) << element_type(kind).name;
        EXPECT_NEAR(last("wall"), 0.5 * mass * 1e4, 0.06 * 0.5 * mass * 1e4);
        EXPECT_LT(largest_drift(), 1e-4);
    }
}

// Bodies let down on walls of each kind rest there with their weight.
TEST_F(ExplicitContact, WallsOfEveryKindCarryWhatRestsOnThem) {
    const std::pair<const char*, double> cases[] = {
        {"plane +z 0 0 0 0.3 0 0 0 0 0 0 0 0 0", 1},
        {"plane +z 0 0 0 0.3 -1 1 -1 1 0 0 0 0 0", 1},
        {"plane +z 0 0 0 0.3 5 6 -1 1 0 0 0 0 0", 0},        // beside its extent
        {"cylinder +y 1 0 0 0.3 0 0.2 0 0 -1 -1 0 0 0", 1},  // from outside: z = 0 at its crest
        {"cylinder -y 1 0 0 0.3 0 0.2 -1 1 1 1 0 0 0", 1},   // from inside: z = 0 at its bottom
        {"sphere -z 2 0 0 0.3 0 0.2 0 0.2 2 2 0 0 0", 1},
        {"sphere +z 2 0 0 0.3 0 0.2 0 0.2 -2 -2 0 0 0", 1},
    };
    for (const auto& [kind, share] : cases) {
        make_soft(hexa_box({{2, 2, 2}, {0.2, 0.2, 0.1}}));
        read_control(std::string("end_time 1.2 output_frequency 1000 C_alfa 0.02 Gravity -z RIGID_WALL W ") +
                     kind + " %");
        run();
        const double weight = 7800 * 0.2 * 0.2 * 0.1 * 9.80665;
        EXPECT_NEAR(last("wall_W_z"), share * weight, 1e-3 * weight) << kind;
        EXPECT_LT(largest_drift(), 0.01) << kind;
    }
}

// Thrown along another body that a support holds, a block slides v²/2μg.
TEST_F(ExplicitContact, FrictionStopsASlidingBlock) {
    run(ModelText{.material = "7800 1e8 0",
                  .parts = rect("FLOOR", "1 0.2 0.1", "10 2 1", "0 0 -0.1") +
                           rect("BLOCK", "0.1 0.08 0.05", "2 2 1", "0.05 0.06 0.0002"),
                  .supports = "ground plane z 0 0 0 0 0 -0.1"},
        "end_time 0.5 output_frequency 200 Gravity -z Element_contact on INITIAL_VELOCITY BLOCK part x 1.2 0 "
        "0 0 0 0 0 % ELEMENT_CONTACT SLIDE FLOOR BLOCK 1 0.3 0.2 0 0 0 0 0 0 0 0 %");
    const std::size_t node = node_at(0.1, 0.1, 0.0502);
    expect_figure("block on a body", u(node, 0), 1.44 / (2 * 0.3 * 9.80665), 0.05);
    // friction has what the block came with, and hardly any of what it fell
    expect_figure("friction took", last("friction"), history(0, "kinetic"), 0.03);
    EXPECT_LT(largest_drift(), 0.02);
    EXPECT_LT(u(node, 2), 0) << "it has come down";
    EXPECT_GT(u(node, 2), -0.002) << "it has not fallen through";
}

TEST_F(ExplicitContact, AStiffWallLowersTheStepThatIsPrinted) {
    make(hexa_box({{2, 1, 1}, {0.2, 0.1, 0.1}}), steel);
    double stable[2];
    for (int stiff : {0, 1}) {
        read_control(std::string("end_time 1e-6 output_frequency 100 RIGID_WALL W plane +x 0 ") +
                     (stiff ? "1e12" : "0") + " 0 0 0 0 0 0 0 0 0 0 0 %");
        ASSERT_TRUE(begin());
        stable[stiff] = state->stable_step;
    }
    EXPECT_EQ(stable[0], state->bound->undeformed().step);
    // a corner node: m = 7800 · 1e-3 / 8
    EXPECT_NEAR(stable[1], 2 / std::sqrt(4 / (stable[0] * stable[0]) + 1e12 / (7800 * 1e-3 / 8)),
                1e-3 * stable[1]);
    EXPECT_TRUE(contains(said.notices, "is above the stable step"));
}

// Springs give back what was put into them, no more, however finely the time is divided: bars that bulge
// where they meet, with nodes at the border of the other's face and beyond, and a partner that is wider.
TEST_F(ExplicitContact, ContactMakesNoEnergy) {
    const std::array<const char*, 4> partners[] = {
        {"0.1 0.02 0.02", "30 2 2", "0.1001 0 0", "0"},
        {"0.1 0.02 0.02", "30 3 3", "0.1001 0 0", "0.3"},
        {"0.1 0.03 0.03", "30 4 4", "0.1001 -0.004 -0.006", "0.3"}};
    for (const auto& [size, cells, at, poisson] : partners)
        for (double part_of_step : {1.0, 0.2}) {
            read(ModelText{.material = std::string("8000 2e11 ") + poisson,
                           .parts = rect("A", "0.1 0.02 0.02", "30 2 2") + rect("B", size, cells, at)},
                 "end_time 100e-6 output_frequency 20 INITIAL_VELOCITY A part x 20 0 0 0 0 0 0 "
                 "B part x -10 0 0 0 0 0 0 %" +
                     pair);
            ASSERT_TRUE(begin());
            model.control.d_time = part_of_step * state->d_time;
            run();
            EXPECT_LT(std::abs(last("contact")), 0.01 * history(0, "kinetic"))
                << cells << " " << part_of_step;
            EXPECT_GT(most("contact_HIT_x"), 0);
            EXPECT_EQ(last("contact_HIT_x"), 0) << "they have parted";
            for (const char* momentum : {"momentum_x", "momentum_y", "momentum_z"})
                EXPECT_NEAR(last(momentum), history(0, momentum), 1e-10) << momentum;
            if (poisson != partners[0][3]) continue;
            double momentum = 0;  // equal bars that do not bulge exchange their speeds
            for (std::size_t d = 0; d < state->v.size(); d += 4)
                if (state->X[d] < 0.10005) momentum += state->mass[d] * state->v[d];
            EXPECT_NEAR(momentum, 8000 * 0.1 * 4e-4 * -10, 0.03 * 8000 * 0.1 * 4e-4 * 20);
        }
}

// What overlaps when the pair begins to act is pushed out; with the pair still to come nothing happens.
TEST_F(ExplicitContact, OverlappingPartsArePushedApart) {
    for (const std::string start : {"0", "20e-6", "1"}) {
        run(ModelText{.material = "8000 2e11 0.3",
                      .parts = rect("A", "0.04 0.02 0.02", "8 2 2") +
                               rect("B", "0.04 0.02 0.02", "8 3 3", "0.03999 0 0")},
            "end_time 100e-6 output_frequency 5" + replaced(pair, "0 %", start + " %"));
        const double overlap =
            0.04 + u(node_at(0.04, 0.01, 0.01), 0) - 0.03999 - u(node_at(0.03999, 0, 0), 0);
        const bool acts = start != "1";
        EXPECT_EQ(last("contact") > 0, acts) << start;
        EXPECT_TRUE(acts ? overlap < 0 : std::abs(overlap - 1e-5) < 1e-12) << start << " " << overlap;
        EXPECT_LT(largest_drift(), 0.02) << start;
    }
}

// A part folded onto itself: a clip of two arms of 0.1 m with a slot of 1 mm, driven together at their ends.
TEST_F(ExplicitContact, APartMeetsItself) {
    Mesh mesh = hexa_box({{10, 1, 9}, {0.1, 0.02, 0.09}});
    std::vector<std::int32_t> kept;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto c = element_centre(mesh, e);
        if (c[0] > 0.02 && c[2] > 0.04 && c[2] < 0.05) continue;  // the slot
        kept.insert(kept.end(), mesh.connectivity.begin() + 8 * e, mesh.connectivity.begin() + 8 * (e + 1));
    }
    mesh.connectivity = kept;
    mesh.p_ele_part_id.assign(mesh.element_num(), 0);
    double through[2];
    for (int contact : {0, 1}) {
        make_soft(mesh, 1e9);
        read_control(std::string("end_time 0.0115 output_frequency 100 Element_contact ") +
                     (contact ? "on" : "off") +
                     " VELOCITY_INPUT low volume z 0.6 0.1 0.1 0 0.02 0 0 high volume z -0.6 0.1 0.1 0 0.02 "
                     "0.09 0.09 % ELEMENT_CONTACT SELF BODY BODY 1 0 0 0 0 0 0 0 0 0 0 %");
        run();
        through[contact] = 0.04 + u(node_at(0.1, 0, 0.04), 2) - 0.05 - u(node_at(0.1, 0, 0.05), 2);
        EXPECT_LT(largest_drift(), 0.01);
    }
    EXPECT_GT(through[0], 2e-3) << "the arms were to meet";
    EXPECT_LT(through[1], 0.5 * through[0]);  // the springs are 1.5 times as stiff as the arms
}

TEST_F(ExplicitContact, WhatKeepsContactFromActingIsSaid) {
    const std::string control = "end_time 1e-6 RIGID_WALL W plane +x 0 0 0 0 0.5 0.5 0 0 0 0 0 0 0 %" + pair,
                      cube = rect("A", "1 1 1", "1 1 1");
    read(ModelText{.material = "1000 1e9 0", .parts = cube + rect("B", "1 1 1", "1 1 1", "1 0 0")}, control);
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(said.notices, "contact HIT: parts A and B have 4 nodes in common"));
    EXPECT_TRUE(contains(said.notices, "4 nodes lie behind a wall at the start"));
    EXPECT_TRUE(contains(said.lines, "Nnode_s=12\nNtri_s=20\n"));
    said.lines.clear();
    read_control(replaced(control, "Element_contact on", "Element_contact off"));
    ASSERT_TRUE(begin());
    EXPECT_TRUE(contains(said.notices, "Element_contact is off"));
    EXPECT_FALSE(contains(said.lines, "Nnode_s="));
}

// Taylor's impact of a copper rod: 32.4 mm, radius 3.2 mm, 227 m/s, to 21.4 mm and 7.0 mm (Kamoulakos, Bench
// Mark, NAFEMS, 1990).
TEST_F(ExplicitContact, TaylorBar) {
    options.mean_dilatation = true;
    run(ModelText{.material = "8930 117e9 0.35",
                  .parts = "ROD red M CYLI 3.2e-3 32.4e-3 0 0 0 0 3 48 0 0 0 0 0 0 0 0 0 0\n"},
        "d_time 1e-8 end_time 80e-6 output_frequency 2000 Plastic on MATERIAL_EXTRA_INFO M 0 400e6 100e6 % "
        "RIGID_WALL ANVIL plane +z 0 0 0 0.1 0 0 0 0 0 0 0 0 0 % INITIAL_VELOCITY ROD part z -227 0 0 0 0 0 "
        "0 "
        "%");
    double low[3] = {1, 1, 1}, high[3] = {};
    for (std::size_t d = 0; d < state->x.size(); ++d)
        if (d % 4 < 3) {
            low[d % 4] = std::min(low[d % 4], state->x[d]);
            high[d % 4] = std::max(high[d % 4], state->x[d]);
        }
    expect_figure("Taylor bar, length in mm", 1e3 * (high[2] - low[2]), 21.4, 0.3 / 21.4);
    expect_figure("Taylor bar, radius in mm", 1e3 * (high[0] - low[0]) / 2, 7.0, 0.05);
    EXPECT_LT(largest_drift(), 0.01);
    EXPECT_LT(last("kinetic"), 0.05 * history(0, "kinetic"));
    EXPECT_GT(last("plastic"), 0.9 * last("internal"));
}

}  // namespace

// A soft contact that is deeper than candidates are looked for goes on from face to face, but not beyond the
// set.
TEST_F(ExplicitContact, ADeepContactEndsWithItsSet) {
    for (const std::string place : {"set S 0", "0 0 0 0 0 0 0"}) {
        run(ModelText{.parts = rect("A", "0.4 0.1 0.1", "4 1 1") +
                               rect("B", "0.04 0.04 0.04", "2 2 2", "0.04 0.03 0.1001"),
                      .supports = "F plane z 0 0 0 0 0 0",
                      .others = "set_info S box -1 0.2001 -1 1 -1 1 %\n"},
            "end_time 720e-6 output_frequency 20 Element_contact on ELEMENT_CONTACT H A B 0.0005 0 0 0 " +
                place + " % INITIAL_VELOCITY B part z -80 0 0 0 0 0 0 B part x 250 0 0 0 0 0 0 %");
        EXPECT_GT(u(node_at(0.04, 0.03, 0.1001), 0), 0.1601) << "its last edge is beyond";
        EXPECT_GT(most("contact_H_z"), 1e4);
        EXPECT_EQ(last("contact_H_z") == 0, place.starts_with("set")) << place;
    }
}

// A set in place of coordinates: the wall stands where the set is and meets its nodes alone, a pair its
// faces.
TEST_F(ExplicitContact, SetsSelectForWallsAndPairs) {
    const std::string bar =
        "material_info STEEL 8000 2e11 0 %\n" +
        std::string(
            "set_info TIP plane x 0.001 "
            "EDGE where 1e-6-y  FOOT intersection TIP,EDGE %\n") +
        "part_info BAR blue STEEL RECT 0.2 0.02 0.02 0 0 0 40 2 2 0 0 0 0.001 0 0 0 0 0 %\nEND\n";
    const auto with_wall = [](const std::string& place) {
        return "end_time 40e-6 output_frequency 5 INITIAL_VELOCITY BAR part x -100 0 0 0 0 0 0 % "
               "RIGID_WALL WALL plane +x 0 0 0 0 " +
               place + " 0 0 0 % ";
    };
    std::vector<double> force;
    for (const char* place : {"0.001 0.001 0 0 0 0", "set TIP", "set FOOT"}) {
        run(bar, with_wall(place));
        force.push_back(last("wall_WALL_x"));
    }
    EXPECT_EQ(force[0], force[1]);
    EXPECT_NEAR(force[0], std::sqrt(8000 * 2e11) * 100 * 4e-4, 0.1 * force[0]);  // rho c V A
    EXPECT_GT(force[2], 0);
    EXPECT_LT(force[2], 0.9 * force[0]);
    // a parameter of that name is what it was
    run("parameter set 0.0005 %\n" + bar, with_wall("set 0.0005+set 0 0 0 0"));
    EXPECT_NE(last("wall_WALL_x"), force[0]);
    EXPECT_TRUE(model.explicit_tables.walls[0].set_name.empty());
    // a wall that stays from a model with the set is no use in one without
    model.explicit_tables.walls[0].set_name = "TIP";
    model.mesh.sets.clear();
    const RunReport refused = analyse(analyse_explicit);
    EXPECT_EQ(refused.status, RunStatus::bad_input);
    EXPECT_TRUE(contains(refused.remarks.errors.at(0), "wall WALL: this model has no set TIP"));

    const std::string two =
        "material_info STEEL 8000 2e11 0 %\nset_info L plane x 0.2 R plane x 0.2001 FAR plane x 0 "
        "MEET union L,R  MISS union L,FAR %\npart_info\n"
        "LEFT blue STEEL RECT 0.2 0.02 0.02 0 0 0 30 2 2 0 0 0 0 0 0 0 0 0\n"
        "RIGHT red STEEL RECT 0.2 0.02 0.02 0 0 0 30 3 3 0 0 0 0.2001 0 0 0 0 0 %\nEND\n";
    std::vector<double> velocity;
    for (const char* place : {"0 0 0 0 0 0", "set MEET", "set MISS"}) {
        run(two,
            "end_time 60e-6 output_frequency 5 Element_contact on INITIAL_VELOCITY LEFT part x 20 0 0 0 0 0 "
            "0 % "
            "ELEMENT_CONTACT HIT LEFT RIGHT 1 0 0 0 " +
                std::string(place) + " 0 % ");
        velocity.push_back(last("contact_HIT_x"));
    }
    EXPECT_EQ(velocity[0], velocity[1]);
    EXPECT_NE(velocity[0], 0);
    EXPECT_EQ(velocity[2], 0);
}

}  // namespace kestralum
