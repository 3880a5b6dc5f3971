// A system of elasticity as the analyses assemble it, and a watch, for the solvers' benchmarks. Cases: a box
// of hexahedra such as 30x30x30 (a cube of side 1 m, else cells of 0.01 m; 30x30x30-flat10: cells a tenth as
// high), the same with tet4- or tet10- before it (cells cut in six), or a Netgen volume file. A box is held
// at its lower end in z and sheared at the upper one; a mesh from a file along x and bent.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "elements/elasticity.h"
#include "mesh/vol_import.h"
#include "solver/sparse.h"
#include "support/box_mesh.h"

namespace kestralum::bench {

class Watch {
public:
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_).count();
    }
    void report(const char* what) {
        std::printf("%-9s %8.3f s, of processors %8.3f s\n", what,
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_).count(),
                    processor_seconds() - processor_);
        std::fflush(stdout);
        *this = Watch();
    }

private:
    static double processor_seconds() {
        timespec t;
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    }
    std::chrono::steady_clock::time_point wall_ = std::chrono::steady_clock::now();
    double processor_ = processor_seconds();
};

inline Mesh box_of(std::string name) {
    ElementKind kind = ElementKind::hexahedron;
    if (name.starts_with("tet4-")) kind = ElementKind::tetrahedron4, name.erase(0, 5);
    if (name.starts_with("tet10-")) kind = ElementKind::tetrahedron10, name.erase(0, 6);
    testing::Grid grid{{0, 0, 0}, {0, 0, 0}};
    auto& n = grid.cells;
    double flat = 1;
    if (std::sscanf(name.c_str(), "%dx%dx%d-flat%lf", &n[0], &n[1], &n[2], &flat) < 3) return {};
    const double h = n[0] == n[1] && n[1] == n[2] ? 1.0 / n[0] : 0.01;
    for (std::size_t d = 0; d < 3; ++d) grid.size[d] = h * n[d] / (d == 2 ? flat : 1);
    return testing::box_mesh(grid, kind);
}

inline Mesh read_volume(const std::string& path) {
    std::ifstream in(path);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    PartMesh part;
    Remarks remarks;
    SilentProgress silent;
    read_vol_text(text, path, 1.0, part, remarks, silent);
    for (const std::string& error : remarks.errors) std::printf("%s\n", error.c_str());
    Mesh mesh;
    mesh.coordinates = part.coordinates;
    mesh.connectivity = part.connectivity;
    mesh.element_type = part.kind;
    mesh.p_ele_part_id.assign(part.element_num(), 0);
    update_extent(mesh);
    return mesh;
}

// The free equations' stiffness and loads.
struct System {
    std::vector<std::int32_t> dof;
    std::vector<double> load;
    SparseKM km;
};

inline System assemble(const Mesh& mesh, int axis, int threads, MassStorage mass = MassStorage::none) {
    SilentProgress silent;
    const Material steel{.id = 0, .name = "M", .density = 7800, .young = 2.06e11, .poisson = 0.3};
    const Elasticity elasticity = build_elasticity(std::span(&steel, 1), silent);
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh), silent);
    System out;
    count_overlap(neighbours, out.km, silent);
    build_index(neighbours, out.km, silent);
    find_diagonals(out.km);
    const ElementType& type = element_type(mesh.element_type);
    const auto matrices = [&](std::int32_t e, double* ke, double* me) {
        ElementPoints points;
        if (!evaluate_points(type, mesh, e, points)) return false;
        element_stiffness(type, points, moduli(elasticity, 0), ke);
        if (me) type.mass(points.x.data(), me);
        for (int k = 0; me && k < type.nodes * type.nodes; ++k) me[k] *= steel.density;
        return true;
    };
    if (assemble_km(mesh, neighbours, matrices, threads, out.km, silent, mass) >= 0)
        std::printf("an element is inverted\n");
    const double low = mesh.size_info[axis], high = mesh.size_info[axis + 3], near = 1e-6 * (high - low);
    std::vector<std::int32_t> map(mesh.dof_num(), -1);
    for (std::int32_t d = 0; d < mesh.dof_num(); ++d) {
        const double x = mesh.node(d / 3)[axis];
        if (x < low + near || neighbours.start[d / 3 + 1] - neighbours.start[d / 3] < 2) continue;
        map[d] = static_cast<std::int32_t>(out.dof.size());
        out.dof.push_back(d);
        const bool loaded = d % 3 == 0 || (axis == 0 && d % 3 == 2);
        out.load.push_back(x > high - near && loaded ? 100.0 : 0.0);
    }
    keep_rows(map, out.km);
    return out;
}

inline double peak_megabytes() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return 1024e-6 * static_cast<double>(usage.ru_maxrss);
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace kestralum::bench
