// The file for ParaView, opened by VTK's own reader: cells are integrated with VTK's shape functions,
// so that a node in the wrong place shows as a wrong or negative volume.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "full_store.h"
#include "model/console.h"
#include "results/vtu_file.h"
#include "support/temp_folder.h"

using namespace kestralum;
using namespace kestralum::testing;

namespace {

// Prints "name value…" lines; any complaint of VTK ends it with an error.
const char* const script = R"(
import itertools, sys, vtk
reader = vtk.vtkXMLUnstructuredGridReader()
def complain(*_): print("complaint of VTK"); sys.exit(3)
reader.AddObserver("ErrorEvent", complain)
reader.SetFileName(sys.argv[1])
reader.Update()
grid = reader.GetOutput()
print("points", grid.GetNumberOfPoints())
print("cells", grid.GetNumberOfCells())
points = {  # reference points and weights: hexahedron 2x2x2, tetrahedra exact for degree 2
    12: [((0.5 + i*a, 0.5 + j*a, 0.5 + k*a), 0.125) for a in [0.5/3**0.5]
         for i in (-1, 1) for j in (-1, 1) for k in (-1, 1)],
    10: [((0.25, 0.25, 0.25), 1/6.)],
    24: [(at[:3], 1/24.) for a, b in [(0.1381966011250105, 0.5854101966249685)]
         for at in sorted(set(itertools.permutations((b, a, a, a))))],
}
volume, smallest, area, types = 0.0, 1e300, 0.0, []
for c in range(grid.GetNumberOfCells()):
    cell = grid.GetCell(c)
    types.append(cell.GetCellType())
    if cell.GetCellType() == 5:
        area += cell.ComputeArea()
        continue
    n = cell.GetNumberOfPoints()
    x = [cell.GetPoints().GetPoint(p) for p in range(n)]
    for at, weight in points[cell.GetCellType()]:
        d = [0.0] * (3 * n)
        cell.InterpolateDerivs(at, d)
        J = [[sum(d[r*n + p] * x[p][k] for p in range(n)) for k in range(3)] for r in range(3)]
        det = (J[0][0]*(J[1][1]*J[2][2] - J[1][2]*J[2][1]) - J[0][1]*(J[1][0]*J[2][2] - J[1][2]*J[2][0])
             + J[0][2]*(J[1][0]*J[2][1] - J[1][1]*J[2][0]))
        smallest = min(smallest, det)
        volume += weight * det
print("types", *types)
print("volume", repr(volume))
print("smallest", repr(smallest))
print("area", repr(area))
for kind, data in (("point", grid.GetPointData()), ("cell", grid.GetCellData())):
    for a in range(data.GetNumberOfArrays()):
        array = data.GetArray(a)
        print(kind + "." + array.GetName() + ".components", array.GetNumberOfComponents())
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
    ModelStore store = full_store(kind, 2);
    const Mesh& mesh = store.mesh;
    store.results.node_stress.front() = 3;  // finite, to be compared
    console::Capture console;
    EXPECT_EQ(vtu_file_name(store), "log\\full.vtu");
    ASSERT_TRUE(write_vtu(store)) << console.errors;
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "log/full.vtu.part"));
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["points"].at(0), mesh.node_num());
    EXPECT_EQ(report["cells"].at(0), mesh.element_num());
    EXPECT_EQ(report["types"], std::vector<double>(static_cast<std::size_t>(mesh.element_num()), cell_type));
    EXPECT_GT(report["smallest"].at(0), 0) << "VTK's node order";
    EXPECT_NEAR(report["volume"].at(0), 2, 1e-12);

    const auto nodes = static_cast<std::size_t>(mesh.node_num()), dofs = 3 * nodes;
    std::vector<double> displacement, stress, strain, mises;
    const auto& values = store.results.node_stress;
    for (std::size_t n = 0; n < nodes; ++n) {
        for (std::size_t c = 0; c < 3; ++c)
            displacement.push_back(store.results.mode_vec[dofs + 3 * n + c]);  // frame 1 shows row 1
        for (std::size_t g : {0u, 1u})
            for (std::size_t c = 0; c < 3; ++c) stress.push_back(values[g * dofs + 3 * n + c]);
        for (std::size_t g : {2u, 3u})
            for (std::size_t c = 0; c < 3; ++c) strain.push_back(values[g * dofs + 3 * n + c]);
        mises.push_back(values[4 * dofs + 3 * n]);
    }
    EXPECT_EQ(report["point.displacement"], displacement);
    EXPECT_EQ(report["point.displacement.components"].at(0), 3);
    EXPECT_EQ(report["point.stress"], stress);
    EXPECT_EQ(report["point.stress.components"].at(0), 6);
    EXPECT_EQ(report["point.strain"], strain);
    EXPECT_EQ(report["point.mises"], mises);
    EXPECT_EQ(report["point.mises.components"].at(0), 1);
    const std::vector<double> part(mesh.p_ele_part_id.begin(), mesh.p_ele_part_id.end());
    EXPECT_EQ(report["cell.part"], part);
    EXPECT_EQ(report["cell.material"], part) << "in this store part k is of material k";
}

TEST(Vtu, FacetsAreTrianglesAfterTheSolids) {
    const TempFolder folder;
    ModelStore store = full_store(ElementKind::tetrahedron4, 1, {1, 1, 1});
    Mesh& mesh = store.mesh;
    const std::int32_t first = mesh.node_num() + 1;
    mesh.coordinates.insert(mesh.coordinates.end(), {0, 0, 9, 2, 0, 9, 0, 3, 9});
    finish(mesh, mesh.element_type);
    mesh.surface_facets = {first, first + 1, first + 2};
    mesh.surface_part_id = {1};
    store.results.resize(1, mesh.dof_num);
    console::Capture console;
    ASSERT_TRUE(write_vtu(store)) << console.errors;
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["types"], (std::vector<double>{10, 10, 10, 10, 10, 10, 5}));
    EXPECT_EQ(report["cell.part"], (std::vector<double>{0, 0, 0, 0, 0, 0, 1}));
    EXPECT_NEAR(report["area"].at(0), 3, 1e-12);
    EXPECT_NEAR(report["volume"].at(0), 2, 1e-12);
}

TEST(Vtu, OpensWithoutElementsOrValues) {
    const TempFolder folder;
    ModelStore store = placeholder_model();
    store.model_file_name = "some.where/full";
    console::Capture console;
    EXPECT_EQ(vtu_file_name(store), "log\\full.vtu");
    ASSERT_TRUE(write_vtu(store)) << console.errors;
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["points"].at(0), 1);
    EXPECT_EQ(report["cells"].at(0), 0);
    for (const auto& [name, values] : report) EXPECT_FALSE(name.starts_with("point.")) << name;
}
