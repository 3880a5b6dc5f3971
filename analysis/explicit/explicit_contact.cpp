#include "analysis/explicit/explicit_contact.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/mesh_sets.h"

namespace kestralum {

namespace {

constexpr double held_mass = 1e30;           // kg: of a node that nothing moves
constexpr double sticking_share = 0.5;       // of the stiffness along the normal: that across it
constexpr double sticking_damping = 0.1;     // of the critical damping, at least
constexpr double free_energy = 1e-4;         // of a contact's energy of approach: what may push it out
constexpr double spent_again = 0.5;          // of what it dissipates
constexpr std::int64_t smallest_team = 256;  // touches

// The touch's places such that its own one is ahead of the other by `slip`, a vector across the normal, m.
std::array<double, 4> shares_behind(const ContactTouch& touch, const double* x, const Vec3& slip) {
    if (touch.own == 2) {
        const auto way = [&](std::size_t i) {
            return minus(node_vector(x, touch.node[i + 1]), node_vector(x, touch.node[i]));
        };
        const Vec3 a = way(0), b = way(2), n = cross(a, b);
        const double nn = dot(n, n), s = dot(cross(slip, b), n) / nn, t = -dot(cross(a, slip), n) / nn;
        if (!(nn > 0)) return touch.share;
        return {touch.share[0] - s, touch.share[1] + s, touch.share[2] - t, touch.share[3] + t};
    }
    const Vec3 p = minus(node_vector(x, touch.node[0]), slip);
    Foot foot;
    if (!find_foot_point({touch.node[1], touch.node[2], touch.node[3]}, x, p.data(), 1e300, foot))
        return touch.share;
    return {1, foot.weight[0], foot.weight[1], foot.weight[2]};
}

}  // namespace

Vec3 ContactTouch::difference(const double* node4) const {
    Vec3 out{};
    for (std::size_t i = 0; i < 4; ++i) {
        const double* of = node_place(node4, node[i]);
        for (std::size_t c = 0; c < 3; ++c) out[c] += i < own ? share[i] * of[c] : -share[i] * of[c];
    }
    return out;
}

Vec3 ContactTouch::place(const double* x) const {
    Vec3 out{};
    for (std::size_t i = 0; i < own; ++i) out = plus(out, times(share[i], node_vector(x, node[i])));
    return out;
}

ContactSet::ContactSet(std::span<const ContactPair> pairs, std::span<const Part> parts, const Mesh& mesh,
                       std::vector<SurfaceTriangle> surface)
    : surface_(mesh, std::move(surface)) {
    const std::size_t node_num = mesh.node_num();
    const auto triangles = surface_.triangles();
    std::vector<char> seen(node_num);
    std::vector<char> of_side(parts.size());
    for (const ContactPair& pair : pairs) {
        Active active{pair, {}, 0, {}, {}, false, false, false};
        const MeshSet* set = pair.set_name.empty() ? nullptr : find_set(mesh, pair.set_name);
        std::vector<char> meets(node_num, set == nullptr);
        for (std::size_t k = 0; set && k < set->nodes.size(); ++k) meets[set->nodes[k]] = 1;
        for (std::size_t s = 0; s < 2; ++s) {
            Side& side = active.side[s];
            std::fill(seen.begin(), seen.end(), 0);
            for (std::size_t k = 0; k < parts.size(); ++k)
                of_side[k] = is_of_part(parts, k, pair.part_name[s]);
            for (std::size_t t = 0; t < triangles.size(); ++t) {
                if (!of_side[triangles[t].part]) continue;
                if (!std::ranges::all_of(triangles[t].node, [&](std::int32_t n) { return meets[n]; }))
                    continue;
                side.triangles.push_back(static_cast<std::int32_t>(t));
                for (std::int32_t n : triangles[t].node)
                    if (!std::exchange(seen[n], 1)) side.nodes.push_back(n);
            }
            std::sort(side.nodes.begin(), side.nodes.end());
            side.memory.resize(side.nodes.size());
        }
        active.self = pair.part_name[0] == pair.part_name[1];
        for (Side& side : active.side)
            for (std::int32_t n : side.nodes) side.reach = std::max(side.reach, reach_of(active, n));
        take_edges(active);
        active.touches.reserve(active.side[0].nodes.size() + active.side[1].nodes.size());
        pairs_.push_back(std::move(active));
    }
    sum_.assign(node_num, 0.0);
    met_.assign(node_num, 0);
    most_.assign(node_num, 0.0);
    searched_.assign(4 * node_num, 0.0);
    peaks.resize(pairs_.size());
    find_thickness();
}

void ContactSet::tune(double d_time, double stable_step, int sharing) {
    d_time_ = step_ = after_ = d_time;
    for (Active& active : pairs_)
        active.share = active.pair.penalty * penalty_share(d_time, stable_step, active.pair.damping) /
                       std::max(1, sharing);
}

// The spring is pressed by what the surfaces moved towards each other in the step, whichever triangles they
// show; never by more than the depth. What lies behind a surface when the pair begins is pushed out.
void ContactSet::remember(const Active& active, const ContactTouch& touch, ContactMemory& memory,
                          const ContactArrays& arrays) const {
    double closing = touch.depth;
    if (memory.closed && memory.node == touch.node) {
        closing = touch.depth - memory.depth;
    } else if (active.begun) {
        const Vec3 away = touch.difference(arrays.v);
        closing = 0;
        for (std::size_t c = 0; c < 3; ++c) closing -= step_ * away[c] * touch.normal[c];
    }
    const double wanted = memory.pressed + closing;
    memory.pressed = std::max(0.0, std::min(wanted, touch.depth));
    // what the spring loses because less of it is behind the surface than was pressed in
    if (wanted > touch.depth)
        memory.account +=
            spent_again * 0.5 * memory.stiffness * (wanted * wanted - touch.depth * touch.depth);
    memory.depth = touch.depth;
    memory.node = touch.node;
    memory.triangle = touch.triangle;
    memory.normal = touch.normal;
    memory.place = touch.place(arrays.x);
}

// What a touch is to move, kg: of either side by its nodes, each by what it may lend to one contact. A node
// that is held in some directions is as heavy along another one as 1/(n·M⁻¹·n) with M⁻¹ = 0 in those
// directions. Without a direction: the lightest that the touch is in any. 0: nothing is free.
double ContactSet::mass_of(const ContactTouch& touch, const Vec3* direction,
                           const ContactArrays& arrays) const {
    std::array<double, 2> side{};
    for (std::size_t s = 0; s < 2; ++s) {
        double sum = 0, moving = 0;
        bool held = false;
        for (std::size_t i = s == 0 ? 0 : touch.own; i < (s == 0 ? touch.own : 4); ++i) {
            const std::size_t at = 4 * std::size_t(touch.node[i]);
            double open = 0;  // n·(1 where free)·n
            bool whole = true;
            for (std::size_t c = 0; c < 3; ++c) {
                const bool is_free = arrays.b[at + c] > 0;
                whole = whole && is_free;
                if (is_free) open += direction ? (*direction)[c] * (*direction)[c] : 1.0;
            }
            if (whole || (!direction && open > 0)) open = 1;
            if (!(open > 1e-12)) {
                held = true;
                continue;
            }
            const double share = std::abs(touch.share[i]);
            sum += share * (arrays.mass[at] / std::max(1.0, most_[touch.node[i]]) / open);
            moving += share;
        }
        side[s] = moving > 0 ? (held ? sum / (moving * moving) : sum) : held_mass;
    }
    if (side[0] >= held_mass && side[1] >= held_mass) return 0;
    return side[0] * side[1] / (side[0] + side[1]);
}

// An offset between spring and depth is taken away as far as its work is paid for.
void ContactSet::relax(ContactMemory& memory) const {
    const double offset = memory.depth - memory.pressed;
    if (!(offset > 0 && memory.account > 0)) return;
    const double k = memory.stiffness, p = memory.pressed;
    const double step = std::min(offset, std::sqrt(p * p + 2 * memory.account / k) - p);
    memory.account -= 0.5 * k * step * (2 * p + step);
    memory.pressed += step;
}

// The spring holds no more than the bodies have put in: a normal that turns from one triangle to the next
// makes a different way out than in. With the half step that led here the spring of force k p holds ½ k p²
// = held - ½ Δt k p away. Beside that what the sampling of the force may miss, k h²/8 with the way h of a
// step, less what ended contacts of the pair have given too much (`covered`, a share).
void ContactSet::cover(ContactMemory& memory, double away, double covered) const {
    const double h = -step_ * away, held = memory.held > 0 ? covered * memory.held : memory.held;
    const double most =
        0.5 * h + std::sqrt(std::max(0.0, 0.25 * (1 + covered) * h * h + 2 * held / memory.stiffness));
    memory.pressed = std::min(memory.pressed, std::max(0.0, most));
}

// Friction, N: a spring across the normal between the places where the surfaces stick, which gives way at the
// limit (Coulomb). `along`: the velocity across the normal.
Vec3 ContactSet::rub(const Active& active, const ContactTouch& touch, double limit, const Vec3& along,
                     ContactMemory& memory, const ContactArrays& arrays) const {
    const double m = mass_of(touch, nullptr, arrays);
    const double k = sticking_share * std::min(memory.stiffness, active.share * m / (d_time_ * d_time_));
    if (!(k > 0)) return {};
    const Vec3& n = touch.normal;
    ContactTouch stuck = touch;
    if (memory.stuck_node[0] >= 0) {
        stuck.node = memory.stuck_node;
        stuck.share = memory.stuck_share;
    } else {
        memory.stuck_node = touch.node;
        memory.stuck_share = touch.share;
    }
    const Vec3 apart = stuck.difference(arrays.x);
    const Vec3 slip = minus(apart, times(dot(apart, n), n));
    const double c = 2 * std::max(sticking_damping, active.pair.damping) * std::sqrt(k * m);
    Vec3 force = times(-1, plus(times(k, slip), times(c, along)));
    const double size = norm(force);
    if (!(size > limit)) return force;
    force = times(limit / size, force);
    // the places move after until the spring pulls no more than the limit; what the damper took is gone
    if (const double pull = k * norm(slip); pull > limit) {
        const Vec3 kept = times(limit / pull, slip);
        memory.account += spent_again * limit * (norm(slip) - norm(kept));
        memory.stuck_node = touch.node;
        memory.stuck_share = shares_behind(touch, arrays.x, kept);
    }
    return force;
}

void ContactSet::press(const Active& active, ContactTouch& touch, ContactMemory& memory,
                       const ContactArrays& arrays) const {
    touch.force = {};
    const double m = mass_of(touch, &touch.normal, arrays);
    const bool closes = !std::exchange(memory.closed, true);
    if (!(m > 0)) return;
    const Vec3 relative = touch.difference(arrays.v);
    const double allowed = active.share * m / (d_time_ * d_time_);
    const double k = memory.stiffness > 0 ? std::min(memory.stiffness, allowed) : allowed;
    memory.stiffness = k;
    const double away = dot(relative, touch.normal);
    if (closes) {
        const double given = free_energy * 0.5 * m * dot(relative, relative);
        memory.account += given;
        memory.held += given;
        if (!active.begun) memory.held += 0.5 * k * memory.pressed * memory.pressed;
    }
    relax(memory);
    cover(memory, away, active.covered);
    const double c = 2 * active.pair.damping * std::sqrt(k * m);
    double pressed = memory.pressed;
    // Few edges carry what many nodes do: in the steps in which one comes or goes the work of the sampled
    // force differs from the spring's energy by up to k h²/8, h the way of a step. The mean over the part of
    // h that is behind.
    if (const double h = step_ * std::abs(away); touch.own == 2 && pressed < h)
        pressed *= (pressed + h) / (2 * h);
    const double normal_force = std::max(0.0, k * pressed - c * away);
    if (normal_force > 0) memory.account += spent_again * step_ * c * away * away;
    touch.force = times(normal_force, touch.normal);
    if (active.pair.friction > 0)
        touch.force = plus(touch.force, rub(active, touch, active.pair.friction * normal_force,
                                            minus(relative, times(away, touch.normal)), memory, arrays));
}

// A node's springs share what the step allows it. With g = (1, -N1, -N2, -N3) the row sums of Σ k g gᵀ
// bound its eigenvalues: Σ_j k_j |g_jn| ≤ ½ share m_n / Δt². The largest Σ |g_jn| so far is taken: a
// spring that stiffened while it is pressed would make energy out of nothing.
void ContactSet::share_nodes() {
    for (const Active& active : pairs_)
        for (const ContactTouch& touch : active.touches)
            for (std::size_t i = 0; i < 4; ++i) sum_[touch.node[i]] += std::abs(touch.share[i]);
    for (const Active& active : pairs_)
        for (const ContactTouch& touch : active.touches)
            for (const std::int32_t n : touch.node) {
                most_[n] = std::max(most_[n], sum_[n]);
                sum_[n] = 0;
            }
}

// Every thread adds the forces of its own nodes, in the order of the touches.
void ContactSet::gather(const ContactArrays& arrays, int threads) const {
    const auto nodes = static_cast<std::int64_t>(most_.size());
    const std::int64_t touches = touching();
    const int team = touches < smallest_team ? 1 : std::max(1, threads);
#pragma omp parallel for schedule(static) num_threads(team) if (team > 1)
    for (int part = 0; part < team; ++part) {
        const std::int64_t low = nodes * part / team, high = nodes * (part + 1) / team;
        for (const Active& active : pairs_)
            for (const ContactTouch& touch : active.touches)
                for (std::size_t i = 0; i < 4; ++i) {
                    const std::int32_t n = touch.node[i];
                    if (n < low || n >= high) continue;
                    for (std::size_t c = 0; c < 3; ++c) {
                        const double f = touch.share[i] * touch.force[c];
                        arrays.F[4 * std::size_t(n) + c] += i < touch.own ? f : -f;
                    }
                }
    }
}

void ContactSet::note_deepest(const ContactArrays& arrays, double time) {
    for (std::size_t k = 0; k < pairs_.size(); ++k)
        for (const ContactTouch& touch : pairs_[k].touches)
            if (touch.depth > deepest_.depth)
                deepest_ = {k, touch.depth, touch.node[0], node_vector(arrays.x, touch.node[0]), time};
}

double ContactSet::held_by(Active& active) {
    double sum = 0;
    for (const ContactTouch& touch : active.touches) sum += active.memory_of(touch).held;
    return sum;
}

void ContactSet::push(const ContactArrays& arrays, double time, int threads) {
    bool anew = has_moved(arrays.x, threads);
    for (Active& active : pairs_) {
        active.touches.clear();
        const bool acts = time >= active.pair.start_time && !active.side[0].triangles.empty() &&
                          !active.side[1].triangles.empty();
        anew = anew || acts != active.acting;
        active.acting = acts;
    }
    if (anew) search(arrays.x, threads);
    for (Active& active : pairs_) {
        if (!active.acting) continue;
        for (std::size_t slave = 0; slave < active.slaves(); ++slave) {
            Side& side = active.side[slave];
            const auto near = static_cast<std::int64_t>(side.near.size());
            const bool team = threads > 1 && near >= smallest_team;
#pragma omp parallel for schedule(dynamic, 64) num_threads(threads) if (team)
            for (std::int64_t k = 0; k < near; ++k)
                meet(active, side, static_cast<std::size_t>(k), slave, arrays);
            for (const ContactTouch& touch : side.found)
                if (touch.depth > 0) active.touches.push_back(touch);
        }
        meet_edges(active, arrays, threads);
    }
    share_nodes();
    for (Active& active : pairs_) {
        const auto touches = static_cast<std::int64_t>(active.touches.size());
        const bool team = threads > 1 && touches >= smallest_team;
        const double open = held_by(active);
        active.covered = open > 0 ? std::clamp(active.held / open, 0.0, 1.0) : active.held < 0 ? 0.0 : 1.0;
#pragma omp parallel for schedule(static) num_threads(threads) if (team)
        for (std::int64_t k = 0; k < touches; ++k) {
            ContactTouch& touch = active.touches[static_cast<std::size_t>(k)];
            press(active, touch, active.memory_of(touch), arrays);
        }
        active.begun = active.begun || active.acting;
        active.held += held_by(active) - open;  // what press() has granted
    }
    gather(arrays, threads);
    note_deepest(arrays, time);
}

std::array<double, 2> ContactSet::work(const double* v, const double* v_new) {
    std::array<double, 2> sum{};
    for (Active& active : pairs_)
        for (const ContactTouch& touch : active.touches) {
            const double before = 0.5 * step_ * dot(touch.force, touch.difference(v)),
                         after = 0.5 * after_ * dot(touch.force, touch.difference(v_new));
            sum[0] += before;
            sum[1] += after;
            active.memory_of(touch).held -= before + after;
            active.held -= before + after;
        }
    return sum;
}

std::array<double, 2> ContactSet::friction_work(const double* v, const double* v_new) const {
    std::array<double, 2> sum{};
    for (const Active& active : pairs_) {
        if (!(active.pair.friction > 0)) continue;
        for (const ContactTouch& touch : active.touches) {
            const Vec3 along = minus(touch.force, times(dot(touch.force, touch.normal), touch.normal));
            sum[0] -= 0.5 * step_ * dot(along, touch.difference(v));
            sum[1] -= 0.5 * after_ * dot(along, touch.difference(v_new));
        }
    }
    return sum;
}

bool ContactSet::rubs() const {
    return std::ranges::any_of(pairs_, [](const Active& active) { return active.pair.friction > 0; });
}

std::array<double, 3> ContactSet::force(std::size_t pair) const {
    std::array<double, 3> sum{};
    for (const ContactTouch& touch : pairs_[pair].touches)
        for (std::size_t c = 0; c < 3; ++c) sum[c] += touch.first ? touch.force[c] : -touch.force[c];
    return sum;
}

std::vector<std::int32_t> ContactSet::nodes() const {
    const auto triangles = surface_.triangles();
    std::vector<char> looked_at(most_.size(), 0), reached(triangles.size(), 0);
    std::vector<std::int32_t> front;
    const auto reach = [&](std::int32_t t) {
        if (!std::exchange(reached[t], 1)) front.push_back(t);
    };
    for (const Active& active : pairs_)
        for (const Side& side : active.side) {
            for (const std::int32_t n : side.nodes)
                for (const std::int32_t t : surface_.around(n))
                    for (const std::int32_t corner : triangles[t].node) looked_at[corner] = 1;
            if (active.pair.set_name.empty()) std::ranges::for_each(side.triangles, reach);
        }
    while (!front.empty()) {
        const std::int32_t t = front.back();
        front.pop_back();
        for (std::size_t k = 0; k < 3; ++k) {
            looked_at[triangles[t].node[k]] = 1;
            if (const std::int32_t beyond = surface_.beyond(t, k); beyond >= 0) reach(beyond);
        }
    }
    std::vector<std::int32_t> out;
    for (std::size_t n = 0; n < looked_at.size(); ++n)
        if (looked_at[n]) out.push_back(static_cast<std::int32_t>(n));
    return out;
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
