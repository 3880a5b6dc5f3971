// Explicit runs that are stopped and go on from their checkpoint: the same bytes as without a stop.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <utility>
#include <vector>

#include "support/explicit_run.h"

namespace kestralum {
namespace {

using testing::Collected;
using testing::contains;
using testing::joined;
using testing::ModelText;
using testing::read_file;
using testing::rect;
using testing::replaced;

// Asks to stop in a step.
class StopsInStep : public Collected {
public:
    explicit StopsInStep(std::int64_t step) : left_(step) {}

protected:
    void take(Kind kind, std::string_view text) override {
        if (text.starts_with("########## Time:") && --left_ == 0) cancel();
        Collected::take(kind, text);
    }

private:
    std::int64_t left_;
};

class ExplicitRestart : public testing::ExplicitTest {
protected:
    // Runs into a folder of its own, stopped in its step number `stop` (0: not stopped).
    RunReport run_into(const std::string& name, std::int64_t stop = 0, int threads = 1) {
        StopsInStep lines(stop);
        RunOptions own = options;
        own.log_folder = folder.file(name);
        std::filesystem::create_directory(own.log_folder);
        result = analyse_explicit(model, testing::analysis_settings(threads), own, lines);
        return result.report;
    }
    std::string bytes(const std::string& name) const { return read_file(folder.path() / name); }

    // Stops after so many steps and goes on, over and over, with other numbers of threads.
    void expect_same_bytes_with_stops(const std::string& text, const std::string& control,
                                      const std::vector<std::int64_t>& stops, int threads = 1) {
        read(text, control);
        options = {};
        options.keep_frames = true;
        testing::expect_done(run_into("whole", 0, threads));
        options.checkpoint_seconds = 1e9;  // at the stop only
        options.frames_on_disk = true;
        for (const std::int64_t stop : stops) {
            const RunReport stopped = run_into("stopped", stop, threads = 4 - threads);
            ASSERT_EQ(stopped.status, RunStatus::cancelled) << joined(stopped.remarks.errors);
            options.restart = true;
        }
        testing::expect_done(run_into("stopped"));
        EXPECT_TRUE(result.results.front()->mode_vec.empty() && !result.results.back()->mode_vec.empty());
        for (const char* file :
             {"/result_model.txt", "/disp_model.txt", "/history_model.csv", "/frames_model.txt"})
            EXPECT_TRUE(bytes(std::string("whole") + file) == bytes(std::string("stopped") + file)) << file;
        EXPECT_FALSE(std::filesystem::exists(folder.path() / "stopped/checkpoint_model.txt"));
        EXPECT_EQ(stops.size() + 1, runs_behind_stops(stops));
        std::filesystem::remove_all(folder.path() / "whole");
        std::filesystem::remove_all(folder.path() / "stopped");
    }
    // The run has come to its end, so each stop lay before it.
    std::size_t runs_behind_stops(const std::vector<std::int64_t>& stops) const {
        std::int64_t steps = 0;
        for (const std::int64_t stop : stops) steps += stop;
        return steps < result.report.dynamics.steps ? stops.size() + 1 : 0;
    }
};

// Ties, springs, a moving support, supports along normals, pressures, heat, plastic flow, damping.
TEST_F(ExplicitRestart, GoesOnWithWhatSupportsAndLoadsHold) {
    const std::string plastic =
        " Plastic on MATERIAL_EXTRA_INFO M 0 2e8 0 table=0:2e8,0.01:3e8 kinematic=1e9 %";
    const std::string tied = ModelText{
        .material = "7800 2e11 0.3 alpha=1e-5",
        .parts = rect("LOW", "0.2 0.2 0.2", "2 2 2") + rect("HIGH", "0.2 0.2 0.1", "3 3 1", "0 0 0.20001"),
        .supports = "A plane z 0 0 0 0 0 0 uz=1e-3*sin(2e4*time) B set SIDE spring=1e12",
        .rigid =
            "% tie_info T S R tolerance=1e-4 % load_info P pressure TOP 1e12*time F traction TOP "
            "1e10*time*x 0 0 factor=time H temperature all 300+1e6*time*x reference=300 %",
        .others = "set_info R plane z 0.2 S plane z 0.20001 TOP plane z 0.30001 SIDE plane x 0 %\n"};
    expect_same_bytes_with_stops(tied, "end_time 400e-6 output_frequency 5 C_alfa 0.01" + plastic, {1, 9, 7});
    EXPECT_GT(result.report.dynamics.energies.plastic, 0) << "the points' histories matter";

    const double c = std::cos(std::numbers::pi / 6);
    const std::string turned =
        ModelText{.parts = "b red M RECT 0.5 0.2 0.1 0 0 0 5 2 1 0 0 0 0 0 0 30 0 0\n",
                  .supports = "A set ROOT fix=normal B set LOW fix=z uz=1e-4*sin(3e4*time)",
                  .forces = "F area x 1e5 0 1 0 1 0 1",
                  .others = formatted("set_info ROOT patch %.17g %.17g 0.05 5 LOW patch %.17g %.17g 0 5 %%\n",
                                      -0.05, 0.1 * c, 0.25 * c - 0.05, 0.125 + 0.1 * c)};
    expect_same_bytes_with_stops(turned, "end_time 300e-6 output_frequency 5 C_alfa 0.01", {4, 6});
}

// Rigid bodies on springs, driven members and nodes, a moving wall, contact, friction.
TEST_F(ExplicitRestart, GoesOnWithContactsWallsAndRigidBodies) {
    const std::string bodies = ModelText{
        .material = "7800 2e11 0.3",
        .parts = rect("A", "0.1 0.1 0.1", "2 2 2") + rect("B", "0.1 0.1 0.1", "3 3 3", "0.01 0.005 0.1001") +
                 rect("C", "0.1 0.1 0.1", "2 1 1", "0.3 0 0") + rect("D", "0.1 0.1 0.1", "1 1 1", "0.5 0 0"),
        .rigid =
            "C area 0.35 0.05 0.05 0.29 0.41 -1 1 -1 1 D area 0.55 0.05 0.05 0.49 0.61 -1 1 -1 1 % "
            "rigid_force F C rz 1e3 factor=sin(1e4*time) % rigid_combine S C D 5e6 5e6 5e6 10 10 10 %"};
    const std::string control =
        "end_time 250e-6 output_frequency 6 Gravity -z Element_contact on Plastic on "
        "MATERIAL_EXTRA_INFO M 0 1e8 1e9 % RIGID_WALL W plane +z 0 0 0.3 0.1 0 0 0 0 -0.0001 -0.0001 0 0 "
        "1e-3*sin(2e4*time) % INITIAL_VELOCITY A part z -20 0 0 0 0 0 0 B part z -60 0 0 0 0 0 0 B part x 10 "
        "0 0 0 0 0 0 D part y 3 0 0 0 0 0 0 % VELOCITY_INPUT D part x 5*cos(1e4*time) 0 0 0 0 0 0 top volume "
        "x 20*time/1e-4 -1 0.2 -1 1 0.2 0.21 % ELEMENT_CONTACT HIT A B 1 0.3 0.1 0 0 0 0 0 0 0 10e-6 %";
    expect_same_bytes_with_stops(bodies, control, {5, 13, 11});
    const ExplicitEnergies& e = result.report.dynamics.energies;
    EXPECT_TRUE(e.wall != 0 && e.contact != 0 && e.support != 0 && e.plastic > 0);
    // steps of changing lengths
    expect_same_bytes_with_stops(bodies, "d_time auto output_time 23e-6 C_alfa 0.001 " + control,
                                 {7, 20, 31});
    expect_same_bytes_with_stops(bodies, "linear_viscosity 0.1 quadratic_viscosity 1.2 " + control, {5, 13});
    EXPECT_GT(result.report.dynamics.energies.viscous, 0);
}

// Elements go, and with them faces that are met; nodes of theirs come down on a wall.
TEST_F(ExplicitRestart, GoesOnWhereElementsHaveEroded) {
    expect_same_bytes_with_stops(
        ModelText{.parts = rect("PLATE", "0.04 0.04 0.004", "10 10 2") +
                           rect("CUBE", "0.02 0.02 0.02", "3 3 3", "0.011 0.009 0.0045"),
                  .supports = "S plane x 0 0 0 0 0 0 T plane x 0.04 0.04 0 0 0 0"},
        "end_time 110e-6 output_frequency 50 Plastic on Element_contact on linear_viscosity 0.06 "
        "MATERIAL_EXTRA_INFO M 0 3e8 1e9 erode=0.3 % INITIAL_VELOCITY CUBE part z -300 0 0 0 0 0 0 % "
        "ELEMENT_CONTACT HIT CUBE PLATE 1 0.2 0 0 0 0 0 0 0 0 0 % "
        "RIGID_WALL W plane +z 0 0 0.2 0 0 0 0 0 -0.006 -0.006 0 0 0 %",
        {120, 100, 150});
    EXPECT_GT(result.report.dynamics.eroded_elements, 20);
}

// More nodes than one thread steps alone.
TEST_F(ExplicitRestart, GoesOnWithAnotherNumberOfThreads) {
    expect_same_bytes_with_stops(
        ModelText{.parts = rect("b", "0.3 0.3 1", "9 9 42"),
                  .supports = "c plane z 0 0 0 0 0 0",
                  .forces = "f area x 3e7 0 0.3 0 0.3 1 1"},
        "end_time 1.5e-4 output_frequency 10 Plastic on MATERIAL_EXTRA_INFO M 0 1e8 1e9 %", {9, 12}, 3);
}

TEST_F(ExplicitRestart, WhatIsOfAnotherRunIsRefusedAndLeftAlone) {
    const std::string block = ModelText{.parts = rect("b", "0.3 0.2 1", "3 2 6"),
                                        .supports = "c plane z 0 0 0 0 0 0",
                                        .forces = "f area x 1000 0 0.3 0 0.2 1 1 factor=sin(1e4*time)"},
                      control = "end_time 2e-4 output_frequency 5";
    read(block, control);
    options.restart = true;
    EXPECT_TRUE(contains(run_into("log").remarks.errors.at(0), "cannot be read: No such file")) << "no run";
    options.restart = false;
    options.checkpoint_seconds = 1e9;
    EXPECT_EQ(run_into("log", 12).status, RunStatus::cancelled);
    const std::string frames = bytes("log/frames_model.txt"), saved = bytes("log/checkpoint_model.txt"),
                      results = bytes("log/result_model.txt");
    options.restart = true;
    const auto refused = [&](const std::string& says) {
        const RunReport ended = run_into("log");
        EXPECT_EQ(ended.status, RunStatus::bad_input);
        ASSERT_EQ(ended.remarks.errors.size(), 1u) << says;
        EXPECT_TRUE(contains(ended.remarks.errors, says)) << ended.remarks.errors[0];
        EXPECT_EQ(bytes("log/result_model.txt"), results);
    };
    for (const auto& [was, is] : {std::pair{"0.3 0.2 1", "0.3 0.2 1.01"},
                                  {"1e4*time", "2e4*time"},
                                  {"7800", "7801"},
                                  {"3 2 6", "3 2 7"}}) {
        read(replaced(block, was, is), control);
        refused("of another model, control file or options");
    }
    read(block, control + " Gravity -z");
    refused("of another model, control file or options");
    read(block, control);
    options.probes = {{0, 0, 0}};
    refused("of another model, control file or options");
    options.probes.clear();
    EXPECT_TRUE(bytes("log/frames_model.txt") == frames && bytes("log/checkpoint_model.txt") == saved);
    for (const std::size_t at : {10ul, 30ul, saved.size() / 2, saved.size() - 1}) {
        std::string damaged = saved;
        damaged[at] = static_cast<char>(damaged[at] ^ 4);
        folder.write("log/checkpoint_model.txt", damaged);
        refused("no checkpoint, or not a whole one");
        folder.write("log/checkpoint_model.txt", saved.substr(0, at));
        refused("no checkpoint, or not a whole one");
    }
    folder.write("log/checkpoint_model.txt", saved);
    folder.write("log/frames_model.txt", frames.substr(0, frames.size() - 1));
    refused("it does not have the 3 frames of the checkpoint");
    folder.write("log/frames_model.txt", frames);
    testing::expect_done(run_into("log"));
}

}  // namespace
}  // namespace kestralum
