// "HOLLOWCYLI" and its half (y ≥ 0) and quarter (x, y ≥ 0): outer radius R, wall t about the local
// z axis; da cells around whatever there is of the ring, dt through the wall. i runs outwards, j
// counter-clockwise; the closed ring shares its seam.
#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

bool closed(const Part& part) {
    return part.type == Shape::hollowcyli;
}

double span_degrees(const Part& part) {
    return closed(part) ? 360.0 : part.type == Shape::half_hollowcyli ? 180.0 : 90.0;
}

std::string fault(const Part& part) {
    if (part.size[1] >= part.size[0])
        return formatted("wall t = %e must be smaller than the radius R = %e", part.size[1], part.size[0]);
    // fewer cells would each span 180° or more
    const std::int32_t least = closed(part) ? 3 : part.type == Shape::half_hollowcyli ? 2 : 1;
    if (part.div[0] < least)
        return formatted("da = %d is too few around %g degrees, at least %d", part.div[0], span_degrees(part),
                         least);
    return {};
}

MeshCounts section_counts(const Part& part) {
    const std::int64_t da = part.div[0], dt = part.div[1];
    return {saturated_product(da, dt), saturated_product(closed(part) ? da : da + 1, dt + 1)};
}

std::string head(const Part& part, const MeshCounts& counts) {
    std::string lines = "HOLLOWCYLI:" + counts_line(counts) +
                        formatted("da=%d,dt=%d,dl=%d,", part.div[0], part.div[1], part.div[2]) +
                        formatted("R=%.3e,t=%.3e,L=%.3e\n", part.size[0], part.size[1], part.size[2]);
    if (part.type == Shape::half_hollowcyli) lines += "  HALF_HOLLOWCYLI\n";
    if (part.type == Shape::quart_hollowcyli) lines += "  QUART_HOLLOWCYLI\n";
    return lines;
}

Section section(const Part& part) {
    const std::int32_t da = part.div[0], dt = part.div[1];
    const double R = part.size[0], t = part.size[1];
    const std::int32_t rays = closed(part) ? da : da + 1;
    Section section;
    for (std::int32_t a = 0; a < rays; ++a) {
        const auto [c, s] = direction(span_degrees(part) * a / da);
        for (std::int32_t k = 0; k <= dt; ++k) {
            const double r = k == dt ? R : (R - t) + grid_line(k, dt, t);
            section.add_node(r * c, r * s);
        }
    }
    for (std::int32_t a = 0; a < da; ++a)
        for (std::int32_t k = 0; k < dt; ++k) {
            const std::int32_t here = a * (dt + 1) + k, there = (a + 1) % rays * (dt + 1) + k;
            section.add_quad(here, here + 1, there + 1, there);
        }
    return section;
}

}  // namespace

const ExtrudedShape hollow_cylinder_shape{-1, fault, section_counts, head, section};

}  // namespace kestralum
