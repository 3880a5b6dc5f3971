#include "view/lighting.h"

#include <algorithm>

namespace kestralum::view {

namespace {

// Share of a colour that the main light at its start gives to the middle of a side of the model's box: 0 … 2
// the sides at the high end of x y z, 3 … 5 those at the low end.
double main_share(const Scene& scene, std::size_t side) {
    const double L = extent_of(scene.max_length);
    const std::size_t axis = side % 3;
    Vec3 middle = scene.centre(), normal{};
    middle[axis] = scene.size_info[side < 3 ? 3 + axis : axis];
    normal[axis] = side < 3 ? 1 : -1;
    const Vec3 to = minus({L, L, L}, middle);
    const double away = norm(to);
    return away > 0 ? main_diffuse * std::max(0.0, dot(to, normal) / away) : 0;
}

}  // namespace

// A lamp at infinity gives a side the component of its vector along the side's normal: what the side lacks.
std::array<Vec3, 2> fill_lights(const Scene& scene) {
    constexpr double step = 1.22;                             // from one side to the next brighter one
    constexpr std::array<double, 3> least{0.42, 0.56, 0.76};  // of the darkest, the next, the brightest
    constexpr std::array<double, 3> preferred{0, 0.1,
                                              0.2};  // x y z: the top is bright unless others have more
    std::array<Vec3, 2> lamps{};
    for (const bool low : {false, true}) {
        std::array<double, 3> lit{};
        for (std::size_t k = 0; k < 3; ++k) lit[k] = ambient_share + main_share(scene, low ? 3 + k : k);
        std::array<std::size_t, 3> order{0, 1, 2};
        std::ranges::sort(order, {}, [&](std::size_t k) { return lit[k] + preferred[k]; });
        double former = 0;
        for (std::size_t rank = 0; rank < 3; ++rank) {
            const std::size_t k = order[rank];
            const double wanted = std::max({lit[k], step * former, least[rank]});
            lamps[low][k] = (low ? -1 : 1) * (wanted - lit[k]);
            former = wanted;
        }
    }
    return lamps;
}

}  // namespace kestralum::view
