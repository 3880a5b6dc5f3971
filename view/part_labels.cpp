#include "view/part_labels.h"

#include <algorithm>
#include <limits>

namespace kestralum::view {

namespace {

Vec3 middle_of(const Mesh& mesh, const std::array<std::int32_t, 3>& nodes) {
    Vec3 sum{};
    for (const std::int32_t n : nodes) sum = plus(sum, triple(mesh.coordinates, n));
    return times(1.0 / 3, sum);
}

}  // namespace

std::vector<PartLabel> part_labels(const Mesh& mesh, std::span<const Part> parts, const Surface& outside,
                                   const PartLooks& looks, std::size_t most) {
    constexpr std::size_t looked_at = 2000;  // triangles of a part
    const std::vector<Label> names = part_names(mesh, parts, mesh.coordinates);
    const std::size_t each = std::clamp<std::size_t>(most / std::max<std::size_t>(parts.size(), 1), 3, 16);
    std::vector<PartLabel> labels;
    for (std::size_t p = 0; p < parts.size(); ++p) {
        if (!look_of(looks, static_cast<std::int32_t>(p)).visible) continue;
        PartLabel label{names[p].text, names[p].at, {}};
        std::vector<std::array<std::int32_t, 3>> triangles;
        for (const PartTriangles& group : outside.parts) {
            if (group.part != static_cast<std::int32_t>(p)) continue;
            const std::int64_t step = static_cast<std::int64_t>(stride_for(group.count, looked_at));
            for (std::int64_t t = group.first; t < group.first + group.count; t += step) {
                const std::int32_t* node = &outside.triangles[3 * t];
                triangles.push_back({node[0], node[1], node[2]});
            }
        }
        std::vector<Vec3> places;
        for (const auto& nodes : triangles) places.push_back(middle_of(mesh, nodes));
        if (!places.empty())
            for (const std::size_t k : spread_out(places, each, 1e-3 * extent_of(mesh.max_length)))
                label.triangles.push_back(triangles[k]);
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
