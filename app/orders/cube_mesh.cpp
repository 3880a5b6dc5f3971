#include "app/orders/cube_mesh.h"

#include <cmath>
#include <map>
#include <numbers>
#include <random>
#include <utility>

namespace kestralum {

namespace {

constexpr std::int32_t added_to(std::int32_t node, int n, std::size_t axis) {
    return node + (axis == 0 ? 1 : axis == 1 ? n + 1 : (n + 1) * (n + 1));
}

// Appends the elements of a cell whose first corner (1-based) is `first`.
void add_cell(std::int32_t first, int n, Mesh& mesh) {
    if (mesh.element_type == ElementKind::hexahedron) {
        for (const auto& c : hexa_corner)
            mesh.connectivity.push_back(first + c[0] + (n + 1) * (c[1] + (n + 1) * c[2]));
        return;
    }
    constexpr std::size_t steps[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {2, 1, 0}, {1, 0, 2}};
    for (std::size_t t = 0; t < 6; ++t) {
        std::array<std::int32_t, 4> node{first};
        for (std::size_t s = 0; s < 3; ++s) node[s + 1] = added_to(node[s], n, steps[t][s]);
        if (t >= 3) std::swap(node[1], node[2]);  // odd permutations run the other way round
        mesh.connectivity.insert(mesh.connectivity.end(), node.begin(), node.end());
    }
}

// Gives the tetrahedra of four nodes those on the middles of their edges.
void add_mid_nodes(Mesh& mesh) {
    std::map<std::pair<std::int32_t, std::int32_t>, std::int32_t> middle;
    std::vector<std::int32_t> whole;
    for (std::size_t at = 0; at < mesh.connectivity.size(); at += 4) {
        const std::int32_t* node = &mesh.connectivity[at];
        whole.insert(whole.end(), node, node + 4);
        for (const auto& edge : tetra10_edge) {
            const std::int32_t a = node[edge[0]], b = node[edge[1]];
            const auto [place, added] = middle.try_emplace(std::minmax(a, b), mesh.node_num() + 1);
            if (added)
                for (std::size_t c = 0; c < 3; ++c)
                    mesh.coordinates.push_back(0.5 * (mesh.node(a - 1)[c] + mesh.node(b - 1)[c]));
            whole.push_back(place->second);
        }
    }
    mesh.connectivity = std::move(whole);
}

bool is_end(double x) {
    return x == 0 || x == 1;
}

void move_smoothly(double* x) {
    constexpr double amplitude = 0.09, pi = std::numbers::pi;
    const Vec3 X{x[0], x[1], x[2]};
    for (std::size_t c = 0; c < 3; ++c)
        if (!is_end(X[c]))
            x[c] += amplitude * std::sin(pi * X[c]) * std::cos(pi * X[(c + 1) % 3] + 0.4) *
                    std::cos(2 * X[(c + 2) % 3] + 0.2 * static_cast<double>(c));
}

void move_randomly(int n, Mesh& mesh) {
    std::mt19937 random(2718);
    for (std::int32_t node = 0; node < mesh.node_num(); ++node) {
        double* x = &mesh.coordinates[3 * node];
        const bool inside = !is_end(x[0]) && !is_end(x[1]) && !is_end(x[2]);
        for (std::size_t c = 0; c < 3; ++c) {
            const double share = 2 * (static_cast<double>(random()) / 4294967296.0) - 1;
            if (inside) x[c] += 0.15 * share / n;
        }
    }
}

void add_sets(Mesh& mesh) {
    MeshSet boundary{"boundary", {}, {}, {}};
    std::array<MeshSet, 3> across{MeshSet{"x", {}, {}, {}}, {"y", {}, {}, {}}, {"z", {}, {}, {}}};
    for (std::int32_t node = 0; node < mesh.node_num(); ++node) {
        bool any = false;
        for (std::size_t c = 0; c < 3; ++c)
            if (is_end(mesh.node(node)[c])) {
                across[c].nodes.push_back(node);
                any = true;
            }
        if (any) boundary.nodes.push_back(node);
    }
    mesh.sets = {boundary, across[0], across[1], across[2]};
}

}  // namespace

Mesh cube_mesh(ElementKind kind, int n, Distortion distortion) {
    Mesh mesh;
    mesh.element_type = kind;
    for (int k = 0; k <= n; ++k)
        for (int j = 0; j <= n; ++j)
            for (int i = 0; i <= n; ++i)
                for (const int at : {i, j, k}) mesh.coordinates.push_back(static_cast<double>(at) / n);
    if (distortion == Distortion::random) move_randomly(n, mesh);
    for (int k = 0; k < n; ++k)
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) add_cell(1 + i + (n + 1) * (j + (n + 1) * k), n, mesh);
    if (kind == ElementKind::tetrahedron10) add_mid_nodes(mesh);
    if (distortion == Distortion::smooth)
        for (std::size_t d = 0; d < mesh.coordinates.size(); d += 3) move_smoothly(&mesh.coordinates[d]);
    mesh.p_ele_part_id.assign(static_cast<std::size_t>(mesh.element_num()), 0);
    add_sets(mesh);
    update_extent(mesh);
    update_node_normals(mesh);
    return mesh;
}

}  // namespace kestralum
