// The file for ParaView, opened by VTK's own reader: the Jacobian of a cell comes from VTK's shape functions,
// so that a node in the wrong place shows as a wrong or negative volume.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "full_run.h"
#include "model/format.h"
#include "results/export_file.h"
#include "results/vtu_file.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// Prints "name value…" lines; any complaint of VTK ends it with an error.
const char* const script = R"(
import sys, vtk
reader = vtk.vtkXMLUnstructuredGridReader()
def complain(*_): print("complaint of VTK"); sys.exit(3)
reader.AddObserver("ErrorEvent", complain)
reader.SetFileName(sys.argv[1])
reader.Update()
grid = reader.GetOutput()
weights = {12: 1, 10: 1/6., 24: 1/6.}  # of affine cells: the Jacobian is the same everywhere
volume, area, types = 0.0, 0.0, []
for c in range(grid.GetNumberOfCells()):
    cell = grid.GetCell(c)
    types.append(cell.GetCellType())
    if cell.GetCellType() == 5:
        area += cell.ComputeArea()
        continue
    n = cell.GetNumberOfPoints()
    x = [cell.GetPoints().GetPoint(p) for p in range(n)]
    d = [0.0] * (3 * n)
    cell.InterpolateDerivs((0.2, 0.3, 0.1), d)
    J = [[sum(d[r*n + p] * x[p][k] for p in range(n)) for k in range(3)] for r in range(3)]
    volume += weights[cell.GetCellType()] * vtk.vtkMath.Determinant3x3(*J)
print("types", *types)
print("volume", repr(volume))
print("area", repr(area))
for kind, data in (("point", grid.GetPointData()), ("cell", grid.GetCellData())):
    for a in range(data.GetNumberOfArrays()):
        array = data.GetArray(a)
        print(kind + "." + array.GetName(), *[repr(array.GetComponent(i, j))
              for i in range(array.GetNumberOfTuples()) for j in range(array.GetNumberOfComponents())])
)";

using Report = std::map<std::string, std::vector<double>>;

Report open_in_vtk(const TempFolder& folder) {
    folder.write("open.py", script);
    const std::string file = folder.file("log/full.vtu"), out = folder.file("report.txt");
    const std::string command =
        "timeout 120 /usr/bin/python3 '" + folder.file("open.py") + "' '" + file + "' > '" + out + "' 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << "needs the package python3-vtk9\n" << read_file(out);
    Report report;
    std::istringstream lines(read_file(out));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string name, value;
        words >> name;
        while (words >> value) report[name].push_back(std::strtod(value.c_str(), nullptr));
    }
    return report;
}

class Vtu : public ::testing::TestWithParam<std::pair<ElementKind, int>> {};
INSTANTIATE_TEST_SUITE_P(Kinds, Vtu,
                         ::testing::Values(std::pair{ElementKind::hexahedron, 12},
                                           std::pair{ElementKind::tetrahedron4, 10},
                                           std::pair{ElementKind::tetrahedron10, 24}));

}  // namespace

TEST_P(Vtu, OpensInVtkWithItsCellsAndValues) {
    const TempFolder folder;
    const auto [kind, cell_type] = GetParam();
    const StoredRun stored = full_run(folder, kind, 2);
    const Mesh& mesh = stored.run.mesh;
    const Frame& frame = *stored.run.results[0];
    Collected console;
    ASSERT_TRUE(write_vtu(stored.model, stored.run, console)) << console.errors;
    Report report = open_in_vtk(folder);
    std::vector<double> types(mesh.element_num(), cell_type);
    types.push_back(5);  // the facet
    EXPECT_EQ(report["types"], types);
    EXPECT_NEAR(report["area"].at(0), 1.0 / 9, 1e-12);
    EXPECT_NEAR(report["volume"].at(0), 2, 1e-12) << "VTK's node order";

    const std::size_t dofs = mesh.dof_num();
    EXPECT_EQ(report["point.displacement"], frame.mode_vec);
    for (std::size_t n = 0; n < dofs; ++n) {  // groups of three, two to a tensor
        const std::size_t at = 6 * (n / 3) + n % 3;
        EXPECT_EQ(report["point.stress"].at(at), frame.node_stress[n]);
        EXPECT_EQ(report["point.stress"].at(at + 3), frame.node_stress[dofs + n]);
        EXPECT_EQ(report["point.strain"].at(at), frame.node_stress[2 * dofs + n]);
        EXPECT_EQ(report["point.strain"].at(at + 3), frame.node_stress[3 * dofs + n]);
        EXPECT_EQ(report["point.mises"].at(n / 3), frame.node_stress[4 * dofs + n - n % 3]);
    }
    std::vector<double> part(mesh.p_ele_part_id.begin(), mesh.p_ele_part_id.end());
    part.push_back(1);
    EXPECT_EQ(report["cell.part"], part);
    EXPECT_EQ(report["cell.material"], part) << "in this model part k is of material k";
}

TEST_P(Vtu, LoadCasesStandUnderTheirNames) {
    const TempFolder folder;
    StoredRun stored = full_run(folder, GetParam().first, 2);
    for (std::size_t k = 0; k < 2; ++k) {
        Frame named = *stored.run.results[k];
        named.name = k ? "wind" : "base";
        stored.run.results[k] = std::make_shared<const Frame>(named);
    }
    Collected console;
    ASSERT_TRUE(write_vtu(stored.model, stored.run, console)) << console.errors;
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["point.displacement_base"], stored.run.results[0]->mode_vec);
    EXPECT_EQ(report["point.displacement_wind"], stored.run.results[1]->mode_vec);
    EXPECT_FALSE(report.contains("point.displacement"));
}

TEST_P(Vtu, AModelWithoutResultsHasItsConditionsAndSets) {
    const TempFolder folder;
    const auto [kind, cell_type] = GetParam();
    Model model = full_run(folder, kind, 1).model;
    Mesh& mesh = model.mesh;
    mesh.sets = {
        {"a<b&\"c\"", {0, 2}, {}, {}}, {"skin", {0, 1, 2, 3}, {{1, 0}, {3, 2}}, {}}, {"body", {4}, {}, {2}}};
    NodalConditions conditions;
    conditions.fixed = {1, 3};
    conditions.load.assign(mesh.dof_num(), 0);
    conditions.load[7] = -1.0 / 3;
    conditions.rigid = {{"A", {2}, {}, false, {}, {}}, {"B", {0, 4}, {}, false, {}, {}}};
    Remarks remarks;
    Collected console;
    ASSERT_TRUE(export_vtu({model, conditions, folder.file("log/full.vtu"), 1, remarks, console}));
    Report report = open_in_vtk(folder);
    const auto expect = [&](const std::string& name, std::size_t count, const std::map<int, double>& values) {
        std::vector<double> expected(count, 0);
        for (const auto& [at, value] : values) expected[at] = value;
        EXPECT_EQ(report[name], expected) << name;
    };
    const std::size_t points = mesh.node_num(), cells = mesh.element_num() + 1;  // and a facet
    std::vector<double> types(cells, cell_type);
    types.back() = 5;
    EXPECT_EQ(report["types"], types);
    EXPECT_NEAR(report["volume"].at(0), 2, 1e-12);
    expect("point.force", 3 * points, {{7, -1.0 / 3}});
    expect("point.support", points, {{1, 1}, {3, 1}});
    expect("point.rigid", points, {{0, 2}, {2, 1}, {4, 2}});
    expect("point.set_a<b&_c_", points, {{0, 1}, {2, 1}});
    expect("point.set_skin", points, {{0, 1}, {1, 1}, {2, 1}, {3, 1}});
    expect("cell.set_skin", cells, {{1, 1}, {3, 1}});
    expect("cell.set_body", cells, {{2, 1}});
}

TEST(Vtu, AHistoryHasAFilePerFrameAndAListOfThem) {
    const TempFolder folder;
    const StoredRun stored = full_run(folder, ElementKind::hexahedron, 2, {1, 1, 1});
    StopsAtLook console;
    ASSERT_TRUE(write_vtu_frames(stored.model, stored.run, console)) << console.errors;
    std::filesystem::rename(folder.file("log/full_000002.vtu"), folder.file("log/full.vtu"));
    Report report = open_in_vtk(folder);
    const Frame& frame = *stored.run.results[1];
    EXPECT_EQ(report["point.displacement"], frame.mode_vec);
    EXPECT_EQ(report["point.plastic_strain"].at(1), frame.node_stress[4 * frame.mode_vec.size() + 3 + 1]);
    EXPECT_TRUE(contains(read_file(folder.file("log/full.pvd")),
                         formatted("timestep=\"%.9e\" part=\"0\" file=\"full_000002.vtu\"", frame.n_freq)));
    // stopped at any look but the last file's first
    int whole = 0;
    for (std::int64_t look = console.looks; look > 1; --look) {
        StopsAtLook stopping(look);
        whole += write_vtu_frames(stored.model, stored.run, stopping);
    }
    EXPECT_LE(whole, 1);
}
