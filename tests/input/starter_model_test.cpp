// The model file that is written beside a part.
#include "input/starter_model.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "input/model_reader.h"
#include "model_text.h"
#include "support/box_mesh.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

const std::string bar_vol = vol_text(box_mesh({{2, 1, 1}, {200, 100, 50}}, ElementKind::tetrahedron10));

TEST(StarterModel, IsReadAsAModelOfThePart) {
    const TempFolder folder;
    const std::pair<std::string, std::string> names[] = {
        {"bar.vol", "bar"}, {"END_plate%1,2.VOL", "PART_END_plate_1_2"}, {"part_info.Vol", "PART_part_info"}};
    for (const auto& [name, part] : names) {
        const StarterModel starter = write_starter_model(folder.write(name, bar_vol));
        ASSERT_EQ(starter.error, "");
        EXPECT_EQ(starter.file, folder.file(name.substr(0, name.size() - 4) + ".txt"));
        Model model = placeholder_model();
        model.model_file_name = starter.file;
        Collected progress;
        const ModelReadReport report = read_input_file(model, {}, progress);
        ASSERT_TRUE(report.ok && report.ended_at_end && report.end_token == "END") << name;
        EXPECT_TRUE(report.remarks.notices.empty()) << report.remarks.notices[0];
        EXPECT_EQ(model.mesh.element_num(), 12);
        EXPECT_NEAR(model.mesh.max_length, 0.2, 1e-15) << "millimetres";
        EXPECT_EQ(model.parts[0].name, part);
    }
    for (const char* name : {"a.step", "a.STP", "a.iges", "a.Igs", "a.brep"}) {
        const std::string text = read_file(write_starter_model(folder.write(name, "any")).file);
        EXPECT_TRUE(contains(text, "STEP   " + std::string(name) + " 0 0 0 0 0 ")) << text;
        EXPECT_TRUE(contains(text, "unit=mm order=2\n")) << text;
    }
    for (const char* name : {"a.txt", "a.step.gz", "stl", ".stl", "a.d/.msh", "msh/a"})
        EXPECT_FALSE(is_part_file(name)) << name;
    // a model of such a name stays a model
    const TempFolder models;
    EXPECT_FALSE(is_part_file(models.write("old.inp", "%A_bar\nmaterial_info\n")));
    EXPECT_FALSE(is_part_file(models.write("old.vol", "  part_info ")));
    EXPECT_TRUE(is_part_file(models.write("new.inp", "*NODE\n")));
    EXPECT_TRUE(is_part_file(models.write("empty.msh", "")));
}

TEST(StarterModel, NeverAltersAFile) {
    const TempFolder folder;
    const std::string part = folder.write("bar.vol", bar_vol);
    folder.write("bar.txt", "Dear reader");
    EXPECT_EQ(write_starter_model(part).file, folder.file("bar_2.txt"));
    EXPECT_EQ(read_file(folder.file("bar.txt")), "Dear reader");
    // an untouched one is taken again, one that was worked on is told of
    const StarterModel again = write_starter_model(part);
    EXPECT_EQ(again.notice, "bar_2.txt was there, a model of bar.vol");
    folder.write("bar_2.txt", replaced(read_file(again.file), "7850", "7800"));
    EXPECT_EQ(write_starter_model(part).notice,
              "bar_3.txt was written, a model of bar.vol; models of it before: bar_2.txt");
}

TEST(StarterModel, RefusesWhatAModelCannotNameOrTheFolderCannotHold) {
    const TempFolder folder;
    const auto refused = [&](const std::string& name, const std::string& why) {
        const StarterModel starter = write_starter_model(folder.write(name, bar_vol));
        EXPECT_TRUE(starter.file.empty() && contains(starter.error, why)) << name << ": " << starter.error;
    };
    refused("two words.vol", "no blanks: rename the file");
    refused("%bar.vol", "begins a comment");
    refused(std::string(130, 'a') + ".vol", "at most 127 characters");
    refused("a\\b.vol", "a backslash");
    EXPECT_TRUE(contains(write_starter_model(folder.file("gone.vol")).error, "No such file"));
    // a disk that takes no more: nothing is left behind
    rlimit former;
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
    const std::string part = folder.write("bar.vol", bar_vol);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, former.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
    const std::string error = write_starter_model(part).error;
    ::setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_TRUE(contains(error, "bar.txt cannot be written: File too large")) << error;
    EXPECT_FALSE(std::filesystem::exists(folder.file("bar.txt")));
    // the working folder is looked into before the model's
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path(folder.path() / "log");
    folder.write("log/bar.vol", "another one");
    const std::string text = read_file(write_starter_model(part).file);
    std::filesystem::current_path(here);
    EXPECT_TRUE(contains(text, "VOL   " + part + " ")) << text;
}

}  // namespace
