// "ARCH": the block -W ≤ x ≤ W, 0 ≤ y ≤ W with a half-round opening of radius R about the local z
// axis; "HALF_ARCH" is its half x ≥ 0. dr cells from the opening to the outside, dt per 45°. Even
// steps on the opening's arc and on the block's edges, where the steps then meet those of a box.
#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

std::int64_t cells_around(const Part& part) {
    return (part.type == Shape::half_arch ? 2 : 4) * std::int64_t{part.div[1]};
}

std::string fault(const Part& part) {
    if (part.size[0] < part.size[1]) return {};
    return formatted("opening R = %e must be smaller than the half width W = %e", part.size[0], part.size[1]);
}

MeshCounts section_counts(const Part& part) {
    return {saturated_product(cells_around(part), part.div[0]),
            saturated_product(cells_around(part) + 1, std::int64_t{part.div[0]} + 1)};
}

std::string head(const Part& part, const MeshCounts& counts) {
    return counts_line(counts) + formatted("dr=%d,dt=%d,dl=%d,", part.div[0], part.div[1], part.div[2]) +
           formatted("R=%.3e,W=%.3e,L=%.3e\n", part.size[0], part.size[1], part.size[2]) +
           (part.type == Shape::half_arch ? "  HALF_ARCH\n" : "  ARCH\n");
}

// Place a of dt per 45° along the block's edges, from (W, 0) over the corners to (-W, 0).
std::array<double, 2> on_edge(std::int64_t a, std::int64_t dt, double W) {
    if (a <= dt) return {W, grid_line(a, dt, W)};
    if (a <= 2 * dt) return {grid_line(2 * dt - a, dt, W), W};
    if (a <= 3 * dt) return {-grid_line(a - 2 * dt, dt, W), W};
    return {-W, grid_line(4 * dt - a, dt, W)};
}

Section section(const Part& part) {
    const std::int32_t dr = part.div[0], dt = part.div[1];
    const auto around = static_cast<std::int32_t>(cells_around(part));
    Section section;
    for (std::int32_t a = 0; a <= around; ++a) {
        const auto [c, s] = direction(45.0 * a / dt);
        const double x = part.size[0] * c, y = part.size[0] * s;
        const auto [outer_x, outer_y] = on_edge(a, dt, part.size[1]);
        for (std::int32_t k = 0; k < dr; ++k)
            section.add_node(x + grid_line(k, dr, outer_x - x), y + grid_line(k, dr, outer_y - y));
        section.add_node(outer_x, outer_y);
    }
    for (std::int32_t a = 0; a < around; ++a)
        for (std::int32_t k = 0; k < dr; ++k) {
            const std::int32_t here = a * (dr + 1) + k, there = here + dr + 1;
            section.add_quad(here, here + 1, there + 1, there);
        }
    return section;
}

}  // namespace

const ExtrudedShape arch_shape{-1, fault, section_counts, head, section};

}  // namespace kestralum
