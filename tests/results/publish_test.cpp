// A result file is whole or absent, whatever happens to the run or the disk.
#include <gtest/gtest.h>

#include <filesystem>

#include "full_run.h"
#include "results/displacement_file.h"
#include "results/vtu_file.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Publishing : ::testing::Test {
    TempFolder folder;
    const std::string log = folder.file("log");
    const std::filesystem::path target = folder.path() / "log/result_full.txt";
    StoredRun stored = full_run(folder, ElementKind::hexahedron, 2);
    Collected console;

    bool write(Publish publish) { return write_results(stored.model, stored.run, 2, publish, console); }
    // before anything is computed
    bool hold() {
        kestralum::Run cleared = stored.run;
        cleared.results.clear();
        return write_results(stored.model, cleared, 1, Publish::hold, console);
    }
    // the write fails with one line that gives the reason
    void expect_refused(bool done, const std::string& path, const std::string& reason) {
        EXPECT_FALSE(done);
        EXPECT_EQ(console.errors, path + " cannot be written: " + reason + "\n");
        console.errors.clear();
    }
    std::ptrdiff_t files() const {
        return std::distance(std::filesystem::directory_iterator(log), std::filesystem::directory_iterator());
    }
};

}  // namespace

TEST_F(Publishing, AHeldFileTakesTheNameThroughTheLastWriteOrWhereThereIsNone) {
    folder.write("log/result_full.txt", "earlier");
    ASSERT_TRUE(hold());
    EXPECT_EQ(read_file(target), "earlier");
    release_held_results("data\\full.txt", log);
    EXPECT_EQ(read_file(target), "earlier");
    EXPECT_EQ(files(), 1) << "the held file goes";
    std::filesystem::remove(target);
    ASSERT_TRUE(hold());
    release_held_results("data\\full.txt", log);
    EXPECT_EQ(read_back(folder).run.mode_num(), 1) << "where there is no other";
    ASSERT_TRUE(hold());
    ASSERT_TRUE(write(Publish::now));
    EXPECT_EQ(read_back(folder).run.mode_num(), 2) << "the last write, not the one held";
    EXPECT_EQ(files(), 1);
}

TEST_F(Publishing, AFullDiskLeavesTheEarlierFileAsItWasAndIsReportedOnce) {
    const auto expect_full = [&](const std::string& name, const std::function<bool()>& write_it) {
        const std::string path = folder.write("log/" + name, "earlier");
        std::filesystem::create_symlink("/dev/full", path + ".part");
        expect_refused(write_it(), path, "No space left on device");
        EXPECT_EQ(read_file(path), "earlier");
        EXPECT_FALSE(std::filesystem::is_symlink(path + ".part")) << "what is left of the try goes";
    };
    for (const Publish publish : {Publish::hold, Publish::now}) {
        expect_full("result_full.txt", [&] { return write(publish); });
        EXPECT_TRUE(console.lines.ends_with("FILE CLOSE ERROR\n"));
    }
    expect_full("disp_full.txt", [&] { return write_displacements(stored.model, stored.run, console); });
    expect_full("full.vtu", [&] { return write_vtu(stored.model, stored.run, console); });
    EXPECT_EQ(files(), 3);
}

TEST_F(Publishing, ACancelLeavesTheEarlierFileAsItWas) {
    stored = full_run(folder, ElementKind::hexahedron, 1, {14, 14, 14});
    const std::string whole = written(stored, folder);
    folder.write("log/result_full.txt", "earlier");
    for (const Publish publish : {Publish::hold, Publish::now}) {
        StopsAtLook stopping(8);
        EXPECT_FALSE(write_results(stored.model, stored.run, 1, publish, stopping));
        EXPECT_EQ(stopping.errors, target.string() + " cannot be written: stopped on request\n");
        EXPECT_EQ(read_file(target), "earlier");
        EXPECT_EQ(files(), 1);
    }
    // what a run has reached when it was stopped is kept
    console.cancel();
    EXPECT_TRUE(write_results(stored.model, stored.run, 1, Publish::now, console));
    EXPECT_EQ(read_file(target), whole);

    StopsAtLook all;
    EXPECT_TRUE(read_result_file("log\\result_full.txt", log, all));
    for (const std::int64_t look : {std::int64_t{1}, all.looks / 2, all.looks.load()}) {
        StopsAtLook stopping(look);
        EXPECT_FALSE(read_result_file("log\\result_full.txt", log, stopping));
        EXPECT_EQ(stopping.errors, "stopped on request\n");
    }
}

TEST_F(Publishing, FoldersThatAreAbsentOrInTheFilesPlaceAreOneErrorLine) {
    const std::string absent = folder.file("absent");
    stored.run.origin.options.log_folder = absent;
    expect_refused(write(Publish::now), absent + "/result_full.txt", "No such file or directory");
    EXPECT_TRUE(console.lines.ends_with("resfile_name:log\\result_full.txt\nFILE OPEN ERROR\n"));
    release_held_results("data\\full.txt", absent);
    stored.run.origin.options.log_folder = log;
    std::filesystem::create_directories(target / "x");
    expect_refused(write(Publish::now), target.string(), "Is a directory");
    EXPECT_EQ(files(), 1) << "no temporary file stays";
}
