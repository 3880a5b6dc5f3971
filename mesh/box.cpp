// "RECT": [0, b] × [0, h] × [0, L], its corner at the local origin.
#include "mesh/section.h"

namespace kestralum {

namespace {

MeshCounts section_counts(const Part& part) {
    return {saturated_product(part.div[0], part.div[1]),
            saturated_product(std::int64_t{part.div[0]} + 1, std::int64_t{part.div[1]} + 1)};
}

std::string head(const Part&, const MeshCounts&) {
    return "RECT:";
}

Section section(const Part& part) {
    const std::int32_t db = part.div[0], dh = part.div[1];
    Section section;
    for (std::int32_t j = 0; j <= dh; ++j)
        for (std::int32_t i = 0; i <= db; ++i)
            section.add_node(grid_line(i, db, part.size[0]), grid_line(j, dh, part.size[1]));
    add_grid_quads(db, dh, section);
    return section;
}

}  // namespace

const ExtrudedShape box_shape{-1, nullptr, section_counts, head, section};

}  // namespace kestralum
