#include "view/aim.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestralum::view {

void centre_on(Camera& camera, const Vec3& place, const Scene& scene) {
    const Vec3 turned = transform(camera.turn, minus(place, scene.centre()));
    camera.shift[0] = -turned[0];
    camera.shift[1] = -turned[1];
}

double drag_along(const Camera& camera, const Scene& scene, const Vec3& point, const Vec3& normal, double dx,
                  double dy) {
    const double step = 0.01 * extent_of(scene.max_length);
    const auto from = project(camera, scene, point),
               to = project(camera, scene, plus(point, times(step, normal)));
    if (!from || !to) return 0;
    const double x = (*to)[0] - (*from)[0], y = (*to)[1] - (*from)[1], drawn = std::hypot(x, y);
    // pixels that the step has where it lies across the view
    const double across = 0.5 * camera.height * step / (tangent() * std::max(distance(camera, scene), step));
    constexpr double steep = 0.15;
    if (drawn < steep * across) return -dy * step / across;
    return (dx * x + dy * y) / (drawn * drawn) * step;
}

namespace {

std::array<Vec3, 8> box_corners(const Scene& scene, double beyond) {
    std::array<Vec3, 8> corners;
    for (std::size_t k = 0; k < corners.size(); ++k)
        for (std::size_t c = 0; c < 3; ++c)
            corners[k][c] = k >> c & 1 ? scene.size_info[3 + c] + beyond : scene.size_info[c] - beyond;
    return corners;
}

}  // namespace

std::array<double, 2> reach_along(const Scene& scene, const Vec3& normal) {
    std::array<double, 2> reach{std::numeric_limits<double>::infinity(),
                                -std::numeric_limits<double>::infinity()};
    for (const Vec3& corner : box_corners(scene, 0)) {
        reach[0] = std::min(reach[0], dot(normal, corner));
        reach[1] = std::max(reach[1], dot(normal, corner));
    }
    return reach;
}

void move_to(ShownSection& section, double position) {
    section.point = plus(section.point, times(position - dot(section.normal, section.point), section.normal));
}

std::optional<ShownSection> section_through(const std::array<Vec3, 3>& places) {
    const Vec3 a = minus(places[1], places[0]), b = minus(places[2], places[0]), area = cross(a, b);
    if (!(norm(area) > 1e-9 * norm(a) * norm(b))) return std::nullopt;
    return ShownSection{places[0], unit(area), true};
}

// The edges of the box that the plane meets, in the order of their angle about the normal.
SectionFrame section_frame(const Scene& scene, const ShownSection& section) {
    constexpr Color color{0.1f, 0.3f, 0.8f, 1};
    const double L = extent_of(scene.max_length);
    const std::array<Vec3, 8> corner = box_corners(scene, 0.05 * L);
    std::vector<Vec3> places;
    for (std::size_t k = 0; k < corner.size(); ++k)
        for (std::size_t c = 0; c < 3; ++c) {
            if (k >> c & 1) continue;
            const Vec3 &low = corner[k], &high = corner[k | std::size_t{1} << c];
            const double a = dot(section.normal, minus(low, section.point)),
                         b = dot(section.normal, minus(high, section.point));
            if ((a > 0) != (b > 0)) places.push_back(plus(low, times(a / (a - b), minus(high, low))));
        }
    SectionFrame frame;
    if (places.size() < 3) return frame;
    const Vec3 centre = middle(places), u = across(section.normal), v = cross(section.normal, u);
    std::ranges::sort(places, {}, [&](const Vec3& place) {
        const Vec3 r = minus(place, centre);
        return std::atan2(dot(r, v), dot(r, u));
    });
    for (std::size_t k = 0; k < places.size(); ++k)
        frame.rim.push_back({places[k], places[(k + 1) % places.size()], color});
    frame.arrow = {centre, plus(centre, times(0.15 * L, section.normal))};
    return frame;
}

}  // namespace kestralum::view
