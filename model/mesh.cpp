#include "model/mesh.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace kestralum {

void update_extent(Mesh& mesh) {
    mesh.size_info = {};
    mesh.max_length = 1.0;
    if (mesh.coordinates.empty()) return;
    for (std::size_t c = 0; c < 3; ++c) mesh.size_info[c] = mesh.size_info[c + 3] = mesh.coordinates[c];
    for (std::size_t k = 0; k < mesh.coordinates.size(); ++k) {
        double& low = mesh.size_info[k % 3];
        double& high = mesh.size_info[k % 3 + 3];
        low = std::min(low, mesh.coordinates[k]);
        high = std::max(high, mesh.coordinates[k]);
    }
    double longest = 0;
    for (std::size_t c = 0; c < 3; ++c)
        longest = std::max(longest, mesh.size_info[c + 3] - mesh.size_info[c]);
    if (longest > 0) mesh.max_length = longest;
}

std::vector<std::int32_t> resolve_force_points(const Mesh& mesh, std::span<const AppliedForce> forces) {
    constexpr double tolerance = 1e-7;  // m
    std::vector<std::int32_t> found(forces.size(), 0), by_x;
    std::vector<char> in_element;
    const auto x_of = [&](std::int32_t n) { return mesh.node(n)[0]; };
    for (std::size_t f = 0; f < forces.size(); ++f) {
        const AppliedForce& force = forces[f];
        if (force.kind != ForceKind::node) continue;
        if (by_x.empty()) {  // nodes by x, so that each point looks at one slice only
            by_x.resize(mesh.node_num());
            std::iota(by_x.begin(), by_x.end(), 0);
            std::sort(by_x.begin(), by_x.end(),
                      [&](std::int32_t a, std::int32_t b) { return x_of(a) < x_of(b); });
            in_element.resize(mesh.node_num());
            for (std::int32_t node : mesh.connectivity) in_element[node - 1] = 1;
        }
        auto at = std::lower_bound(by_x.begin(), by_x.end(), force.point[0] - 2 * tolerance,
                                   [&](std::int32_t n, double value) { return x_of(n) < value; });
        for (; at != by_x.end() && x_of(*at) < force.point[0] + 2 * tolerance; ++at) {
            const double* p = mesh.node(*at);
            const bool here = std::abs(p[0] - force.point[0]) < tolerance &&
                              std::abs(p[1] - force.point[1]) < tolerance &&
                              std::abs(p[2] - force.point[2]) < tolerance;
            if (!here) continue;
            const std::int32_t best = found[f] - 1;
            const bool better = best < 0 || in_element[*at] > in_element[best] ||
                                (in_element[*at] == in_element[best] && *at < best);
            if (better) found[f] = *at + 1;
        }
    }
    return found;
}

}  // namespace kestralum
