#include "mesh/straighten.h"

#include <algorithm>
#include <array>
#include <vector>

#include "model/element_quality.h"

namespace kestralum {

namespace {

constexpr double least_share = 0.1, step = 0.25;
constexpr int gentle_rounds = 20;  // a quarter each leaves 0.3 % of the bulge

using Places = std::array<double, 30>;

void gather(const PartMesh& mesh, const std::int32_t* node, Places& x) {
    for (std::size_t k = 0; k < 10; ++k)
        std::copy_n(&mesh.coordinates[3 * node_index(node[k])], 3, &x[3 * k]);
}

// Mid-side nodes `share` of the way to the middles of their edges.
Places pulled(Places x, double share) {
    for (std::size_t m = 0; m < 6; ++m)
        for (std::size_t c = 0; c < 3; ++c) {
            const double middle = (x[3 * tetra10_edge[m][0] + c] + x[3 * tetra10_edge[m][1] + c]) / 2;
            double& place = x[3 * (4 + m) + c];
            place = share == 1 ? middle : place + share * (middle - place);
        }
    return x;
}

bool is_folded(const Places& x) {
    const double straight = element_determinants(ElementKind::tetrahedron4, x).smallest;  // of the corners
    return straight > 0 &&
           element_determinants(ElementKind::tetrahedron10, x).smallest < least_share * straight;
}

}  // namespace

std::int64_t straighten_folded(PartMesh& mesh, const Progress& progress) {
    if (mesh.kind != ElementKind::tetrahedron10) return 0;
    std::vector<char> altered(mesh.element_num(), 0);
    bool changed = true;
    for (int round = 0; changed && round < 2 * gentle_rounds; ++round) {
        changed = false;
        for (std::int64_t e = 0; e < mesh.element_num(); ++e) {
            if (e % 4096 == 0 && progress.cancelled()) return 0;
            const std::int32_t* node = &mesh.connectivity[10 * e];
            Places x;
            gather(mesh, node, x);
            if (!is_folded(x)) continue;
            x = pulled(x, round < gentle_rounds ? step : 1);
            for (std::size_t k = 4; k < 10; ++k)
                std::copy_n(&x[3 * k], 3, &mesh.coordinates[3 * node_index(node[k])]);
            altered[e] = 1;
            changed = true;
        }
    }
    return std::ranges::count(altered, 1);
}

}  // namespace kestralum
