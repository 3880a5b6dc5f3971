// "CYLI", "HALF_CYLI" (y ≥ 0), "QUART_CYLI" (x, y ≥ 0): the disc of radius R about the local z axis.
//
// The square grid goes onto the disc by the equal-area concentric map (P. Shirley, K. Chiu, A low
// distortion map between disk and square, J. Graphics Tools 2(3), 1997): squares become circles,
// their sides arcs of equal steps. A grid whose corner lies on a circle cannot avoid an angle near
// 180° there; under this map the worst scaled Jacobian at a Gauss point stays above 0.5 and the
// largest cell is 1.13 times the smallest, however fine the grid, while maps that are smooth across
// the diagonals lose both as 1/dr. Its even steps on the rim also meet those of a hollow cylinder
// with da = 8 dr.
#include <algorithm>
#include <cstdlib>

#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

struct Extent {
    std::int64_t ni, nj;          // cells along x and y
    std::int32_t i_axis, j_axis;  // grid lines on the axis
};

Extent extent(const Part& part) {
    const std::int64_t dr = part.div[0];
    const bool right_only = part.type == Shape::quart_cyli, upper_only = part.type != Shape::cyli;
    return {right_only ? dr : 2 * dr, upper_only ? dr : 2 * dr, right_only ? 0 : part.div[0],
            upper_only ? 0 : part.div[0]};
}

MeshCounts section_counts(const Part& part) {
    const Extent e = extent(part);
    return {saturated_product(e.ni, e.nj), saturated_product(e.ni + 1, e.nj + 1)};
}

std::string head(const Part& part, const MeshCounts& counts) {
    std::string lines = formatted("CYLI:dr=%d,dl=%d,", part.div[0], part.div[1]) +
                        formatted("R=%e,L=%e\n", part.size[0], part.size[1]);
    if (part.type == Shape::half_cyli) lines += "  HALF_CYLI\n";
    if (part.type == Shape::quart_cyli) lines += "  QUART_CYLI\n";
    return lines + counts_line(counts);
}

// Disc place of the grid point p, q steps from the axes, |p|, |q| ≤ dr.
std::array<double, 2> concentric(std::int32_t p, std::int32_t q, std::int32_t dr, double R) {
    const std::int32_t ring = std::max(std::abs(p), std::abs(q));
    if (ring == 0) return {0.0, 0.0};
    const double r = grid_line(ring, dr, R);
    const auto [c, s] = direction(45.0 * std::min(std::abs(p), std::abs(q)) / ring);
    const double x = std::abs(p) >= std::abs(q) ? r * c : r * s;
    const double y = std::abs(p) >= std::abs(q) ? r * s : r * c;
    return {p < 0 ? -x : x, q < 0 ? -y : y};
}

Section section(const Part& part) {
    const Extent e = extent(part);
    const auto ni = static_cast<std::int32_t>(e.ni), nj = static_cast<std::int32_t>(e.nj);
    Section section;
    for (std::int32_t j = 0; j <= nj; ++j)
        for (std::int32_t i = 0; i <= ni; ++i) {
            const auto [x, y] = concentric(i - e.i_axis, j - e.j_axis, part.div[0], part.size[0]);
            section.add_node(x, y);
        }
    add_grid_quads(ni, nj, section);
    return section;
}

}  // namespace

const ExtrudedShape cylinder_shape{-1, nullptr, section_counts, head, section};

}  // namespace kestralum
