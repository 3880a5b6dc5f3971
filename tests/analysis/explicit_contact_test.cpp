// Impact: rigid walls, contact of bodies, friction, plastic flow.
#include <filesystem>

#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

class ExplicitContact : public ExplicitTest {
protected:
    // First and last time at which a column is not 0, and its mean between them.
    struct Pulse {
        double first = -1, last = -1, mean = 0;
    };
    Pulse pulse(const std::string& column) const {
        Pulse p;
        int count = 0;
        for (std::size_t r = 0; r < rows(); ++r) {
            const double value = history(r, column);
            if (value == 0) continue;
            if (p.first < 0) p.first = history(r, "time");
            p.last = history(r, "time");
            p.mean += value;
            ++count;
        }
        if (count > 0) p.mean /= count;
        return p;
    }
    double last(const std::string& column) const { return history(rows() - 1, column); }
};

// A bar strikes a wall: force ρcVA for 2L/c, then it flies back as it came.
TEST_F(ExplicitContact, ABarReboundsFromAWallByTheWaveEquation) {
    read(
        "material_info M 8000 2e11 0 %\npart_info BAR red M RECT 0.2 0.02 0.02 0 0 0 200 2 2 0 0 0 0 0 0 0 0 "
        "0 % END",
        "end_time 100e-6 output_frequency 1 RIGID_WALL WALL plane +x 0 0 0 0 0 0 0 0 0 0 0 0 0 % "
        "INITIAL_VELOCITY BAR part x -100 0 0 0 0 0 0 %");
    run();
    Pulse hit = pulse("wall_WALL_x");
    std::printf("    bar on a wall: contact %.2f us, force %.4f MN, rebound %.4f V, drift %.1e\n",
                1e6 * (hit.last - hit.first), 1e-6 * hit.mean, last("momentum_x") / (8000 * 0.2 * 4e-4) / 100,
                largest_drift());
    EXPECT_NEAR(hit.last - hit.first, 80e-6, 0.03 * 80e-6);
    EXPECT_NEAR(hit.mean, 1.6e6, 0.03 * 1.6e6);
    EXPECT_NEAR(last("momentum_x"), 64, 0.01 * 64);
    EXPECT_LT(largest_drift(), 1e-9);

    // inches, pounds and seconds
    read(
        "material_info M 7.3e-4 3e7 0 %\npart_info BAR red M RECT 10 1 1 0 0 0 200 2 2 0 0 0 0.01 0 0 0 0 0 "
        "% END",
        "end_time 180e-6 output_frequency 1 RIGID_WALL WALL plane +x 0 0 0 0 0 0 0 0 0 0 0 0 0 % "
        "INITIAL_VELOCITY BAR part x -202.2 0 0 0 0 0 0 %");
    run();
    hit = pulse("wall_WALL_x");
    std::printf("    bar with a gap: hit at %.2f us, release at %.2f us, force %.0f lbf\n", 1e6 * hit.first,
                1e6 * hit.last, hit.mean);
    EXPECT_NEAR(hit.first, 49.5e-6, 0.03 * 49.5e-6);
    EXPECT_NEAR(hit.last, 148.1e-6, 0.03 * 148.1e-6);
    EXPECT_NEAR(hit.mean, 29923, 0.03 * 29923);
}

// A wall that runs into a bar at rest sets it off at twice the wall's speed, for every element type.
TEST_F(ExplicitContact, AMovingWallDoesTheWorkThatTheBodyTakes) {
    for (ElementKind kind : every_kind) {
        Material m = steel;
        m.poisson = 0;
        make(box_mesh({{30, 2, 2}, {0.2, 0.02, 0.02}}, kind), m);
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
    const struct {
        const char* wall;
        bool outside_of_extent;
    } cases[] = {
        {"plane +z 0 0 0 0.3 0 0 0 0 0 0 0 0 0", false},
        {"plane +z 0 0 0 0.3 -1 1 -1 1 0 0 0 0 0", false},
        {"plane +z 0 0 0 0.3 5 6 -1 1 0 0 0 0 0", true},
        {"cylinder +y 1 0 0 0.3 0 0.2 0 0 -1 -1 0 0 0", false},  // from outside: z = 0 at its crest
        {"cylinder -y 1 0 0 0.3 0 0.2 -1 1 1 1 0 0 0", false},   // from inside: z = 0 at its bottom
        {"sphere -z 2 0 0 0.3 0 0.2 0 0.2 2 2 0 0 0", false},
        {"sphere +z 2 0 0 0.3 0 0.2 0 0.2 -2 -2 0 0 0", false},
    };
    Material soft = steel;
    soft.young = 1e8;
    for (const auto& c : cases) {
        make(box_mesh({{2, 2, 2}, {0.2, 0.2, 0.1}}, ElementKind::hexahedron), soft);
        read_control(std::string("end_time 1.2 output_frequency 1000 C_alfa 0.02 Gravity -z RIGID_WALL W ") +
                     c.wall + " %");
        run();
        const double weight = 7800 * 0.2 * 0.2 * 0.1 * 9.80665;
        EXPECT_NEAR(last("wall_W_z"), c.outside_of_extent ? 0 : weight, 1e-3 * weight) << c.wall;
        EXPECT_LT(largest_drift(), 0.01) << c.wall;
    }
}

// Thrown along a plane a block slides v²/2μg.
TEST_F(ExplicitContact, FrictionStopsASlidingBlock) {
    Material soft = steel;
    soft.young = 1e8;
    soft.poisson = 0;
    make(box_mesh({{2, 1, 1}, {0.2, 0.1, 0.05}}, ElementKind::hexahedron), soft);
    read_control(
        "end_time 1 output_frequency 500 Gravity -z RIGID_WALL FLOOR plane +z 0 0 0.3 0.2 0 0 0 0 0 0 0 0 0 "
        "% INITIAL_VELOCITY BODY part x 2 0 0 0 0 0 0 %");
    run();
    const double distance = 4 / (2 * 0.3 * 9.80665), reached = u(node_at(0.1, 0, 0.05), 0);
    std::printf("    sliding block: %.4f of v^2/2 mu g, drift %.1e\n", reached / distance, largest_drift());
    EXPECT_NEAR(reached, distance, 0.02 * distance);
    EXPECT_LT(std::abs(last("momentum_x")), 1e-6 * 7800 * 1e-3 * 2);
    EXPECT_LT(largest_drift(), 0.01);
}

TEST_F(ExplicitContact, AStiffWallLowersTheStepThatIsPrinted) {
    const std::string wall = "RIGID_WALL W plane +x 0 STIFF 0 0 0 0 0 0 0 0 0 0 0 %";
    make(box_mesh({{2, 1, 1}, {0.2, 0.1, 0.1}}, ElementKind::hexahedron), steel);
    read_control("end_time 1e-6 output_frequency 100 " +
                 std::string(wall).replace(wall.find("STIFF"), 5, "0"));
    ASSERT_TRUE(begin());
    const double stable = state->stable_step;
    EXPECT_EQ(stable, state->bound->undeformed().step);
    read_control("end_time 1e-6 output_frequency 100 " +
                 std::string(wall).replace(wall.find("STIFF"), 5, "1e12"));
    ASSERT_TRUE(begin());
    // a corner node: m = 7800 · 1e-3 / 8
    EXPECT_NEAR(state->stable_step, 2 / std::sqrt(4 / (stable * stable) + 1e12 / (7800 * 1e-3 / 8)),
                1e-3 * state->stable_step);
    EXPECT_NE(console_.notices.find("is above the stable step"), std::string::npos);
}

// Two equal bars meet face on: they exchange their speeds; the momentum of both stays to rounding.
TEST_F(ExplicitContact, EqualBarsExchangeTheirSpeeds) {
    for (const char* divisions : {"60 2 2", "60 3 3"}) {
        read(
            "material_info M 8000 2e11 0 %\npart_info A red M RECT 0.2 0.02 0.02 0 0 0 60 2 2 0 0 0 0 0 0 0 "
            "0 0 B blue M RECT 0.2 0.02 0.02 0 0 0 " +
                std::string(divisions) + " 0 0 0 0.2001 0 0 0 0 0 % END",
            "end_time 200e-6 output_frequency 5 Element_contact on INITIAL_VELOCITY A part x 20 0 0 0 0 0 0 "
            "B part x -10 0 0 0 0 0 0 % "
            "ELEMENT_CONTACT HIT A B 1 0 0 0 0 0 0 0 0 0 0 %");
        run(2, {.probes = {{0.1, 0.01, 0.01}, {0.3, 0.01, 0.01}}});
        const double mass = 8000 * 0.2 * 4e-4;
        auto speed = [&](double lo, double hi) {
            double momentum = 0;
            for (std::size_t n = 0; n < state->v.size() / 4; ++n)
                if (state->X[4 * n] >= lo && state->X[4 * n] <= hi)
                    momentum += state->mass[4 * n] * state->v[4 * n];
            return momentum / mass;
        };
        std::printf("    bars %s: speeds %.4f and %.4f after 20 and -10, momentum off by %.1e, drift %.1e\n",
                    divisions, speed(0, 0.2), speed(0.2001, 1),
                    std::abs(last("momentum_x") / history(0, "momentum_x") - 1), largest_drift());
        EXPECT_NEAR(speed(0, 0.2), -10, 0.3);
        EXPECT_NEAR(speed(0.2001, 1), 20, 0.3);
        for (std::size_t r = 0; r < rows(); ++r) {
            EXPECT_NEAR(history(r, "momentum_x"), mass * 10, 1e-11 * mass * 10);
            EXPECT_NEAR(history(r, "momentum_y"), 0, 1e-9 * mass);
        }
        EXPECT_GT(pulse("contact_HIT_x").last, 0);
        EXPECT_LT(largest_drift(), 0.01);
    }
}

// Springs give back what was put into them, no more, however finely the time is divided: bars that bulge
// where they meet, with nodes at the border of the other's face and beyond, and a partner that is wider.
TEST_F(ExplicitContact, ContactMakesNoEnergy) {
    for (const char* partner :
         {"0.1 0.02 0.02 0 0 0 30 2 2 0 0 0 0.1001 0 0", "0.1 0.02 0.02 0 0 0 30 3 3 0 0 0 0.1001 0 0",
          "0.1 0.03 0.03 0 0 0 30 4 4 0 0 0 0.1001 -0.004 -0.006"})
        for (double part_of_step : {1.0, 0.2}) {
            read(
                std::string("material_info M 8000 2e11 0.3 %\npart_info A red M RECT 0.1 0.02 0.02 0 0 0 30 "
                            "2 2 0 0 0 0 0 0 0 0 0 B blue M RECT ") +
                    partner + " 0 0 0 % END",
                "end_time 100e-6 output_frequency 20 Element_contact on INITIAL_VELOCITY A part x 20 0 0 0 0 "
                "0 0 B part x -10 0 0 0 0 0 0 % ELEMENT_CONTACT HIT A B 1 0 0 0 0 0 0 0 0 0 0 %");
            ASSERT_TRUE(begin());
            store.control.d_time = part_of_step * state->d_time;
            run();
            const double start = history(0, "kinetic");
            std::printf("    onto %s, d_time %.2e: contact %+.2f %% of the energy, drift %.1e\n", partner,
                        state->d_time, 100 * last("contact") / start, largest_drift());
            EXPECT_LT(std::abs(last("contact")), 0.01 * start) << partner << " " << part_of_step;
            EXPECT_GT(pulse("contact_HIT_x").last, 0);
            EXPECT_EQ(last("contact_HIT_x"), 0) << "they have parted";
            for (const char* momentum : {"momentum_x", "momentum_y", "momentum_z"})
                EXPECT_NEAR(last(momentum), history(0, momentum), 1e-10) << momentum;
        }
}

// What overlaps when the pair begins to act is pushed out; with the pair still to come nothing happens.
TEST_F(ExplicitContact, OverlappingPartsArePushedApart) {
    for (const char* start : {"0", "20e-6", "1"}) {
        read(
            "material_info M 8000 2e11 0.3 %\npart_info A red M RECT 0.04 0.02 0.02 0 0 0 8 2 2 0 0 0 0 0 0 "
            "0 "
            "0 0 B blue M RECT 0.04 0.02 0.02 0 0 0 8 3 3 0 0 0 0.03999 0 0 0 0 0 % END",
            std::string("end_time 100e-6 output_frequency 5 Element_contact on ELEMENT_CONTACT HIT A B 1 0 0 "
                        "0 0 0 0 0 0 0 ") +
                start + " %");
        run();
        const double overlap =
            0.04 + u(node_at(0.04, 0.01, 0.01), 0) - 0.03999 - u(node_at(0.03999, 0, 0), 0);
        if (start == std::string("1")) {
            EXPECT_EQ(last("contact"), 0);
            EXPECT_NEAR(overlap, 1e-5, 1e-12);
        } else {
            EXPECT_GT(last("contact"), 0) << start;
            EXPECT_LT(overlap, 0) << start;
        }
        EXPECT_LT(largest_drift(), 0.02) << start;
    }
}

// A block slides on another body that a support holds: contact, friction and a search box.
TEST_F(ExplicitContact, FrictionBetweenBodies) {
    read(
        "material_info M 7800 1e8 0 %\npart_info FLOOR red M RECT 1 0.2 0.1 0 0 0 10 2 1 0 0 0 0 0 -0.1 0 0 "
        "0 BLOCK blue M RECT 0.1 0.08 0.05 0 0 0 2 2 1 0 0 0 0.05 0.06 0.0002 0 0 0 %\n"
        "boundary_condition ground plane z 0 0 0 0 0 -0.1 % END",
        "end_time 0.5 output_frequency 200 Gravity -z Element_contact on INITIAL_VELOCITY BLOCK part x 1.2 0 "
        "0 0 0 0 0 % "
        "ELEMENT_CONTACT SLIDE FLOOR BLOCK 1 0.3 0.2 0 0 0 0 0 0 0 0 %");
    run();
    const double distance = 1.44 / (2 * 0.3 * 9.80665), reached = u(node_at(0.1, 0.1, 0.0502), 0);
    std::printf("    block on a body: %.4f of v^2/2 mu g, drift %.1e\n", reached / distance, largest_drift());
    EXPECT_NEAR(reached, distance, 0.05 * distance);
    EXPECT_LT(largest_drift(), 0.02);
    EXPECT_LT(u(node_at(0.1, 0.1, 0.0502), 2), 0) << "it has come down";
    EXPECT_GT(u(node_at(0.1, 0.1, 0.0502), 2), -0.002) << "it has not fallen through";
}

// A part folded onto itself: two plates on a common back close and push each other apart.
TEST_F(ExplicitContact, APartMeetsItself) {
    // a clip: two arms of 0.1 m with a slot of 1 mm, driven together at their ends
    Mesh mesh = hexa_box({{10, 1, 9}, {0.1, 0.02, 0.09}});
    std::vector<std::int32_t> kept;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto c = element_centre(mesh, e);
        const bool slot = c[0] > 0.02 && c[2] > 0.04 && c[2] < 0.05;
        if (!slot)
            kept.insert(kept.end(), mesh.connectivity.begin() + 8 * e,
                        mesh.connectivity.begin() + 8 * (e + 1));
    }
    mesh.connectivity = kept;
    mesh.p_ele_part_id.assign(static_cast<std::size_t>(mesh.element_num()), 0);
    Material soft = steel;
    soft.young = 1e9;
    double through = 0;
    for (const char* contact : {"off", "on"}) {
        make(mesh, soft);
        read_control(std::string("end_time 0.0115 output_frequency 100 Element_contact ") + contact +
                     " VELOCITY_INPUT low volume z 0.6 0.1 0.1 0 0.02 0 0 high volume z -0.6 0.1 0.1 0 0.02 "
                     "0.09 0.09 % ELEMENT_CONTACT SELF BODY BODY 1 0 0 0 0 0 0 0 0 0 0 %");
        run();
        const double low = 0.04 + u(node_at(0.1, 0, 0.04), 2), high = 0.05 + u(node_at(0.1, 0, 0.05), 2);
        if (std::string(contact) == "off")
            through = low - high;
        else
            EXPECT_LT(low - high, 0.5 * through)
                << "the arms pass through each other";  // the springs are 1.5 times as stiff as the arms
        EXPECT_LT(largest_drift(), 0.01);
    }
    EXPECT_GT(through, 2e-3) << "the arms were to meet";
}

TEST_F(ExplicitContact, WhatKeepsContactFromActingIsSaid) {
    const std::string parts =
        "material_info M 1000 1e9 0 %\npart_info A red M RECT 1 1 1 0 0 0 1 1 1 0 0 0 0 0 0 0 0 0 B red M "
        "RECT 1 1 1 0 0 0 1 1 1 0 0 0 GAP 0 0 0 0 0 % END";
    const std::string pair =
        "end_time 1e-6 ELEMENT_CONTACT HIT A B 1 0 0 0 0 0 0 0 0 0 0 % RIGID_WALL W plane +x 0 0 0 0 0.5 0.5 "
        "0 0 0 0 0 0 0 %";
    read(std::string(parts).replace(parts.find("GAP"), 3, "1"), pair + " Element_contact on");
    ASSERT_TRUE(begin());
    EXPECT_NE(console_.notices.find("contact HIT: parts A and B have 4 nodes in common"), std::string::npos)
        << console_.notices;
    EXPECT_NE(console_.notices.find("4 nodes lie behind a wall at the start"), std::string::npos)
        << console_.notices;
    EXPECT_NE(console_.lines.find("Nnode_s=12\nNtri_s=20\n"), std::string::npos);
    read(std::string(parts).replace(parts.find("GAP"), 3, "2"), pair + " Element_contact off");
    ASSERT_TRUE(begin());
    EXPECT_NE(console_.notices.find("Element_contact is off"), std::string::npos);
    EXPECT_EQ(console_.lines.find("Nnode_s=", console_.lines.rfind("analysis_info_file_name")),
              std::string::npos);
}

// A square grid of cells on a disc with corners that are not flat: the circle's share grows outwards.
Grid rod_grid(double R, double L, int cells, int along) {
    Grid grid{{cells, cells, along}, {2, 2, L}};
    grid.move = [R](double* x) {
        const double a = x[0] - 1, b = x[1] - 1;
        const double square = std::max(std::abs(a), std::abs(b)), round = std::hypot(a, b);
        const double factor = round > 0 ? (1 - square) * 0.9 + square * square / round : 1;
        x[0] = R * a * factor;
        x[1] = R * b * factor;
    };
    return grid;
}

// Taylor's impact of a copper rod: 32.4 mm, radius 3.2 mm, 227 m/s, to 21.4 mm and 7.0 mm (Kamoulakos, Bench
// Mark, NAFEMS, 1990). Full integration and linear tetrahedra lock; what they come to is only printed within
// wide bounds.
TEST_F(ExplicitContact, TaylorBar) {
    Material copper{.id = 0, .name = "COPPER", .density = 8930, .young = 117e9, .poisson = 0.35};
    copper.yield_stress = 400e6;
    copper.hardening = 100e6;
    const struct {
        ElementKind kind;
        bool mean;
        double step;
        double length, tolerance;
    } cases[] = {{ElementKind::hexahedron, true, 1e-8, 21.4, 0.3},
                 {ElementKind::hexahedron, false, 1e-8, 21.4, 1.5},
                 {ElementKind::tetrahedron4, false, 1e-8, 21.4, 2},
                 {ElementKind::tetrahedron10, false, 4e-9, 21.4, 0.4}};
    for (const auto& c : cases) {
        const bool hexahedra = c.kind == ElementKind::hexahedron;
        make(box_mesh(rod_grid(3.2e-3, 32.4e-3, hexahedra ? 6 : 4,
                               hexahedra                             ? 48
                               : c.kind == ElementKind::tetrahedron4 ? 32
                                                                     : 20),
                      c.kind),
             copper);
        read_control(
            "end_time 80e-6 output_frequency 2000 Plastic on RIGID_WALL ANVIL plane +z 0 0 0 0.1 0 0 0 0 0 0 "
            "0 0 0 % "
            "INITIAL_VELOCITY BODY part z -227 0 0 0 0 0 0 %");
        store.control.d_time = c.step;
        ExplicitOptions options;
        options.mean_dilatation = c.mean;
        run(2, options);
        double high = 0, low = 1, radius = 0;  // radius: mean of the foot's rim
        int rim = 0;
        for (std::size_t n = 0; n < state->x.size() / 4; ++n) {
            high = std::max(high, state->x[4 * n + 2]);
            low = std::min(low, state->x[4 * n + 2]);
            if (state->X[4 * n + 2] > 0 || std::hypot(state->X[4 * n], state->X[4 * n + 1]) < 0.99 * 3.2e-3)
                continue;
            radius += std::hypot(state->x[4 * n], state->x[4 * n + 1]);
            ++rim;
        }
        radius /= rim;
        double largest_strain = 0;
        for (double a : state->plastic_strain) largest_strain = std::max(largest_strain, a);
        std::printf("    Taylor bar, %s%s: length %.2f mm, radius %.2f mm, plastic strain %.2f, drift %.1e\n",
                    element_type(c.kind).name, c.mean ? " with mean dilatation" : "", 1e3 * (high - low),
                    1e3 * radius, largest_strain, largest_drift());
        EXPECT_NEAR(1e3 * (high - low), c.length, c.tolerance);
        EXPECT_LT(largest_drift(), 0.01);
        EXPECT_LT(last("kinetic"), 0.05 * history(0, "kinetic"));
        EXPECT_GT(last("plastic"), 0.9 * last("internal"));
    }
}

// The models in data/ run to their end with the energy in balance and without a complaint.
TEST_F(ExplicitContact, ShippedModelsKeepTheirEnergy) {
    int models = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(KESTRALUM_SOURCE_DIR) / "data")) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with("explicit_") || entry.path().extension() != ".txt") continue;
        store = placeholder_model();
        store.model_file_name = entry.path().string();
        ASSERT_TRUE(read_model_file(store, {}).ok) << name;
        const AnalysisInfoReport control = read_analysis_info(store);
        ASSERT_EQ(control.status, AnalysisInfoStatus::read) << name;
        EXPECT_TRUE(control.ended_at_end && control.remarks.notices.empty()) << name;
        const RunReport done = run_explicit(store, explicit_settings());
        EXPECT_EQ(done.status, RunStatus::done) << name;
        EXPECT_LT(std::abs(done.dynamics.drift), 0.01) << name;
        EXPECT_EQ(done.dynamics.steps, done.dynamics.time_num - 1) << name;
        std::printf("    %s: %lld steps, drift %.1e\n", name.c_str(),
                    static_cast<long long>(done.dynamics.steps), done.dynamics.drift);
        ++models;
    }
    EXPECT_GE(models, 5);
}

}  // namespace
}  // namespace kestralum
