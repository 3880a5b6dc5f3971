// "TRAPEZOID": lower edge b1 from the local origin along x, upper edge b2 at y = h shifted by t
// along x, extruded over L.
#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

MeshCounts section_counts(const Part& part) {
    return {saturated_product(part.div[0], part.div[1]),
            saturated_product(std::int64_t{part.div[0]} + 1, std::int64_t{part.div[1]} + 1)};
}

std::string head(const Part& part, const MeshCounts& counts) {
    return "TRAPEZOID:" + counts_line(counts) +
           formatted("db=%d,dh=%d,dl=%d,", part.div[0], part.div[1], part.div[2]) +
           formatted("b1=%.3e,b2=%.3e,h=%.3e,t=%.3e,L=%.3e\n", part.size[0], part.size[1], part.size[2],
                     part.size[3], part.size[4]);
}

Section section(const Part& part) {
    const std::int32_t db = part.div[0], dh = part.div[1];
    const auto [b1, b2, h, t, length, unused] = part.size;
    Section section;
    for (std::int32_t j = 0; j <= dh; ++j) {
        const double left = grid_line(j, dh, t);
        const double width = j == dh ? b2 : b1 + grid_line(j, dh, b2 - b1);
        for (std::int32_t i = 0; i <= db; ++i)
            section.add_node(left + grid_line(i, db, width), grid_line(j, dh, h));
    }
    add_grid_quads(db, dh, section);
    return section;
}

}  // namespace

const ExtrudedShape trapezoid_shape{3, nullptr, section_counts, head, section};

}  // namespace kestralum
