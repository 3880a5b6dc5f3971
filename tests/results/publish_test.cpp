// A result file is whole or absent, whatever happens to the run or the disk.
#include <gtest/gtest.h>

#include <filesystem>

#include "full_store.h"
#include "model/console.h"
#include "results/result_file.h"
#include "results/vtu_file.h"
#include "support/temp_folder.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

struct Publishing : ::testing::Test {
    TempFolder folder;
    const std::filesystem::path target = folder.path() / "log/result_full.txt",
                                held = folder.path() / "log/result_full.txt.part";
    const ModelStore store = full_store(ElementKind::hexahedron, 2);
    ModelStore cleared = store;
    console::Capture console;

    void SetUp() override { cleared.results.resize(1, store.mesh.dof_num); }
    // the write fails with one line that gives the reason
    void expect_refused(bool written, const std::string& file, const std::string& reason) {
        EXPECT_FALSE(written);
        EXPECT_EQ(console.errors,
                  paths::to_platform("log\\" + file) + " cannot be written: " + reason + "\n");
        console.errors.clear();
    }
    std::ptrdiff_t files() const {
        return std::distance(std::filesystem::directory_iterator(folder.path() / "log"),
                             std::filesystem::directory_iterator());
    }
};

}  // namespace

TEST_F(Publishing, AHeldFileTakesTheNameOnlyThroughTheLastWrite) {
    folder.write("log/result_full.txt", "earlier");
    ASSERT_TRUE(write_results(cleared, Publish::hold, 1));
    EXPECT_EQ(read_file(target), "earlier");
    EXPECT_TRUE(std::filesystem::exists(held));
    ASSERT_TRUE(write_results(store, Publish::now, 1));
    EXPECT_FALSE(std::filesystem::exists(held));
    ModelStore read = placeholder_model();
    ASSERT_TRUE(read_result_file(full_target, read));
    EXPECT_EQ(read.results.mode_num(), 2) << "the last write, not the one held";
    release_held_results(store);  // nothing is held any more
    EXPECT_EQ(files(), 1);
}

TEST_F(Publishing, AtAnEarlyEndTheHeldFileServesWhereThereIsNoEarlierOne) {
    ASSERT_TRUE(write_results(cleared, Publish::hold, 1));
    EXPECT_FALSE(std::filesystem::exists(target));
    release_held_results(store);
    ModelStore read = placeholder_model();
    ASSERT_TRUE(read_result_file(full_target, read));
    EXPECT_EQ(read.results.mode_vec, std::vector<double>(cleared.results.mode_vec.size(), 0.0));

    folder.write("log/result_full.txt", "earlier");
    ASSERT_TRUE(write_results(cleared, Publish::hold, 1));
    release_held_results(store);
    EXPECT_EQ(read_file(target), "earlier");
    EXPECT_EQ(files(), 1) << "the held file goes";
}

TEST_F(Publishing, AFullDiskLeavesTheEarlierFileAsItWas) {
    ASSERT_TRUE(std::filesystem::exists("/dev/full"));
    folder.write("log/result_full.txt", "earlier");
    folder.write("log/full.vtu", "earlier");
    for (const Publish publish : {Publish::hold, Publish::now}) {
        std::filesystem::create_symlink("/dev/full", held);
        expect_refused(write_results(store, publish, 2), "result_full.txt", "No space left on device");
        EXPECT_TRUE(console.lines.ends_with("FILE CLOSE ERROR\n"));
        EXPECT_EQ(read_file(target), "earlier");
        EXPECT_FALSE(std::filesystem::is_symlink(held)) << "what is left of the try goes";
    }
    std::filesystem::create_symlink("/dev/full", folder.path() / "log/full.vtu.part");
    expect_refused(write_vtu(store), "full.vtu", "No space left on device");
    EXPECT_EQ(read_file(folder.path() / "log/full.vtu"), "earlier");
    EXPECT_EQ(files(), 2);
}

TEST_F(Publishing, FoldersThatAreAbsentOrInTheFilesPlaceAreOneErrorLine) {
    paths::set_log_directory(folder.file("absent"));
    expect_refused(write_results(store, Publish::now, 1), "result_full.txt", "No such file or directory");
    EXPECT_TRUE(console.lines.ends_with("resfile_name:log\\result_full.txt\nFILE OPEN ERROR\n"));
    expect_refused(write_vtu(store), "full.vtu", "No such file or directory");
    release_held_results(store);
    paths::set_log_directory(folder.file("log"));
    std::filesystem::create_directories(target / "x");
    std::filesystem::create_directories(folder.path() / "log/full.vtu/x");
    expect_refused(write_results(store, Publish::now, 1), "result_full.txt", "Is a directory");
    expect_refused(write_vtu(store), "full.vtu", "Is a directory");
    EXPECT_EQ(files(), 2) << "no temporary file stays";
}
