#include "analysis/explicit/explicit_contact.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/mesh_sets.h"
#include "model/vector3.h"

namespace kestralum {

namespace {

using Vector = Vec3;

Vector minus(const double* a, const double* b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
const double* at(const double* node4, std::int32_t n) {
    return node4 + 4 * static_cast<std::ptrdiff_t>(n);
}

// A box of positions, m.
struct Box {
    Vector low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};
    bool holds(const double* p) const {
        return p[0] >= low[0] && p[0] <= high[0] && p[1] >= low[1] && p[1] <= high[1] && p[2] >= low[2] &&
               p[2] <= high[2];
    }
    // With the box of a triangle.
    bool meets(const std::array<std::int32_t, 3>& node, const double* x) const {
        const double *a = at(x, node[0]), *b = at(x, node[1]), *d = at(x, node[2]);
        for (std::size_t c = 0; c < 3; ++c)
            if (!(std::max({a[c], b[c], d[c]}) >= low[c] && std::min({a[c], b[c], d[c]}) <= high[c]))
                return false;
        return true;
    }
};

// Of the nodes node(0) … node(count - 1), wider by `reach`.
template <typename Node>
Box box_of(std::size_t count, const Node& node, const double* x, double reach) {
    Box box;
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t c = 0; c < 3; ++c) {
            const double value = at(x, node(i))[c];
            box.low[c] = std::min(box.low[c], value - reach);
            box.high[c] = std::max(box.high[c], value + reach);
        }
    return box;
}

constexpr std::int32_t most_cells_a_side = 256;
constexpr double facing = -0.1;     // cosine of node and triangle normals, at most
constexpr double held_mass = 1e30;  // kg: of a node that nothing moves
constexpr double rounding = 1e-9;   // of a triangle's edge
constexpr double border = 0.1;      // how far beyond its triangle a closed contact holds, in weights

}  // namespace

ContactSet::ContactSet(std::span<const ContactPair> pairs, std::span<const Part> parts, const Mesh& mesh,
                       std::vector<SurfaceTriangle> surface)
    : triangles_(std::move(surface)) {
    measure_edges(mesh);
    const std::size_t node_num = mesh.node_num();
    std::vector<char> seen(node_num);
    std::vector<char> of_side(parts.size());
    for (const ContactPair& pair : pairs) {
        Active active{pair, {}, 0, {}, false, false};
        const MeshSet* set = pair.set_name.empty() ? nullptr : find_set(mesh, pair.set_name);
        std::vector<char> meets(node_num, set == nullptr);
        for (std::size_t k = 0; set && k < set->nodes.size(); ++k) meets[set->nodes[k]] = 1;
        for (std::size_t s = 0; s < 2; ++s) {
            Side& side = active.side[s];
            std::fill(seen.begin(), seen.end(), 0);
            for (std::size_t k = 0; k < parts.size(); ++k)
                of_side[k] = is_of_part(parts, k, pair.part_name[s]);
            for (std::size_t t = 0; t < triangles_.size(); ++t) {
                if (!of_side[triangles_[t].part]) continue;
                if (!std::ranges::all_of(triangles_[t].node, [&](std::int32_t n) { return meets[n]; }))
                    continue;
                side.triangles.push_back(static_cast<std::int32_t>(t));
                for (std::int32_t n : triangles_[t].node)
                    if (!std::exchange(seen[n], 1)) side.nodes.push_back(n);
            }
            std::sort(side.nodes.begin(), side.nodes.end());
            side.memory.resize(side.nodes.size());
        }
        active.self = pair.part_name[0] == pair.part_name[1];
        for (Side& side : active.side)
            for (std::int32_t n : side.nodes) side.reach = std::max(side.reach, reach_of(active, n));
        active.touches.reserve(active.side[0].nodes.size() + active.side[1].nodes.size());
        pairs_.push_back(std::move(active));
    }
    normal_.assign(node_num, {});
    marked_.assign(node_num, 0);
    sum_.assign(node_num, 0.0);
    most_.assign(node_num, 0.0);
}

void ContactSet::measure_edges(const Mesh& mesh) {
    size_.assign(mesh.node_num(), 0.0);
    const auto place = [&](std::int32_t n) {
        return mesh.coordinates.data() + 3 * static_cast<std::ptrdiff_t>(n);
    };
    for (const SurfaceTriangle& triangle : triangles_) {
        double edge = 0;
        for (std::size_t c = 0; c < 3; ++c)
            edge = std::max(edge, norm(minus(place(triangle.node[c]), place(triangle.node[(c + 1) % 3]))));
        for (std::int32_t n : triangle.node) size_[n] = std::max(size_[n], edge);
    }
}

void ContactSet::tune(double d_time, double stable_step, int sharing) {
    d_time_ = step_ = d_time;
    for (Active& active : pairs_)
        active.share = active.pair.penalty * penalty_share(d_time, stable_step, active.pair.damping) /
                       std::max(1, sharing);
}

// Cells of the triangles' size over their bounding box; each triangle stands in every cell that its box,
// widened by `reach`, meets.
void ContactSet::fill_grid(const std::vector<std::int32_t>& triangles, const double* x, double reach) {
    Vector low{1e300, 1e300, 1e300}, high{-1e300, -1e300, -1e300};
    double edge = 0;
    for (std::int32_t t : triangles) {
        const SurfaceTriangle& triangle = triangles_[t];
        for (std::size_t k = 0; k < 3; ++k) {
            const double* p = at(x, triangle.node[k]);
            edge += norm(minus(p, at(x, triangle.node[(k + 1) % 3])));
            for (std::size_t c = 0; c < 3; ++c) {
                low[c] = std::min(low[c], p[c] - reach);
                high[c] = std::max(high[c], p[c] + reach);
            }
        }
    }
    grid_.cell =
        std::max(edge / (3.0 * static_cast<double>(std::max<std::size_t>(triangles.size(), 1))), 2 * reach);
    for (std::size_t c = 0; c < 3; ++c)
        grid_.cell = std::max(grid_.cell, (high[c] - low[c]) / most_cells_a_side);
    if (!(grid_.cell > 0) || !std::isfinite(grid_.cell)) grid_.cell = 1;
    grid_.low = low;
    std::size_t cells = 1;
    for (std::size_t c = 0; c < 3; ++c) {
        const double wanted =
            (high[c] - low[c]) / grid_.cell;  // may be infinite in a run that is about to end
        grid_.count[c] = wanted < most_cells_a_side ? std::max(static_cast<std::int32_t>(wanted), 0) + 1
                                                    : most_cells_a_side + 1;
        cells *= static_cast<std::size_t>(grid_.count[c]);
    }
    // hashed into as many buckets as there are triangles, so that memory does not follow the box
    const std::size_t buckets = std::min(cells, 4 * triangles.size() + 1);
    grid_.start.assign(buckets + 1, 0);
    auto each_cell = [&](std::int32_t t, auto visit) {
        std::array<std::int32_t, 3> from, to;
        const SurfaceTriangle& triangle = triangles_[t];
        for (std::size_t c = 0; c < 3; ++c) {
            const double a = at(x, triangle.node[0])[c], b = at(x, triangle.node[1])[c],
                         d = at(x, triangle.node[2])[c];
            from[c] = grid_.index(c, std::min({a, b, d}) - reach);
            to[c] = grid_.index(c, std::max({a, b, d}) + reach);
        }
        for (std::int32_t k = from[2]; k <= to[2]; ++k)
            for (std::int32_t j = from[1]; j <= to[1]; ++j)
                for (std::int32_t i = from[0]; i <= to[0]; ++i) visit(grid_.bucket(i, j, k));
    };
    for (std::int32_t t : triangles) each_cell(t, [&](std::size_t bucket) { ++grid_.start[bucket + 1]; });
    for (std::size_t k = 0; k < buckets; ++k) grid_.start[k + 1] += grid_.start[k];
    grid_.entry.resize(grid_.start.back());
    grid_.next.assign(grid_.start.begin(), grid_.start.end() - 1);
    for (std::int32_t t : triangles)
        each_cell(t, [&](std::size_t bucket) { grid_.entry[grid_.next[bucket]++] = t; });
}

std::int32_t ContactSet::Grid::index(std::size_t axis, double value) const {
    const double place = (value - low[axis]) / cell;
    if (!(place > 0)) return 0;
    return place < count[axis] ? static_cast<std::int32_t>(place) : count[axis] - 1;
}

std::size_t ContactSet::Grid::bucket(std::int32_t i, std::int32_t j, std::int32_t k) const {
    const std::uint64_t cell_number =
        static_cast<std::uint64_t>(i) +
        static_cast<std::uint64_t>(count[0]) *
            (static_cast<std::uint64_t>(j) +
             static_cast<std::uint64_t>(count[1]) * static_cast<std::uint64_t>(k));
    return static_cast<std::size_t>(cell_number % (start.size() - 1));
}

// The foot of p on the triangle's plane: barycentric weights, outward normal, signed height over the
// plane. False when a weight is below -edge or the triangle is flat.
bool ContactSet::foot_point(const std::array<std::int32_t, 3>& corner, const double* x, const double* p,
                            double edge, Vector& weight, Vector& normal, double& height) const {
    const double *a = at(x, corner[0]), *b = at(x, corner[1]), *c = at(x, corner[2]);
    const Vector n = cross(minus(b, a), minus(c, a));
    const double nn = dot(n, n);
    if (!(nn > 0)) return false;
    const Vector d = minus(p, a);
    weight[1] = dot(cross(d, minus(c, a)), n) / nn;
    weight[2] = dot(cross(minus(b, a), d), n) / nn;
    weight[0] = 1 - weight[1] - weight[2];
    if (!(weight[0] >= -edge && weight[1] >= -edge && weight[2] >= -edge)) return false;
    const double size = std::sqrt(nn);
    height = dot(d, n) / size;
    for (std::size_t k = 0; k < 3; ++k) normal[k] = n[k] / size;
    return true;
}

// Normals at the marked nodes, from the triangles around them by their angles (Thürmer and Wüthrich,
// J. Graphics Tools 3, 1998): the division into triangles does not show.
void ContactSet::find_normals(const double* x) {
    const auto each_marked = [&](auto visit) {
        for (const Active& active : pairs_)
            for (const Side& side : active.side)
                for (std::int32_t i : side.near) visit(static_cast<std::size_t>(side.nodes[i]));
    };
    each_marked([&](std::size_t n) { normal_[n] = {}; });
    for (const SurfaceTriangle& triangle : triangles_) {
        const auto wanted = [&](std::size_t k) { return marked_[triangle.node[k]] != 0; };
        if (!wanted(0) && !wanted(1) && !wanted(2)) continue;
        const Vector n = cross(minus(at(x, triangle.node[1]), at(x, triangle.node[0])),
                               minus(at(x, triangle.node[2]), at(x, triangle.node[0])));
        const double size = norm(n);
        if (!(size > 0)) continue;
        for (std::size_t k = 0; k < 3; ++k) {
            if (!wanted(k)) continue;
            const double* p = at(x, triangle.node[k]);
            const Vector a = minus(at(x, triangle.node[(k + 1) % 3]), p),
                         b = minus(at(x, triangle.node[(k + 2) % 3]), p);
            const double angle = std::atan2(size, dot(a, b));
            for (std::size_t c = 0; c < 3; ++c) normal_[triangle.node[k]][c] += angle * n[c] / size;
        }
    }
    each_marked([&](std::size_t n) {
        if (!std::exchange(marked_[n], 0)) return;  // near in several pairs
        const double size = norm(normal_[n]);
        for (double& c : normal_[n]) c = size > 0 ? c / size : 0;
    });
}

void ContactSet::find_near(Active& active, std::size_t slave, const double* x) {
    Side& side = active.side[slave];
    side.near.clear();
    const auto& other = active.side[1 - slave].nodes;
    Box box = box_of(
        other.size(), [&](std::size_t i) { return other[i]; }, x, side.reach);
    const auto& within = active.pair.box;
    for (std::size_t c = 0; c < 3; ++c)
        if (within[2 * c] < within[2 * c + 1]) {
            box.low[c] = std::max(box.low[c], within[2 * c]);
            box.high[c] = std::min(box.high[c], within[2 * c + 1]);
        }
    for (std::size_t i = 0; i < side.nodes.size(); ++i) {
        if (!side.memory[i].closed && !box.holds(at(x, side.nodes[i]))) continue;
        side.near.push_back(static_cast<std::int32_t>(i));
        marked_[side.nodes[i]] = 1;
    }
}

// The near nodes of side `slave` against the triangles of the other side that they may meet.
void ContactSet::touch_side(Active& active, std::size_t slave, const ContactArrays& arrays) {
    const auto& box = active.pair.box;
    Side& side = active.side[slave];
    if (side.near.empty()) return;
    const auto near = [&](std::size_t k) { return side.nodes[side.near[k]]; };
    const Box around = box_of(side.near.size(), near, arrays.x, side.reach);
    met_.clear();
    for (std::int32_t t : active.side[1 - slave].triangles)
        if (around.meets(triangles_[t].node, arrays.x)) met_.push_back(t);
    fill_grid(met_, arrays.x, side.reach);
    for (std::int32_t index : side.near) {
        const std::size_t i = index;
        const std::int32_t n = side.nodes[i];
        const double* p = at(arrays.x, n);
        bool inside = true;
        for (std::size_t c = 0; c < 3; ++c)
            inside =
                inside && !(box[2 * c] < box[2 * c + 1] && !(p[c] >= box[2 * c] && p[c] <= box[2 * c + 1]));
        Touch best{n, {}, {}, {}, {}, 0, slave == 0, index};
        Memory& memory = side.memory[i];
        if (inside) find_foot(active, best, arrays);
        if (inside && memory.closed && !(best.depth > 0)) {
            // at a border or behind a hollow edge: held a little beyond, so that it does not come and go
            Vector weight, normal;
            double height;
            if (foot_point(memory.corner, arrays.x, p, border, weight, normal, height) &&
                active.pair.gap - height > 0 && active.pair.gap - height < reach_of(active, n)) {
                best.corner = memory.corner;
                best.weight = weight;
                best.normal = normal;
                best.depth = active.pair.gap - height;
            }
        }
        if (best.depth > 0) {
            remember(active, best, memory, arrays);
            active.touches.push_back(best);
        } else if (memory.closed) {
            memory = {};
        }
    }
}

void ContactSet::find_foot(const Active& active, Touch& best, const ContactArrays& arrays) const {
    // nodes do not pass through more than half an element a step
    const std::int32_t n = best.node;
    const double* p = at(arrays.x, n);
    double least = reach_of(active, n);
    const std::size_t bucket = grid_.bucket(grid_.index(0, p[0]), grid_.index(1, p[1]), grid_.index(2, p[2]));
    for (std::int32_t k = grid_.start[bucket]; k < grid_.start[bucket + 1]; ++k) {
        const SurfaceTriangle& triangle = triangles_[grid_.entry[k]];
        if (triangle.node[0] == n || triangle.node[1] == n || triangle.node[2] == n) continue;
        Vector weight, normal;
        double height;
        if (!foot_point(triangle.node, arrays.x, p, rounding, weight, normal, height)) continue;
        const double depth = active.pair.gap - height;
        if (!(depth > 0 && depth < least)) continue;
        // a node meets only surfaces that it faces: not the flanks of what it enters, nor its back
        if (!(dot(normal, normal_[n]) < facing)) continue;
        least = depth;
        best.corner = triangle.node;
        best.weight = weight;
        best.normal = normal;
        best.depth = depth;
    }
}

// The spring is pressed by what the surfaces moved towards each other in the step, whichever triangles they
// show; never by more than the depth. What lies behind a surface when the pair begins is pushed out.
void ContactSet::remember(const Active& active, const Touch& touch, Memory& memory,
                          const ContactArrays& arrays) const {
    double closing = touch.depth;
    if (memory.closed && memory.corner == touch.corner) {
        closing = touch.depth - memory.depth;
    } else if (active.begun) {
        closing = 0;
        for (std::size_t c = 0; c < 3; ++c) {
            double away = at(arrays.v, touch.node)[c];
            for (std::size_t i = 0; i < 3; ++i) away -= touch.weight[i] * at(arrays.v, touch.corner[i])[c];
            closing -= step_ * away * touch.normal[c];
        }
    }
    memory.pressed = std::max(0.0, std::min(memory.pressed + closing, touch.depth));
    memory.depth = touch.depth;
    memory.corner = touch.corner;
    memory.closed = true;
}

ContactSet::Memory& ContactSet::memory_of(Active& active, const Touch& touch) const {
    return active.side[touch.first ? 0 : 1].memory[touch.memory];
}

double ContactSet::reach_of(const Active& active, std::int32_t n) const {
    return active.pair.gap + (active.self ? 0.25 : 0.5) * size_[n];
}

void ContactSet::press(Active& active, const ContactArrays& arrays) {
    // what a node can lend to each of the contacts that it takes part in; nothing moves a held node
    auto lends = [&](std::int32_t n) {
        const std::size_t k = n;
        return arrays.b[4 * k] > 0 ? arrays.mass[4 * k] / std::max(1.0, most_[k]) : held_mass;
    };
    for (Touch& touch : active.touches) {
        double opposite = 0;
        Vector relative{};
        for (std::size_t c = 0; c < 3; ++c) relative[c] = at(arrays.v, touch.node)[c];
        for (std::size_t i = 0; i < 3; ++i) {
            opposite += std::abs(touch.weight[i]) * lends(touch.corner[i]);
            for (std::size_t c = 0; c < 3; ++c)
                relative[c] -= touch.weight[i] * at(arrays.v, touch.corner[i])[c];
        }
        const double own = lends(touch.node);
        touch.force = {};
        if (own >= held_mass && opposite >= 0.99 * held_mass) continue;
        const double m = own * opposite / (own + opposite);
        Memory& memory = memory_of(active, touch);
        const double allowed = active.share * m / (d_time_ * d_time_);
        const double k = memory.stiffness > 0 ? std::min(memory.stiffness, allowed) : allowed;
        memory.stiffness = k;
        const double away = dot(relative, touch.normal);
        const double normal_force =
            std::max(0.0, k * memory.pressed - 2 * active.pair.damping * std::sqrt(k * m) * away);
        for (std::size_t c = 0; c < 3; ++c) {
            touch.force[c] = normal_force * touch.normal[c];
            relative[c] -= away * touch.normal[c];
        }
        const double slip = norm(relative);
        if (slip > 0 && active.pair.friction > 0) {
            // half of what would stop the slip in one step keeps the lagging velocity from overshooting
            const double friction = std::min(active.pair.friction * normal_force, 0.5 * m * slip / d_time_);
            for (std::size_t c = 0; c < 3; ++c) touch.force[c] -= friction * relative[c] / slip;
        }
        for (std::size_t c = 0; c < 3; ++c) {
            arrays.F[4 * touch.node + c] += touch.force[c];
            for (std::size_t i = 0; i < 3; ++i)
                arrays.F[4 * touch.corner[i] + c] -= touch.weight[i] * touch.force[c];
        }
    }
}

// A node's springs share what the step allows it. With g = (1, -N1, -N2, -N3) the row sums of Σ k g gᵀ
// bound its eigenvalues: Σ_j k_j |g_jn| ≤ ½ share m_n / Δt². The largest Σ |g_jn| so far is taken: a
// spring that stiffened while it is pressed would make energy out of nothing.
void ContactSet::share_nodes() {
    for (const Active& active : pairs_)
        for (const Touch& touch : active.touches) {
            sum_[touch.node] += 1;
            for (std::size_t i = 0; i < 3; ++i) sum_[touch.corner[i]] += std::abs(touch.weight[i]);
        }
    for (const Active& active : pairs_)
        for (const Touch& touch : active.touches)
            for (std::int32_t n : {touch.node, touch.corner[0], touch.corner[1], touch.corner[2]}) {
                const std::size_t k = n;
                most_[k] = std::max(most_[k], sum_[k]);
                sum_[k] = 0;
            }
}

void ContactSet::push(const ContactArrays& arrays, double time) {
    const auto acts = [&](const Active& active) {
        return time >= active.pair.start_time && !active.side[0].triangles.empty() &&
               !active.side[1].triangles.empty();
    };
    for (Active& active : pairs_) {
        active.touches.clear();
        for (std::size_t slave = 0; acts(active) && slave < (active.self ? 1u : 2u); ++slave)
            find_near(active, slave, arrays.x);
    }
    find_normals(arrays.x);
    for (Active& active : pairs_) {
        if (!acts(active)) continue;
        for (std::size_t slave = 0; slave < (active.self ? 1u : 2u); ++slave)
            touch_side(active, slave, arrays);
        active.begun = true;
    }
    share_nodes();
    for (Active& active : pairs_) press(active, arrays);
}

std::array<double, 2> ContactSet::power(const double* v, const double* v_new) const {
    std::array<double, 2> sum{};
    for (const Active& active : pairs_)
        for (const Touch& touch : active.touches)
            for (std::size_t c = 0; c < 3; ++c) {
                double before = at(v, touch.node)[c], after = at(v_new, touch.node)[c];
                for (std::size_t i = 0; i < 3; ++i) {
                    before -= touch.weight[i] * at(v, touch.corner[i])[c];
                    after -= touch.weight[i] * at(v_new, touch.corner[i])[c];
                }
                sum[0] += touch.force[c] * before;
                sum[1] += touch.force[c] * after;
            }
    return sum;
}

std::array<double, 3> ContactSet::force(std::size_t pair) const {
    std::array<double, 3> sum{};
    for (const Touch& touch : pairs_[pair].touches)
        for (std::size_t c = 0; c < 3; ++c) sum[c] += touch.first ? touch.force[c] : -touch.force[c];
    return sum;
}

bool ContactSet::can_act(std::size_t pair) const {
    return !pairs_[pair].side[0].triangles.empty() && !pairs_[pair].side[1].triangles.empty();
}

std::int32_t ContactSet::common_nodes(std::size_t pair) const {
    const Active& active = pairs_[pair];
    if (active.self) return 0;
    const auto& second = active.side[1].nodes;
    return static_cast<std::int32_t>(
        std::count_if(active.side[0].nodes.begin(), active.side[0].nodes.end(),
                      [&](std::int32_t n) { return std::binary_search(second.begin(), second.end(), n); }));
}

std::int64_t ContactSet::touching() const {
    std::int64_t count = 0;
    for (const Active& active : pairs_) count += static_cast<std::int64_t>(active.touches.size());
    return count;
}

}  // namespace kestralum
