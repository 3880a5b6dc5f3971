// Analyses in steps as a user runs them, and runs that are stopped.
#include <chrono>

#include "batch_run.h"
#include "model/format.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST_F(Batch, StepsAreWrittenAsFramesHistoryAndSeries) {
    folder.write("bar.ana", "x explicit end_time 20e-6 output_frequency 4 d_time 1e-6 END");
    const Ended ended = run("explicit bar.txt --vtu --probe 0.2,0.01,0.01 --quiet");
    ASSERT_EQ(ended.status, 0) << ended.out << ended.err;
    const StoredRun stored = result("log/result_bar.txt");
    ASSERT_EQ(stored.run.mode_num(), 6);
    EXPECT_TRUE(exists("log/disp_bar.txt"));
    const std::string history = bytes("log/history_bar.csv");
    EXPECT_EQ(lines_of(history).size(), 7u) << "a heading and a row per frame";
    EXPECT_TRUE(contains(history, "_u_x,")) << "of the probe";
    EXPECT_TRUE(exists("log/bar.pvd") && exists("log/bar_000006.vtu") && !exists("log/bar_000007.vtu"));
    // the other analysis in steps has a history of its own
    const Ended still = run("nonlinear bar.txt --quiet --probe 0.2,0.01,0.01");
    EXPECT_EQ(still.status, 0) << still.err;
    EXPECT_TRUE(contains(still.out, "log/history_nonlinear_bar.csv") &&
                exists("log/history_nonlinear_bar.csv"));
    EXPECT_TRUE(contains(ended.out, "log/history_bar.csv") && bytes("log/history_bar.csv") == history);
}

TEST_F(Batch, AnInterruptEndsARunWithItsFilesInOrder) {
    const std::string interrupt = "timeout --preserve-status -s INT -k 15 ";
    folder.write("bar.ana", "x explicit end_time 1e3 output_frequency 1000000 d_time 1e-6 END");
    const Ended steps = refused("explicit bar.txt --quiet", 1, interrupt + "2");
    EXPECT_TRUE(contains(steps.err, "stopped on request after step ")) << steps.err;
    EXPECT_TRUE(exists("log/disp_bar.txt") && exists("log/history_bar.csv"));
    const std::string good = bytes("log/result_bar.txt");
    EXPECT_GE(result("log/result_bar.txt").run.mode_num(), 1);
    // a model of minutes, stopped where it is read and meshed, and later
    folder.write("bar.txt", replaced(bar_text, "8 2 2 0 0 0", "150 80 80 0 0 0"));
    folder.write("setting/setting.txt", settings_text("8000", "100000"));
    for (const char* after : {"0.4", "1", "4"}) {
        const Ended stopped = run("static bar.txt --quiet", interrupt + after);
        EXPECT_EQ(stopped.status, 1) << after;
        EXPECT_TRUE(contains(stopped.err, "stopped on request")) << after << stopped.err;
        EXPECT_TRUE(bytes("log/result_bar.txt") == good && !exists("log/result_bar.txt.part")) << after;
    }
}

TEST_F(Batch, FramesThatARunLeftBecomeItsFiles) {
    folder.write("bar.ana", "x explicit end_time 20e-6 output_frequency 4 d_time 1e-6 END");
    ASSERT_EQ(run("explicit bar.txt --vtu --quiet").status, 0);
    EXPECT_FALSE(exists("log/frames_bar.txt")) << "the result files hold what it held";
    ASSERT_EQ(run("explicit bar.txt --keep-frames --quiet --log other").status, 0);
    ASSERT_TRUE(exists("other/frames_bar.txt"));
    const Ended made = run("frames other/frames_bar.txt --vtu --log made");
    EXPECT_EQ(numbers_of(made.out, "frames").at(0), 6) << made.out << made.err;
    for (const char* name :
         {"result_bar.txt", "disp_bar.txt", "history_bar.csv", "bar.pvd", "bar_000006.vtu"})
        EXPECT_EQ(bytes(std::string("made/") + name), bytes(std::string("log/") + name)) << name;
    // a full disk: the frames stay in memory, the run goes on
    std::filesystem::create_directory(folder.path() / "full");
    std::filesystem::create_symlink("/dev/full", folder.path() / "full/frames_bar.txt");
    const Ended full = run("explicit bar.txt --quiet --log full --checkpoint 1e-9");
    EXPECT_EQ(full.status, 0) << full.err;
    EXPECT_TRUE(contains(full.out, "note: full/frames_bar.txt cannot be written: No space left on device"))
        << full.out;
    for (const char* name : {"result_bar.txt", "disp_bar.txt", "history_bar.csv"})
        EXPECT_EQ(bytes(std::string("full/") + name), bytes(std::string("log/") + name)) << name;
    // an earlier file is not lost; what is no frames file is told
    ASSERT_EQ(run("explicit bar.txt --quiet --log other").status, 0);
    EXPECT_TRUE(exists("other/frames_bar.txt.old") && !exists("other/frames_bar.txt"));
    refused("frames bar.txt");
    refused("frames");
    refused("frames other/frames_bar.txt.old --tidy");
    refused("static bar.txt --keep-frames");
}

TEST_F(Batch, AKilledRunLeavesItsFramesAndGoesOnToTheSameBytes) {
    folder.write("bar.ana",
                 "x explicit end_time 20e-3 output_frequency 400 d_time 1e-6 Plastic on MATERIAL_EXTRA_INFO "
                 "STEEL 0 1e8 1e9 % INITIAL_VELOCITY BAR part y 10 0 0 0 0 0 0 %");
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(run("explicit bar.txt --quiet --keep-frames --log whole").status, 0);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    const StoredRun whole = result("whole/frames_bar.txt");
    ASSERT_EQ(whole.run.mode_num(), 51);
    const std::string files = formatted(" --quiet --keep-frames --checkpoint %g", seconds.count() / 40);
    int found = 0, killed = 0;
    for (const double share : {0.3, 0.45, 0.2, 0.55, 0.35}) {
        const bool goes_on = exists("log/checkpoint_bar.txt");
        const Ended ended = run("explicit bar.txt" + files + (goes_on ? " --restart" : ""),
                                formatted("timeout -s KILL %g", share * seconds.count()));
        killed += ended.status != 0;
        if (ended.status == 0 || !exists("log/checkpoint_bar.txt")) continue;
        const StoredRun left = result("log/frames_bar.txt");
        for (std::size_t k = 0; k < left.run.results.size(); ++k)
            ASSERT_TRUE(left.run.results[k]->mode_vec == whole.run.results[k]->mode_vec &&
                        left.run.results[k]->node_stress == whole.run.results[k]->node_stress)
                << "frame " << k + 1;
        found = std::max(found, left.run.mode_num());
    }
    EXPECT_TRUE(killed > 0 && found > 1) << killed << " runs killed, " << found << " frames";
    const bool goes_on = exists("log/checkpoint_bar.txt");
    ASSERT_EQ(run("explicit bar.txt" + files + (goes_on ? " --restart" : "")).status, 0);
    for (const char* name : {"result_bar.txt", "disp_bar.txt", "history_bar.csv", "frames_bar.txt"})
        EXPECT_TRUE(bytes(std::string("log/") + name) == bytes(std::string("whole/") + name)) << name;
    EXPECT_FALSE(exists("log/checkpoint_bar.txt") || exists("log/checkpoint_bar.txt.part"));
}

TEST_F(Batch, AnInterruptedRunWithCheckpointsGoesOn) {
    folder.write("bar.ana", "x explicit end_time 1e3 output_frequency 1000000 d_time 1e-6 END");
    const Ended stopped =
        refused("explicit bar.txt --quiet --checkpoint 100", 1, "timeout --preserve-status -s INT -k 15 1");
    EXPECT_TRUE(contains(stopped.out, "note: --restart goes on from log/checkpoint_bar.txt")) << stopped.out;
    EXPECT_TRUE(exists("log/result_bar.txt") && exists("log/frames_bar.txt"));
    const Ended again =
        refused("explicit bar.txt --quiet --restart", 1, "timeout --preserve-status -s INT -k 15 1");
    const auto first = numbers_of(stopped.out, "time reached"),
               second = numbers_of(again.out, "time reached");
    EXPECT_GT(second.at(0), first.at(0));
    refused("explicit bar.txt --checkpoint -1");
    refused("static bar.txt --restart");
    refused("explicit bar.txt --restart --sweep L=0.1,0.2");
}
