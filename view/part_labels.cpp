#include "view/part_labels.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestralum::view {

namespace {

struct Spot {
    std::array<std::int32_t, 3> nodes;  // of a triangle, 0-based
    Vec3 middle;
};

// Triangles of a part by the side that they face most: -x x -y y -z z. A thin plate has spots on both sides.
std::array<std::vector<Spot>, 6> spots_by_side(const Mesh& mesh, const Surface& outside, std::int32_t part) {
    constexpr std::size_t looked_at = 2000;  // triangles of a group
    std::array<std::vector<Spot>, 6> sides;
    for (const PartTriangles& group : outside.parts) {
        if (group.part != part) continue;
        const auto step = static_cast<std::int64_t>(stride_for(group.count, looked_at));
        for (std::int64_t t = group.first; t < group.first + group.count; t += step) {
            const std::int32_t* node = &outside.triangles[3 * t];
            const auto place = [&](int k) { return triple(mesh.coordinates, node[k]); };
            const Vec3 normal = cross(minus(place(1), place(0)), minus(place(2), place(0)));
            std::size_t axis = 0;
            for (std::size_t c = 1; c < 3; ++c)
                if (std::abs(normal[c]) > std::abs(normal[axis])) axis = c;
            sides[2 * axis + (normal[axis] > 0)].push_back(
                {{node[0], node[1], node[2]}, times(1.0 / 3, plus(place(0), plus(place(1), place(2))))});
        }
    }
    return sides;
}

}  // namespace

std::vector<PartLabel> part_labels(const Mesh& mesh, std::span<const Part> parts, const Surface& outside,
                                   const PartLooks& looks, std::size_t most) {
    const std::vector<Label> names = part_names(mesh, parts, mesh.coordinates);
    const std::size_t each = std::clamp<std::size_t>(most / 6 / std::max<std::size_t>(parts.size(), 1), 1, 6);
    std::vector<PartLabel> labels;
    for (std::size_t p = 0; p < parts.size(); ++p) {
        const auto part = static_cast<std::int32_t>(p);
        if (!look_of(looks, part).visible) continue;
        PartLabel label{names[p].text, names[p].at, {}};
        for (const std::vector<Spot>& side : spots_by_side(mesh, outside, part)) {
            if (side.empty()) continue;
            std::vector<Vec3> places;
            for (const Spot& spot : side) places.push_back(spot.middle);
            const auto chosen = spread_out(places, each, 1e-3 * extent_of(mesh.max_length));
            const std::size_t step = stride_for(chosen.size(), each);
            for (std::size_t k = step / 2; k < chosen.size(); k += step)
                label.triangles.push_back(side[chosen[k]].nodes);
        }
        labels.push_back(std::move(label));
    }
    return labels;
}

std::ptrdiff_t middle_in_sight(const Camera& camera, const Scene& scene, std::span<const Vec3> places,
                               std::span<const char> in_sight) {
    std::vector<std::pair<std::ptrdiff_t, std::array<double, 2>>> seen;
    std::array<double, 2> sum{};
    for (std::size_t k = 0; k < places.size(); ++k) {
        const auto at = in_sight[k] ? project(camera, scene, places[k]) : std::nullopt;
        if (!at) continue;
        seen.push_back({static_cast<std::ptrdiff_t>(k), {(*at)[0], (*at)[1]}});
        for (std::size_t c = 0; c < 2; ++c) sum[c] += (*at)[c];
    }
    std::ptrdiff_t best = -1;
    double nearest = std::numeric_limits<double>::infinity();
    const double count = static_cast<double>(seen.size());
    for (const auto& [k, pixel] : seen) {
        const double away = std::hypot(pixel[0] - sum[0] / count, pixel[1] - sum[1] / count);
        if (away < nearest) nearest = away, best = k;
    }
    return best;
}

}  // namespace kestralum::view
