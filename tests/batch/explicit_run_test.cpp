// Analyses in steps as a user runs them, and runs that are stopped.
#include "batch_run.h"

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
    // an earlier file is not lost; what is no frames file is told
    ASSERT_EQ(run("explicit bar.txt --quiet --log other").status, 0);
    EXPECT_TRUE(exists("other/frames_bar.txt.old") && !exists("other/frames_bar.txt"));
    refused("frames bar.txt");
    refused("frames");
    refused("frames other/frames_bar.txt.old --tidy");
    refused("static bar.txt --keep-frames");
}
