#include "mesh/tetra_order.h"

#include <algorithm>
#include <array>

#include "model/vector3.h"

namespace kestralum {

namespace {

Vec3 place(const PartMesh& mesh, std::int32_t number) {
    return triple(mesh.coordinates, node_index(number));
}

// Edge vectors of a tetrahedron at its first corner; of a hexahedron the mean ones of its three directions.
void edge_vectors(const PartMesh& mesh, const std::int32_t* node, std::array<Vec3, 3>& edge) {
    edge = {};
    const Vec3 first = place(mesh, node[0]);
    for (std::size_t d = 0; d < 3; ++d) {
        if (mesh.kind != ElementKind::hexahedron) {
            edge[d] = minus(place(mesh, node[d + 1]), first);
            continue;
        }
        for (std::size_t n = 0; n < 8; ++n)
            edge[d] = plus(edge[d], times(hexa_corner[n][d] ? 0.25 : -0.25, place(mesh, node[n])));
    }
}

// -1, 0 or 1: sign of the volume on the edges, 0 where it is no larger than its rounding error.
int hand_of(const PartMesh& mesh, const std::int32_t* node) {
    std::array<Vec3, 3> edge;
    edge_vectors(mesh, node, edge);
    const double farthest = norm(place(mesh, node[0]));
    double longest = 0;
    for (const Vec3& e : edge) longest = std::max(longest, norm(e));
    constexpr double rounding = 1e-14;
    const double volume = dot(edge[0], cross(edge[1], edge[2]));
    if (std::abs(volume) <= rounding * (farthest + longest) * longest * longest) return 0;
    return volume > 0 ? 1 : -1;
}

// Each mid-side node lies nearest to the middle of its own edge.
bool middles_fit(const PartMesh& mesh, const std::int32_t* node) {
    std::array<Vec3, 6> middle;
    for (std::size_t m = 0; m < 6; ++m)
        middle[m] =
            times(0.5, plus(place(mesh, node[tetra10_edge[m][0]]), place(mesh, node[tetra10_edge[m][1]])));
    for (std::size_t m = 0; m < 6; ++m) {
        const Vec3 x = place(mesh, node[4 + m]);
        const double own = norm(minus(x, middle[m]));
        for (const Vec3& other : middle)
            if (norm(minus(x, other)) < own) return false;
    }
    return true;
}

// The mirrored numbering of the same element: a tetrahedron's corners 1 and 2 change places, their edges
// follow; a hexahedron's two ends do.
void turn(std::int32_t* node, ElementKind kind) {
    if (kind == ElementKind::hexahedron) {
        std::swap_ranges(node, node + 4, node + 4);
        return;
    }
    std::swap(node[1], node[2]);
    if (kind == ElementKind::tetrahedron4) return;
    std::swap(node[4], node[6]);  // edges 0-1 and 0-2
    std::swap(node[8], node[9]);  // edges 1-3 and 2-3
}

struct Hands {
    std::int64_t good = 0, turned = 0;
    std::int64_t first_turned = 0, first_good = 0;  // elements, from 0
};

// Turns the elements where all are negative; false with an error where only some are.
bool make_one_hand(const std::string& file, const FileOrder& order, const Hands& hands, PartMesh& mesh,
                   Remarks& remarks) {
    if (hands.turned == 0) return true;
    const std::string own = order.right_handed ? "right" : "left",
                      other = order.right_handed ? "left" : "right";
    const std::string noun = mesh.kind == ElementKind::hexahedron ? "hexahedra" : "tetrahedra";
    const std::int64_t elements = mesh.element_num();
    if (hands.good == 0) {
        const std::int64_t per_element = nodes_per_element(mesh.kind);
        for (std::int64_t e = 0; e < elements; ++e) turn(&mesh.connectivity[e * per_element], mesh.kind);
        remarks.notices.push_back(file + "its " + noun + " are " + other + "-handed, " + order.writer +
                                  "'s " + own + "-handed: they are turned");
        return true;
    }
    const bool few = hands.turned <= hands.good;
    const std::int64_t example = few ? hands.first_turned : hands.first_good;
    const std::int64_t number = order.numbers.empty() ? example + 1 : order.numbers[example];
    remarks.errors.push_back(file + std::to_string(hands.turned) + " of its " + std::to_string(elements) +
                             " " + noun + " are " + other + "-handed, the others " + own + "-handed (" +
                             (few ? other : own) + "-handed is for example element " +
                             std::to_string(number) + "): " + order.writer + " writes " + own +
                             "-handed ones");
    return false;
}

}  // namespace

bool check_element_order(std::string_view file_name, const FileOrder& order, PartMesh& mesh, Remarks& remarks,
                         const Progress& progress) {
    const std::size_t per_element = nodes_per_element(mesh.kind);
    const std::string file = "file " + std::string(file_name) + ": ";
    const std::int32_t* const nodes = mesh.connectivity.data();
    const std::int64_t elements = mesh.element_num();
    Hands hands;
    for (std::int64_t e = 0; e < elements; ++e) {
        if (progress.cancelled()) return false;
        const int hand = hand_of(mesh, nodes + e * per_element);
        if (hand > 0 && hands.good++ == 0) hands.first_good = e;
        if (hand < 0 && hands.turned++ == 0) hands.first_turned = e;
    }
    if (!make_one_hand(file, order, hands, mesh, remarks)) return false;
    if (mesh.kind != ElementKind::tetrahedron10) return true;
    std::int64_t misplaced = 0;
    for (std::int64_t e = 0; e < elements; ++e) {
        if (progress.cancelled()) return false;
        misplaced += !middles_fit(mesh, nodes + e * per_element);
    }
    if (2 * misplaced <= elements) return true;
    remarks.errors.push_back(file + "the mid-side nodes of " + std::to_string(misplaced) + " of its " +
                             std::to_string(elements) + " tetrahedra stand in another order than " +
                             order.writer + "'s (edges " + order.edges + ")");
    return false;
}

bool check_tetra_order(std::string_view file_name, PartMesh& mesh, Remarks& remarks,
                       const Progress& progress) {
    return check_element_order(file_name, {"Netgen", false, "1-2, 1-3, 1-4, 2-3, 2-4, 3-4", {}}, mesh,
                               remarks, progress);
}

}  // namespace kestralum
