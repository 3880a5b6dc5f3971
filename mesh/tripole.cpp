// "TRIPOLE": prism on the triangle with its corner at the local origin, side b1 along x and side b2
// at the angle ANG (degrees) to it. The medians cut it into three quadrilateral blocks of db × db
// cells, so every side has 2·db cells.
#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

std::string fault(const Part& part) {
    if (part.size[2] < 180) return {};
    return formatted("angle ANG = %e must lie between 0 and 180 degrees", part.size[2]);
}

MeshCounts section_counts(const Part& part) {
    const std::int64_t db = part.div[0];
    const std::int64_t cells = saturated_product(3, saturated_product(db, db));
    return {cells, saturated_product(3 * db + 1, db + 1) - db};  // 3db² + 3db + 1
}

std::string head(const Part& part, const MeshCounts& counts) {
    return "TRIPOLE:" + counts_line(counts) + formatted("db=%d,dl=%d,", part.div[0], part.div[1]) +
           formatted("b1=%.3e,b2=%.3e,ANG=%.3e,L=%.3e\n", part.size[0], part.size[1], part.size[2],
                     part.size[3]);
}

// Nodes: the centroid, the three spokes from it to the sides' middles, then block by block what
// lies beyond its two spokes. Block q belongs to corner q; its i runs from the spoke to the middle
// of the side before that corner, its j from the one after.
std::int32_t node(std::int32_t q, std::int32_t i, std::int32_t j, std::int32_t db) {
    if (i == 0 && j == 0) return 0;
    if (j == 0) return 1 + q * db + (i - 1);
    if (i == 0) return 1 + (q + 1) % 3 * db + (j - 1);
    return 1 + 3 * db + q * db * db + (j - 1) * db + (i - 1);
}

Section section(const Part& part) {
    const std::int32_t db = part.div[0];
    const auto [c, s] = direction(part.size[2]);
    const double corner[3][2] = {{0, 0}, {part.size[0], 0}, {part.size[1] * c, part.size[1] * s}};
    double middle[3][2], centroid[2];  // middle q: of the side before corner q
    for (int k = 0; k < 2; ++k) {
        for (int q = 0; q < 3; ++q) middle[q][k] = (corner[(q + 2) % 3][k] + corner[q][k]) / 2;
        centroid[k] = (corner[0][k] + corner[1][k] + corner[2][k]) / 3;
    }
    Section section;
    section.xy.resize(2 * section_counts(part).nodes);
    for (std::int32_t q = 0; q < 3; ++q)
        for (std::int32_t j = 0; j <= db; ++j)
            for (std::int32_t i = 0; i <= db; ++i) {
                const double u = static_cast<double>(i) / db, v = static_cast<double>(j) / db;
                double* xy = &section.xy[2 * std::int64_t{node(q, i, j, db)}];
                for (int k = 0; k < 2; ++k)
                    xy[k] = (1 - u) * (1 - v) * centroid[k] + u * (1 - v) * middle[q][k] +
                            (1 - u) * v * middle[(q + 1) % 3][k] + u * v * corner[q][k];
            }
    for (std::int32_t q = 0; q < 3; ++q)
        for (std::int32_t j = 0; j < db; ++j)
            for (std::int32_t i = 0; i < db; ++i)
                section.add_quad(node(q, i, j, db), node(q, i + 1, j, db), node(q, i + 1, j + 1, db),
                                 node(q, i, j + 1, db));
    return section;
}

}  // namespace

const ExtrudedShape tripole_shape{-1, fault, section_counts, head, section};

}  // namespace kestralum
