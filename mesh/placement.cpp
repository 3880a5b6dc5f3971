#include "mesh/placement.h"

#include "mesh/section.h"

namespace kestralum {

std::array<std::array<double, 3>, 3> euler_rotation(const std::array<double, 3>& angles) {
    const auto [c1, s1] = direction(angles[0]);
    const auto [c2, s2] = direction(angles[1]);
    const auto [c3, s3] = direction(angles[2]);
    return {{{c1 * c3 - s1 * c2 * s3, -c1 * s3 - s1 * c2 * c3, s1 * s2},
             {s1 * c3 + c1 * c2 * s3, -s1 * s3 + c1 * c2 * c3, -c1 * s2},
             {s2 * s3, s2 * c3, c2}}};
}

std::array<double, 3> origin_in_metres(const Part& part) {
    return {part.origin[0] * part.unit_factor, part.origin[1] * part.unit_factor,
            part.origin[2] * part.unit_factor};
}

void place(const Part& part, std::span<double> coordinates) {
    const auto R = euler_rotation(part.euler_angles);
    const auto origin = origin_in_metres(part);
    for (std::size_t n = 0; n + 2 < coordinates.size(); n += 3) {
        const std::array<double, 3> p{coordinates[n], coordinates[n + 1], coordinates[n + 2]};
        for (std::size_t k = 0; k < 3; ++k)
            coordinates[n + k] = origin[k] + (R[k][0] * p[0] + R[k][1] * p[1] + R[k][2] * p[2]);
    }
}

}  // namespace kestralum
