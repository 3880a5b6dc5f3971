#include "view/picking.h"

#include <algorithm>
#include <limits>

#include "model/format.h"
#include "view/contour.h"
#include "view/legend.h"

namespace kestralum::view {

namespace {

// Distance along the ray to a triangle seen from either side, infinite for a miss (Möller and
// Trumbore, 1997). Edges belong to the triangle: a ray between two neighbours must not slip through.
double distance_to(const Ray& ray, const Vec3& a, const Vec3& b, const Vec3& c) {
    constexpr double miss = std::numeric_limits<double>::infinity(), edge = 1e-9;
    const Vec3 e1 = minus(b, a), e2 = minus(c, a);
    const Vec3 p = cross(ray.direction, e2);
    const double determinant = dot(e1, p);
    if (determinant == 0) return miss;
    const Vec3 s = minus(ray.origin, a);
    const double u = dot(s, p) / determinant;
    if (!(u >= -edge && u <= 1 + edge)) return miss;
    const Vec3 q = cross(s, e1);
    const double v = dot(ray.direction, q) / determinant;
    if (!(v >= -edge && u + v <= 1 + edge)) return miss;
    const double t = dot(e2, q) / determinant;
    return t > 0 ? t : miss;
}

struct Hit {
    double t = std::numeric_limits<double>::infinity();
    std::int64_t triangle = -1;
    std::int64_t face_first = -1;  // first triangle of the face met
    int face_triangles = 0;
};

Hit nearest_face(const Ray& ray, const Surface& surface, std::span<const double> x) {
    Hit hit;
    for (const PartTriangles& part : surface.parts)
        for (std::int64_t t = part.first; t < part.first + part.count; ++t) {
            const std::int32_t* node = surface.triangles.data() + 3 * t;
            const double at = distance_to(ray, triple(x, node[0]), triple(x, node[1]), triple(x, node[2]));
            if (at < hit.t)
                hit = {at, t, t - (t - part.first) % part.triangles_per_face, part.triangles_per_face};
        }
    return hit;
}

// Areal coordinates of a place in the triangle a b c, each at least 0; those of its middle without an area.
Vec3 corner_shares(const Vec3& place, const Vec3& a, const Vec3& b, const Vec3& c) {
    const Vec3 across = cross(minus(b, a), minus(c, a));
    const auto share = [&](const Vec3& from, const Vec3& to) {
        return std::max(dot(cross(minus(from, place), minus(to, place)), across), 0.0);
    };
    const Vec3 shares{share(b, c), share(c, a), share(a, b)};
    const double sum = shares[0] + shares[1] + shares[2];
    return sum > 0 ? times(1 / sum, shares) : Vec3{1.0 / 3, 1.0 / 3, 1.0 / 3};
}

// The nodes that a vertex lies between; a node is its own.
void add_nodes(const FurtherVertices& further, std::int64_t node_num, std::int32_t vertex,
               std::vector<std::int32_t>& nodes) {
    if (vertex < node_num) return nodes.push_back(vertex);
    for (const std::int32_t end : further.between[vertex - node_num])
        add_nodes(further, node_num, end, nodes);
}

Pick nearest_corner(const Hit& hit, const Vec3& place, const Surface& surface, std::span<const double> x,
                    const FurtherVertices& further) {
    Pick pick;
    double nearest = std::numeric_limits<double>::infinity();
    const std::int64_t node_num = std::ssize(x) / 3 - std::ssize(further.between);
    std::vector<std::int32_t> nodes;
    for (std::int64_t k = 3 * hit.face_first; k < 3 * (hit.face_first + hit.face_triangles); ++k)
        add_nodes(further, node_num, surface.triangles[k], nodes);
    for (const std::int32_t n : nodes) {
        const double away = norm(minus(triple(x, n), place));
        if (away >= nearest) continue;
        nearest = away;
        pick.node = n + 1;
        pick.place = triple(x, n);
    }
    pick.element = surface.triangle_element[hit.face_first] + 1;
    pick.triangle = hit.triangle;
    const std::int32_t* node = surface.triangles.data() + 3 * hit.triangle;
    pick.shares = corner_shares(place, triple(x, node[0]), triple(x, node[1]), triple(x, node[2]));
    return pick;
}

// First drawn triangle at a node names its element.
std::int32_t element_at(std::int32_t node, const Surface& surface) {
    for (std::size_t k = 0; k < surface.triangles.size(); ++k)
        if (surface.triangles[k] == node) return surface.triangle_element[k / 3] + 1;
    return 0;
}

}  // namespace

std::optional<Pick> pick_node(const Ray& ray, const Surface& surface, std::span<const double> coordinates,
                              double slack, const FurtherVertices& further) {
    const Hit hit = nearest_face(ray, surface, coordinates);
    if (hit.face_first >= 0)
        return nearest_corner(hit, plus(ray.origin, times(hit.t, ray.direction)), surface, coordinates,
                              further);
    std::optional<Pick> pick;
    double best = slack;
    for (const std::int32_t n : surface.nodes) {
        const Vec3 to = minus(triple(coordinates, n), ray.origin);
        const double along = dot(to, ray.direction);
        if (!(along > 0)) continue;
        const double from = ray.measured_at > 0 ? ray.measured_at : along;
        const double slope = norm(minus(to, times(along, ray.direction))) / from;
        if (!(slope < best)) continue;
        best = slope;
        pick = Pick{0, n + 1, triple(coordinates, n)};
    }
    if (pick) pick->element = element_at(pick->node - 1, surface);
    return pick;
}

double pixel_slack(const Camera& camera, double pixels) {
    return 2 * pixels * camera.pixel_ratio * tangent() / camera.height;
}

std::string pick_text(const Pick& pick) {
    return formatted("Element:%d, Node:%d, D.o.f.:%d", pick.element, pick.node, pick.dof());
}

std::string status_text(const Pick& pick, const Mesh& mesh, std::span<const double> displacement,
                        std::span<const double> values, std::int32_t contour, const ToldIn& told) {
    std::string text = pick_text(pick);
    const std::int64_t n = std::int64_t{pick.node} - 1;
    if (n < 0 || n >= mesh.node_num()) return text;
    const ShownUnit length = shown_unit("m", told.units);
    const Vec3 x = times(length.factor, triple(mesh.coordinates, n));
    text += formatted("   x:%.6g y:%.6g z:%.6g [%s]", x[0], x[1], x[2], length.text.c_str());
    if (displacement.size() == mesh.coordinates.size()) {
        const double factor = has_shapes(told.ana_type) ? 1 : length.factor;
        const Vec3 u = times(factor, triple(displacement, n));
        text += formatted("   ux:%.3e uy:%.3e uz:%.3e", u[0], u[1], u[2]);
    }
    if (std::ssize(values) == mesh.node_num())
        text += formatted("   %s:%.3e", quantity_text(contour),
                          told_unit(contour, told.ana_type, told.units).factor * values[n]);
    return text;
}

}  // namespace kestralum::view
