// The explicit analysis as a user runs it.
#include "batch/batch_run.h"
#include "model/vector3.h"
#include "results/displacement_file.h"

namespace kestralum::testing {
namespace {

struct ExplicitBatch : Batch {
    void SetUp() override {
        Batch::SetUp();
        folder.write("bar.ana", "x explicit end_time 20e-6 output_frequency 4 d_time 1e-6 END");
    }
};

std::vector<std::string> fields_of(std::string line) {
    std::replace(line.begin(), line.end(), ',', ' ');
    return tokens_of(line);
}

TEST_F(ExplicitBatch, WritesFramesHistoryAndSeries) {
    const Ended ended = run("explicit bar.txt --vtu --probe 0.2,0.01,0.01 --quiet");
    ASSERT_EQ(ended.status, 0) << ended.out << ended.err;
    const ModelStore store = result("log/result_bar.txt");
    EXPECT_EQ(store.ana_type, AnalysisType::explicit_dynamics);
    ASSERT_EQ(store.results.mode_num(), 6);
    for (std::size_t k = 0; k < 6; ++k)
        EXPECT_NEAR(store.results.n_freq[k], 4e-6 * static_cast<double>(k), 1e-12);
    // the displacement file holds the same mesh and frames
    console::Capture quiet;
    ModelStore moved = placeholder_model();
    ASSERT_TRUE(read_displacement_file(folder.file("log/disp_bar.txt"), moved)) << quiet.errors;
    EXPECT_EQ(moved.results.mode_vec, store.results.mode_vec);
    EXPECT_EQ(moved.results.node_stress, store.results.node_stress);
    EXPECT_EQ(moved.mesh.connectivity, store.mesh.connectivity);
    EXPECT_EQ(moved.ana_type, AnalysisType::explicit_dynamics);
    // a heading and a row per frame; the last displacement is that of the frame
    const auto rows = lines_of(bytes("log/history_bar.csv"));
    ASSERT_EQ(rows.size(), 7u);
    const std::vector<std::string> columns = fields_of(rows[0]), last = fields_of(rows.back());
    for (const std::string& row : rows) EXPECT_EQ(fields_of(row).size(), columns.size());
    EXPECT_TRUE(rows[0].starts_with(
        "time,kinetic,internal,plastic,damping,wall,contact,external,support,drift,momentum_x"));
    std::size_t tip = 0;
    for (std::size_t n = 0; n < store.mesh.coordinates.size() / 3; ++n)
        if (triple(store.mesh.coordinates, static_cast<std::int64_t>(n)) == Vec3{0.2, 0.01, 0.01}) tip = n;
    const auto column = std::find(columns.begin(), columns.end(), "node" + std::to_string(tip + 1) + "_u_x");
    ASSERT_NE(column, columns.end()) << rows[0];
    const double moved_tip =
        store.results.mode_vec[5 * static_cast<std::size_t>(store.mesh.dof_num) + 3 * tip];
    EXPECT_GT(moved_tip, 0.1 * bar_end);
    EXPECT_EQ(parse_double(last[static_cast<std::size_t>(column - columns.begin())]), moved_tip);
    // the series for ParaView
    const std::string list = bytes("log/bar.pvd");
    for (int k = 1; k <= 6; ++k) {
        const std::string name = console::format("bar_%06d.vtu", k);
        EXPECT_TRUE(contains(list, "file=\"" + name + "\"")) << list;
        EXPECT_TRUE(contains(bytes("log/" + name), "Name=\"plastic_strain\"")) << name;
    }
    EXPECT_TRUE(contains(list, "timestep=\"2.000000000e-05\"")) << list;
    EXPECT_FALSE(exists("log/bar_000007.vtu"));
    for (const char* title :
         {"steps ", "energy drift", "momentum", "largest displacement", "displacements", "history"})
        EXPECT_TRUE(contains(ended.out, title)) << title;
}

TEST_F(ExplicitBatch, AnInterruptEndsItWithTheFilesWritten) {
    folder.write("bar.ana", "x explicit end_time 1e3 output_frequency 1000000 d_time 1e-6 END");
    const std::string line =
        "cd '" + folder.path().string() +
        "' && { timeout --preserve-status -s INT -k 20 2 '" KESTRALUM_BINARY_DIR
        "/kestralum-batch' explicit bar.txt --quiet --set P=1000 > run.out 2> run.err; echo $? > status; }";
    ASSERT_EQ(std::system(line.c_str()), 0);
    EXPECT_EQ(bytes("status"), "1\n");
    const std::string err = bytes("run.err");
    EXPECT_TRUE(contains(err, "stopped on request after step ")) << err;
    EXPECT_TRUE(exists("log/result_bar.txt") && exists("log/disp_bar.txt") && exists("log/history_bar.csv"));
    EXPECT_GE(result("log/result_bar.txt").results.mode_num(), 1);
}

}  // namespace
}  // namespace kestralum::testing
