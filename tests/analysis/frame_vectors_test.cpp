// Reactions, velocities and accelerations at the nodes of frames, against the loads, the supports' sums and
// Newton's law.
#include <cmath>

#include "analysis/nonlinear/nonlinear_analysis.h"
#include "fields/quantities.h"
#include "model/selection.h"
#include "results/result_file.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using namespace testing;

class FrameVectors : public ExplicitTest {
protected:
    // Force and moment about the origin, where the body is displaced by u; empty: at rest.
    struct Wrench {
        Vec3 force{}, moment{};
        void add(const Vec3& f, const Vec3& at, const Vec3& m = {}) {
            force = plus(force, f);
            moment = plus(moment, plus(m, cross(at, f)));
        }
    };
    Wrench of_nodes(const Frame& of, std::span<const double> u, const BoundaryCondition* only = nullptr) {
        Wrench out;
        std::vector<char> counted(result.mesh.node_num(), only == nullptr);
        if (only)
            for (const std::int32_t n : select_nodes(*only, result.mesh)) counted[n] = 1;
        for (std::int32_t n = 0; n < result.mesh.node_num(); ++n) {
            Vec3 x = place_of(result.mesh, n);
            if (!u.empty()) x = plus(x, triple(u, n));
            if (counted[n]) out.add(triple(of.reaction, n), x);
        }
        return out;
    }
    static void expect_near(const Vec3& got, const Vec3& exact, double tolerance) {
        for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(got[c], exact[c], tolerance);
    }
    // The frame's reactions are those of the supports, together with their moments, and each support's force
    // is on its own nodes, which no other support has.
    void expect_as_supports(const Frame& of, std::span<const SupportReaction> supports, double size,
                            std::span<const double> u = {}) {
        Wrench all;
        ASSERT_EQ(supports.size(), model.boundary_conditions.size());
        for (std::size_t k = 0; k < supports.size(); ++k) {
            const SupportReaction& s = supports[k];
            all.add(s.force, s.centre, s.moment);
            expect_near(of_nodes(of, u, &model.boundary_conditions[k]).force, s.force, 1e-12 * size);
        }
        const Wrench got = of_nodes(of, u);
        expect_near(got.force, all.force, 1e-12 * size);
        expect_near(got.moment, all.moment, 1e-12 * size);
    }
    // Largest reaction of nodes that no support selects.
    double elsewhere(const Frame& of) {
        std::vector<char> held(result.mesh.node_num(), 0);
        for (const BoundaryCondition& record : model.boundary_conditions)
            for (const std::int32_t n : select_nodes(record, result.mesh)) held[n] = 1;
        double largest = 0;
        for (std::size_t d = 0; d < of.reaction.size(); ++d)
            if (!held[d / 3]) largest = std::max(largest, std::abs(of.reaction[d]));
        return largest;
    }
};

constexpr const char* sets =
    "set_info TIP plane x 1 SIDE plane y 0.2 ROOT plane x 0 BED box 0.4 1 0 0.2 0 0 %\n";

// Nodes held whole, on springs and across a slanted face; a rigid end that is held; heat alone.
TEST_F(FrameVectors, ReactionsAreThoseOfTheSupportsAndBalanceTheLoads) {
    const std::string slanted = "b red M RECT 0.5 0.2 0.1 0 0 0 5 2 1 0 0 0 0 0 0 30 0 0\n";
    const double c = std::cos(std::numbers::pi / 6);
    const ModelText models[] = {
        {.parts = rect("b", "1 0.2 0.1", "5 2 2"),
         .supports = "A set ROOT B set BED spring=1e7",
         .rigid = "% load_info F force TIP 200 300 -1000 P pressure SIDE 2e4*x %",
         .others = sets},
        {.parts = slanted,
         .supports = "A set ROOT fix=normal B set MID fix=z C set MID fix=y",
         .forces = "F area x 1e3 0 1 0 1 0 1",
         .others = formatted("set_info ROOT patch %.17g %.17g 0.05 5 MID patch %.17g %.17g 0 5 %%\n", -0.05,
                             0.1 * c, 0.25 * c - 0.05, 0.125 + 0.1 * c)},
        {.parts = rect("b", "1 0.2 0.1", "5 2 2"),
         .supports = "A set ROOT",
         .rigid =
             "E area 0 0.1 0.05 0 0 0 0.2 0 0.1 % load_info F remote TIP 1 0.1 0.05 9 300 -1000 30 0 0 %",
         .others = sets},
        {.material = "7800 2e11 0.3 alpha=1e-5",
         .parts = rect("b", "1 0.2 0.1", "5 2 2"),
         .supports = "A set ROOT B set TIP",
         .rigid = "% load_info H temperature all 50*x+20*y %",
         .others = sets}};
    for (const ModelText& text : models) {
        SCOPED_TRACE(std::string(text));
        ASSERT_TRUE(AnalysisTest::read(text));
        expect_done(analyse(analyse_static));
        const CaseReport& of_case = result.report.cases.at(0);
        double size = 0;
        for (const double r : frame().reaction) size = std::max(size, std::abs(r));
        if (&text != &models[1]) {  // whose supports share nodes
            expect_as_supports(frame(), of_case.supports, 1e3 * size);
        }
        expect_near(plus(of_nodes(frame(), {}).force, of_case.applied), {}, 1e-9 * 100 * size);
        EXPECT_GT(size, 10);
        EXPECT_EQ(elsewhere(frame()), 0);
        // in a nonlinear run where the body is then, under pressure that follows it
        expect_done(analyse(analyse_nonlinear));
        const Frame& last = *result.results.back();
        if (&text != &models[1]) {
            expect_as_supports(last, result.report.nonlinear.increments.back().supports, 1e3 * size,
                               last.mode_vec);
        }
        expect_near(of_nodes(last, {}).force, result.report.reaction, 1e-9 * size);
        EXPECT_EQ(elsewhere(last), 0);
    }
    ASSERT_TRUE(AnalysisTest::read(models[0]));
    expect_done(analyse(find_analysis("eigen-lanczos")->analyse));
    EXPECT_TRUE(frame().reaction.empty());
}

// At every node m a is what acts there; reactions are the history's and the supports' own.
TEST_F(FrameVectors, OfAnExplicitRunObeyNewtonAtEveryNode) {
    options.keep_frames = true;
    read(ModelText{.material = "7800 2e11 0.3 alpha=1e-5",
                   .parts = rect("b", "1 0.2 0.1", "5 2 2"),
                   .supports = "A set ROOT uz=1e-4*sin(2e4*time) B set BED spring=1e12",
                   .rigid = "% load_info F force TIP 1e5 3e5 -1e5 H temperature all 1e5*time*x %",
                   .others = sets},
         "end_time 1e-3 output_frequency 5 VELOCITY_INPUT V plane x 2 1 1 0 0 0 0 %");
    ASSERT_TRUE(begin());
    run_to(20);
    const ExplicitState& s = *state;
    const Frame& last = *result.results.back();
    ASSERT_EQ(result.results.size(), 5u);
    Vec3 inertia{}, acting{}, reaction{};
    double size = 0;
    LineDoubles springs(s.u.size(), 0.0);  // among the internal forces, and a support's
    s.springs.add_forces(s.u.data(), springs.data());
    for (std::size_t d = 0; d < last.reaction.size(); ++d) {
        const std::size_t k = 4 * std::size_t(s.mesh->number[d / 3]) + d % 3;
        const double ma = s.mass[k] * last.acceleration[d],
                     all = s.F[k] + s.F_contact[k] - (s.R[k] - springs[k]) + last.reaction[d];
        EXPECT_NEAR(ma, all, 1e-6 * 3e5) << d;
        inertia[d % 3] += ma;
        acting[d % 3] += s.F[k];
        reaction[d % 3] += last.reaction[d];
        size = std::max({size, std::abs(ma), std::abs(s.R[k])});
    }
    EXPECT_GT(size, 1e4);
    expect_near(inertia, plus(acting, reaction), 1e-6 * 3e5);
    expect_near(reaction, s.reaction, 1e-6);
    EXPECT_GT(elsewhere(last), 1e3) << "what the velocity input takes";
    expect_near(of_nodes(last, {}, &model.boundary_conditions[0]).force, s.reactions[0].force, 1e-6);
}

TEST_F(FrameVectors, OfFreeBodiesAreTheirVelocityAndForceOverMass) {
    read(ModelText{.parts = rect("b", "0.2 0.02 0.02", "10 1 1")},
         "end_time 1e-4 output_frequency 5 INITIAL_VELOCITY b part x 30 0 0 0 0 0 0 %");
    run();
    ASSERT_GT(result.results.size(), 3u);
    for (const auto& each : result.results) {
        EXPECT_TRUE(each->reaction.empty());
        for (std::size_t d = 0; d < each->velocity.size(); ++d) {
            EXPECT_NEAR(each->velocity[d], d % 3 == 0 ? 30 : 0, 1e-5);
            EXPECT_NEAR(each->acceleration[d], 0, 1e-3);
        }
    }
    // a block that is rigid throughout
    read(ModelText{.parts = rect("b", "0.2 0.2 0.2", "2 2 2"),
                   .rigid = "E area 0.1 0.1 0.1 0 0.2 0 0.2 0 0.2 % rigid_force F E x 500 %"},
         "end_time 1e-3 output_frequency 10");
    run();
    const double a = 500 / (7800 * 0.008), t = result.results.back()->n_freq + 0.5 * state->d_time;
    for (std::size_t d = 0; d < frame().velocity.size(); ++d) {
        const Frame& last = *result.results.back();
        EXPECT_NEAR(last.acceleration[d], d % 3 == 0 ? a : 0, 1e-6 * a);
        EXPECT_NEAR(last.velocity[d], d % 3 == 0 ? a * t : 0, 1e-6 * a * t);
    }
}

// The frames file gives them back to the last bit, and they show as quantities.
TEST_F(FrameVectors, ComeBackFromTheFramesFile) {
    options.log_folder = folder.file("log");
    options.keep_frames = true;
    for (const bool on_disk : {false, true}) {
        options.frames_on_disk = on_disk;
        read(ModelText{.parts = rect("b", "0.2 0.02 0.02", "10 1 1"), .supports = "A plane x 0 0 0 0 0 0"},
             "end_time 1e-4 output_frequency 5 Gravity -z");
        result = analyse_explicit(model, settings, options, said);
        expect_done(result.report);
        const auto stored = read_result_file("log\\frames_model.txt", options.log_folder, said);
        ASSERT_TRUE(stored && stored->run.mode_num() == result.mode_num()) << said.errors;
        for (int k = 0; k < result.mode_num(); ++k) {
            const Frame &read = *stored->run.results[k], &made = *result.results[k];
            EXPECT_EQ(read.velocity.size(), 3u * 44);
            if (made.mode_vec.empty()) continue;
            EXPECT_EQ(read.reaction, made.reaction);
            EXPECT_EQ(read.velocity, made.velocity);
            EXPECT_EQ(read.acceleration, made.acceleration);
        }
    }
    const std::vector<std::int32_t> material = node_materials(model, result.mesh);
    const FieldValues fields(model, material, *result.results.back());
    for (const std::int32_t index : {113, 114, 115})
        EXPECT_EQ(fields.of(*field_quantity_at(index)).size(), 3u * 44) << index;
    EXPECT_NEAR(fields.of(*field_quantity_at(113))[2], result.results.back()->reaction[2], 0);
    EXPECT_TRUE(FieldValues(model, material, Frame(3 * 44)).of(*field_quantity_at(114)).empty());
}

}  // namespace
}  // namespace kestralum
