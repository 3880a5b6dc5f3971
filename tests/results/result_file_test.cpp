// The result file: what is written, and that reading and writing are each other's inverse.
#include "results/result_file.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdio>
#include <iostream>
#include <sstream>

#include "full_run.h"
#include "model/format.h"
#include "results/displacement_file.h"
#include "results/text_output.h"
#include "support/comma_locale.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// Lines of each section, the keyword first; the first section has the version only.
std::vector<std::vector<std::string>> sections_of(const std::string& text) {
    EXPECT_TRUE(text.ends_with("%\n"));
    std::vector<std::vector<std::string>> sections(1);
    for (const std::string& line : lines_of(text))
        if (line == "%")
            sections.emplace_back();
        else
            sections.back().push_back(line);
    sections.pop_back();
    return sections;
}

std::string e(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%e", value);
    return text;
}
std::string e(std::span<const double> values) {
    std::string text;
    for (const double value : values) text += (text.empty() ? "" : " ") + e(value);
    return text;
}

}  // namespace

TEST(ResultNumbers, AreThePrintfOnes) {
    std::mt19937_64 random(11);
    std::vector<double> values{0.0, -0.0, -1, 9.9999995, 1.0000005, 2.5e-7, 5e-324, HUGE_VAL, -HUGE_VAL};
    for (int k = 0; k < 100000; ++k) {  // of usual size; on ties of the seventh digit and just beside them
        values.push_back(std::ldexp(static_cast<double>(random()), static_cast<int>(random() % 160) - 130));
        const double tie = (1000000.5 + static_cast<double>(random() % 9000000)) *
                           std::pow(10, static_cast<int>(random() % 44) - 22);
        values.insert(values.end(), {tie, std::nextafter(tie, 0.0), -std::nextafter(tie, HUGE_VAL)});
    }
    for (int k = -307; k < 308; ++k)
        for (const double one : {std::pow(10, k), std::pow(10, k) * 9.9999995})
            values.insert(values.end(), {one, std::nextafter(one, 0.0)});
    for (int k = 0; k < 100000; ++k) values.push_back(std::bit_cast<double>(random()));
    std::string text;
    for (double value : values) {
        text.clear();
        append_e(text, value);
        ASSERT_EQ(text, e(value));
    }
    text.clear();
    for (std::int64_t value : {std::int64_t{0}, INT64_MAX, INT64_MIN}) append_d(text, value);
    EXPECT_EQ(text, "09223372036854775807-9223372036854775808");
}

TEST(ResultFile, SectionsStandInOrderWithTheirCountsAndLines) {
    const TempFolder folder;
    const auto [model, run] = full_run(folder, ElementKind::tetrahedron4, 2);
    const std::size_t nodes = run.mesh.node_num(), dofs = 3 * nodes, elements = run.mesh.element_num();
    // degree of freedom 7: two frames, and a column that the run does not have
    std::vector<double> row, stress;
    for (const auto& frame : run.results) {
        row.push_back(frame->mode_vec[7]);
        for (std::size_t group = 0; group < 5; ++group)
            stress.push_back(frame->node_stress[group * dofs + 7]);
    }
    row.push_back(0);
    stress.resize(15);
    const Part& part = model.parts[1];
    const double* n = run.mesh.node_n_dir.data() + 3;
    const auto sections = sections_of(written({model, run}, folder, "full.txt", 3));
    std::string keywords;
    std::vector<std::size_t> lines;
    for (const auto& section : sections) {
        keywords += section.at(0) + " ";
        lines.push_back(section.size() - 1);
    }
    EXPECT_EQ(keywords,
              "ver3.01 Node Element_type Element mode_num n_freq mode_vec node_stress part_num_o part_info "
              "part_num part_info bc_num bc_info force_num force_info rigid_element_info rigid_force_info "
              "node_n_dir p_ele_part_id ana_type size_info ");
    EXPECT_EQ(lines, (std::vector<std::size_t>{
                         0, nodes + 1, 1, elements + 1, 1,        3, dofs, dofs, 1, 1, 1, 2, 1, 2, 1,
                         2, 3,         2, nodes,        elements, 1, 2}));
    for (const auto& [section, line, text] : std::initializer_list<std::tuple<int, int, std::string>>{
             {1, 19, "1.375000e+00 6.666667e-01 3.000000e+00"},
             {3, 1, "24"},
             {3, 2, "1 2 5 11"},
             {4, 1, "3"},
             {5, 2, e(run.results[1]->n_freq)},
             {6, 8, e(row)},
             {7, 8, e(stress)},
             {11, 2,
              "1  BLOCK  blue  1.000000e-01 3.333333e-01 9.000000e-01  STEEL  1  HOLLOWRECT  3  " +
                  e(part.size) + "  1 20 300 0 -5 2147483647  " + e(part.origin) + "  " +
                  e(part.euler_angles) + "  1"},
             {13, 1, "0  CLAMP  plane  x  0 0  " + e(model.boundary_conditions[0].box)},
             {15, 1,
              "0  PUSH  node 0  y 1  -1.234568e+03  1.000000e-01 2.000000e-01 3.000000e-01  " +
                  e(model.forces[0].box) + "  3"},
             {16, 2,
              "0  HEAD  round 1  " + e(std::vector<double>{1, 2, 3}) + "  " +
                  e(model.rigid_elements[0].region)},
             {17, 2, "0  TURN  FOOT  ry  4  3.500000e+00"},
             {18, 2, e(n[0]) + "  " + e(n[1]) + "  " + e(n[2])},
             {19, 13, "1"},
             {20, 1, "1"},
             {21, 2, "1.375000e+00 6.666667e-01 3.000000e+00"}})
        EXPECT_EQ(sections.at(section).at(line), text);
}

TEST(ResultFile, TheConsoleFollowsTheReading) {
    const TempFolder folder;
    const auto [model, run] = full_run(folder, ElementKind::tetrahedron10, 2);
    written({model, run}, folder);
    const std::string log = folder.file("log");
    Collected console;
    const auto read = read_result_file("log\\result_full.txt", log, console);
    ASSERT_TRUE(read);
    const std::string start = formatted(
        "----------read_data-----------\nFILE OPEN "
        "!!\nver3.01\nNode:%d\nElement:24\n2\n,str=n_freq\n0,%f\n1,%f\nstr=mode_vec\nstr=node_stress\n 0, "
        "BAR_AS_READ, blue, 1.000e-01, 3.333e-01,",
        run.mesh.node_num(), read->run.results[0]->n_freq, read->run.results[1]->n_freq);
    EXPECT_TRUE(console.lines.starts_with(start)) << console.lines.substr(0, 400);
    EXPECT_TRUE(console.lines.ends_with("FILE CLOSE !!\n"));
    ASSERT_TRUE(write_displacements(model, run, console));
    Model own;
    own.control = {.d_time = 0.1, .end_time = 1, .output_frequency = 5};
    console.clear();
    ASSERT_TRUE(read_displacement_file("log\\disp_full.txt", log, &own, console));
    EXPECT_EQ(console.lines,
              formatted("----------read_data-----------\nFILE OPEN !!\nNode:%d\n", run.mesh.node_num()) +
                  "Element:24\nmode_num:2\nana_type:1\n0.000000,0.000000,0.000000\n"
                  "1.375000,0.666667,3.000000\nFILE CLOSE !!\ntime_num = 11\nout_time_num = 3\n");

    // an empty name is asked for, once: then the console has ended
    std::istringstream answers("log\\result_full.txt");
    std::streambuf* former = std::cin.rdbuf(answers.rdbuf());
    console.clear();
    EXPECT_TRUE(read_result_file("", log, console));
    EXPECT_TRUE(console.lines.starts_with("Result File Name ?\x81\x46----------read_data-----------\nFILE"));
    EXPECT_FALSE(read_result_file("", log, console));
    EXPECT_TRUE(console.errors.ends_with("no name of a result file was given\n"));
    std::cin.clear();
    std::cin.rdbuf(former);
}

class RoundTrip : public ::testing::TestWithParam<ElementKind> {};
INSTANTIATE_TEST_SUITE_P(ResultFile, RoundTrip, ::testing::ValuesIn(every_kind));

TEST_P(RoundTrip, RewritingGivesTheSameBytes) {
    const TempFolder folder;
    const StoredRun stored = full_run(folder, GetParam(), 3);
    const std::string first = written(stored, folder);
    const StoredRun read = read_back(folder);
    EXPECT_EQ(written(read, folder, "again.txt"), first);
    EXPECT_EQ(read.model.mesh.connectivity, stored.run.mesh.connectivity);
    EXPECT_EQ(read.model.rigid_forces[0].element, 1) << "the name becomes the index again";
    EXPECT_TRUE(read.model.materials.empty() && read.model.parameters.empty()) << "not in the file";
    EXPECT_EQ(read.run.origin.file_name, "log\\result_full.txt");
}

TEST(ResultFile, ColumnsThatAStaticRunDoesNotFillAreNoFrames) {
    const TempFolder folder;
    StoredRun stored = full_run(folder, ElementKind::hexahedron, 1);
    const auto frames = [&] {
        written(stored, folder, "full.txt", 6);
        return read_back(folder).run.mode_num();
    };
    EXPECT_EQ(frames(), 1);
    for (const AnalysisType shapes : {AnalysisType::eigen, AnalysisType::buckling}) {
        stored.run.ana_type = shapes;  // a mode is a mode
        EXPECT_EQ(frames(), 6);
        EXPECT_EQ(read_back(folder).run.ana_type, shapes);
    }
    stored.run.ana_type = AnalysisType::linear_static;
    stored.run.results.clear();  // as written before anything is computed
    EXPECT_EQ(frames(), 1);
}

TEST(ResultFile, NodesWithoutValuesAreReadBackSo) {
    const TempFolder folder;
    StoredRun start{placeholder_model(), {}};
    start.run.mesh = start.model.mesh;
    start.run.origin.options.log_folder = folder.file("log");
    start.run.results.assign(3, std::make_shared<const Frame>());
    const std::string bytes = written(start, folder);
    EXPECT_TRUE(contains(bytes, "\nmode_vec\n%\nnode_stress\n%\n"));
    EXPECT_EQ(written(read_back(folder), folder, "again.txt"), bytes);
}

TEST(ResultFile, BytesDoNotDependOnThreadsOrLocale) {
    const TempFolder folder;
    // more rows than one round of blocks
    StoredRun stored = full_run(folder, ElementKind::hexahedron, 1, {14, 14, 14});
    stored.run.origin.settings.n_threads = 1;
    const std::string one = written(stored, folder);
    const CommaLocale locale;
    for (int threads : {2, 7, -1}) {
        stored.run.origin.settings.n_threads = threads;
        EXPECT_TRUE(written(stored, folder) == one) << threads << " threads";
    }
    EXPECT_TRUE(written(read_back(folder), folder, "again.txt") == one);
}

namespace {

// An explicit run with the nodes of its model numbered backwards, as a displacement file.
struct Displacements : ::testing::Test {
    TempFolder folder;
    StoredRun made = full_run(folder, ElementKind::tetrahedron10, 3);
    Model& own = made.model;
    const std::int32_t nodes = own.mesh.node_num();

    void SetUp() override {
        Mesh& moved = made.run.mesh;
        for (std::int32_t n = 0; n < nodes; ++n)
            std::copy_n(own.mesh.node(n), 3, &moved.coordinates[3 * (nodes - 1 - n)]);
        for (std::int32_t& n : moved.connectivity) n = nodes + 1 - n;
        std::copy_n(own.mesh.node(4), 3, own.forces[0].point.begin());
        own.control = {.d_time = 1e-3, .end_time = 0.02, .output_frequency = 8};
        made.run.ana_type = AnalysisType::explicit_dynamics;
        Collected quiet;
        EXPECT_TRUE(write_displacements(own, made.run, quiet)) << quiet.errors;
    }
    StoredRun read(const Model* model) {
        Collected quiet;
        return read_displacement_file("log\\disp_full.txt", folder.file("log"), model, quiet).value();
    }
};

}  // namespace

TEST_F(Displacements, OfTheOwnModelKeepItsDefinitionWhateverTheNumbering) {
    const auto [model, run] = read(&own);
    for (std::int32_t n = 0; n < nodes - 4; ++n) EXPECT_EQ(run.node_of.at(n), nodes - 1 - n);
    EXPECT_EQ(model.source, own.source);
    EXPECT_EQ(model.mesh.coordinates, own.mesh.coordinates);
    EXPECT_EQ(run.mesh.p_ele_part_id, own.mesh.p_ele_part_id);
    EXPECT_EQ(run.mesh.surface_part_id, own.mesh.surface_part_id);
    EXPECT_EQ(run.mesh.surface_facets.at(2), 2) << "last but one";
    EXPECT_EQ(run.force_node, (std::vector<std::int32_t>{nodes - 4, 0}));
    for (int k = 0; k < 3; ++k) EXPECT_DOUBLE_EQ(run.results[k]->n_freq, k * 8e-3);
    own.control.output_frequency = 0;
    EXPECT_EQ(read(&own).run.results[2]->n_freq, 0) << "not known";
}

TEST_F(Displacements, OfAnotherMeshAreTheMeshAlone) {
    Model moved = own, turned = own, finer = own, facet = own;
    moved.mesh.coordinates[0] += 1e-5;
    std::swap(turned.mesh.connectivity.back(), turned.mesh.connectivity.end()[-2]);
    finer.mesh.coordinates.resize(own.mesh.coordinates.size() + 3);
    facet.mesh.coordinates.back() += 1e-5;
    for (const Model* other : std::initializer_list<const Model*>{nullptr, &moved, &turned, &finer, &facet}) {
        const auto [model, run] = read(other);
        EXPECT_EQ(model.source, ModelSource::displacement_file);
        ASSERT_EQ(model.parts.size(), 1u);
        EXPECT_TRUE(model.forces.empty() && run.mesh.surface_facets.empty());
        EXPECT_EQ(run.mesh.p_ele_part_id, std::vector<std::int32_t>(own.mesh.element_num(), 0));
        EXPECT_EQ(run.results[2]->n_freq, 0);
    }
}
