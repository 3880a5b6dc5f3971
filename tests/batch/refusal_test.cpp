// Runs that cannot be started or completed: exit status, one clear line, and no torn result file.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "batch_run.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST_F(Batch, WithoutSettingsNothingRuns) {
    std::filesystem::rename(folder.path() / "setting/setting.txt", folder.path() / "mine.txt");
    for (const char* command : {"static bar.txt", "check bar.txt", "static bar.txt --setting setting"})
        EXPECT_EQ(refused(command).out, "SETTING FILE OPEN ERROR\n") << command;
    EXPECT_EQ(run("static bar.txt --setting mine.txt").status, 0);
}

TEST_F(Batch, InputThatIsWrongNeverRunsAnAnalysis) {
    const std::string rigid = "rigid_element  HEAD area 0 0 0  8 9 8 9 8 9  %\nEND";
    folder.write("control.ana", "a explicit\nd_time oops\n");
    // model, its text where it is to be written, what is said of it
    const std::array<std::string, 3> models[] = {
        {"binary.txt", std::string("\177ELF\0\xff", 6), "binary.txt"},
        {"huge.txt", replaced(bar_text, "8 2 2", "8 2000000 2000000"), "do not fit"},
        {"negative.txt", replaced(bar_text, "8 2 2", "8 -2 2"), "no solid elements"},
        {"cut.txt", replaced(bar_text, "-1 1 -1 1  %\nEND\n", "-1 1"), "end of file"},
        {"load.txt", replaced(bar_text, "P 1000", "P 1/0"), "1/0"},
        {"rigid.txt", replaced(bar_text, "END", rigid), "rigid"},
        {"control.txt", bar_text, "oops"},
        {"bar.txt --set B=nope", "", "B=nope"},
        {"absent.txt", "", "absent.txt"},
        {"setting", "", "setting"}};  // a folder
    for (const auto& [name, text, said] : models) {
        if (!text.empty()) folder.write(name, text);
        const Ended run = this->run("static " + name + " --quiet");
        EXPECT_EQ(run.status, 2) << name << run.out;
        EXPECT_TRUE(contains(run.err, said) && !run.err.empty()) << name << run.err;
        EXPECT_FALSE(contains(run.out, "largest")) << name;
        EXPECT_FALSE(exists("log/result_" + name) || exists("log/result_" + name + ".part")) << name;
    }
}

TEST_F(Batch, ARunThatCannotBeCompletedSaysWhyAndLeavesNoTornFile) {
    folder.write("tight.txt", settings_text("1000", "0.01"));
    const Ended tight = refused("static bar.txt --setting tight.txt", 1);
    EXPECT_TRUE(contains(tight.out, "Warning:HD") && !contains(tight.out, "Warning:HD\n"))
        << "without a line's end";
    EXPECT_TRUE(contains(tight.err, "FREE_HD_SIZE")) << tight.err;
    // a second bar beside the clamped one hangs on nothing: computed and written all the same
    folder.write("loose.txt",
                 replaced(bar_text, "0 0 0  0 0 0\n",
                          "0 0 0  0 0 0\n  LOOSE red STEEL RECT B B B 0 0 0  1 1 1 0 0 0  2*L 0 0  0 0 0\n"));
    const Ended loose = refused("static loose.txt", 1);
    EXPECT_TRUE(contains(loose.err, "the body is free") && contains(loose.err, " at (0.4")) << loose.err;
    const auto u = result("log/result_loose.txt").run.results.at(0)->mode_vec;
    EXPECT_LT(std::count(u.begin(), u.end(), 0.0), std::ssize(u));
    // files may hold 80 kB each: enough for the mesh with cleared results and the factor, not for the last
    // write, with an earlier file and without; with 50 kB not for the factor
    const std::string small_files = "trap '' XFSZ; ulimit -f ";
    ASSERT_EQ(run("static bar.txt").status, 0);
    const std::string good = bytes("log/result_bar.txt");
    ASSERT_GT(good.size(), 82000u);
    const Ended full = run("static bar.txt --set P=7", small_files + "160;");
    EXPECT_TRUE(full.status == 1 && contains(full.out, "Strain Analysis\n")) << "it was the last write";
    EXPECT_TRUE(contains(full.err, "result_bar.txt cannot be written")) << full.err;
    EXPECT_TRUE(bytes("log/result_bar.txt") == good && !exists("log/result_bar.txt.part"));
    EXPECT_FALSE(contains(full.out, "\nresults  ")) << "no file of this run lies there";
    EXPECT_EQ(run("static bar.txt --log other", small_files + "160;").status, 1);
    EXPECT_FALSE(exists("other/result_bar.txt") || exists("other/result_bar.txt.part"));
    const Ended factor = refused("static bar.txt --log other", 1, small_files + "100;");
    EXPECT_TRUE(contains(factor.err, "factorization cannot go on")) << factor.err;
    EXPECT_EQ(result("other/result_bar.txt").run.mode_num(), 1) << "the mesh with cleared results";
}

TEST_F(Batch, ALogFolderTakesOneRunAtATime) {
    ASSERT_EQ(run("static bar.txt --log study").status, 0);
    const std::string good = bytes("study/result_bar.txt");
    const int lock = ::open(folder.file("study/.lock").c_str(), O_RDWR);
    ASSERT_EQ(::flock(lock, LOCK_EX | LOCK_NB), 0) << "the run before has let go";
    const Ended held = refused("static bar.txt --log study --set P=5");
    EXPECT_TRUE(contains(held.err, "study") && contains(held.err, "--log")) << held.err;
    EXPECT_EQ(run("check bar.txt --log study").status + run("static bar.txt --log other").status, 0);
    ASSERT_EQ(::flock(lock, LOCK_SH | LOCK_NB), 0);
    EXPECT_EQ(run("static bar.txt --log study").status, 2) << "a run wants the folder for itself";
    EXPECT_TRUE(bytes("study/result_bar.txt") == good);
    ::close(lock);
    EXPECT_EQ(run("static bar.txt --log study --set P=5").status, 0);
    EXPECT_FALSE(bytes("study/result_bar.txt") == good);
    folder.write("file", "in the way");
    for (const char* log : {"file", "file/below", "/proc/none"})
        EXPECT_TRUE(contains(refused(std::string("static bar.txt --quiet --log ") + log).err, log));
    EXPECT_EQ(bytes("file"), "in the way");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // which reserve all addresses
TEST_F(Batch, ARunThatDoesNotFitInMemorySaysSoAndLeavesTheEarlierResult) {
    ASSERT_EQ(run("static bar.txt").status, 0);
    const std::string earlier = bytes("log/result_bar.txt"),
                      many_cells = replaced(bar_text, "8 2 2", "4000 4 4");
    folder.write("bar.txt", many_cells);
    for (const std::string kilobytes : {"430000", "480000", "530000"}) {  // with less nothing starts
        const Ended small =
            refused("static bar.txt --quiet", 1, "ulimit -v " + kilobytes + "; OMP_NUM_THREADS=1 " + in_time);
        EXPECT_TRUE(contains(small.err, "memory") && !contains(small.err, "ulimit")) << small.err;
        EXPECT_EQ(bytes("log/result_bar.txt"), earlier);
    }
}

// The matrix library waits for ever where a limit leaves it no address space.
TEST_F(Batch, TooLittleAddressSpaceIsTold) {
    const std::string one_thread = "OMP_NUM_THREADS=1 " + in_time;
    const Ended little = run("static bar.txt --quiet", "ulimit -v 200000; " + one_thread);
    EXPECT_EQ(little.status, 1);
    EXPECT_TRUE(contains(little.err, "ulimit -v")) << little.err;
    EXPECT_FALSE(exists("log"));
    EXPECT_EQ(run("static bar.txt --quiet", "ulimit -v 600000; " + one_thread).status, 0);
}
#endif
