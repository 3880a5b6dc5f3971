#include "view/trim.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <utility>

#include "fields/plane_cut.h"

namespace kestralum::view {

namespace {

// Triangles of one part with their elements.
struct Pieces {
    std::vector<std::int32_t> corners, element;
    void add(const std::array<std::int32_t, 3>& triangle, std::int32_t e) {
        corners.insert(corners.end(), triangle.begin(), triangle.end());
        element.push_back(e);
    }
};

// Of one group of the surface: faces that no cut meets, and what is left of the others.
struct Group {
    PartTriangles of;
    std::vector<std::int64_t> whole;  // first triangles of faces in the surface
    Pieces pieces;
};

class Trimmer {
public:
    Trimmer(const Mesh& mesh, const Surface& surface, const TrimRequest& request)
        : mesh_(mesh), surface_(surface), request_(request), levels_(request.levels) {
        for (const PartTriangles& part : surface.parts) {
            Group group{part, {}, {}};
            if (request.body || surface.triangle_element[part.first] < 0)
                for (std::int64_t t = part.first; t < part.first + part.count; t += part.triangles_per_face)
                    group.whole.push_back(t);
            groups_.push_back(std::move(group));
        }
        if (request.body) edges_ = surface.edges;
        outline_ = surface.outline;
    }

    Trimmed take() {
        for (level_ = 0; level_ < levels_.size(); ++level_) {
            made_.clear();
            for (Group& group : groups_) cut_group(group);
            cut_lines(edges_);
            cut_lines(outline_);
            if (request_.body)
                add_closing(cut_at_level(mesh_, request_.levels[level_], request_.gone), level_);
        }
        for (const std::vector<double>& iso : request_.iso_levels) add_iso(iso);
        write();
        return std::move(out_);
    }

private:
    bool above(std::int32_t v) const { return levels_[level_][v] > 0; }

    std::int32_t vertex(std::int32_t a, std::int32_t b, double share) {
        const auto number = static_cast<std::int32_t>(mesh_.node_num() + out_.further.size());
        out_.further.between.push_back({a, b});
        out_.further.share.push_back(share);
        for (std::vector<double>& level : levels_) level.push_back(level[a] + share * (level[b] - level[a]));
        return number;
    }

    // Where the cut under way meets the line between two vertices, one of them above it.
    std::int32_t crossing(std::int32_t a, std::int32_t b) {
        if (a > b) std::swap(a, b);
        const std::uint64_t key = (std::uint64_t(a) << 32) | std::uint32_t(b);
        const auto found = made_.find(key);
        if (found != made_.end()) return found->second;
        const double at = levels_[level_][a], to = levels_[level_][b];
        if (at == 0) return a;  // a vertex in the cut stands for itself
        if (to == 0) return b;
        const std::int32_t number = vertex(a, b, at / (at - to));
        levels_[level_].back() = 0;
        made_.emplace(key, number);
        return number;
    }

    void cut_triangle(const std::array<std::int32_t, 3>& corner, std::int32_t element, Pieces& out) {
        std::array<std::int32_t, 4> left{};
        std::size_t count = 0;
        const auto take = [&](std::int32_t v) {
            if (count == 0 || (left[count - 1] != v && left[0] != v)) left[count++] = v;
        };
        for (std::size_t k = 0; k < 3; ++k) {
            const std::int32_t a = corner[k], b = corner[(k + 1) % 3];
            if (!above(a)) take(a);
            if (above(a) != above(b)) take(crossing(a, b));
        }
        for (std::size_t k = 1; k + 1 < count; ++k) out.add({left[0], left[k], left[k + 1]}, element);
    }

    Pieces cut_pieces(const Pieces& pieces) {
        Pieces left;
        for (std::size_t t = 0; t < pieces.element.size(); ++t)
            cut_triangle({pieces.corners[3 * t], pieces.corners[3 * t + 1], pieces.corners[3 * t + 2]},
                         pieces.element[t], left);
        return left;
    }

    void cut_group(Group& group) {
        group.pieces = cut_pieces(group.pieces);
        const int per_face = group.of.triangles_per_face;
        std::size_t kept = 0;
        for (const std::int64_t t : group.whole) {
            const std::int32_t* corner = surface_.triangles.data() + 3 * t;
            const auto count =
                std::count_if(corner, corner + 3 * per_face, [&](std::int32_t v) { return above(v); });
            if (count == 0) group.whole[kept++] = t;
            if (count == 0 || count == 3 * per_face) continue;
            for (int k = 0; k < per_face; ++k)
                cut_triangle({corner[3 * k], corner[3 * k + 1], corner[3 * k + 2]},
                             surface_.triangle_element[t + k], group.pieces);
        }
        group.whole.resize(kept);
    }

    void cut_lines(std::vector<std::int32_t>& lines) {
        std::size_t kept = 0;
        for (std::size_t k = 0; k + 1 < lines.size(); k += 2) {
            std::int32_t a = lines[k], b = lines[k + 1];
            const bool a_out = above(a), b_out = above(b);
            if (a_out && b_out) continue;
            if (a_out)
                a = crossing(a, b);
            else if (b_out)
                b = crossing(a, b);
            if (a == b) continue;
            lines[kept++] = a;
            lines[kept++] = b;
        }
        lines.resize(kept);
    }

    // The group of an element's part; groups of solid parts stand before those of facets.
    Group& group_of(std::int32_t element) {
        const std::int32_t part =
            element < std::ssize(mesh_.p_ele_part_id) ? std::max(mesh_.p_ele_part_id[element], -1) : -1;
        std::size_t at = 0;
        for (; at < groups_.size(); ++at) {
            const PartTriangles& of = groups_[at].of;
            const bool facets = of.count > 0 && surface_.triangle_element[of.first] < 0;
            if (!facets && of.part == part) return groups_[at];
            if (facets || of.part > part) break;
        }
        return *groups_.insert(groups_.begin() + at, Group{{part, 0, 0, 1}, {}, {}});
    }

    // Polygons of a level as triangles and lines, trimmed by all cuts but `own`.
    void add_closing(const PlaneCut& cut, std::size_t own) {
        std::vector<std::int32_t> number(cut.vertices());
        for (std::size_t v = 0; v < number.size(); ++v) {
            const auto [a, b] = cut.between[v];
            number[v] = own == level_       ? crossing(a, b)
                        : cut.share[v] == 0 ? a
                        : cut.share[v] == 1 ? b
                                            : vertex(a, b, cut.share[v]);
        }
        std::vector<std::array<std::int32_t, 2>> rims;
        std::vector<std::int32_t> ring;
        Pieces all;
        for (std::size_t p = 0; p < cut.polygons(); ++p) {
            ring.clear();
            for (const std::int32_t v : cut.polygon(p))
                if (ring.empty() || (ring.back() != number[v] && ring.front() != number[v]))
                    ring.push_back(number[v]);
            for (std::size_t k = 0; k < ring.size() && ring.size() > 2; ++k) {
                const std::int32_t a = ring[k], b = ring[(k + 1) % ring.size()];
                rims.push_back({std::min(a, b), std::max(a, b)});
                if (k > 0 && k + 1 < ring.size()) all.add({ring[0], a, b}, cut.element[p]);
            }
        }
        std::vector<std::int32_t> lines, rim;
        take_rims(rims, lines, rim);
        // later cuts meet them as they meet everything
        const std::size_t cuts = std::min(level_, levels_.size()), under_way = level_;
        for (level_ = 0; level_ < cuts; ++level_) {
            made_.clear();
            all = cut_pieces(all);
            cut_lines(lines);
            cut_lines(rim);
        }
        level_ = under_way;
        for (std::size_t t = 0; t < all.element.size(); ++t)
            group_of(all.element[t])
                .pieces.add({all.corners[3 * t], all.corners[3 * t + 1], all.corners[3 * t + 2]},
                            all.element[t]);
        edges_.insert(edges_.end(), lines.begin(), lines.end());
        outline_.insert(outline_.end(), rim.begin(), rim.end());
    }

    // Every side of the polygons once, and those of one polygon alone.
    static void take_rims(std::vector<std::array<std::int32_t, 2>>& rims, std::vector<std::int32_t>& lines,
                          std::vector<std::int32_t>& single) {
        std::ranges::sort(rims);
        for (std::size_t k = 0; k < rims.size();) {
            std::size_t end = k + 1;
            while (end < rims.size() && rims[end] == rims[k]) ++end;
            lines.insert(lines.end(), rims[k].begin(), rims[k].end());
            if (end == k + 1) single.insert(single.end(), rims[k].begin(), rims[k].end());
            k = end;
        }
    }

    // Elements with a node without a value have no surface.
    void add_iso(const std::vector<double>& iso) {
        std::vector<char> gone(request_.gone.begin(), request_.gone.end());
        gone.resize(mesh_.element_num(), 0);
        for (std::int32_t e = 0; e < mesh_.element_num(); ++e)
            for (const std::int32_t n : mesh_.element(e))
                if (!std::isfinite(iso[node_index(n)])) gone[e] = 1;
        level_ = levels_.size();  // trimmed by every cut
        add_closing(cut_at_level(mesh_, iso, gone), levels_.size() + 1);
    }

    void write_group(const Group& group) {
        Surface& out = out_.surface;
        const int per_face = group.of.triangles_per_face;
        if (!group.whole.empty())
            out.parts.push_back(
                {group.of.part, out.triangle_num(), std::int64_t(group.whole.size()) * per_face, per_face});
        for (const std::int64_t t : group.whole) {
            const std::int32_t* corner = surface_.triangles.data() + 3 * t;
            out.triangles.insert(out.triangles.end(), corner, corner + 3 * per_face);
            out.triangle_element.insert(out.triangle_element.end(), per_face, surface_.triangle_element[t]);
        }
        if (group.pieces.element.empty()) return;
        out.parts.push_back({group.of.part, out.triangle_num(), std::ssize(group.pieces.element), 1});
        out.triangles.insert(out.triangles.end(), group.pieces.corners.begin(), group.pieces.corners.end());
        out.triangle_element.insert(out.triangle_element.end(), group.pieces.element.begin(),
                                    group.pieces.element.end());
    }

    void write() {
        Surface& out = out_.surface;
        for (const Group& group : groups_) write_group(group);
        out.edges = std::move(edges_);
        out.outline = std::move(outline_);
        const std::int32_t node_num = mesh_.node_num();
        std::vector<char> drawn(node_num, 0);
        const auto mark = [&](std::span<const std::int32_t> vertices) {
            for (const std::int32_t v : vertices)
                if (v < node_num) drawn[v] = 1;
        };
        mark(out.triangles);
        mark(out.outline);
        std::vector<char> carries(node_num, 0);
        for (const std::int32_t n : surface_.value_nodes) carries[n] = 1;
        for (std::int32_t n = 0; n < node_num; ++n) {
            if (!drawn[n]) continue;
            out.nodes.push_back(n);
            if (carries[n]) out.value_nodes.push_back(n);
        }
    }

    const Mesh& mesh_;
    const Surface& surface_;
    const TrimRequest& request_;
    std::vector<std::vector<double>> levels_;               // at nodes and further vertices
    std::size_t level_ = 0;                                 // of the cut under way
    std::unordered_map<std::uint64_t, std::int32_t> made_;  // by the cut under way, by its two ends
    std::vector<Group> groups_;
    std::vector<std::int32_t> edges_, outline_;
    Trimmed out_;
};

}  // namespace

void extend(const FurtherVertices& further, int components, std::vector<double>& values) {
    values.reserve(values.size() + components * further.size());
    for (std::size_t v = 0; v < further.size(); ++v) {
        const std::size_t a = std::size_t(components) * further.between[v][0],
                          b = std::size_t(components) * further.between[v][1];
        for (int c = 0; c < components; ++c)
            values.push_back(values[a + c] + further.share[v] * (values[b + c] - values[a + c]));
    }
}

Trimmed trim_surface(const Mesh& mesh, const Surface& surface, const TrimRequest& request) {
    return Trimmer(mesh, surface, request).take();
}

}  // namespace kestralum::view
