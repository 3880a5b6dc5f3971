// Whole runs: what comes out, where it lies and what the summary says of it.
#include "batch_run.h"
#include "console_pattern.h"
#include "model/vector3.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

double displacement(const Frame& frame, double node) {
    return norm(triple(frame.mode_vec, static_cast<std::int64_t>(node) - 1));
}

}  // namespace

TEST_F(Batch, TheSummaryAgreesWithTheoryAndWithTheResultFile) {
    const Ended loud = run("static bar.txt"), quiet = run("static bar.txt --quiet");
    ASSERT_TRUE(loud.status == 0 && quiet.status == 0);
    EXPECT_EQ(loud.err + quiet.err, "");
    const auto moved = numbers_of(quiet.out, "largest displacement"),
               stress = numbers_of(quiet.out, "largest Mises stress");
    ASSERT_TRUE(moved.size() == 5 && stress.size() == 5) << quiet.out;
    EXPECT_NEAR(moved[0], bar_end, 1e-6 * bar_end);
    EXPECT_EQ(moved[2], 0.2);
    EXPECT_NEAR(stress[0], bar_mises, 1e-6 * bar_mises);
    expect_near(numbers_of(quiet.out, "applied loads"), {1000, 0, 0}, 1e-3);
    expect_near(numbers_of(quiet.out, "reactions"), {-1000, 0, 0}, 1e-3);
    expect_near(numbers_of(quiet.out, "residual |Ku-F|/|F|"), {0}, 1e-8);
    const StoredRun stored = result("log/result_bar.txt");
    EXPECT_EQ(stored.run.ana_type, AnalysisType::linear_static);
    EXPECT_NEAR(displacement(*stored.run.results.at(0), moved[1]), bar_end, 1e-6 * bar_end);
    EXPECT_TRUE(contains(bytes("log/result_bar.txt"), "\nmode_num\n6\n"))
        << "a static result holds six columns";
    // a quiet run says what the other one says at its end
    auto said = [](const Ended& run) { return joined(console_pattern(run.out)); };
    EXPECT_TRUE(quiet.out.starts_with("size  ") && said(loud).ends_with(said(quiet)));
}

TEST_F(Batch, ProbesTellTheNearestNode) {
    const std::string probes = " --quiet --probe 0.21,0.021,-1 --probe 0.1,0.011,0.009";
    const Ended still = run("static bar.txt" + probes);
    const std::size_t second = still.out.find("probe 2 ");
    ASSERT_NE(second, std::string::npos) << still.out << still.err;
    const std::pair<std::string, std::vector<double>> said[] = {
        {still.out.substr(0, second), {0.2, 0.02, 0}}, {still.out.substr(second), {0.1, 0.01, 0.01}}};
    for (const auto& [text, x] : said) {
        const auto place = numbers_of(text, "probe "),
                   values = numbers_of(text, "                       displacement");
        ASSERT_TRUE(place.size() == 5 && values.size() == 4) << text;
        expect_near({place.begin() + 2, place.end()}, x, 1e-12);
        EXPECT_NEAR(values[0], bar_end * x[0] / 0.2, 1e-5 * bar_end);
        EXPECT_NEAR(values[3], bar_mises, 1e-5 * bar_mises);
    }
    // a mode swings as the displacements in the result file do
    const Ended modes = run("eigen-subspace bar.txt" + probes);
    const auto place = numbers_of(modes.out, "probe "), mode = numbers_of(modes.out, "  mode 1");
    ASSERT_TRUE(place.size() > 1 && mode.size() == 4) << modes.out;
    const double size = displacement(*result("log/result_bar.txt").run.results.at(0), place[1]);
    EXPECT_NEAR(norm(Vec3{mode[0], mode[1], mode[2]}), size, 2e-6 * size);
}

TEST_F(Batch, FactorFilesAreNamedAndGoWhenAsked) {
    std::filesystem::create_directory(folder.path() / "log");
    folder.write("log/Wtemp_0.txt", "an earlier run's");
    const Ended kept = run("static bar.txt --quiet");
    EXPECT_FALSE(exists("log/Wtemp_0.txt"));
    const double megabytes = 1e-6 * static_cast<double>(bytes("log/Ltemp_0.txt").size());
    expect_near(numbers_of(kept.out, "factor files           log/Ltemp_0.txt"), {megabytes}, 0.051);
    folder.write("log/Ltemp_mine.txt", "");
    const Ended tidy = run("eigen-lanczos bar.txt --quiet --tidy");
    EXPECT_EQ(tidy.status, 0) << tidy.err;
    EXPECT_FALSE(exists("log/Ltemp_0.txt") || exists("log/Wtemp_0.txt") ||
                 contains(tidy.out, "factor files"));
    EXPECT_TRUE(exists("log/result_bar.txt") && exists("log/Ltemp_mine.txt"));
}

TEST_F(Batch, WhatIsReplacedAndALostLoadAreSaid) {
    const std::string file = "log/result_bar.txt ";
    const std::array<std::string, 3> runs[] = {
        {"static", "", ""},
        {"static", " --set P=5", ""},
        {"eigen-subspace", "", "note: " + file + "holds a static analysis and is replaced\n"},
        {"eigen-lanczos", " --set L=0.3",
         "note: " + file +
             "holds an eigen analysis of a model of another size, 0.2 x 0.02 x 0.02 m, and is replaced\n"}};
    for (const auto& [analysis, set, note] : runs) {
        const Ended ended = run(analysis + " bar.txt --quiet" + set);
        EXPECT_TRUE(note.empty() ? !contains(ended.out, "replaced") : contains(ended.out, note)) << ended.out;
    }
    folder.write("log/result_bar.txt", "letters to a friend");
    const Ended loud = run("static bar.txt");
    for (const char* before : {"\n", "\nnote: "})  // before it happens, and in the summary
        EXPECT_TRUE(contains(loud.out, before + file + "is no whole result file and is replaced\n"));
    // the force is 0, or beside the body: this stands before the note on the single force
    folder.write("beside.txt", replaced(bar_text, "L L -1 1 -1 1", "2 3 2 3 2 3"));
    for (const char* lost : {"static bar.txt --quiet --set P=0", "static beside.txt --quiet"})
        EXPECT_TRUE(run(lost).out.starts_with("note: no load acts: ")) << lost;
    EXPECT_FALSE(contains(run("eigen-subspace beside.txt --quiet").out, "no load acts"));
}

TEST_F(Batch, EveryStageHasItsOwnMemory) {
    const Ended run =
        this->run("static bar.txt --quiet", "sed -i 's/8 2 2 0 0 0/14 14 14 0 0 0/' bar.txt; " + in_time);
    std::vector<double> peak;
    for (const char* stage : {"read ", "mesh ", "order ", "factor "})
        peak.push_back(numbers_of(run.out + stage + "0 0", stage).at(1));
    // what reading and meshing left is still there while the nodes are ordered, and they need little more
    EXPECT_LE(std::max(peak[0], peak[1]), 1.25 * peak[2]) << run.out;
    // 9450 equations in a band of about 700: a factor of nearly 50 MB
    EXPECT_GT(peak[3], peak[0] + 30);
}

TEST_F(Batch, FilesAreFoundUnderStoredAndPlatformNames) {
    std::filesystem::create_directories(folder.path() / "data");
    folder.write("data/m.txt", bar_text);
    folder.write("data/m.ana", "a explicit\nd_time 1e-6 end_time 1e-3 output_frequency 10 C_alfa 0\nEND\n");
    const Ended run =
        this->run("static 'data\\m.txt' --log 'out\\one' --setting 'setting\\setting.txt' --vtu");
    ASSERT_EQ(run.status, 0) << run.err << run.out;
    for (const char* name : {"out/one/result_m.txt", "out/one/m.vtu", "out/one/Ltemp_0.txt"})
        EXPECT_TRUE(exists(name) && contains(run.out, name)) << name;
    EXPECT_FALSE(exists("log"));
    EXPECT_TRUE(contains(run.out, "index = 4\nfile_name = m.txt\nn_=5\nresfile_name:log\\result_m.txt\n"));
    EXPECT_TRUE(contains(run.out, "analysis_info_file_name:data\\m.ana\nANALYSIS INFO FILE OPEN !!\n"));
}
