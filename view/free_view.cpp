// The model beside the texts: fit_beside and in_free_view of camera.h.
#include <algorithm>
#include <limits>
#include <vector>

#include "view/camera.h"

namespace kestralum::view {

namespace {

using Pixel = std::array<double, 2>;

// Twice the area of the triangle o a b, positive where it turns to the left.
double turn_at(const Pixel& o, const Pixel& a, const Pixel& b) {
    return (a[0] - o[0]) * (b[1] - o[1]) - (a[1] - o[1]) * (b[0] - o[0]);
}

// Convex hull, its corners in order (monotone chain, Andrew 1979).
std::vector<Pixel> hull_of(std::vector<Pixel> points) {
    std::ranges::sort(points);
    points.erase(std::unique(points.begin(), points.end()), points.end());
    if (points.size() < 3) return points;
    std::vector<Pixel> hull;
    const auto add_chain = [&](auto first, auto last) {
        const std::size_t begin = hull.size();
        for (auto p = first; p != last; ++p) {
            while (hull.size() >= begin + 2 && turn_at(hull[hull.size() - 2], hull.back(), *p) <= 0)
                hull.pop_back();
            hull.push_back(*p);
        }
        hull.pop_back();  // it begins the other chain
    };
    add_chain(points.begin(), points.end());
    add_chain(points.rbegin(), points.rend());
    return hull;
}

// Two convex figures are apart where a side of one of them separates them.
bool meets(const std::vector<Pixel>& hull, const PixelBox& box) {
    if (hull.empty()) return false;
    PixelBox around{hull[0][0], hull[0][1], hull[0][0], hull[0][1]};
    for (const auto& [x, y] : hull)
        around = {std::min(around.left, x), std::min(around.top, y), std::max(around.right, x),
                  std::max(around.bottom, y)};
    if (!around.meets(box)) return false;
    const Pixel corners[] = {
        {box.left, box.top}, {box.right, box.top}, {box.right, box.bottom}, {box.left, box.bottom}};
    for (std::size_t k = 0; k < hull.size(); ++k) {
        const Pixel &a = hull[k], &b = hull[(k + 1) % hull.size()];
        if (std::ranges::all_of(corners, [&](const Pixel& c) { return turn_at(a, b, c) < 0; })) return false;
    }
    return true;
}

// Nothing where a point lies behind the camera.
std::optional<std::vector<Pixel>> drawn_hull(const Camera& camera, const Scene& scene,
                                             std::span<const double> points) {
    std::vector<Pixel> pixels;
    for (std::size_t n = 0; n + 2 < points.size(); n += 3) {
        const Vec3 point{points[n], points[n + 1], points[n + 2]};
        if (!std::isfinite(norm(point))) continue;
        const auto at = project(camera, scene, point);
        if (!at) return std::nullopt;
        pixels.push_back({(*at)[0], (*at)[1]});
    }
    return hull_of(std::move(pixels));
}

// Of a cloud the points that lie farthest out in directions all around: what a fit depends on, but for the
// few pixels that it leaves free at the edges.
std::vector<double> outermost(std::span<const double> points) {
    constexpr int steps = 3;  // (2·3+1)³ - 5³ = 218 directions
    std::vector<Vec3> directions;
    for (int i = -steps; i <= steps; ++i)
        for (int j = -steps; j <= steps; ++j)
            for (int k = -steps; k <= steps; ++k)
                if (std::max({std::abs(i), std::abs(j), std::abs(k)}) == steps)
                    directions.push_back({1.0 * i, 1.0 * j, 1.0 * k});
    if (points.size() <= 3 * directions.size()) return {points.begin(), points.end()};
    std::vector<double> far(directions.size(), -std::numeric_limits<double>::infinity());
    std::vector<std::size_t> index(directions.size(), 0);
    for (std::size_t n = 0; n + 2 < points.size(); n += 3) {
        const Vec3 p{points[n], points[n + 1], points[n + 2]};
        for (std::size_t d = 0; d < directions.size(); ++d) {
            const double along = dot(p, directions[d]);
            if (along > far[d]) far[d] = along, index[d] = n;
        }
    }
    std::ranges::sort(index);
    index.erase(std::unique(index.begin(), index.end()), index.end());
    std::vector<double> out;
    for (const std::size_t n : index) out.insert(out.end(), &points[n], &points[n] + 3);
    return out;
}

// Margins that keep a box clear: against the nearest side of each axis, and none.
std::array<Margins, 3> choices(const PixelBox& box, const Margins& given, const Camera& camera) {
    std::array<Margins, 3> out{given, given, given};
    const double from_right = camera.width - box.left, from_bottom = camera.height - box.top;
    double& across = box.right < from_right ? out[1].left : out[1].right;
    across = std::max(across, std::min(box.right, from_right));
    double& along = box.bottom < from_bottom ? out[2].top : out[2].bottom;
    along = std::max(along, std::min(box.bottom, from_bottom));
    return out;
}

// Margins that leave less of a side do not count for fit_points().
bool leave_room(const Margins& m, const Camera& camera) {
    return 3 * (m.left + m.right) <= 2 * camera.width && 3 * (m.top + m.bottom) <= 2 * camera.height;
}

}  // namespace

bool in_free_view(const Camera& camera, const Scene& scene, std::span<const double> points,
                  std::span<const PixelBox> boxes) {
    const auto hull = drawn_hull(camera, scene, points);
    if (!hull) return false;
    for (const auto& [x, y] : *hull)
        if (!(x >= 0 && x <= camera.width && y >= 0 && y <= camera.height)) return false;
    return std::ranges::none_of(boxes, [&](const PixelBox& box) { return meets(*hull, box); });
}

void fit_beside(Camera& camera, const Scene& scene, std::span<const double> points, const Margins& margins,
                std::span<const PixelBox> boxes) {
    const std::vector<double> outer = outermost(points);
    std::vector<Margins> tried{margins};
    for (const PixelBox& box : boxes) {
        std::vector<Margins> more;
        for (const Margins& m : tried)
            for (const Margins& choice : choices(box, m, camera)) more.push_back(choice);
        tried.swap(more);
    }
    const Margins* best = nullptr;
    double nearest = std::numeric_limits<double>::infinity();
    for (const Margins& m : tried) {
        if (leave_room(margins, camera) && !leave_room(m, camera)) continue;
        Camera fitted = camera;
        fit_points(fitted, scene, outer, m);
        const double away = distance(fitted, scene);
        if (away >= nearest || !in_free_view(fitted, scene, outer, boxes)) continue;
        nearest = away;
        best = &m;
    }
    fit_points(camera, scene, points, best ? *best : margins);
}

}  // namespace kestralum::view
