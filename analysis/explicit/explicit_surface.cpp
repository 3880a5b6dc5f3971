#include "analysis/explicit/explicit_surface.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kestralum {

namespace {

constexpr double sharp = 0.94;  // cosine of 20 degrees

Vec3 minus(const double* a, const double* b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

// The edge of a triangle from corner k to the next, by its nodes in ascending order.
struct EdgeOfTriangle {
    std::int32_t low, high, triangle, k;
    auto key() const { return std::array{low, high, triangle}; }
};

}  // namespace

bool find_foot_point(const std::array<std::int32_t, 3>& corner, const double* x, const double* p, double edge,
                     Foot& foot) {
    const double *a = node_place(x, corner[0]), *b = node_place(x, corner[1]), *c = node_place(x, corner[2]);
    const Vec3 n = cross(minus(b, a), minus(c, a));
    const double nn = dot(n, n);
    if (!(nn > 0)) return false;
    const Vec3 d = minus(p, a);
    std::array<double, 3>& weight = foot.weight;
    weight[1] = dot(cross(d, minus(c, a)), n) / nn;
    weight[2] = dot(cross(minus(b, a), d), n) / nn;
    weight[0] = 1 - weight[1] - weight[2];
    if (!(weight[0] >= -edge && weight[1] >= -edge && weight[2] >= -edge)) return false;
    const double size = std::sqrt(nn);
    foot.height = dot(d, n) / size;
    for (std::size_t k = 0; k < 3; ++k) foot.normal[k] = n[k] / size;
    return true;
}

ContactSurface::ContactSurface(const Mesh& mesh, std::vector<SurfaceTriangle> triangles)
    : triangles_(std::move(triangles)) {
    const std::size_t nodes = mesh.node_num();
    rest_.assign(4 * nodes, 0.0);
    for (std::size_t d = 0; d < 3 * nodes; ++d) rest_[4 * (d / 3) + d % 3] = mesh.coordinates[d];
    size_.assign(nodes, 0.0);
    start_.assign(nodes + 1, 0);
    for (const SurfaceTriangle& triangle : triangles_) {
        double edge = 0;
        for (std::size_t c = 0; c < 3; ++c)
            edge = std::max(edge, norm(minus(node_place(rest(), triangle.node[c]),
                                             node_place(rest(), triangle.node[(c + 1) % 3]))));
        for (std::int32_t n : triangle.node) {
            size_[n] = std::max(size_[n], edge);
            ++start_[std::size_t(n) + 1];
        }
    }
    for (std::size_t n = 0; n < nodes; ++n) start_[n + 1] += start_[n];
    around_.resize(3 * triangles_.size());
    std::vector<std::int32_t> next(start_.begin(), start_.end() - 1);
    for (std::size_t t = 0; t < triangles_.size(); ++t)
        for (std::int32_t n : triangles_[t].node) around_[next[n]++] = static_cast<std::int32_t>(t);
    find_neighbours();
}

void ContactSurface::find_neighbours() {
    std::vector<EdgeOfTriangle> all;
    for (std::size_t t = 0; t < triangles_.size(); ++t)
        for (std::size_t k = 0; k < 3; ++k) {
            const auto [low, high] = std::minmax(triangles_[t].node[k], triangles_[t].node[(k + 1) % 3]);
            all.push_back({low, high, static_cast<std::int32_t>(t), static_cast<std::int32_t>(k)});
        }
    std::sort(all.begin(), all.end(),
              [](const EdgeOfTriangle& a, const EdgeOfTriangle& b) { return a.key() < b.key(); });
    beyond_.assign(3 * triangles_.size(), -1);
    for (std::size_t i = 0, end = 0; i < all.size(); i = end) {
        while (end < all.size() && all[end].low == all[i].low && all[end].high == all[i].high) ++end;
        if (end - i != 2) continue;
        const EdgeOfTriangle &a = all[i], &b = all[i + 1];
        beyond_[3 * std::size_t(a.triangle) + std::size_t(a.k)] = b.triangle;
        beyond_[3 * std::size_t(b.triangle) + std::size_t(b.k)] = a.triangle;
        const Vec3 na = face_normal(a.triangle, rest()), nb = face_normal(b.triangle, rest());
        // convex where the second triangle's third corner lies below the first one's plane
        const std::int32_t third = triangles_[b.triangle].node[(std::size_t(b.k) + 2) % 3];
        const double below = dot(na, minus(node_place(rest(), third), node_place(rest(), a.low)));
        if (dot(na, nb) < sharp && below < 0)
            edges_.push_back({{a.low, a.high}, {a.triangle, b.triangle}, triangles_[a.triangle].part});
    }
}

Vec3 ContactSurface::face_normal(std::int32_t t, const double* x) const {
    const SurfaceTriangle& triangle = triangles_[t];
    const double* a = node_place(x, triangle.node[0]);
    const Vec3 n =
        cross(minus(node_place(x, triangle.node[1]), a), minus(node_place(x, triangle.node[2]), a));
    const double size = norm(n);
    return size > 0 ? Vec3{n[0] / size, n[1] / size, n[2] / size} : Vec3{};
}

Vec3 ContactSurface::normal(std::int32_t node, const double* x) const {
    Vec3 sum{};
    for (const std::int32_t t : around(node)) {
        const SurfaceTriangle& triangle = triangles_[t];
        const Vec3 n = cross(minus(node_place(x, triangle.node[1]), node_place(x, triangle.node[0])),
                             minus(node_place(x, triangle.node[2]), node_place(x, triangle.node[0])));
        const double size = norm(n);
        if (!(size > 0)) continue;
        for (std::size_t k = 0; k < 3; ++k) {
            if (triangle.node[k] != node) continue;
            const double* p = node_place(x, triangle.node[k]);
            const Vec3 a = minus(node_place(x, triangle.node[(k + 1) % 3]), p),
                       b = minus(node_place(x, triangle.node[(k + 2) % 3]), p);
            const double angle = std::atan2(size, dot(a, b));
            for (std::size_t c = 0; c < 3; ++c) sum[c] += angle * n[c] / size;
        }
    }
    const double size = norm(sum);
    for (double& c : sum) c = size > 0 ? c / size : 0;
    return sum;
}

}  // namespace kestralum
