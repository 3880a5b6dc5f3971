#include "model/smooth_patches.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

#include "model/triangle.h"

namespace kestralum {

namespace {

bool stopped(std::size_t turn, const Progress* progress) {
    return turn % 1024 == 0 && progress && progress->cancelled();
}

// A free face at an edge, which its corners' numbers tell.
struct EdgeFace {
    std::int32_t low, high, face;
    auto operator<=>(const EdgeFace&) const = default;
    bool same_edge(const EdgeFace& other) const { return low == other.low && high == other.high; }
};

std::vector<EdgeFace> edges_of(const Mesh& mesh, std::span<const ElementFace> faces) {
    std::vector<EdgeFace> edges;
    for (std::size_t k = 0; k < faces.size(); ++k) {
        const auto corners = face_corners(mesh.element_type, faces[k].face);
        const auto element = mesh.element(faces[k].element);
        for (std::size_t c = 0; c < corners.size(); ++c) {
            const auto [low, high] =
                std::minmax(element[corners[c]], element[corners[(c + 1) % corners.size()]]);
            edges.push_back({low, high, static_cast<std::int32_t>(k)});
        }
    }
    std::ranges::sort(edges);
    return edges;
}

// Calls `use` with both faces of every pair that shares an edge, each way round.
template <typename Use>
void for_each_pair(const std::vector<EdgeFace>& edges, const Use& use) {
    for (std::size_t first = 0, last = 0; first < edges.size(); first = last) {
        for (last = first; last < edges.size() && edges[last].same_edge(edges[first]); ++last) {
        }
        for (std::size_t a = first; a < last; ++a)
            for (std::size_t b = first; b < last; ++b)
                if (a != b) use(edges[a].face, edges[b].face);
    }
}

// From a place to the box around the corners: no point of their triangles is nearer.
double distance_to_box(const Vec3& place, std::span<const Vec3> corners) {
    double sum = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        double low = corners[0][c], high = low;
        for (const Vec3& corner : corners) {
            low = std::min(low, corner[c]);
            high = std::max(high, corner[c]);
        }
        const double beside = std::max({low - place[c], place[c] - high, 0.0});
        sum += beside * beside;
    }
    return std::sqrt(sum);
}

}  // namespace

std::size_t SmoothPatches::nearest_face(const Vec3& place, const Progress* progress) const {
    constexpr double rounding = 1 - 1e-9;  // a box that is nearer by less may hold the nearest triangle
    std::size_t nearest = 0;
    double best = std::numeric_limits<double>::infinity();
    std::array<Vec3, 12> corner;  // of at most four triangles
    for (std::size_t k = 0; k < free_.size(); ++k) {
        if (stopped(k, progress)) break;
        const auto local = outward_triangles(mesh_.element_type, free_[k].face);
        const auto element = mesh_.element(free_[k].element);
        for (std::size_t i = 0; i < local.size(); ++i)
            corner[i] = place_of(mesh_, node_index(element[local[i]]));
        if (distance_to_box(place, {corner.data(), local.size()}) * rounding > best) continue;
        for (std::size_t i = 0; i + 2 < local.size(); i += 3) {
            const Vec3 nearby = closest_point(place, corner[i], corner[i + 1], corner[i + 2]);
            const double d = norm(minus(place, nearby));
            if (d < best) {
                best = d;
                nearest = k;
            }
        }
    }
    return nearest;
}

void SmoothPatches::find_neighbours() {
    const std::vector<EdgeFace> edges = edges_of(mesh_, free_);
    start_.assign(free_.size() + 1, 0);
    for_each_pair(edges, [&](std::int32_t face, std::int32_t) { ++start_[face + 1]; });
    for (std::size_t k = 1; k < start_.size(); ++k) start_[k] += start_[k - 1];
    neighbours_.resize(start_.back());
    std::vector<std::int64_t> place(start_.begin(), start_.end() - 1);
    for_each_pair(edges, [&](std::int32_t face, std::int32_t other) { neighbours_[place[face]++] = other; });
    for (const ElementFace& face : free_) normal_.push_back(unit(area_vector(mesh_, face), {}));
}

std::vector<ElementFace> SmoothPatches::around(const Vec3& place, double degrees, const Progress* progress) {
    if (free_.empty()) return {};
    if (start_.empty()) find_neighbours();
    const double least = std::cos(degrees * std::numbers::pi / 180) - 1e-12;
    std::vector<char> taken(free_.size(), 0);
    std::vector<std::size_t> front{nearest_face(place, progress)};
    taken[front[0]] = 1;
    for (std::size_t turn = 0; !front.empty(); ++turn) {
        const std::size_t at = front.back();
        front.pop_back();
        if (stopped(turn, progress)) return {};
        for (std::int64_t k = start_[at]; k < start_[at + 1]; ++k) {
            const std::int32_t next = neighbours_[k];
            if (taken[next] || dot(normal_[at], normal_[next]) < least) continue;
            taken[next] = 1;
            front.push_back(next);
        }
    }
    std::vector<ElementFace> faces;
    for (std::size_t k = 0; k < free_.size(); ++k)
        if (taken[k]) faces.push_back(free_[k]);
    return faces;
}

std::vector<std::int32_t> nodes_of_faces(const Mesh& mesh, std::span<const ElementFace> faces) {
    std::vector<char> on(mesh.node_num(), 0);
    for (const ElementFace& face : faces)
        for (const int local : outward_triangles(mesh.element_type, face.face))
            on[node_index(mesh.element(face.element)[local])] = 1;
    std::vector<std::int32_t> nodes;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        if (on[n]) nodes.push_back(n);
    return nodes;
}

}  // namespace kestralum
