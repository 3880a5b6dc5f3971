// Runs that cannot be started or completed: exit status, one clear line, and no torn result file.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "batch_run.h"

using namespace kestralum;
using namespace kestralum::testing;

TEST_F(Batch, BadUsageIsOneLineAndTouchesNothing) {
    // clang-format off
    const char* const wrong[] = {
        "", "static", "check", "statik bar.txt", "static bar.txt more", "bar.txt static", "'' bar.txt",
        "static bar.txt --set", "static bar.txt --set B", "static bar.txt --set =1",
        "static bar.txt --set B=", "static bar.txt --log", "static bar.txt --log ''",
        "static bar.txt --setting", "static bar.txt --setting ''", "static bar.txt --bogus",
        "static --help=1", "check bar.txt --vtu", "static bar.txt --mean-dilatation",
        "static bar.txt --probe 1,2,3", "explicit bar.txt --probe", "explicit bar.txt --probe 1,2",
        "explicit bar.txt --probe 1,2,x", "explicit bar.txt --probe 1,2,3,4"};
    // clang-format on
    for (const char* arguments : wrong) {
        const Ended run = refused(arguments);
        EXPECT_EQ(run.out, "") << arguments;
        EXPECT_TRUE(run.err.starts_with("kestralum-batch: ")) << arguments << run.err;
        EXPECT_FALSE(exists("log")) << arguments;
    }
}

TEST_F(Batch, HelpAndVersionNeedNothing) {
    std::filesystem::remove_all(folder.path() / "setting");
    const Ended version = run("--version"), help = run("--help");
    EXPECT_EQ(version.status + help.status, 0);
    EXPECT_EQ(version.out, "KESTRALUM ver3.01\n");
    for (const char* word : {"static", "check", "--set NAME=EXPRESSION", "--setting FILE", "--log DIR",
                             "--vtu", "--quiet", "--version"})
        EXPECT_TRUE(contains(help.out, word)) << word;
    EXPECT_EQ(version.err + help.err, "");
    EXPECT_FALSE(exists("log"));
}

TEST_F(Batch, WithoutSettingsNothingRuns) {
    std::filesystem::rename(folder.path() / "setting/setting.txt", folder.path() / "mine.txt");
    for (const char* command : {"static bar.txt", "check bar.txt", "static bar.txt --setting setting"})
        EXPECT_EQ(refused(command).out, "SETTING FILE OPEN ERROR\n") << command;
    EXPECT_EQ(run("static bar.txt --setting mine.txt").status, 0);
}

TEST_F(Batch, InputThatIsWrongNeverRunsAnAnalysis) {
    folder.write("empty.txt", "");
    folder.write("binary.txt", std::string("\177ELF\0\xff", 6));
    folder.write("control.txt", bar_text);
    folder.write("control.ana", "a explicit\nd_time oops\n");
    folder.write("unknown.txt", replaced(bar_text, "A B*B", "A B*BB"));
    folder.write("huge.txt", replaced(bar_text, "8 2 2", "8 2000000 2000000"));
    folder.write("negative.txt", replaced(bar_text, "8 2 2", "8 -2 2"));
    folder.write("cut.txt", replaced(bar_text, "-1 1 -1 1\n%\nEND\n", "-1 1"));
    folder.write("load.txt", replaced(bar_text, "P 1000", "P 1/0"));
    folder.write("rigid.txt",
                 replaced(bar_text, "%\nEND", "%\nrigid_element\n  HEAD area 0 0 0  8 9 8 9 8 9\n%\nEND"));
    const std::pair<const char*, const char*> models[] = {
        {"absent.txt", "absent.txt"}, {"empty.txt", ""},     {"binary.txt", ""},
        {"control.txt", "oops"},      {"setting", ""},       {"unknown.txt", "unknown.txt: token 13 'B*BB'"},
        {"huge.txt", "do not fit"},   {"negative.txt", ""},  {"cut.txt", "end of file"},
        {"load.txt", "1/0"},          {"rigid.txt", "rigid"}};
    for (const auto& [model, said] : models) {  // "setting" is a folder
        const Ended run = this->run("static " + std::string(model) + " --quiet");
        EXPECT_EQ(run.status, 2) << model << run.out;
        EXPECT_TRUE(contains(run.err, said) && !run.err.empty()) << model << run.err;
        EXPECT_FALSE(contains(run.out, "largest")) << model;
        const std::string file = "log/result_" + std::string(model);
        EXPECT_FALSE(exists(file) || exists(file + ".part")) << model;
    }
}

TEST_F(Batch, ADiskBudgetBelowTheFactorEndsTheRun) {
    folder.write("tight.txt", settings_text("1000", "0.01"));
    const Ended first = refused("static bar.txt --setting tight.txt", 1);
    const std::size_t warning = first.out.find("Warning:HD");
    ASSERT_NE(warning, std::string::npos);
    EXPECT_NE(first.out.substr(warning + 10, 1), "\n") << "the warning stands as it is, without a line's end";
    EXPECT_TRUE(contains(first.err, "FREE_HD_SIZE")) << first.err;
    EXPECT_FALSE(exists("log/result_bar.txt.part"));
    const ModelStore cleared = result("log/result_bar.txt");
    EXPECT_EQ(cleared.results.mode_vec, std::vector<double>(cleared.results.mode_vec.size(), 0.0))
        << "whole, without results";
}

TEST_F(Batch, ADiskThatFillsUpEndsTheRunWithoutATornFile) {
    // files may hold 80 kB each: enough for the mesh with cleared results and the factor, not for the last
    // write
    const std::string small_files = "trap '' XFSZ; ulimit -f 160;";
    ASSERT_EQ(run("static bar.txt").status, 0);
    const std::string good = bytes("log/result_bar.txt");
    ASSERT_GT(good.size(), 82000u);
    const Ended full = run("static bar.txt --set P=7", small_files);
    EXPECT_EQ(full.status, 1);
    EXPECT_TRUE(contains(full.out, "Strain Analysis\n")) << "it was the last write";
    EXPECT_TRUE(contains(full.err, "result_bar.txt cannot be written")) << full.err;
    EXPECT_TRUE(bytes("log/result_bar.txt") == good);
    EXPECT_FALSE(exists("log/result_bar.txt.part"));
    EXPECT_FALSE(contains(full.out, "\nresults  ")) << "no file of this run lies there";
    // the same without an earlier file, and with room for the first write only up to the elements
    for (const std::string& room : {small_files, std::string("trap '' XFSZ; ulimit -f 4;")}) {
        EXPECT_EQ(run("static bar.txt --log other", room).status, 1);
        EXPECT_FALSE(exists("other/result_bar.txt") || exists("other/result_bar.txt.part"));
    }
    // room for the model, not for the factor of 60 kB: the file held back serves
    const Ended factor = refused("static bar.txt --log other", 1, "trap '' XFSZ; ulimit -f 100;");
    EXPECT_TRUE(contains(factor.err, "factorization cannot go on")) << factor.err;
    const ModelStore cleared = result("other/result_bar.txt");
    EXPECT_EQ(cleared.results.mode_vec, std::vector<double>(cleared.results.mode_vec.size(), 0.0));
}

TEST_F(Batch, ALogFolderThatCannotBeUsedIsSaid) {
    folder.write("file", "in the way");
    for (const char* log : {"file", "file/below", "/proc/none"}) {
        const Ended run = refused(std::string("static bar.txt --quiet --log ") + log);
        EXPECT_TRUE(contains(run.err, log)) << run.err;
    }
    EXPECT_EQ(bytes("file"), "in the way");
}

TEST_F(Batch, AFolderInUseIsRefusedAndFreeAgainAfterwards) {
    ASSERT_EQ(run("static bar.txt --log study").status, 0);
    const std::string good = bytes("study/result_bar.txt");
    const int lock = ::open(folder.file("study/.lock").c_str(), O_RDWR);
    ASSERT_GE(lock, 0);
    ASSERT_EQ(::flock(lock, LOCK_EX | LOCK_NB), 0) << "the run before has let go";
    const Ended held = refused("static bar.txt --log study --set P=5");
    EXPECT_TRUE(contains(held.err, "study") && contains(held.err, "--log")) << held.err;
    EXPECT_TRUE(bytes("study/result_bar.txt") == good);
    EXPECT_EQ(run("static bar.txt --log other").status, 0) << "another folder is free";
    ASSERT_EQ(::flock(lock, LOCK_SH | LOCK_NB), 0);
    EXPECT_EQ(run("static bar.txt --log study").status, 2) << "a run wants the folder for itself";
    EXPECT_EQ(run("check bar.txt --log study").status, 0) << "check writes nothing there";
    ::close(lock);
    EXPECT_EQ(run("static bar.txt --log study --set P=5").status, 0);
    EXPECT_FALSE(bytes("study/result_bar.txt") == good);
}

TEST_F(Batch, TwoAtATimeInTwoFolders) {
    ASSERT_EQ(run("static bar.txt --log alone --set P=1").status, 0);
    ASSERT_EQ(run("static bar.txt --log alone2 --set P=2").status, 0);
    const std::string both = "cd '" + folder.path().string() + "' && (" +
                             command("static bar.txt --log a --set P=1", "a") + ") & first=$!; cd '" +
                             folder.path().string() + "' && " +
                             command("static bar.txt --log b --set P=2", "b") + " && wait $first";
    EXPECT_EQ(std::system(both.c_str()), 0) << bytes("a.err") << bytes("b.err");
    EXPECT_TRUE(bytes("a/result_bar.txt") == bytes("alone/result_bar.txt"));
    EXPECT_TRUE(bytes("b/result_bar.txt") == bytes("alone2/result_bar.txt"));
    EXPECT_FALSE(bytes("a/result_bar.txt") == bytes("b/result_bar.txt"));
}
