// Box grids for tests and benchmarks: hexahedra, or each cell cut into six tetrahedra of either
// order (Kuhn, 1960: all six share the cell's diagonal, so that cells fit together), and the same as
// a Netgen volume file.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "model/format.h"
#include "model/mesh.h"

namespace kestralum::testing {

inline constexpr ElementKind every_kind[] = {ElementKind::hexahedron, ElementKind::tetrahedron4,
                                             ElementKind::tetrahedron10};

struct ElementForm {
    ElementKind kind;
    HexahedronForm form = HexahedronForm::full;
};

inline constexpr ElementForm every_form[] = {{ElementKind::hexahedron},
                                             {ElementKind::hexahedron, HexahedronForm::enhanced},
                                             {ElementKind::hexahedron, HexahedronForm::mean_dilatation},
                                             {ElementKind::tetrahedron4},
                                             {ElementKind::tetrahedron10}};

struct Grid {
    std::array<int, 3> cells;
    std::array<double, 3> size;
    // moves the corner nodes (not the mid-side ones, which stay on the edges' midpoints)
    std::function<void(double* x)> move = nullptr;
};

inline Mesh box_mesh(const Grid& grid, ElementKind kind) {
    Mesh mesh;
    mesh.element_type = kind;
    const auto& n = grid.cells;
    for (int node = 0; node < (n[0] + 1) * (n[1] + 1) * (n[2] + 1); ++node) {
        const int at[] = {node % (n[0] + 1), node / (n[0] + 1) % (n[1] + 1), node / (n[0] + 1) / (n[1] + 1)};
        double x[3];
        for (std::size_t c = 0; c < 3; ++c) x[c] = at[c] == n[c] ? grid.size[c] : grid.size[c] * at[c] / n[c];
        if (grid.move) grid.move(x);
        mesh.coordinates.insert(mesh.coordinates.end(), x, x + 3);
    }
    const auto corner = [&](const std::array<int, 3>& at) {
        return 1 + at[0] + (n[0] + 1) * (at[1] + (n[1] + 1) * at[2]);
    };
    std::map<std::pair<std::int32_t, std::int32_t>, std::int32_t> middle;
    const auto mid_node = [&](std::int32_t a, std::int32_t b) {
        auto [at, added] = middle.try_emplace(std::minmax(a, b), 0);
        if (added) {
            for (std::size_t c = 0; c < 3; ++c)
                mesh.coordinates.push_back(0.5 * (mesh.node(a - 1)[c] + mesh.node(b - 1)[c]));
            at->second = mesh.node_num();
        }
        return at->second;
    };
    constexpr int steps[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {2, 1, 0}, {1, 0, 2}};
    for (int cell = 0; cell < n[0] * n[1] * n[2]; ++cell) {
        const std::array first{cell % n[0], cell / n[0] % n[1], cell / n[0] / n[1]};
        if (kind == ElementKind::hexahedron)
            for (const auto& c : hexa_corner)
                mesh.connectivity.push_back(corner({first[0] + c[0], first[1] + c[1], first[2] + c[2]}));
        for (int t = 0; t < 6 && kind != ElementKind::hexahedron; ++t) {
            std::array at = first;
            std::int32_t node[4] = {corner(at)};
            for (int s = 0; s < 3; ++s) {
                ++at[static_cast<std::size_t>(steps[t][s])];
                node[s + 1] = corner(at);
            }
            if (t >= 3) std::swap(node[1], node[2]);  // odd permutations run the other way round
            mesh.connectivity.insert(mesh.connectivity.end(), node, node + 4);
            if (kind == ElementKind::tetrahedron10)
                for (const auto& edge : tetra10_edge)
                    mesh.connectivity.push_back(mid_node(node[edge[0]], node[edge[1]]));
        }
    }
    mesh.p_ele_part_id.assign(static_cast<std::size_t>(mesh.element_num()), 0);
    update_extent(mesh);
    update_node_normals(mesh);
    return mesh;
}

inline Mesh hexa_box(const Grid& grid) {
    return box_mesh(grid, ElementKind::hexahedron);
}

// The mesh as a Netgen volume file: left-handed tetrahedra, Netgen's mid-side order.
inline std::string vol_text(const Mesh& mesh) {
    constexpr int program_node[] = {0, 2, 1, 3, 6, 4, 7, 5, 9, 8};  // of file position
    const int nodes = mesh.node_per_element();
    std::string text = formatted("mesh3d\ndimension\n3\nvolumeelements\n%d\n", mesh.element_num());
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        text += formatted("1 %d", nodes);
        for (int p = 0; p < nodes; ++p)
            text +=
                formatted(" %d", mesh.connectivity[static_cast<std::size_t>(e * nodes + program_node[p])]);
        text += "\n";
    }
    text += formatted("points\n%d\n", mesh.node_num());
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        text += formatted("%.17g %.17g %.17g\n", mesh.node(n)[0], mesh.node(n)[1], mesh.node(n)[2]);
    return text + "endmesh\n";
}

}  // namespace kestralum::testing
