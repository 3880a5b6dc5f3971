// Which edges cross: where two bodies meet by convex edges, no node of either comes behind the other's
// surface.
#include <algorithm>
#include <cmath>

#include "analysis/explicit/explicit_contact.h"

namespace kestralum {

namespace {

constexpr double parallel = 0.0076;  // sin² of 5 degrees: edges that turn less do not cross
constexpr double tilt = 0.052;       // 3 degrees: how far the normal may leave the normals of an edge
constexpr double same_way = 0.8;     // cosine of the normals of a crossing from step to step
constexpr double shallow = 0.02;    // of the surface's edges: depth at which a crossing may begin in any case
constexpr double one_place = 0.25;  // of the surface's edges: between the places of a crossing in two steps
constexpr double border = 0.1;      // how far beyond its edge a closed contact holds, in its length
constexpr std::int64_t smallest_team = 256;  // pairs

// Unit vector in the middle of the normals of an edge's triangles, and the angle from it to either.
struct NormalCone {
    Vec3 middle;
    double half;
    bool holds(const Vec3& n) const { return dot(n, middle) >= std::cos(std::min(half + tilt, M_PI)); }
};

NormalCone cone_of(const ContactSurface& surface, const FeatureEdge& edge, const double* x) {
    const Vec3 a = surface.face_normal(edge.triangle[0], x), b = surface.face_normal(edge.triangle[1], x);
    return {unit(plus(a, b)), 0.5 * std::acos(std::clamp(dot(a, b), -1.0, 1.0))};
}

}  // namespace

void ContactSet::take_edges(Active& active) const {
    for (std::size_t s = 0; s < 2; ++s) {
        const auto& own = active.side[s].triangles;
        const auto is_own = [&](std::int32_t t) { return std::binary_search(own.begin(), own.end(), t); };
        for (std::size_t e = 0; e < surface_.edges().size(); ++e) {
            const FeatureEdge& edge = surface_.edges()[e];
            if (!is_own(edge.triangle[0]) || !is_own(edge.triangle[1])) continue;
            active.edges.edges[s].push_back(static_cast<std::int32_t>(e));
            for (const std::int32_t n : edge.node)
                active.edges.reach[s] = std::max(active.edges.reach[s], reach_of(active, n));
        }
    }
}

bool ContactSet::share_node(std::int32_t a, std::int32_t b) const {
    const auto &one = surface_.edges()[a].node, &two = surface_.edges()[b].node;
    return one[0] == two[0] || one[0] == two[1] || one[1] == two[0] || one[1] == two[1];
}

// The pairs whose boxes meet, and those that are closed; these keep what they know.
void ContactSet::search_edges(Active& active, const double* x) {
    EdgePairs& of = active.edges;
    const auto middle_of = [&](std::int32_t e) {
        const auto& node = surface_.edges()[e].node;
        return times(0.5, plus(node_vector(x, node[0]), node_vector(x, node[1])));
    };
    std::vector<std::array<std::int32_t, 2>>& pairs = new_pairs_;
    std::vector<ContactMemory>& memory = new_memory_;
    pairs.clear();
    ContactBox all;
    double half = 0;  // of the longest edge of the first side
    for (const std::int32_t e : of.edges[0]) {
        const auto& node = surface_.edges()[e].node;
        all.add(node_place(x, node[0]), 0);
        all.add(node_place(x, node[1]), 0);
        half = std::max(half, 0.5 * norm(minus(node_vector(x, node[0]), node_vector(x, node[1]))));
    }
    const double reach = std::max(of.reach[0], of.reach[1]) + margin_;
    met_items_.clear();
    boxes_.clear();
    for (std::size_t k = 0; active.acting && k < of.edges[1].size(); ++k) {
        ContactBox box;
        for (const std::int32_t n : surface_.edges()[of.edges[1][k]].node) box.add(node_place(x, n), reach);
        if (!box.meets(all)) continue;
        for (std::size_t c = 0; c < 3; ++c) {
            box.low[c] -= half;
            box.high[c] += half;
        }
        met_items_.push_back(of.edges[1][k]);
        boxes_.push_back(box);
    }
    grid_.fill(met_items_, boxes_);
    for (const std::int32_t a : of.edges[0]) {
        const Vec3 middle = middle_of(a);
        grid_.each_at(middle.data(), [&](std::int32_t b) {
            if ((!active.self || a < b) && !share_node(a, b)) pairs.push_back({a, b});
        });
    }
    for (std::size_t k = 0; k < of.pairs.size(); ++k)
        if (of.memory[k].closed) pairs.push_back(of.pairs[k]);
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    memory.assign(pairs.size(), {});
    for (std::size_t k = 0; k < of.pairs.size(); ++k) {
        if (!of.memory[k].closed) continue;
        const auto at = std::lower_bound(pairs.begin(), pairs.end(), of.pairs[k]);
        memory[static_cast<std::size_t>(at - pairs.begin())] = of.memory[k];
    }
    of.pairs.swap(pairs);
    of.memory.swap(memory);
    of.found.assign(of.pairs.size(), {});
}

// Whether the edges cross behind the gap: the line of their closest points is the normal, outwards of the
// second edge and against the first one, and lies between the normals of the triangles of both. True with the
// touch; `beyond`: how far outside of the edges, in their lengths, the points may be. Depths below 0 are no
// touch.
bool ContactSet::cross_edges(const Active& active, const std::array<std::int32_t, 2>& pair, const double* x,
                             double beyond, ContactTouch& touch) const {
    const FeatureEdge &first = surface_.edges()[pair[0]], &second = surface_.edges()[pair[1]];
    const Vec3 p = node_vector(x, first.node[0]), q = node_vector(x, second.node[0]);
    const Vec3 a = minus(node_vector(x, first.node[1]), p), b = minus(node_vector(x, second.node[1]), q);
    const Vec3 across = cross(a, b), way = minus(q, p);
    const double nn = dot(across, across);
    if (!(nn > parallel * dot(a, a) * dot(b, b))) return false;
    const double s = dot(cross(way, b), across) / nn, t = dot(cross(way, a), across) / nn;
    if (!(s >= -beyond && s <= 1 + beyond && t >= -beyond && t <= 1 + beyond)) return false;
    const NormalCone cone_a = cone_of(surface_, first, x), cone_b = cone_of(surface_, second, x);
    const Vec3 at = plus(p, times(s, a));
    const auto& box = active.pair.box;
    for (std::size_t c = 0; c < 3; ++c)
        if (box[2 * c] < box[2 * c + 1] && !(at[c] >= box[2 * c] && at[c] <= box[2 * c + 1])) return false;
    Vec3 normal = times(1 / std::sqrt(nn), across);
    if (dot(normal, minus(cone_b.middle, cone_a.middle)) < 0) normal = times(-1, normal);
    const double height = -dot(way, normal);  // of the first edge over the second one
    if (!(active.pair.gap - height > 0) || !cone_b.holds(normal) || !cone_a.holds(times(-1, normal)))
        return false;
    touch.own = 2;
    touch.node = {first.node[0], first.node[1], second.node[0], second.node[1]};
    touch.share = {1 - s, s, 1 - t, t};
    touch.normal = normal;
    touch.depth = active.pair.gap - height;
    touch.first = true;
    return true;
}

// A crossing is not counted beside a node that touches the other surface where the edge ends near to it, nor
// where the edges have long been past each other. Parts that touch themselves: what crosses at rest is one
// body's two sides.
bool ContactSet::may_begin(const Active& active, const ContactTouch& touch, const double* v) const {
    double reach = 1e300, size = 1e300;
    for (const std::int32_t n : touch.node) {
        reach = std::min(reach, reach_of(active, n));
        size = std::min(size, surface_.size(n));
        if (thickness_[n] > 0) reach = std::min(reach, active.pair.gap + 0.9 * thickness_[n]);
    }
    const double closing = -step_ * dot(touch.difference(v), touch.normal);
    if (!(touch.depth < reach) || (active.begun && touch.depth > std::max(closing, shallow * size)))
        return false;
    const auto pair = static_cast<std::int32_t>(&active - pairs_.data()) + 1;
    const std::int32_t near[2] = {touch.node[touch.share[1] > 0.5 ? 1 : 0],
                                  touch.node[touch.share[3] > 0.5 ? 3 : 2]};
    if (met_[near[0]] == pair || met_[near[1]] == pair) return false;
    ContactTouch at_rest;
    return !active.self ||
           !cross_edges(active, active.edges.pairs[touch.memory], surface_.rest(), border, at_rest);
}

// A crossing that moves on to a neighbouring edge takes its spring with it. What an edge crosses elsewhere is
// another one.
bool ContactSet::hand_over(EdgePairs& edges, std::size_t to, const double* x) const {
    const auto [a, b] = edges.pairs[to];
    for (std::size_t k = 0; k < edges.pairs.size(); ++k) {
        if (!edges.memory[k].closed || edges.found[k].depth > 0) continue;
        if (!share_node(a, edges.pairs[k][0]) || !share_node(b, edges.pairs[k][1])) continue;
        const ContactTouch& touch = edges.found[to];
        const double size = std::min(surface_.size(touch.node[0]), surface_.size(touch.node[2]));
        if (dot(touch.normal, edges.memory[k].normal) < same_way) continue;
        if (norm(minus(touch.place(x), edges.memory[k].place)) > one_place * size) continue;
        edges.memory[to] = edges.memory[k];
        edges.memory[to].stuck_node[0] = -1;
        edges.memory[k] = {};
        return true;
    }
    return false;
}

void ContactSet::meet_edges(Active& active, const ContactArrays& arrays, int threads) {
    EdgePairs& of = active.edges;
    const auto pair = static_cast<std::int32_t>(&active - pairs_.data()) + 1;
    for (const ContactTouch& touch : active.touches) met_[touch.node[0]] = pair;
    const auto count = static_cast<std::int64_t>(of.pairs.size());
    const bool team = threads > 1 && count >= smallest_team;
#pragma omp parallel for schedule(dynamic, 64) num_threads(threads) if (team)
    for (std::int64_t i = 0; i < count; ++i) {
        const auto k = static_cast<std::size_t>(i);
        of.found[k].depth = 0;
        cross_edges(active, of.pairs[k], arrays.x, 0, of.found[k]);
        of.found[k].memory = static_cast<std::int32_t>(i);
    }
    bool lost = false;  // a spring that may go on to another crossing
    for (std::size_t k = 0; k < of.pairs.size() && !lost; ++k)
        lost = of.memory[k].closed && !(of.found[k].depth > 0);
    for (std::size_t k = 0; k < of.pairs.size(); ++k)
        if (of.found[k].depth > 0 && !of.memory[k].closed && !(lost && hand_over(of, k, arrays.x)) &&
            !may_begin(active, of.found[k], arrays.v))
            of.found[k].depth = 0;
    for (std::size_t k = 0; k < of.pairs.size(); ++k) {
        ContactTouch& touch = of.found[k];
        ContactMemory& memory = of.memory[k];
        if (memory.closed && !(touch.depth > 0)) cross_edges(active, of.pairs[k], arrays.x, border, touch);
        if (touch.depth > 0 && !(memory.closed && dot(touch.normal, memory.normal) < same_way)) {
            remember(active, touch, memory, arrays);
            active.touches.push_back(touch);
        } else if (memory.closed) {
            memory = {};
        }
    }
    for (const ContactTouch& touch : active.touches)
        if (touch.own == 1) met_[touch.node[0]] = 0;
}

}  // namespace kestralum
