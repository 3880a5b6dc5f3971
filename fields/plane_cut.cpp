#include "fields/plane_cut.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <utility>

namespace kestralum {

namespace {

// The eight of a 10-node one, as its own local nodes: four at the corners, four around the line between the
// middles of the first and the last edge.
constexpr int sub_tetrahedra[8][4] = {{0, 4, 6, 7}, {4, 1, 5, 8}, {6, 5, 2, 9}, {7, 8, 9, 3},
                                      {4, 9, 5, 6}, {4, 9, 6, 7}, {4, 9, 7, 8}, {4, 9, 8, 5}};

class Cutter {
public:
    Cutter(const Mesh& mesh, std::span<const double> distance, std::span<const double> u,
           std::span<const char> gone)
        : mesh_(mesh), distance_(distance), u_(u), gone_(gone) {}

    PlaneCut take() {
        std::vector<char> beyond(distance_.size());
        for (std::size_t n = 0; n < beyond.size(); ++n) beyond[n] = distance_[n] > 0;
        for (std::int32_t e = 0; e < mesh_.element_num(); ++e) {
            int count = 0;
            const auto nodes = mesh_.element(e);
            for (const std::int32_t n : nodes) count += beyond[node_index(n)];
            if (count > 0 && count < std::ssize(nodes) && (gone_.empty() || !gone_[e])) cut_element(e, nodes);
        }
        return std::move(out_);
    }

private:
    void cut_element(std::int32_t e, std::span<const std::int32_t> nodes) {
        std::array<std::int32_t, 8> cell{};
        if (mesh_.element_type != ElementKind::tetrahedron10) {
            std::ranges::copy(nodes, cell.begin());
            cut_cell(e, cell, mesh_.element_type);
            return;
        }
        for (const auto& sub : sub_tetrahedra) {
            for (std::size_t k = 0; k < 4; ++k) cell[k] = nodes[sub[k]];
            cut_cell(e, cell, ElementKind::tetrahedron4);
        }
    }

    // Each run of nodes beyond the plane along a face's rim gives one side of a polygon, from where the rim
    // goes beyond to where it comes back. The next face, which has the rim's edge the other way round, goes
    // on there.
    void cut_cell(std::int32_t e, const std::array<std::int32_t, 8>& cell, ElementKind kind) {
        const auto is_beyond = [&](int k) { return distance_[node_index(cell[k])] > 0; };
        std::array<int, 64> next;  // by 8 · lower + upper local node of an edge; -1: not met
        next.fill(-1);
        const auto edge = [](int a, int b) { return 8 * std::min(a, b) + std::max(a, b); };
        for (int f = 0; f < face_table(kind).faces; ++f) {
            const auto rim = face_corners(kind, f);
            const std::size_t n = rim.size();
            for (std::size_t i = 0; i < n; ++i) {
                if (is_beyond(rim[i]) || !is_beyond(rim[(i + 1) % n])) continue;
                std::size_t j = i + 1;
                while (is_beyond(rim[(j + 1) % n])) ++j;
                next[edge(rim[i], rim[(i + 1) % n])] = edge(rim[j % n], rim[(j + 1) % n]);
            }
        }
        for (int first = 0; first < 64; ++first) {
            std::array<std::int32_t, 12> ring{};
            std::size_t size = 0;
            for (int at = first; next[at] >= 0 && size < ring.size(); ++size) {
                ring[size] = vertex(cell[at / 8], cell[at % 8]);
                at = std::exchange(next[at], -1);
            }
            if (size > 0) add_polygon(e, {ring.data(), size}, towards_beyond(cell, nodes_per_element(kind)));
        }
    }

    std::int32_t vertex(std::int32_t a, std::int32_t b) {
        const std::int32_t low = std::min(a, b) - 1, high = std::max(a, b) - 1;
        const std::uint64_t key = (std::uint64_t(low) << 32) | std::uint32_t(high);
        const auto [at, added] = number_.try_emplace(key, static_cast<std::int32_t>(out_.vertices()));
        if (added) {
            out_.between.push_back({low, high});
            out_.share.push_back(distance_[low] / (distance_[low] - distance_[high]));
        }
        return at->second;
    }

    Vec3 node_place(std::int64_t n) const {
        return u_.empty() ? place_of(mesh_, n) : plus(place_of(mesh_, n), triple(u_, n));
    }

    // From the middle of the cell's nodes on this side to that of those beyond.
    Vec3 towards_beyond(const std::array<std::int32_t, 8>& cell, int nodes) const {
        std::array<Vec3, 2> sum{};
        std::array<double, 2> count{};
        for (int k = 0; k < nodes; ++k) {
            const std::int64_t n = node_index(cell[k]);
            const std::size_t side = distance_[n] > 0;
            sum[side] = plus(sum[side], node_place(n));
            ++count[side];
        }
        return minus(times(1 / count[1], sum[1]), times(1 / count[0], sum[0]));
    }

    Vec3 place(std::int32_t v) const {
        const auto [a, b] = out_.between[v];
        const Vec3 from = node_place(a);
        return plus(from, times(out_.share[v], minus(node_place(b), from)));
    }

    void add_polygon(std::int32_t e, std::span<std::int32_t> ring, const Vec3& up) {
        Vec3 area{};  // twice
        const Vec3 first = place(ring[0]);
        for (std::size_t k = 1; k + 1 < ring.size(); ++k)
            area = plus(area, cross(minus(place(ring[k]), first), minus(place(ring[k + 1]), first)));
        if (!(norm(area) > 1e-18 * mesh_.max_length * mesh_.max_length)) return;  // met at a rim alone
        const double along = dot(area, up);
        if (along < 0) std::reverse(ring.begin(), ring.end());
        out_.corners.insert(out_.corners.end(), ring.begin(), ring.end());
        out_.start.push_back(static_cast<std::int32_t>(out_.corners.size()));
        out_.element.push_back(e);
    }

    const Mesh& mesh_;
    const std::span<const double> distance_, u_;
    const std::span<const char> gone_;
    std::unordered_map<std::uint64_t, std::int32_t> number_;
    PlaneCut out_;
};

}  // namespace

std::vector<double> distances_to(const Mesh& mesh, const SectionPlane& plane, std::span<const double> u) {
    const double rounding = 1e-9 * mesh.max_length;
    std::vector<double> out(mesh.node_num());
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const Vec3 x = u.empty() ? place_of(mesh, n) : plus(place_of(mesh, n), triple(u, n));
        const double d = dot(minus(x, plane.point), plane.normal);
        out[n] = std::abs(d) <= rounding ? 0.0 : d;
    }
    return out;
}

PlaneCut cut_mesh(const Mesh& mesh, const SectionPlane& plane, std::span<const double> u) {
    const std::vector<double> distance = distances_to(mesh, plane, u);
    return Cutter(mesh, distance, u, {}).take();
}

PlaneCut cut_at_level(const Mesh& mesh, std::span<const double> level, std::span<const char> gone) {
    return Cutter(mesh, level, {}, gone).take();
}

std::vector<char> nodes_beyond(const Mesh& mesh, const SectionPlane& plane, std::span<const double> u) {
    std::vector<char> out;
    for (const double d : distances_to(mesh, plane, u)) out.push_back(d > 0);
    return out;
}

std::vector<double> values_at(const PlaneCut& cut, std::span<const double> nodal, int components) {
    std::vector<double> out;
    out.reserve(cut.vertices() * components);
    for (std::size_t v = 0; v < cut.vertices(); ++v) {
        const double* a = nodal.data() + std::int64_t(components) * cut.between[v][0];
        const double* b = nodal.data() + std::int64_t(components) * cut.between[v][1];
        for (int c = 0; c < components; ++c) out.push_back(a[c] + cut.share[v] * (b[c] - a[c]));
    }
    return out;
}

std::vector<double> places_of(const PlaneCut& cut, const Mesh& mesh, std::span<const double> u) {
    std::vector<double> out = values_at(cut, mesh.coordinates, 3);
    if (u.empty()) return out;
    const std::vector<double> moved = values_at(cut, u, 3);
    for (std::size_t k = 0; k < out.size(); ++k) out[k] += moved[k];
    return out;
}

CutTriangles triangles_of(const PlaneCut& cut) {
    CutTriangles out;
    for (std::size_t p = 0; p < cut.polygons(); ++p) {
        const auto ring = cut.polygon(p);
        for (std::size_t k = 1; k + 1 < ring.size(); ++k) {
            out.corners.insert(out.corners.end(), {ring[0], ring[k], ring[k + 1]});
            out.polygon.push_back(static_cast<std::int32_t>(p));
        }
    }
    return out;
}

std::vector<double> areas_of(const PlaneCut& cut, std::span<const double> places) {
    std::vector<double> out;
    for (std::size_t p = 0; p < cut.polygons(); ++p) {
        const auto ring = cut.polygon(p);
        Vec3 twice{};
        const Vec3 first = triple(places, ring[0]);
        for (std::size_t k = 1; k + 1 < ring.size(); ++k)
            twice = plus(twice, cross(minus(triple(places, ring[k]), first),
                                      minus(triple(places, ring[k + 1]), first)));
        out.push_back(0.5 * norm(twice));
    }
    return out;
}

}  // namespace kestralum
