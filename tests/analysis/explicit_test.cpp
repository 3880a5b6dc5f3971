// The explicit analysis without contact: motion, conservation, waves, supports, outputs.
#include <filesystem>

#include "analysis/nonlinear_driver.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

class Explicit : public ExplicitTest {};

TEST_F(Explicit, OneFreeElementFallsByTheLeapfrogSum) {
    constexpr double g = 9.80665;
    for (ElementKind kind : every_kind) {
        Mesh mesh = box_mesh({{1, 1, 1}, {0.1, 0.12, 0.09}}, kind);
        // the first element alone
        mesh.connectivity.resize(static_cast<std::size_t>(mesh.node_per_element()));
        mesh.p_ele_part_id.resize(1);
        for (const char* direction : {"-z", "+x"}) {
            make(mesh, steel);
            read_control(std::string("output_frequency 100 end_time 1e-3 d_time 1e-6 Gravity ") + direction);
            ASSERT_TRUE(begin());
            run_to(500);
            const std::size_t axis = direction[1] == 'z' ? 2 : 0;
            const double t = 500e-6, exact = (direction[0] == '-' ? -0.5 : 0.5) * g * t * (t + 1e-6);
            for (std::int32_t number : store.mesh.connectivity)
                EXPECT_NEAR(u(number - 1, axis), exact, 1e-12 * std::abs(exact));
        }
    }
}

// A body set spinning about an oblique axis: the pull of the centrifugal forces makes waves, the momenta
// stay.
TEST_F(Explicit, ASpinningBodyKeepsItsMomenta) {
    for (ElementKind kind : every_kind) {
        make(box_mesh({{3, 2, 2}, {0.3, 0.2, 0.15}}, kind), steel);
        read_control("output_frequency 10 end_time 2e-3");
        ASSERT_TRUE(begin());
        const double w[3] = {300, -500, 800};
        for (std::size_t n = 0; n < state->v.size() / 4; ++n)
            for (std::size_t c = 0; c < 3; ++c)
                state->v[4 * n + c] = w[(c + 1) % 3] * state->x[4 * n + (c + 2) % 3] -
                                      w[(c + 2) % 3] * state->x[4 * n + (c + 1) % 3] + 10;
        state->velocities_known = false;
        state->frames = 0;
        state->history.values.clear();
        state->largest_energy = 0;
        store_frame(store, *state);
        run_to(state->time_num - 1);
        ASSERT_FALSE(state->diverged);
        ASSERT_GT(rows(), 10u);
        double size = 0, spin = 0;
        for (const char* axis : {"x", "y", "z"}) {
            size = std::max(size, std::abs(history(0, std::string("momentum_") + axis)));
            spin = std::max(spin, std::abs(history(0, std::string("angular_momentum_") + axis)));
        }
        for (std::size_t r = 0; r < rows(); ++r)
            for (const char* axis : {"x", "y", "z"}) {
                EXPECT_NEAR(history(r, std::string("momentum_") + axis),
                            history(0, std::string("momentum_") + axis), 1e-10 * size);
                EXPECT_NEAR(history(r, std::string("angular_momentum_") + axis),
                            history(0, std::string("angular_momentum_") + axis), 1e-10 * spin);
            }
        EXPECT_LT(largest_drift(), 0.01);
        EXPECT_GT(history(rows() - 1, "internal"), 1e-5 * history(rows() - 1, "kinetic"))
            << "the body was to be strained";
    }
}

const std::string bar_model =
    "material_info M 8000 2e11 0 %\n"
    "part_info BAR red M RECT 0.2 0.02 0.02 0 0 0 100 2 2 0 0 0 0 0 0 0 0 0 %\n";

// A step load F on the end of a clamped bar: in the middle σ = F/A from L/2c on and 2σ from 3L/2c on.
TEST_F(Explicit, AStepLoadsWaveDoublesAtTheClamp) {
    read(bar_model +
             "boundary_condition clamp plane x 0 0 0 0 0 0 %\napply_force pull area x 4000 0.2 0.2 0 0.02 0 "
             "0.02 % END",
         "end_time 75e-6 output_frequency 1");
    run();
    const double sigma = 4000 / (0.02 * 0.02), c = 5000, L = 0.2;
    const auto node = static_cast<std::size_t>(node_at(0.1, 0.01, 0.01));
    const auto dofs = static_cast<std::size_t>(store.mesh.dof_num);
    double sum[3] = {};
    int count[3] = {};
    for (std::size_t k = 0; k < static_cast<std::size_t>(state->frames); ++k) {
        const double t = store.results.n_freq[k] * c / L;
        const int window = t < 0.4 ? 0 : t > 0.7 && t < 1.3 ? 1 : t > 1.7 && t < 1.85 ? 2 : -1;
        if (window < 0) continue;
        sum[window] += store.results.node_stress[5 * k * dofs + 3 * node];
        ++count[window];
    }
    for (int w = 0; w < 3; ++w) EXPECT_NEAR(sum[w] / count[w], w * sigma, 0.03 * sigma) << "window " << w;
    EXPECT_LT(largest_drift(), 1e-9);
    std::printf("    step-loaded bar: mid stress / (F/A) = %.4f, %.4f, %.4f\n", sum[0] / count[0] / sigma,
                sum[1] / count[1] / sigma, sum[2] / count[2] / sigma);
}

// A hanging bar when gravity is switched on: its tip sinks by ρgL²/2E in L/c and by twice that in 2L/c.
TEST_F(Explicit, AHangingBarSinksToTwiceItsStaticLength) {
    read(
        "material_info M 8000 2e11 0 %\npart_info BAR red M RECT 0.02 0.02 1 0 0 0 1 1 100 0 0 0 0 0 0 0 0 0 "
        "%\n"
        "boundary_condition top plane z 0 0 0 0 1 1 % END",
        "end_time 8e-4 output_frequency 1 Gravity -z");
    run(2, {.probes = {{0, 0, 0}}});
    const double sag = 8000 * 9.80665 / (2 * 2e11), arrival = 1 / 5000.0;
    const std::string tip = "node" + std::to_string(state->probes[0] + 1) + "_u_z";
    double at_arrival = 0, largest = 0, when = 0;
    for (std::size_t r = 0; r < rows(); ++r) {
        if (history(r, "time") <= arrival) at_arrival = history(r, tip);
        if (history(r, tip) < largest) {
            largest = history(r, tip);
            when = history(r, "time");
        }
    }
    std::printf("    hanging bar: tip %.4f of ρgL²/2E at L/c, largest %.4f at %.4f L/c\n", -at_arrival / sag,
                -largest / sag, when / arrival);
    EXPECT_NEAR(at_arrival, -sag, 0.01 * sag);
    EXPECT_NEAR(largest, -2 * sag, 0.01 * sag);
    EXPECT_NEAR(when, 2 * arrival, 0.03 * arrival);
    EXPECT_LT(largest_drift(), 1e-9);
}

// Damped to rest the body stands where the linear analysis puts it, for every element type.
TEST_F(Explicit, DampedToRestItIsTheLinearStaticAnswer) {
    for (ElementKind kind : every_kind) {
        make(box_mesh({{4, 2, 2}, {0.2, 0.1, 0.1}}, kind), steel);
        BoundaryCondition clamp;
        clamp.name = "CLAMP";
        AppliedForce pull;
        pull.name = "PULL";
        pull.kind = ForceKind::area;
        pull.axis = 1;
        pull.value = 100;
        pull.box = {0.2, 0.2, 0, 0.1, 0, 0.1};
        store.boundary_conditions = {clamp};
        store.forces = {pull};
        read_control("end_time 15e-3 output_frequency 100000 C_alfa 0.03");
        ModelStore linear = store;
        linear.model_file_name = folder.file("linear.txt");
        ASSERT_EQ(run_static(linear, explicit_settings()).status, RunStatus::done);
        ASSERT_TRUE(begin());
        run_to(state->time_num - 1);
        state->frames = 0;
        store_frame(store, *state);
        double largest = 0, worst = 0, stress = 0, worst_stress = 0;
        for (std::size_t n = 0; n < state->u.size() / 4; ++n) {
            const double* X = &store.mesh.coordinates[3 * n];
            std::size_t other = 0;
            for (std::size_t m = 0; m < state->u.size() / 4; ++m)
                if (linear.mesh.coordinates[3 * m] == X[0] && linear.mesh.coordinates[3 * m + 1] == X[1] &&
                    linear.mesh.coordinates[3 * m + 2] == X[2])
                    other = m;
            for (std::size_t c = 0; c < 3; ++c) {
                largest = std::max(largest, std::abs(linear.results.mode_vec[3 * other + c]));
                worst =
                    std::max(worst, std::abs(state->u[4 * n + c] - linear.results.mode_vec[3 * other + c]));
                stress = std::max(stress, std::abs(linear.results.node_stress[3 * other + c]));
                worst_stress = std::max(worst_stress, std::abs(store.results.node_stress[3 * n + c] -
                                                               linear.results.node_stress[3 * other + c]));
            }
        }
        std::printf("    at rest, %s: displacement off by %.1e, stress by %.1e of the largest\n",
                    element_type(kind).name, worst / largest, worst_stress / stress);
        EXPECT_LT(worst, 1e-4 * largest);
        EXPECT_LT(worst_stress, 1e-3 * stress);
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(state->reaction[c], c == 1 ? -100 : 0, 1e-2);
    }
}

// Two routes to one answer: a cantilever bent by half of its length, damped to rest, against the load
// increments of the nonlinear analysis. Their stress measures differ by the strain, a few per cent at most.
TEST_F(Explicit, ALargeDeflectionAtRestIsTheNonlinearStaticAnswer) {
    for (ElementKind kind : {ElementKind::hexahedron, ElementKind::tetrahedron10}) {
        Material rubber{.id = 0, .name = "R", .density = 1000, .young = 1e7, .poisson = 0.3};
        const bool hexahedra = kind == ElementKind::hexahedron;
        make(box_mesh({hexahedra ? std::array{16, 2, 2} : std::array{10, 1, 1}, {1, 0.05, 0.05}}, kind),
             rubber);
        BoundaryCondition clamp;
        clamp.name = "CLAMP";
        AppliedForce push;
        push.name = "PUSH";
        push.kind = ForceKind::area;
        push.axis = 2;
        push.value = kind == ElementKind::hexahedron ? 20 : 8;
        push.box = {1, 1, 0, 0.05, 0, 0.05};
        store.boundary_conditions = {clamp};
        store.forces = {push};
        read_control(std::string("end_time 5 output_frequency 1000000 C_alfa ") + (hexahedra ? "3e-3" : "1e-3"));
        ModelStore still = store;
        still.model_file_name = folder.file("still.txt");
        still.mode_count = 10;
        still.iteration_limit = 30;
        Settings settings = explicit_settings();
        settings.nl_conv = 1e-8;
        const RunReport still_report = run_nonlinear(still, settings);
        ASSERT_EQ(still_report.status, RunStatus::done) << still_report.remarks.errors.front();
        ASSERT_TRUE(begin());
        run_to(state->time_num - 1);
        ASSERT_FALSE(state->diverged);
        const double* u_still = still.results.mode_vec.data() + still.results.mode_vec.size() -
                                static_cast<std::size_t>(still.mesh.dof_num);
        std::size_t other = 0;
        for (std::size_t m = 0; m < still.mesh.coordinates.size() / 3; ++m)
            if (still.mesh.coordinates[3 * m] == 1 && still.mesh.coordinates[3 * m + 1] == 0 &&
                still.mesh.coordinates[3 * m + 2] == 0)
                other = m;
        const std::int32_t tip = node_at(1, 0, 0);
        std::printf("    large deflection, %s: explicit %.5f, %.5f, nonlinear static %.5f, %.5f\n",
                    element_type(kind).name, u(tip, 0), u(tip, 2), u_still[3 * other],
                    u_still[3 * other + 2]);
        EXPECT_GT(u(tip, 2), 0.3);
        EXPECT_NEAR(u(tip, 2), u_still[3 * other + 2], 2e-3 * u(tip, 2));
        EXPECT_NEAR(u(tip, 0), u_still[3 * other], 5e-3 * u(tip, 2));
    }
}

// A driven face moves as prescribed, though a support holds it; its forces do the work that the body takes.
TEST_F(Explicit, APrescribedVelocityMovesASupportAndItsWorkIsCounted) {
    read(bar_model + "boundary_condition clamp plane x 0 0 0 0 0 0 % END",
         "end_time 100e-6 output_frequency 20 VELOCITY_INPUT face plane x 40*sin(1e5*time) 0 0 0 0 0 0 %");
    run();
    const double t = static_cast<double>(state->step) * state->d_time;
    EXPECT_NEAR(u(node_at(0, 0.01, 0.01), 0), 40 / 1e5 * (1 - std::cos(1e5 * t)), 2e-3 * 40 / 1e5);
    EXPECT_EQ(u(node_at(0, 0.01, 0.01), 1), 0) << "its other directions stay held";
    double largest = 0;
    for (std::size_t r = 0; r < rows(); ++r) largest = std::max(largest, history(r, "support"));
    EXPECT_GT(largest, 1.0);
    EXPECT_LT(largest_drift(), 1e-6);
    // the wave that runs in: σ = ρ c v
    double force = 0;
    for (std::size_t r = 0; r < rows(); ++r)
        if (history(r, "time") < 40e-6) force = std::max(force, std::abs(history(r, "reaction_x")));
    EXPECT_NEAR(force, 8000 * 5000 * 40 * 4e-4, 0.05 * 8000 * 5000 * 40 * 4e-4);
}

TEST_F(Explicit, InitialVelocityGoesToWhatTheRecordSelects) {
    read(
        "material_info M 1000 1e9 0.2 %\npart_info A red M RECT 1 1 1 0 0 0 2 1 1 0 0 0 0 0 0 0 0 0 B red M "
        "RECT 1 1 1 0 0 0 1 1 1 0 0 0 5 0 0 0 0 0 %\n"
        "boundary_condition foot plane z 0 0 0 0 0 0 % END",
        "end_time 1e-5 d_time 1e-6 INITIAL_VELOCITY B part y 3 0 0 0 0 0 0 some volume x 2*time+7 0 0.5 0 1 "
        "0.5 1 face area y -4 0 1 1 1 0 1 %");
    ASSERT_TRUE(begin());
    auto v = [&](double x, double y, double z, std::size_t c) {
        return state->v[4 * static_cast<std::size_t>(node_at(x, y, z)) + c];
    };
    EXPECT_EQ(v(6, 0, 1, 1), 3);
    EXPECT_EQ(v(6, 0, 0, 1), 0) << "the support holds";
    EXPECT_EQ(v(0.5, 0, 1, 0), 7);
    EXPECT_EQ(v(1, 0, 1, 0), 0);
    EXPECT_EQ(v(1, 1, 1, 1), -4);
    EXPECT_NE(console_.lines.find(" INITIAL_VELOCITY[0]: 3, 1\n  c_ = 8\n"), std::string::npos);
    EXPECT_NE(console_.lines.find("INITIAL_VELOCITY set\n"), std::string::npos);
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
        make(box_mesh({{1, 1, 1}, {1e6, 1e6, 1e6}}, ElementKind::hexahedron), steel);
        store.control.end_time = c.end;
        store.control.d_time = c.step;
        store.control.output_frequency = c.every;
        store.model_file_name = folder.file("counts.txt");
        const RunReport done = run_explicit(store, explicit_settings());
        EXPECT_EQ(done.status, RunStatus::done);
        EXPECT_EQ(done.dynamics.time_num, c.time_num);
        EXPECT_EQ(done.dynamics.frames, c.out_time_num);
        EXPECT_EQ(done.dynamics.steps, c.time_num - 1);
        EXPECT_EQ(store.results.mode_num(), c.out_time_num);
        EXPECT_NEAR(store.results.n_freq.back(),
                    static_cast<double>((c.out_time_num - 1) * std::max(c.every, 1)) * c.step, 1e-12);
        EXPECT_EQ(done.remarks.notices.size(), c.every < 1 ? 1u : 0u);
    }
}

// The lines of the set-up in their order, with what they say of the masses.
TEST_F(Explicit, SetUpSaysWhatItMade) {
    read(bar_model + "boundary_condition clamp plane x 0 0 0 0 0 0 % END",
         "end_time 1e-5 d_time 1e-7 output_frequency 10");
    ASSERT_TRUE(begin());
    std::size_t at = 0;
    for (const char* line : {"element_type=0\n",
                             "element_num=400,point_num=909,fn=2727\n",
                             "Reordering Node Numbers\n",
                             "diag_num=",
                             "Boundary Condition\n",
                             "fix_node_num=9\n",
                             "Dmat\n",
                             "Set [K],[M]\n",
                             "[K],[M] element num=",
                             "Mass total=6.400000e-01[kg]\n",
                             "Diag Mass total=",
                             "Modified Diag Mass total=6.400000e-01[kg]\n",
                             " Eliminate fix index\n",
                             " Eliminate fix index Complete\n",
                             "diagM[0]:",
                             "Mass check\n",
                             "  mx = 6.",
                             "vk=",
                             "K,M sparse complete\n",
                             "Force Vector\n",
                             "time_num = 101\n",
                             "out_time_num = 11\n",
                             "Memory Size = "}) {
        const std::size_t next = console_.lines.find(line, at);
        ASSERT_NE(next, std::string::npos) << line;
        at = next;
    }
    EXPECT_EQ(console_.lines.find("INITIAL_VELOCITY"), std::string::npos);
    double mass = 0;
    for (double m : state->mass) mass += m;
    EXPECT_NEAR(mass, 3 * 0.64, 1e-12);
    for (double c : state->damping) EXPECT_EQ(c, 0);
    read(bar_model + "END", "end_time 1e-5 C_alfa 0.1");
    const std::size_t before = console_.lines.size();
    ASSERT_TRUE(begin());
    EXPECT_EQ(console_.lines.find("Eliminate", before), std::string::npos);
    EXPECT_NE(console_.notices.find("C_alfa damps the rigid motion"), std::string::npos);
    EXPECT_GT(*std::max_element(state->damping.begin(), state->damping.end()), 0);
}

// At 0.99 of the printed step a shaken body stays as it is; half as large again and it flies apart, is told
// of and leaves the frames so far.
TEST_F(Explicit, TheStableStepIsOne) {
    for (ElementKind kind : every_kind) {
        make(box_mesh({{2, 2, 2}, {0.1, 0.1, 0.1}}, kind), steel);
        read_control("end_time 1 output_frequency 100 d_time 1e-9");
        store.control.end_time = 1e-8;
        ASSERT_TRUE(begin());
        const double stable = state->stable_step;
        for (double factor : {0.99, 1.5}) {
            store.control.d_time = factor * stable;
            store.control.end_time = 3000.5 * store.control.d_time;
            ASSERT_TRUE(begin());
            for (std::size_t n = 0; n < state->v.size() / 4; ++n)
                state->v[4 * n] = 1e-3 * std::sin(static_cast<double>(n * n));
            state->velocities_known = false;
            run_to(3000);
            EXPECT_EQ(state->diverged, factor > 1) << element_type(kind).name;
            if (factor > 1) {
                EXPECT_EQ(report.status, RunStatus::failed);
                EXPECT_LT(state->step, 3000);
                EXPECT_LT(state->frames, state->out_time_num);
            } else {
                EXPECT_LT(history(rows() - 1, "internal") + history(rows() - 1, "kinetic"), 1.0);
            }
        }
    }
}

TEST_F(Explicit, LostNodesAreListedElementByElement) {
    make(box_mesh({{2, 1, 1}, {2, 1, 1}}, ElementKind::hexahedron), steel);
    read_control("end_time 1e-3 d_time 1e-5 output_frequency 1");
    ASSERT_TRUE(begin());
    run_to(3);
    state->v[4 * static_cast<std::size_t>(node_at(2, 0, 0)) + 1] = std::nan("");
    state->velocities_known = false;
    const std::size_t before = console_.lines.size();
    explicit_step(store, *state, report);
    EXPECT_TRUE(state->diverged);
    const std::string said = console_.lines.substr(before);
    EXPECT_NE(said.find("########## Time: 4.000e-05[s]  4/101##########\nEle=1,5; part=0[BODY], "
                        "coord:2.000e+00, 0.000e+00, 0.000e+00\n         :"),
              std::string::npos)
        << said;
    EXPECT_EQ(said.find("Ele=0"), std::string::npos);
    EXPECT_EQ(state->frames, 4);
}

// What a user may get wrong: one line, nothing computed.
TEST_F(Explicit, RefusesWhatItCannotStep) {
    const struct {
        const char* what;
        std::function<void(ModelStore&)> spoil;
        const char* says;
    } cases[] = {
        {"density", [](ModelStore& s) { s.materials[0].density = 0; }, "density"},
        {"nu", [](ModelStore& s) { s.materials[0].poisson = 0.5; }, "Poisson"},
        {"step", [](ModelStore& s) { s.control.d_time = -1; }, "d_time"},
        {"nan", [](ModelStore& s) { s.control.end_time = std::nan(""); }, "end_time"},
        {"many", [](ModelStore& s) { s.control.d_time = 1e-300; }, "too many steps"},
        {"frames", [](ModelStore& s) { s.control.d_time = 1e-14; }, "raise output_frequency"},
        {"rigid", [](ModelStore& s) { s.rigid_elements.resize(1); s.rigid_elements[0].region.fill(9); }, "no node of its own"},
        {"empty",
         [](ModelStore& s) {
             s.mesh.connectivity.clear();
             s.mesh.p_ele_part_id.clear();
         },
         "no solid elements"},
        {"damping", [](ModelStore& s) { s.control.c_alfa = -0.1; }, "C_alfa"},
    };
    for (const auto& c : cases) {
        make(box_mesh({{1, 1, 1}, {1, 1, 1}}, ElementKind::hexahedron), steel);
        store.model_file_name = folder.file("bad.txt");
        store.control.end_time = 1;
        store.control.output_frequency = 1;
        store.control.d_time = 0.1;
        c.spoil(store);
        const RunReport refused = run_explicit(store, explicit_settings());
        EXPECT_EQ(refused.status, RunStatus::bad_input) << c.what;
        ASSERT_FALSE(refused.remarks.errors.empty()) << c.what;
        EXPECT_NE(refused.remarks.errors[0].find(c.says), std::string::npos) << refused.remarks.errors[0];
        EXPECT_FALSE(refused.written);
        EXPECT_FALSE(std::filesystem::exists(folder.path() / "log" / "result_bad.txt"));
    }
}

// Earlier results belong to the numbers that the nodes had then.
TEST_F(Explicit, ARefusalAfterRenumberingLeavesNoResultsOfOtherNumbers) {
    make(box_mesh({{2, 1, 1}, {2, 1, 1}}, ElementKind::hexahedron), steel);
    store.results.resize(3, store.mesh.dof_num);
    std::fill(store.results.mode_vec.begin(), store.results.mode_vec.end(), 1.0);
    store.control.end_time = 1;
    store.control.d_time = 1e-14;
    EXPECT_EQ(run_explicit(store, explicit_settings()).status, RunStatus::bad_input);
    EXPECT_EQ(store.results.mode_num(), 1);
    EXPECT_EQ(store.results.mode_vec, std::vector<double>(static_cast<std::size_t>(store.mesh.dof_num), 0.0));
}

TEST_F(Explicit, RemarksOnPlasticConstantsAndTheStep) {
    make(box_mesh({{1, 1, 1}, {1, 1, 1}}, ElementKind::hexahedron), steel);
    store.materials[0].yield_stress = 1e8;
    store.materials[0].shear_modulus = 1.2 * 2e11 / 2.6;
    read_control("Plastic on end_time 1e-4 d_time 1 output_frequency 1");
    ASSERT_TRUE(begin());
    EXPECT_NE(
        console_.notices.find("material STEEL: G = 9.230769e+10 differs from E/(2(1+nu)) = 7.692308e+10"),
        std::string::npos)
        << console_.notices;
    EXPECT_NE(console_.notices.find("d_time = 1.000e+00 s is above the stable step"), std::string::npos);
    store.materials[0].shear_modulus = 2e11 / 2.6;
    read_control("d_time 0 output_frequency 1");
    const std::size_t before = console_.notices.size();
    ASSERT_TRUE(begin());
    EXPECT_EQ(console_.notices.find("differs", before), std::string::npos);
    EXPECT_NEAR(state->d_time, 0.9 * state->stable_step, 1e-15);
    EXPECT_NE(console_.notices.find("d_time is not given", before), std::string::npos);
}

// A body squeezed flat: the bound of its shapes passes the step in force, and that is said once.
TEST_F(Explicit, TheStepIsWatchedAsShapesChange) {
    make(box_mesh({{2, 2, 4}, {0.1, 0.1, 0.2}}, ElementKind::hexahedron), steel);
    store.materials[0].yield_stress = 1e7;
    read_control(
        "Plastic on end_time 2e-3 output_frequency 1000 VELOCITY_INPUT top volume z -80 0 0.1 0 0.1 0.2 0.2 "
        "bottom volume z 0 0 0.1 0 0.1 0 0 %");
    ASSERT_TRUE(begin());
    run_to(state->time_num - 1);
    const std::string said = "passes the stable step of";
    const std::size_t first = console_.notices.find(said);
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(console_.notices.find(said, first + 1), std::string::npos);
}

const std::string short_run = "end_time 20e-6 output_frequency 4 d_time 2.5e-7 Gravity -y C_alfa 0.001";
const std::string clamped_bar = bar_model +
                                "boundary_condition clamp plane x 0 0 0 0 0 0 %\napply_force pull area y "
                                "4000 0.2 0.2 0 0.02 0 0.02 % END";

TEST_F(Explicit, ThreadsDoNotShow) {
    // large enough for a team
    const std::string model =
        "material_info M 8000 2e11 0.3 %\npart_info BAR red M RECT 0.2 0.02 0.02 0 0 0 80 8 8 0 0 0 0 0 0 0 "
        "0 0 %\n"
        "boundary_condition clamp plane x 0 0 0 0 0 0 %\napply_force pull area y 4000 0.2 0.2 0 0.02 0 0.02 "
        "% END";
    std::vector<double> vectors, stress, rows_of;
    for (int threads : {1, 2, 3}) {
        read(model, "end_time 10e-6 output_frequency 10 Gravity -y C_alfa 0.001");
        run(threads);
        if (threads > 1) {
            EXPECT_EQ(store.results.mode_vec, vectors);
            EXPECT_EQ(store.results.node_stress, stress);
            EXPECT_EQ(state->history.values, rows_of);
        }
        vectors = store.results.mode_vec;
        stress = store.results.node_stress;
        rows_of = state->history.values;
    }
}

// Stepped by a window, with its lines, or at once: the same bytes on disk.
TEST_F(Explicit, RealTimeIsTheBatchRunInPieces) {
    read(clamped_bar, short_run);
    model_store() = store;
    settings() = explicit_settings();
    ASSERT_EQ(exec_explicit().status, RunStatus::done);
    const std::string batch = read_file(folder.path() / "log" / "disp_model.txt"),
                      batch_results = read_file(folder.path() / "log" / "result_model.txt");
    EXPECT_GT(batch.size(), 10000u);

    model_store() = store;
    RunReport live;
    ASSERT_TRUE(begin_explicit(live));
    EXPECT_TRUE(explicit_progress().running);
    EXPECT_EQ(explicit_progress().out_time_num, 21);
    std::size_t before = console_.lines.size();
    ASSERT_TRUE(advance_explicit(live));
    EXPECT_EQ(explicit_progress().step, 4);
    EXPECT_EQ(explicit_progress().k, 2);
    EXPECT_NE(console_.lines.find("  4/81##########\n ti_current = 2\n", before), std::string::npos);
    EXPECT_EQ(console_.lines.find("  5/81####", before), std::string::npos);
    int calls = 1;
    while (advance_explicit(live)) ++calls;
    EXPECT_EQ(calls, 19);
    EXPECT_EQ(live.status, RunStatus::done);
    EXPECT_FALSE(explicit_progress().running);
    EXPECT_EQ(read_file(folder.path() / "log" / "disp_model.txt"), batch);
    EXPECT_EQ(read_file(folder.path() / "log" / "result_model.txt"), batch_results);

    // a run that diverges ends with its frames so far
    model_store() = store;
    model_store().control.d_time = 1e-5;
    model_store().control.end_time = 1e-2;
    ASSERT_TRUE(begin_explicit(live));
    while (advance_explicit(live)) {
    }
    EXPECT_EQ(live.status, RunStatus::failed);
    EXPECT_TRUE(live.written);
    EXPECT_LT(model_store().results.mode_num(), 250);
    EXPECT_EQ(static_cast<std::size_t>(model_store().results.mode_num()) *
                  static_cast<std::size_t>(model_store().mesh.dof_num),
              model_store().results.mode_vec.size());
}

TEST_F(Explicit, ARequestEndsTheRunAfterItsStepWithTheFilesWritten) {
    read(clamped_bar, short_run);
    console::request_cancel(true);
    const RunReport stopped = run_explicit(store, explicit_settings());
    console::request_cancel(false);
    EXPECT_EQ(stopped.status, RunStatus::failed);
    EXPECT_EQ(stopped.dynamics.steps, 1);
    EXPECT_TRUE(stopped.written && stopped.dynamics.displacements_written &&
                stopped.dynamics.history_written);
    EXPECT_EQ(store.results.mode_num(), 1);
}

}  // namespace
}  // namespace kestralum
