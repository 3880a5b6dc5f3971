#include "mesh/tetra_order.h"

#include <algorithm>
#include <array>

#include "model/vector3.h"

namespace kestralum {

namespace {

Vec3 place(const PartMesh& mesh, std::int32_t number) {
    return triple(mesh.coordinates, node_index(number));
}

// -1, 0 or 1: sign of the volume on the four corners, 0 where it is no larger than its rounding error.
int hand_of(const PartMesh& mesh, const std::int32_t* node) {
    const Vec3 a = place(mesh, node[0]);
    Vec3 edge[3];
    double longest = 0, farthest = norm(a);
    for (int k = 0; k < 3; ++k) {
        edge[k] = minus(place(mesh, node[k + 1]), a);
        longest = std::max(longest, norm(edge[k]));
    }
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

// The mirrored numbering of the same tetrahedron: corners 1 and 2 change places, their edges follow.
void turn(std::int32_t* node, std::size_t per_element) {
    std::swap(node[1], node[2]);
    if (per_element < 10) return;
    std::swap(node[4], node[6]);  // edges 0-1 and 0-2
    std::swap(node[8], node[9]);  // edges 1-3 and 2-3
}

struct Hands {
    std::int64_t good = 0, turned = 0;
    std::int64_t first_turned = 0, first_good = 0;  // elements, from 1
};

}  // namespace

bool check_tetra_order(std::string_view file_name, PartMesh& mesh, Remarks& remarks,
                       const Progress& progress) {
    const std::size_t per_element = nodes_per_element(mesh.kind);
    const std::string file = "file " + std::string(file_name) + ": ";
    std::int32_t* const nodes = mesh.connectivity.data();
    const std::int64_t elements = mesh.element_num();
    Hands hands;
    for (std::int64_t e = 0; e < elements; ++e) {
        if (progress.cancelled()) return false;
        const int hand = hand_of(mesh, nodes + e * per_element);
        if (hand > 0 && hands.good++ == 0) hands.first_good = e + 1;
        if (hand < 0 && hands.turned++ == 0) hands.first_turned = e + 1;
    }
    if (hands.good > 0 && hands.turned > 0) {
        const bool few = hands.turned <= hands.good;
        remarks.errors.push_back(file + std::to_string(hands.turned) + " of its " + std::to_string(elements) +
                                 " tetrahedra are right-handed, the others left-handed (" +
                                 (few ? "right" : "left") + "-handed is for example element " +
                                 std::to_string(few ? hands.first_turned : hands.first_good) +
                                 "): Netgen writes left-handed ones");
        return false;
    }
    if (hands.turned > 0) {
        for (std::int64_t e = 0; e < elements; ++e) turn(nodes + e * per_element, per_element);
        remarks.notices.push_back(file +
                                  "its tetrahedra are right-handed, Netgen's left-handed: they are turned");
    }
    if (mesh.kind != ElementKind::tetrahedron10) return true;
    std::int64_t misplaced = 0;
    for (std::int64_t e = 0; e < elements; ++e) {
        if (progress.cancelled()) return false;
        misplaced += !middles_fit(mesh, nodes + e * per_element);
    }
    if (2 * misplaced <= elements) return true;
    remarks.errors.push_back(
        file + "the mid-side nodes of " + std::to_string(misplaced) + " of its " + std::to_string(elements) +
        " tetrahedra stand in another order than Netgen's (edges 1-2, 1-3, 1-4, 2-3, 2-4, "
        "3-4)");
    return false;
}

}  // namespace kestralum
