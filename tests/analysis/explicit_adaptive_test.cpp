// Steps that follow the stable one, outputs by time, and mass added for a wished step.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include "elements/stable_step.h"
#include "results/result_file.h"
#include "support/explicit_run.h"

namespace kestralum {
namespace {

using testing::contains;
using testing::joined;
using testing::ModelText;
using testing::rect;

class ExplicitAdaptive : public testing::ExplicitTest {
protected:
    void run_to_end(int threads = 2) {
        ASSERT_TRUE(begin(threads));
        while (!state->ended() && !state->diverged) explicit_step(*job, *state);
        EXPECT_FALSE(state->diverged);
    }
};

// Bodies that swing, stepped with lengths that change all the time: the balance holds to second order.
TEST_F(ExplicitAdaptive, UnevenStepsKeepTheBalance) {
    const std::string bar = ModelText{.material = "1000 1e7 0",
                                      .parts = rect("B", "1 0.1 0.1", "4 1 1"),
                                      .supports = "S plane x 0 0 0 0 0 0"},
                      rigid = ModelText{.material = "1000 1e9 0.3",
                                        .parts = rect("A", "0.1 0.1 0.1", "1 1 1") +
                                                 rect("B", "0.1 0.1 0.1", "1 1 1", "0.3 0 0"),
                                        .rigid =
                                            "A area 0.05 0.05 0.05 0 0.1 0 0.1 0 0.1 B area 0.35 0.05 "
                                            "0.05 0.3 0.4 0 0.1 0 0.1 %\nrigid_combine S A B 5e6 5e6 "
                                            "5e6 1e4 1e4 1e4 %"};
    for (const std::string& text : {bar, rigid}) {
        double drift[2] = {};
        for (const int fine : {0, 1}) {
            read(text, "d_time auto end_time 1 output_time 1 INITIAL_VELOCITY B part x 0.1 0 0 0 0 0 0 %");
            ASSERT_TRUE(begin(1));
            const double base = (text == bar ? 0.25 : 1) * state->stable_step / (fine ? 2 : 1);
            AdaptiveStep& a = state->adaptive;
            for (int k = 0; a.now < 500 * base; ++k) {
                set_step(*state, state->before, base * (1 + 0.3 * std::sin(k / (fine ? 6.0 : 3.0))));
                a.left = 1000;
                a.next = a.now + state->after;
                state->velocities_known = false;
                store_frame(*job, *state);
                drift[fine] = std::max(drift[fine], std::abs(last("drift")));
                explicit_step(*job, *state);
            }
        }
        std::printf("    drift of uneven steps: %.2e, of half of them %.2e\n", drift[0], drift[1]);
        EXPECT_LT(drift[0], 0.02);
        EXPECT_LT(drift[1], 0.35 * drift[0]);
    }
}

// Each frame stands at its time; what a run of a given step gives at these times comes out again.
TEST_F(ExplicitAdaptive, FramesStandAtTheirTimes) {
    const std::string text = ModelText{.parts = rect("b", "0.3 0.1 0.1", "6 2 2"),
                                       .supports = "S plane x 0 0 0 0 0 0 ux=1e-4*sin(3e4*time)",
                                       .forces = "F area y 1e5 0.3 0.3 0 1 0 1 factor=sin(2e4*time)"};
    const std::string body = " C_alfa 0.01 ";
    for (const auto& [keys, frames] :
         {std::pair{"output_time 30e-6", 8}, {"output_time 35e-6", 7}, {"", 101}}) {
        read(text, "d_time auto end_time 210e-6 " + std::string(keys) + body);
        run_to_end();
        ASSERT_EQ(result.mode_num(), frames) << keys;
        const double interval = model.control.output_interval();
        for (int k = 0; k + 1 < frames; ++k)
            EXPECT_DOUBLE_EQ(result.results[k]->n_freq, k * interval) << keys;
        EXPECT_EQ(result.results.back()->n_freq, 210e-6);
        EXPECT_EQ(history(rows() - 1, "time"), 210e-6);
        EXPECT_LT(largest_drift(), 1e-3);
        EXPECT_LE(state->adaptive.largest, 0.9 * state->stable_step * (1 + 1e-9));
    }
    const std::vector<double> by_time = result.results.back()->mode_vec;
    read(text, "d_time 210e-6/400 end_time 210e-6 output_frequency 400" + body);
    run();
    testing::expect_equal(by_time, result.results.back()->mode_vec, 0.02);
    // a smaller share of the step
    read(text, "d_time auto step_share 0.3 end_time 210e-6 output_time 210e-6" + body);
    run_to_end();
    EXPECT_LE(state->adaptive.largest, 0.3 * state->stable_step * (1 + 1e-9));
    testing::expect_equal(result.results.back()->mode_vec, by_time, 0.02);
}

// The displacement file, which has no times, gets those of the control.
TEST_F(ExplicitAdaptive, TheDisplacementFileIsReadWithItsTimes) {
    read(ModelText{.parts = rect("b", "0.3 0.1 0.1", "6 2 2")},
         "d_time auto end_time 21e-6 output_time 5e-6");
    testing::expect_done(analyse(analyse_explicit));
    const auto stored = read_displacement_file("log\\disp_model.txt", folder.file("log"), &model, said);
    ASSERT_TRUE(stored && stored->run.mode_num() == 6);
    for (std::size_t k = 0; k < 6; ++k)
        EXPECT_DOUBLE_EQ(stored->run.results[k]->n_freq, result.results[k]->n_freq) << k;
}

// A soft block is squeezed to less than half: the first step would not do.
TEST_F(ExplicitAdaptive, TheStepFollowsTheShapes) {
    const std::string text = ModelText{.material = "1000 1e7 0.3",
                                       .parts = rect("b", "0.1 0.1 0.1", "4 4 4"),
                                       .supports = "S plane z 0 0 0 0 0 0"},
                      squeeze =
                          " end_time 5e-3 Plastic on MATERIAL_EXTRA_INFO M 0 1e4 1e4 % VELOCITY_INPUT D "
                          "plane z -13 0.1 0.1 0.1 0.1 0.1 0.1 %";
    read(text, "d_time auto output_time 1e-3" + squeeze);
    run_to_end();
    ASSERT_EQ(result.mode_num(), 6);
    const StableStep last_shape = state->bound->now(state->x.data(), 1);
    EXPECT_LT(last_shape.step, 0.6 * state->stable_step) << "it is squeezed";
    EXPECT_LE(state->before, 0.93 * last_shape.step) << "the last step suits the last shape";
    EXPECT_GE(state->before, 0.5 * 0.9 * last_shape.step);
    EXPECT_LT(largest_drift(), 0.01);
    EXPECT_LT(state->adaptive.smallest, 0.6 * state->adaptive.largest);
    EXPECT_EQ(state->adaptive.largest, state->d_time);
}

// What no element is slower than: all of them by their own eigenvalues.
TEST_F(ExplicitAdaptive, TheStableStepOfAShapeIsThatOfItsWorstElement) {
    make(testing::hexa_box({{5, 4, 3}, {0.5, 0.3, 0.2}}), testing::steel);
    const StepBound bound(model.mesh, model.parts, model.materials, 1, 1);
    std::vector<double> x(4 * std::size_t(model.mesh.node_num()));
    for (const double bend : {0.0, 0.3, 0.8}) {
        Mesh shape = model.mesh;
        for (std::int32_t n = 0; n < shape.node_num(); ++n) {
            double* X = &shape.coordinates[3 * std::size_t(n)];
            X[2] *= 1 - bend * X[0] * X[1] / 0.15;
            std::copy(X, X + 3, &x[4 * std::size_t(n)]);
        }
        const StableStep found = bound.now(x.data(), 1);
        EXPECT_EQ(bound.worst_above(x.data(), found.step * 0.999, 1).element, -1) << bend;
        EXPECT_GE(bound.worst_above(x.data(), found.step * 1.1, 1).element, 0) << bend;
        EXPECT_NEAR(bound.now(x.data(), 2).step, found.step, 0);
    }
}

TEST_F(ExplicitAdaptive, BodiesThatMeetAndTurnKeepEnergyAndMomentum) {
    read(
        ModelText{.parts = rect("A", "0.1 0.02 0.02", "10 2 2") +
                           rect("B", "0.1 0.02 0.02", "10 3 3", "0.1001 0.002 0.001"),
                  .rigid = "R area 0.19 0.01 0.01 0.17 0.21 -1 1 -1 1 %"},
        "d_time auto end_time 80e-6 output_time 8e-6 Element_contact on RIGID_WALL W plane -x 0 0 0 0 0.2003 "
        "0.2003 0 0 0 0 -20*time 0 0 % INITIAL_VELOCITY A part x 20 0 0 0 0 0 0 % ELEMENT_CONTACT H A B 1 0 "
        "0 0 0 0 0 0 0 0 0 %");
    run_to_end();
    EXPECT_GT(most("contact"), 0);
    EXPECT_GT(most("wall"), 0);
    EXPECT_LT(largest_drift(), 0.01);
    EXPECT_LE(state->adaptive.largest, state->d_time * (1 + 1e-9)) << "the springs suit the first step";
}

// A number is what it was, whatever of the other keys stands beside it.
TEST_F(ExplicitAdaptive, AGivenStepIsWhatItWas) {
    const std::string text =
        ModelText{.parts = rect("b", "0.3 0.1 0.1", "3 1 1"), .forces = "F area y 1e5 0.3 0.3 0 1 0 1"};
    std::vector<double> first;
    for (const std::string more : {"", "step_share 0.2 output_time 1e-6 "}) {
        read(text, "d_time auto d_time 2e-6 end_time 50e-6 output_frequency 5 " + more);
        run();
        EXPECT_EQ(state->d_time, 2e-6);
        EXPECT_EQ(result.mode_num(), 6);
        if (first.empty()) first = result.results.back()->mode_vec;
        EXPECT_EQ(result.results.back()->mode_vec, first);
    }
    // a parameter may be named as the word is
    read("parameter auto 3e-6 % " + text, "d_time auto end_time 50e-6 output_frequency 5");
    ASSERT_TRUE(begin());
    EXPECT_EQ(state->d_time, 3e-6);
    for (const char* wrong :
         {"step_share 0", "step_share 1.1", "output_time 0", "output_time -1", "d_time aut"}) {
        AnalysisTest::read(text);
        folder.write("model.ana", std::string("x explicit ") + wrong + " END");
        model.model_file_name = folder.file("model.txt");
        said.clear();
        const AnalysisInfoReport refused = read_analysis_info_file(model, said);
        EXPECT_EQ(refused.status, AnalysisInfoStatus::wrong) << wrong;
        EXPECT_EQ(refused.remarks.errors.size(), 1u) << joined(refused.remarks.errors);
    }
}

// Elements below the wished step get just the mass for it; weight, and what is far away, stay as they are.
TEST_F(ExplicitAdaptive, MassIsAddedForAWishedStep) {
    const std::string bars = ModelText{.material = "8000 2e11 0",
                                       .parts = rect("COARSE", "1 0.1 0.1", "10 1 1") +
                                                rect("FINE", "1 0.1 0.1", "40 1 1", "0 0 1")},
                      control = "end_time 1e-4 output_frequency 1 Gravity -z ";
    read(bars, control);
    ASSERT_TRUE(begin());
    // ω² of a bar's element of length h goes by 1/h²: what has a quarter of the step needs 16 times its mass
    const double fine = state->stable_step;
    EXPECT_NEAR(report.total_mass, 160, 1e-9);
    read(bars, control + formatted("scaled_step %.17g", 2 * fine));
    run();
    EXPECT_NEAR(state->stable_step, 2 * fine, 1e-6 * fine);
    EXPECT_NEAR(state->d_time, 1.8 * fine, 1e-6 * fine);
    double mass = 0;
    for (std::size_t k = 0; k < state->mass.size(); k += 4) mass += state->mass[k];
    EXPECT_NEAR(mass, 80 + 4 * 80, 1e-6) << "four times the mass of FINE";
    EXPECT_TRUE(
        contains(report.remarks.notices, "scaled_step: 40 elements of part FINE get 240 kg, 300 % of"))
        << joined(report.remarks.notices);
    EXPECT_TRUE(contains(report.remarks.notices, "scaled_step: 240 kg are added to 160 kg, 150 %"));
    EXPECT_LT(largest_drift(), 1e-9);
    // the weight is that of the material
    const double g = 9.80665, t = last("time"), fall = 0.5 * g * t * (t + state->d_time);
    EXPECT_NEAR(u(node_at(1, 0, 0), 2), -fall, 1e-9 * fall);
    EXPECT_NEAR(u(node_at(1, 0, 1), 2), -fall / 4, 1e-9 * fall);
    // a step that all elements can take anyway adds nothing
    read(bars, control + formatted("scaled_step %.17g", 0.99 * fine));
    ASSERT_TRUE(begin());
    EXPECT_EQ(state->stable_step, fine);
    EXPECT_TRUE(contains(report.remarks.notices, "scaled_step: 0 kg are added to 160 kg"));
}

// A wave needs √(mass) times as long.
TEST_F(ExplicitAdaptive, AddedMassSlowsWaves) {
    double time[2] = {};
    for (const int scaled : {0, 1}) {
        read(ModelText{.material = "8000 2e11 0", .parts = rect("b", "1 0.02 0.02", "50 1 1")},
             "end_time 800e-6 output_frequency 1 INITIAL_VELOCITY b plane x 1 0 0 0 0 0 0 % ");
        ASSERT_TRUE(begin());
        if (scaled) {
            model.control.scaled_step = 2 * state->stable_step;
            ASSERT_TRUE(begin());
        }
        const std::size_t end = node_at(1, 0, 0);
        while (!state->ended() && std::abs(u(end, 0)) < 2e-7) explicit_step(*job, *state);
        time[scaled] = state->time();
    }
    EXPECT_NEAR(time[1] / time[0], 2, 0.1);
}

// Whatever is of time and loses its value on the way: the record, its expression and the time are named.
TEST_F(ExplicitAdaptive, AnExpressionWithoutAValueIsNamed) {
    const std::string lost = "acos(SWITCH((time-25.5e-6)*(0.5-time),2,0,0))",
                      control = "end_time 100e-6 d_time 1e-6 output_frequency 5 ";
    const auto block = [](const std::string& supports, const std::string& forces, const std::string& more) {
        return std::string(ModelText{.material = "7800 2e11 0.3 alpha=1e-5",
                                     .parts = rect("b", "0.2 0.1 0.1", "2 1 1"),
                                     .supports = supports,
                                     .forces = forces,
                                     .rigid = more,
                                     .others = "set_info TIP plane x 0.2 %\n"});
    };
    const std::string held = "S plane x 0 0 0 0 0 0", body = "R area 0 0 0 -1 0.01 -1 2 -1 2 % ";
    const struct {
        std::string text, control, says;
    } cases[] = {
        {block(held, "PULL area x 1 0.2 0.2 0 1 0 1 factor=" + lost, ""), "", "force PULL: its factor '"},
        {block(held, "", "% load_info P pressure TIP 1 factor=" + lost + " %"), "", "load P: its factor '"},
        {block(held, "", "% load_info P pressure TIP " + lost + " %"), "", "load P: it has no finite value"},
        {block(
             held, "",
             "% load_info G temperature all 300 reference=300 H temperature all " + lost + " reference=0 %"),
         "", "load H: its temperature '"},
        {block("S plane x 0 0 0 0 0 0 ux=1e-9*" + lost, "", ""), "", "support S: its displacement"},
        {block("", "", body + "rigid_force F R x 1 factor=" + lost + " %"), "",
         "rigid force F: its factor '"},
        {block(held, "", ""), "RIGID_WALL W plane -x 0 0 0 0 1 1 0 0 0 0 0 " + lost + " 0 %",
         "wall W: its displacement '"},
        {block("", "", ""), "VELOCITY_INPUT V plane x " + lost + " 0.2 0.2 0 0 0 0 %",
         "velocity input V: its velocity '"},
        {block("", "", body), "VELOCITY_INPUT V plane x " + lost + " 0 0 0 0 0 0 %",
         "velocity input V: its velocity '"},
    };
    for (const auto& c : cases) {
        read(c.text, control + c.control);
        const RunReport ended = analyse(analyse_explicit);
        EXPECT_EQ(ended.status, RunStatus::failed) << c.says;
        ASSERT_EQ(ended.remarks.errors.size(), 1u) << c.says;
        const std::string& line = ended.remarks.errors[0];
        EXPECT_TRUE(contains(line, "step 2") && contains(line, ": " + c.says)) << line;
        EXPECT_TRUE(contains(line, "at time 2.5") || contains(line, "at time 2.6")) << line;
        EXPECT_TRUE(ended.written && result.mode_num() >= 5) << c.says;  // a wall is asked a step ahead
        for (const auto& reached : result.results)
            for (const double value : reached->mode_vec) ASSERT_TRUE(std::isfinite(value));
    }
}

}  // namespace
}  // namespace kestralum
