// Whole runs: what comes out, where it lies and what the summary says of it.
#include "batch_run.h"
#include "model/vector3.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

double displacement(const ModelStore& store, std::size_t node) {
    return norm(triple(store.results.mode_vec, static_cast<std::int64_t>(node - 1)));
}

double mises(const ModelStore& store, std::size_t node) {
    return store.results.node_stress[4 * static_cast<std::size_t>(store.mesh.dof_num) + 3 * (node - 1)];
}

// The line "VALUE unit at node N (x, y, z)" against the result file: the largest there, at that node and
// place.
template <typename Value>
void expect_largest(const std::vector<double>& line, const ModelStore& store, Value value) {
    ASSERT_EQ(line.size(), 5u);
    const auto node = static_cast<std::size_t>(line[1]);
    ASSERT_TRUE(node >= 1 && node <= static_cast<std::size_t>(store.mesh.node_num()));
    double largest = 0;
    for (std::size_t n = 1; n <= static_cast<std::size_t>(store.mesh.node_num()); ++n)
        largest = std::max(largest, value(store, n));
    EXPECT_NEAR(line[0], largest, 2e-6 * largest);
    EXPECT_NEAR(value(store, node), largest, 2e-6 * largest);
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(line[2 + c], store.mesh.coordinates[3 * (node - 1) + c], 1e-5);
}

std::string without_times(const std::string& text) {
    std::string kept;
    bool table = false;
    for (const std::string& line : lines_of(text)) {
        table = table ? !line.starts_with("total") : line.starts_with("stage ");
        if (!table && !line.starts_with("total")) kept += line + "\n";
    }
    return kept;
}

// Everything else than a bar: bent, of two parts and loads.
const std::string frame_text = R"(
material_info
  STEEL 7800 2.06e11 0.3
  ALU   2700 7e10 0.33
%
part_info
  LEG  blue STEEL RECT  0.1 0.02 0.02 0 0 0  10 3 2 0 0 0   0 0 0     0 0 0
  HEAD red  ALU   RECT  0.02 0.02 0.1 0 0 0  2 3 10 0 0 0   0.1 0 0   0 0 0
%
boundary_condition
  CLAMP plane x  0 0 -1 1 -1 1
%
apply_force
  SIDE area y 300  0.1 0.12 -1 1 0.1 0.1
  TIP  node z -77  0.12 0.02 0.1
%
END
)";

}  // namespace

TEST_F(Batch, TheBarComesOutAsTheorySaysAndTheSummaryAgreesWithTheResultFile) {
    const Ended run = this->run("static bar.txt");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(exists("log/result_bar.txt"));
    EXPECT_FALSE(exists("log/result_bar.txt.part") || exists("log/bar.vtu"));
    const auto largest = numbers_of(run.out, "largest displacement"),
               stress = numbers_of(run.out, "largest Mises stress");
    ASSERT_TRUE(largest.size() == 5 && stress.size() == 5) << run.out;
    EXPECT_NEAR(largest[0], bar_end, 1e-6 * bar_end);
    EXPECT_EQ(largest[2], 0.2);
    EXPECT_NEAR(stress[0], bar_mises, 1e-6 * bar_mises);
    expect_near(numbers_of(run.out, "applied loads"), {1000, 0, 0}, 1e-3);
    expect_near(numbers_of(run.out, "reactions"), {-1000, 0, 0}, 1e-3);
    expect_near(numbers_of(run.out, "residual |Ku-F|/|F|"), {0}, 1e-8);
    const ModelStore store = result("log/result_bar.txt");
    expect_largest(largest, store, displacement);
    expect_largest(stress, store, mises);
    EXPECT_EQ(store.ana_type, AnalysisType::linear_static);
    EXPECT_EQ(store.results.mode_num(), 6) << "a static result holds six columns";
}

TEST_F(Batch, LoadsAndReactionsBalanceOnAFrameOfTwoParts) {
    folder.write("frame.txt", frame_text);
    const Ended run = this->run("static frame.txt --vtu");
    ASSERT_EQ(run.status, 0) << run.err;
    expect_near(numbers_of(run.out, "applied loads"), {0, 300, -77}, 1e-4);
    expect_near(numbers_of(run.out, "reactions"), {0, -300, 77}, 1e-4);
    const ModelStore store = result("log/result_frame.txt");
    expect_largest(numbers_of(run.out, "largest displacement"), store, displacement);
    expect_largest(numbers_of(run.out, "largest Mises stress"), store, mises);
    EXPECT_GT(store.forces.at(1).node, 0) << "the node force has found its node";
    EXPECT_TRUE(exists("log/frame.vtu"));
    EXPECT_TRUE(contains(run.out, "log/frame.vtu") && contains(run.out, "log/result_frame.txt"));
}

TEST_F(Batch, QuietLeavesTheSummaryOnly) {
    const Ended loud = run("static bar.txt"), quiet = run("static bar.txt --quiet");
    ASSERT_EQ(quiet.status, 0);
    EXPECT_TRUE(quiet.out.starts_with("size  ")) << quiet.out;
    const std::string summary = without_times(quiet.out), whole = without_times(loud.out);
    EXPECT_GT(summary.size(), 300u);
    EXPECT_TRUE(whole.ends_with(summary)) << "a quiet run says the same at its end";
    for (const char* line :
         {"SETTING FILE OPEN !!\n", "KESTRALUM ver3.01\n", "INPUT FILE OPEN !!\n", "element_type=0\n",
          "K,M sparse complete\n", "Force Vector Complete\n", "Static Analysis Start\n",
          "LU K_sparse complete\n", "Strain Analysis\n", "   size_info\n"})
        EXPECT_TRUE(contains(loud.out, line)) << line;
}

TEST_F(Batch, EveryStageIsTimedAndItsMemoryIsItsOwn) {
    const Ended run =
        this->run("static bar.txt --quiet --set P=1", "sed -i 's/8 2 2 0 0 0/14 14 14 0 0 0/' bar.txt;");
    ASSERT_EQ(run.status, 0) << run.err;
    double sum = 0, peak[8] = {};
    const char* const stages[] = {"read ",     "mesh ",   "order ", "write ",
                                  "assemble ", "factor ", "solve ", "recover "};
    for (std::size_t k = 0; k < 8; ++k) {
        const auto line = numbers_of(run.out, stages[k]);
        ASSERT_EQ(line.size(), 2u) << stages[k] << run.out;
        sum += line[0];
        peak[k] = line[1];
        EXPECT_GE(line[0], 0);
        EXPECT_GT(peak[k], 1) << stages[k];
    }
    EXPECT_NEAR(sum, numbers_of(run.out, "total ").at(0), 0.01);
    // what reading and meshing left is still there while the nodes are ordered, and they need little more
    EXPECT_LE(peak[0], 1.25 * peak[2]) << run.out;
    EXPECT_LE(peak[1], 1.25 * peak[2]) << run.out;
    // 9450 equations in a band of about 700: a factor of nearly 50 MB
    EXPECT_GT(peak[5], peak[0] + 30);
}

TEST_F(Batch, AFreeBodyIsComputedWrittenAndSaid) {
    // a second bar beside the clamped one hangs on nothing
    folder.write("loose.txt",
                 replaced(bar_text, "0 0 0  0 0 0\n",
                          "0 0 0  0 0 0\n  LOOSE red STEEL RECT B B B 0 0 0  1 1 1 0 0 0  2*L 0 0  0 0 0\n"));
    const Ended run = refused("static loose.txt", 1);
    EXPECT_TRUE(contains(run.err, "the body is free") && contains(run.err, " node ")) << run.err;
    EXPECT_TRUE(contains(run.err, "(0.4")) << "the line names a place of the loose part";
    EXPECT_EQ(result("log/result_loose.txt").results.mode_num(), 6) << "the last write, as of any analysis";
    EXPECT_FALSE(exists("log/result_loose.txt.part"));
}

TEST_F(Batch, ParametersSetBesideTheFileReachLaterRecordsAndSections) {
    // B is used by the record of A, by the part, and so by the stress; the load by the force; of two
    // values the last counts, and its expression sees what the file has defined before
    ASSERT_EQ(run("static bar.txt --set B=7 --set B=L/5 --set 'P=4*A*1e6'").status, 0);
    const ModelStore store = result("log/result_bar.txt");
    EXPECT_NEAR(store.mesh.size_info[4], 0.04, 1e-9);
    EXPECT_NEAR(store.forces.at(0).value, 4 * 0.04 * 0.04 * 1e6, 1e-2);
    EXPECT_NEAR(mises(store, 1), 4e6, 4);
    // a name that the file does not define
    folder.write("new.txt", replaced(bar_text, "L B B 0", "L EXTRA B 0"));
    ASSERT_EQ(run("static new.txt --set EXTRA=0.03").status, 0);
    EXPECT_NEAR(result("log/result_new.txt").mesh.size_info[4], 0.03, 1e-9);
    for (const char* wrong : {"B=nope", "9B=1"}) {
        const Ended run = this->run("static bar.txt --quiet --set '" + std::string(wrong) + "'");
        EXPECT_EQ(run.status, 2) << wrong;
        EXPECT_TRUE(contains(run.err, wrong)) << run.err;
    }
}

TEST_F(Batch, FilesAreFoundUnderStoredAndPlatformNames) {
    std::filesystem::create_directories(folder.path() / "data");
    folder.write("data/m.txt", bar_text);
    folder.write("data/m.ana",
                 "a explicit\nd_time 1e-6 end_time 1e-3 output_frequency 10 C_alfa 0\nGravity off Plastic "
                 "off Element_contact off\nEND\n");
    const Ended run =
        this->run("static 'data\\m.txt' --log 'out\\one' --setting 'setting\\setting.txt' --vtu");
    ASSERT_EQ(run.status, 0) << run.err << run.out;
    EXPECT_TRUE(exists("out/one/result_m.txt") && exists("out/one/m.vtu") && exists("out/one/Ltemp_0.txt"));
    EXPECT_FALSE(exists("log"));
    EXPECT_TRUE(contains(run.out, "index = 4\nfile_name = m.txt\nn_=5\nresfile_name:log\\result_m.txt\n"));
    EXPECT_TRUE(contains(run.out, "analysis_info_file_name:data\\m.ana"))
        << "the control file is looked for beside the model";
    EXPECT_TRUE(contains(run.out, "out/one/result_m.txt"));
}

TEST_F(Batch, SurfaceMeshesAreLeftOutOfTheAnalysisAndStandInTheFileForParaView) {
    folder.write("skin.stl",
                 "solid skin\n"
                 "facet normal 0 0 1 outer loop vertex 0 0 50 vertex 5 0 50 vertex 0 5 50 endloop endfacet\n"
                 "facet normal 0 0 1 outer loop vertex 5 0 50 vertex 5 5 50 vertex 0 5 50 endloop endfacet\n"
                 "endsolid skin\n");
    folder.write("stl.txt", replaced(bar_text, "0 0 0  0 0 0\n",
                                     "0 0 0  0 0 0\n  SKIN red STEEL STL skin.stl 0 0 0 0 0  0 0 0 0 0 0  "
                                     "0 0 0  0 0 0 unit=mm\n"));
    const Ended run = this->run("static stl.txt --vtu"), check = this->run("check stl.txt");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NEAR(numbers_of(run.out, "largest displacement").at(0), bar_end, 1e-6 * bar_end);
    EXPECT_TRUE(contains(run.out, "SKIN")) << "and that is said";
    EXPECT_TRUE(contains(bytes("log/stl.vtu"), "NumberOfCells=\"34\"")) << "32 hexahedra and 2 facets";
    EXPECT_TRUE(contains(check.out, "2, left out of analyses")) << check.out;
    EXPECT_EQ(numbers_of(check.out, "hanging nodes").at(0), 6) << "facets share no nodes";
}
