#include "mesh/section.h"

#include <cmath>
#include <numbers>

namespace kestralum {

bool extrude(const Section& section, double length, std::int32_t layers, double unit, PartMesh& mesh,
             const Progress& progress) {
    const std::size_t nodes = section.xy.size() / 2;
    const std::size_t cells = section.quads.size() / 4;
    const std::size_t layer_num = layers;
    mesh.kind = ElementKind::hexahedron;
    mesh.coordinates.resize(3 * nodes * (layer_num + 1));
    double* x = mesh.coordinates.data();
    for (std::int32_t k = 0; k <= layers; ++k) {
        if (progress.cancelled()) return false;
        const double z = grid_line(k, layers, length) * unit;
        for (std::size_t n = 0; n < nodes; ++n) {
            *x++ = section.xy[2 * n] * unit;
            *x++ = section.xy[2 * n + 1] * unit;
            *x++ = z;
        }
    }
    // position in the quadrilateral of corner offsets (i, j)
    constexpr std::array<std::array<int, 2>, 2> corner_at{{{0, 3}, {1, 2}}};
    mesh.connectivity.resize(8 * cells * layer_num);
    std::int32_t* out = mesh.connectivity.data();
    for (std::size_t k = 0; k < layer_num; ++k) {
        if (progress.cancelled()) return false;
        for (std::size_t c = 0; c < cells; ++c)
            for (const auto& [i, j, e] : hexa_corner) {
                const std::size_t at = corner_at[i][j];
                *out++ = section.quads[4 * c + at] + 1 + static_cast<std::int32_t>((k + e) * nodes);
            }
    }
    return true;
}

void add_grid_quads(std::int32_t ni, std::int32_t nj, Section& section) {
    section.quads.reserve(section.quads.size() + 4 * std::int64_t{ni} * nj);
    for (std::int32_t j = 0; j < nj; ++j)
        for (std::int32_t i = 0; i < ni; ++i) {
            const std::int32_t n = i + (ni + 1) * j;
            section.add_quad(n, n + 1, n + ni + 2, n + ni + 1);
        }
}

std::array<double, 2> direction(double degrees) {
    int quarter = 0;
    const double rest = std::remquo(degrees, 90.0, &quarter);  // exact, within ±45
    const double angle = rest * (std::numbers::pi / 180);
    const double c = std::cos(angle);
    const double s = rest == 0 ? 0.0 : std::sin(angle);  // never -0
    switch (quarter & 3) {
        case 0:
            return {c, s};
        case 1:
            return {s == 0 ? 0.0 : -s, c};
        case 2:
            return {-c, s == 0 ? 0.0 : -s};
        default:
            return {s, -c};
    }
}

}  // namespace kestralum
