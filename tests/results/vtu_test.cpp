// The file for ParaView, opened by VTK's own reader: the Jacobian of a cell comes from VTK's shape functions,
// so that a node in the wrong place shows as a wrong or negative volume.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

#include "full_run.h"
#include "model/format.h"
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
print("points", grid.GetNumberOfPoints())
print("cells", grid.GetNumberOfCells())
weights = {12: 1, 10: 1/6., 24: 1/6.}  # of affine cells: the Jacobian is the same everywhere
volume, smallest, area, types = 0.0, 1e300, 0.0, []
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
    det = vtk.vtkMath.Determinant3x3(*J)
    smallest = min(smallest, det)
    volume += weights[cell.GetCellType()] * det
print("types", *types)
print("volume", repr(volume))
print("smallest", repr(smallest))
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
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "log/full.vtu.part"));
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["points"].at(0), mesh.node_num());
    EXPECT_EQ(report["cells"].at(0), mesh.element_num());
    EXPECT_EQ(report["types"], std::vector<double>(mesh.element_num(), cell_type));
    EXPECT_GT(report["smallest"].at(0), 0) << "VTK's node order";
    EXPECT_NEAR(report["volume"].at(0), 2, 1e-12);

    const std::size_t dofs = mesh.dof_num();
    std::vector<double> stress, strain, mises;
    for (std::size_t n = 0; n < dofs; n += 3) {
        for (std::size_t g = 0; g < 4; ++g) {
            const double* three = &frame.node_stress[g * dofs + n];
            (g < 2 ? stress : strain).insert((g < 2 ? stress : strain).end(), three, three + 3);
        }
        mises.push_back(frame.node_stress[4 * dofs + n]);
    }
    EXPECT_EQ(report["point.displacement"], frame.mode_vec);
    EXPECT_EQ(report["point.stress"], stress);
    EXPECT_EQ(report["point.strain"], strain);
    EXPECT_EQ(report["point.mises"], mises);
    const std::vector<double> part(mesh.p_ele_part_id.begin(), mesh.p_ele_part_id.end());
    EXPECT_EQ(report["cell.part"], part);
    EXPECT_EQ(report["cell.material"], part) << "in this model part k is of material k";
}

TEST(Vtu, FacetsAreTrianglesAfterTheSolids) {
    const TempFolder folder;
    StoredRun stored = full_run(folder, ElementKind::tetrahedron4, 1, {1, 1, 1});
    Mesh& mesh = stored.run.mesh;
    const std::int32_t first = mesh.node_num() + 1;
    mesh.coordinates.insert(mesh.coordinates.end(), {0, 0, 9, 2, 0, 9, 0, 3, 9});
    mesh.surface_facets = {first, first + 1, first + 2};
    mesh.surface_part_id = {1};
    stored.run.results = {std::make_shared<const Frame>(mesh.dof_num())};
    Collected console;
    ASSERT_TRUE(write_vtu(stored.model, stored.run, console)) << console.errors;
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["types"], (std::vector<double>{10, 10, 10, 10, 10, 10, 5}));
    EXPECT_EQ(report["cell.part"], (std::vector<double>{0, 0, 0, 1, 1, 1, 1}));
    EXPECT_NEAR(report["area"].at(0), 3, 1e-12);
    EXPECT_NEAR(report["volume"].at(0), 2, 1e-12);
}

TEST(Vtu, OpensWithoutElementsOrValues) {
    const TempFolder folder;
    StoredRun start{placeholder_model(), {}};
    start.model.model_file_name = "some.where/full";
    start.run.mesh = start.model.mesh;
    start.run.results = {std::make_shared<const Frame>()};
    start.run.origin.options.log_folder = folder.file("log");
    Collected console;
    ASSERT_TRUE(write_vtu(start.model, start.run, console)) << console.errors;
    Report report = open_in_vtk(folder);
    EXPECT_EQ(report["points"].at(0), 1);
    EXPECT_EQ(report["cells"].at(0), 0);
    for (const auto& [name, values] : report) EXPECT_FALSE(name.starts_with("point.")) << name;
}

TEST(Vtu, AHistoryHasAFilePerFrameAndAListOfThem) {
    const TempFolder folder;
    StoredRun stored = full_run(folder, ElementKind::hexahedron, 2, {1, 1, 1});
    Collected console;
    ASSERT_TRUE(write_vtu_frames(stored.model, stored.run, console)) << console.errors;
    const std::string list = read_file(folder.file("log/full.pvd"));
    std::filesystem::rename(folder.file("log/full_000002.vtu"), folder.file("log/full.vtu"));
    Report report = open_in_vtk(folder);
    const Frame& frame = *stored.run.results[1];
    EXPECT_EQ(report["point.displacement"], frame.mode_vec);
    EXPECT_EQ(report["point.plastic_strain"].at(1), frame.node_stress[4 * 24 + 3 + 1]);
    EXPECT_TRUE(
        contains(list, formatted("timestep=\"%.9e\" part=\"0\" file=\"full_000002.vtu\"", frame.n_freq)));
    // stopped within a file or between two
    struct : Collected {
        int patience = 0;
        mutable int asked = 0;
        bool cancelled() const override { return ++asked > patience; }
    } hasty;
    for (hasty.patience = 2; hasty.patience < 9; ++hasty.patience) {
        std::filesystem::remove(folder.file("log/full.pvd"));
        hasty.asked = 0;
        hasty.clear();
        EXPECT_FALSE(write_vtu_frames(stored.model, stored.run, hasty));
        EXPECT_EQ(lines_of(hasty.errors).size(), 1u) << hasty.errors;
        EXPECT_FALSE(std::filesystem::exists(folder.file("log/full.pvd")));
    }
}
