// Which nodes touch which triangles: candidates, looked for now and then, and the exact look at them in each
// step.
#include <algorithm>
#include <cmath>
#include <utility>

#include "analysis/explicit/explicit_contact.h"

namespace kestralum {

namespace {

constexpr double facing = -0.1;       // cosine of node and triangle normals, at most
constexpr double sideways = 0.9;      // the same where the node is seen to come through
constexpr double same_way = 0.8;      // cosine of the normals of neighbours that a contact goes on to
constexpr double rounding = 1e-9;     // of a triangle's edge
constexpr double border = 0.1;        // how far beyond its triangle a closed contact holds, in weights
constexpr double through_wall = 0.9;  // of a thin wall's thickness: how deep a node may come behind it
constexpr double shallow = 0.02;  // of the surface's edges: depth at which a contact may begin in any case
constexpr double crease = 0.005;  // the same: how deep it may come past the border of a neighbour, sideways
constexpr int longest_walk = 8;   // triangles
constexpr std::int64_t smallest_team = 256;  // nodes

ContactBox box_of(const SurfaceTriangle& triangle, const double* x, double reach) {
    ContactBox box;
    for (const std::int32_t n : triangle.node) box.add(node_place(x, n), reach);
    return box;
}

bool has_corner(const SurfaceTriangle& triangle, std::int32_t n) {
    return triangle.node[0] == n || triangle.node[1] == n || triangle.node[2] == n;
}

void take(ContactTouch& touch, std::int32_t triangle, const std::array<std::int32_t, 3>& corner,
          const Foot& foot, double depth) {
    touch.node = {touch.node[0], corner[0], corner[1], corner[2]};
    touch.share = {1, foot.weight[0], foot.weight[1], foot.weight[2]};
    touch.normal = foot.normal;
    touch.depth = depth;
    touch.triangle = triangle;
}

// Whether the touch is that of the step before on a surface that hardly turns.
bool goes_on(const ContactMemory& memory, const ContactTouch& touch) {
    return memory.closed && dot(touch.normal, memory.normal) > same_way;
}

}  // namespace

double ContactSet::reach_of(const Active& active, std::int32_t n) const {
    return active.pair.gap + (active.self ? 0.25 : 0.5) * surface_.size(n);
}

// What lies behind the far face of a thin wall has not come through the near one.
double ContactSet::reach_of(const Active& active, std::int32_t n, std::int32_t t) const {
    double reach = reach_of(active, n);
    for (const std::int32_t corner : surface_.triangles()[t].node)
        if (thickness_[corner] > 0)
            reach = std::min(reach, active.pair.gap + through_wall * thickness_[corner]);
    return reach;
}

// Thickness of the walls at rest that are thinner than a contact reaches: from each node to the face behind
// it.
void ContactSet::find_thickness() {
    thickness_.assign(most_.size(), 0.0);
    const double* X = surface_.rest();
    for (const Active& active : pairs_)
        for (const Side& side : active.side) {
            const double reach = side.reach / through_wall;
            boxes_.clear();
            for (const std::int32_t t : side.triangles)
                boxes_.push_back(box_of(surface_.triangles()[t], X, reach));
            grid_.fill(side.triangles, boxes_);
            for (const std::int32_t n : side.nodes) {
                const Vec3 normal = surface_.normal(n, X);
                double least = reach;
                grid_.each_at(node_place(X, n), [&](std::int32_t t) {
                    Foot foot;
                    const SurfaceTriangle& triangle = surface_.triangles()[t];
                    if (has_corner(triangle, n) ||
                        !find_foot_point(triangle.node, X, node_place(X, n), rounding, foot))
                        return;
                    if (foot.height < 0 && -foot.height < least && dot(foot.normal, normal) < facing)
                        thickness_[n] = least = -foot.height;
                });
            }
        }
}

bool ContactSet::has_moved(const double* x, int threads) const {
    if (searches_ == 0 || !(margin_ > 0)) return true;
    const double most = 0.25 * margin_ * margin_;  // each of two nodes by half of the margin
    int moved = 0;
    for (const Active& active : pairs_)
        for (const Side& side : active.side) {
            const auto nodes = static_cast<std::int64_t>(side.nodes.size());
            const bool team = threads > 1 && nodes >= 8 * smallest_team;
#pragma omp parallel for schedule(static) num_threads(threads) if (team) reduction(| : moved)
            for (std::int64_t i = 0; i < nodes; ++i) {
                const std::int32_t n = side.nodes[static_cast<std::size_t>(i)];
                const Vec3 way = minus(node_vector(x, n), node_vector(searched_.data(), n));
                moved |= !(dot(way, way) <= most);
            }
        }
    return moved != 0;
}

void ContactSet::search(const double* x, int threads) {
    margin_ = 0;
    for (const Active& active : pairs_)
        for (const Side& side : active.side)
            if (side.reach > 0 && (margin_ == 0 || side.reach < margin_)) margin_ = side.reach;
    margin_ *= margin_share_;
    ++searches_;
    for (Active& active : pairs_) {
        for (const Side& side : active.side)
            for (const std::int32_t n : side.nodes)
                std::copy_n(node_place(x, n), 3, searched_.begin() + 4 * static_cast<std::ptrdiff_t>(n));
        for (std::size_t slave = 0; slave < active.slaves(); ++slave) search_side(active, slave, x, threads);
        search_edges(active, x);
    }
}

// The box of the side's nodes, within the pair's own one.
ContactBox ContactSet::around(const Active& active, std::size_t side, const double* x, double reach) const {
    ContactBox box;
    for (const std::int32_t n : active.side[side].nodes) box.add(node_place(x, n), reach);
    const auto& within = active.pair.box;
    for (std::size_t c = 0; c < 3; ++c)
        if (within[2 * c] < within[2 * c + 1]) {
            box.low[c] = std::max(box.low[c], within[2 * c] - margin_);
            box.high[c] = std::min(box.high[c], within[2 * c + 1] + margin_);
        }
    return box;
}

// The near nodes of side `slave` and the triangles of the other side that they may meet before the next
// search.
void ContactSet::search_side(Active& active, std::size_t slave, const double* x, int threads) {
    Side& side = active.side[slave];
    const Side& other = active.side[1 - slave];
    const double reach = side.reach + margin_;
    side.near.clear();
    if (active.acting) {
        const ContactBox box = around(active, 1 - slave, x, reach);
        for (std::size_t i = 0; i < side.nodes.size(); ++i)
            if (side.memory[i].closed || box.holds(node_place(x, side.nodes[i])))
                side.near.push_back(static_cast<std::int32_t>(i));
    }
    ContactBox all;
    for (const std::int32_t i : side.near) all.add(node_place(x, side.nodes[i]), reach);
    met_items_.clear();
    boxes_.clear();
    for (const std::int32_t t : other.triangles) {
        if (!all.meets(box_of(surface_.triangles()[t], x, 0))) continue;
        met_items_.push_back(t);
        boxes_.push_back(box_of(surface_.triangles()[t], x, reach));
    }
    grid_.fill(met_items_, boxes_);
    const auto near = static_cast<std::int64_t>(side.near.size());
    side.first.assign(side.near.size() + 1, 0);
    const auto each = [&](std::int64_t k, const auto& visit) {
        const std::int32_t n = side.nodes[side.near[static_cast<std::size_t>(k)]];
        grid_.each_at(node_place(x, n), [&](std::int32_t t) {
            if (!has_corner(surface_.triangles()[t], n)) visit(t);
        });
    };
    const bool team = threads > 1 && near >= smallest_team;
#pragma omp parallel for schedule(dynamic, 64) num_threads(threads) if (team)
    for (std::int64_t k = 0; k < near; ++k)
        each(k, [&](std::int32_t) { ++side.first[static_cast<std::size_t>(k) + 1]; });
    for (std::size_t k = 0; k < side.near.size(); ++k) side.first[k + 1] += side.first[k];
    side.candidates.resize(static_cast<std::size_t>(side.first.back()));
#pragma omp parallel for schedule(dynamic, 64) num_threads(threads) if (team)
    for (std::int64_t k = 0; k < near; ++k) {
        auto at = static_cast<std::size_t>(side.first[static_cast<std::size_t>(k)]);
        each(k, [&](std::int32_t t) { side.candidates[at++] = t; });
    }
    side.found.resize(side.near.size());
}

void ContactSet::meet(const Active& active, Side& side, std::size_t near, std::size_t slave,
                      const ContactArrays& arrays) const {
    const auto& box = active.pair.box;
    const std::int32_t index = side.near[near];
    const std::int32_t n = side.nodes[index];
    ContactTouch& best = side.found[near];
    ContactMemory& memory = side.memory[index];
    best.depth = 0;
    if (!memory.closed && side.first[near] == side.first[near + 1]) return;
    const double* p = node_place(arrays.x, n);
    bool inside = true;
    for (std::size_t c = 0; c < 3; ++c)
        inside = inside && !(box[2 * c] < box[2 * c + 1] && !(p[c] >= box[2 * c] && p[c] <= box[2 * c + 1]));
    best.node[0] = n;
    best.first = slave == 0;
    best.memory = index;
    ContactTouch beside;  // what it meets with its flank
    const Came came{memory, arrays.v, beside};
    const auto take_beside = [&] {
        if (beside.depth > 0) best = beside;
        return beside.depth > 0;
    };
    bool touches = inside && find_foot(active, side, near, arrays.x, false, came, best);
    const bool sudden = touches && is_sudden(active, best, memory, arrays.v);
    if (inside && (sudden || !touches)) {
        touches = goes_on(memory, beside) && take_beside();
        if (!touches && sudden)
            touches = (memory.closed && hold(active, memory, arrays.x, best) &&
                       !is_sudden(active, best, memory, arrays.v)) ||
                      find_foot(active, side, near, arrays.x, true, came, best);
        else if (!touches && memory.closed)
            touches = hold(active, memory, arrays.x, best) ||
                      walk(active, active.side[1 - slave], memory, arrays.x, best);
        touches = touches || take_beside();
    }
    if (!touches) best.depth = 0;
    if (touches)
        remember(active, best, memory, arrays);
    else if (memory.closed)
        memory = {};
}

// Deeper than it can have come through this triangle since the last step: it belongs to another one, at whose
// border it is, or passes by outside of a sharp edge.
bool ContactSet::is_sudden(const Active& active, const ContactTouch& touch, const ContactMemory& memory,
                           const double* v) const {
    if (!active.begun || touch.triangle == memory.triangle) return false;
    const double closing = -step_ * dot(touch.difference(v), touch.normal);
    return touch.depth > memory.depth + std::max(closing, shallow * surface_.size(touch.node[0]));
}

// What a node meets that does not face it: the triangle that it was before a step ago, with its foot on it,
// and then those that go on from there.
void ContactSet::look_beside(const Active& active, const ContactTouch& touch, const Came& came) const {
    if (!active.begun || (came.beside.depth > 0 && came.beside.depth <= touch.depth)) return;
    const double closing = -step_ * dot(touch.difference(came.v), touch.normal);
    if (touch.depth <= closing + crease * surface_.size(touch.node[0]) ||
        (goes_on(came.memory, touch) && !is_sudden(active, touch, came.memory, came.v)))
        came.beside = touch;
}

// The candidate that the touch's node lies least deep behind, of those that it faces. `only`: of what it can
// have come through since the last step, a little beyond the borders, too.
bool ContactSet::find_foot(const Active& active, const Side& side, std::size_t near, const double* x,
                           bool only, const Came& came, ContactTouch& best) const {
    // nodes do not pass through more than half an element a step
    const std::int32_t n = best.node[0];
    const double* p = node_place(x, n);
    double least = reach_of(active, n);
    Vec3 normal{};
    bool found = false, known = false;
    for (std::int64_t k = side.first[near]; k < side.first[near + 1]; ++k) {
        const std::int32_t t = side.candidates[static_cast<std::size_t>(k)];
        const SurfaceTriangle& triangle = surface_.triangles()[t];
        Foot foot;
        if (!find_foot_point(triangle.node, x, p, only ? border : rounding, foot)) continue;
        const double depth = active.pair.gap - foot.height;
        if (!(depth > 0 && depth < least && depth < reach_of(active, n, t))) continue;
        if (!std::exchange(known, true)) normal = surface_.normal(n, x);
        // a node meets only surfaces that it faces: not the flanks of what it enters, nor its back
        const double way = dot(foot.normal, normal);
        if (!(way < sideways) || (active.self && is_opposite_face(n, t))) continue;
        ContactTouch touch = best;
        take(touch, t, triangle.node, foot, depth);
        if (!(way < facing)) {
            if (!only) look_beside(active, touch, came);
            continue;
        }
        if (only && is_sudden(active, touch, came.memory, came.v)) continue;
        best = touch;
        least = depth;
        found = true;
    }
    return found;
}

// At a border or behind a hollow edge a closed contact is held a little beyond, so that it does not come and
// go.
bool ContactSet::hold(const Active& active, const ContactMemory& memory, const double* x,
                      ContactTouch& best) const {
    Foot foot;
    if (!find_foot_point({memory.node[1], memory.node[2], memory.node[3]}, x, node_place(x, best.node[0]),
                         border, foot))
        return false;
    const double depth = active.pair.gap - foot.height;
    if (depth > 0) take(best, memory.triangle, {memory.node[1], memory.node[2], memory.node[3]}, foot, depth);
    return depth > 0;
}

// A closed contact that has become deeper than candidates are looked for: from triangle to triangle towards
// the foot, over those of the other side alone where a set says which they are.
bool ContactSet::walk(const Active& active, const Side& other, const ContactMemory& memory, const double* x,
                      ContactTouch& best) const {
    const auto may_meet = [&](std::int32_t t) {
        return t >= 0 && (active.pair.set_name.empty() || std::ranges::binary_search(other.triangles, t));
    };
    const double* p = node_place(x, best.node[0]);
    std::int32_t t = memory.triangle;
    for (int way = 0; way < longest_walk && may_meet(t); ++way) {
        const SurfaceTriangle& triangle = surface_.triangles()[t];
        Foot foot;
        if (has_corner(triangle, best.node[0]) || !find_foot_point(triangle.node, x, p, 1e300, foot))
            return false;
        const auto least = std::min_element(foot.weight.begin(), foot.weight.end());
        if (*least >= -rounding) {
            const double depth = active.pair.gap - foot.height;
            const double turned = dot(foot.normal, surface_.normal(best.node[0], x));
            const bool same = dot(foot.normal, memory.normal) > same_way;
            if (!(depth > 0 && turned < (same ? sideways : facing))) return false;
            take(best, t, triangle.node, foot, depth);
            return true;
        }
        // the edge across from that corner
        t = surface_.beyond(t, (static_cast<std::size_t>(least - foot.weight.begin()) + 1) % 3);
    }
    return false;
}

// Whether the triangle is the far side of the wall that the node is on: at rest the node lay behind it,
// within its reach and no more than an edge beside it.
bool ContactSet::is_opposite_face(std::int32_t n, std::int32_t t) const {
    const SurfaceTriangle& triangle = surface_.triangles()[t];
    const double* X = surface_.rest();
    const double size = surface_.size(n);
    Foot foot;
    if (!find_foot_point(triangle.node, X, node_place(X, n), 1e300, foot)) return true;
    return foot.height < 0 && -foot.height < size && dot(foot.normal, surface_.normal(n, X)) < facing &&
           box_of(triangle, X, size).holds(node_place(X, n));
}

}  // namespace kestralum
