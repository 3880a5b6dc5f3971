#include "analysis/explicit/explicit_walls.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "model/format.h"
#include "model/mesh_sets.h"

namespace kestralum {

double penalty_share(double d_time, double stable_step, double damping) {
    const double wt = 2 * d_time / stable_step;
    const double room = std::max(0.05, 0.9 * (4 - wt * wt));
    const double root = std::sqrt(4 * damping * damping + room) - 2 * damping;
    return std::min(0.5, root * root);
}

namespace {

constexpr double sticking_share = 0.5;    // of the stiffness along the normal: that across it
constexpr double sticking_damping = 0.1;  // of the critical damping, at least

}  // namespace

void ForcePeaks::note(std::size_t k, const std::array<double, 3>& force) {
    largest_[k] = std::max(largest_[k], std::hypot(force[0], force[1], force[2]));
}

double ForcePeaks::take(std::size_t k) {
    return std::exchange(largest_[k], 0.0);
}

WallSet::WallSet(std::span<const RigidWall> walls, std::span<const Parameter> parameters, const Mesh& mesh,
                 std::vector<std::int32_t> nodes, std::vector<char> members, double d_time,
                 double stable_step, int sharing)
    : parameters_(parameters.begin(), parameters.end()),
      nodes_(std::move(nodes)),
      members_(std::move(members)),
      d_time_(d_time),
      step_(d_time) {
    for (const RigidWall& wall : walls) {
        Placed placed{
            wall, {}, {}, {}, penalty_share(d_time, stable_step, wall.damping) / std::max(1, sharing),
            {},   {}, {}};
        if (const MeshSet* set = wall.set_name.empty() ? nullptr : find_set(mesh, wall.set_name))
            std::ranges::set_intersection(nodes_, set->nodes, std::back_inserter(placed.own_nodes));
        for (std::size_t c = 0; c < 3; ++c) placed.centre[c] = 0.5 * (wall.box[2 * c] + wall.box[2 * c + 1]);
        placed.touches.reserve(nodes_.size());
        if (wall.friction > 0 && !members_.empty()) placed.sticking.resize(nodes_of(placed).size());
        walls_.push_back(std::move(placed));
    }
    peaks.resize(walls_.size());
}

// Where x (relative to the displaced wall's frame) lies: the outward normal and the depth behind the
// surface. False outside of the wall's extent; a box without thickness in a direction does not bound it.
bool WallSet::reach(const Placed& placed, const double* x, std::array<double, 3>& normal,
                    double& depth) const {
    const RigidWall& wall = placed.wall;
    const std::size_t axis = wall.axis;
    std::array<double, 3> r{};
    for (std::size_t c = 0; c < 3; ++c) {
        const double at = x[c] - placed.now[c];
        const bool bounds =
            wall.kind == WallKind::plane ? c != axis : wall.kind == WallKind::cylinder && c == axis;
        if (bounds && wall.set_name.empty() && wall.box[2 * c] < wall.box[2 * c + 1] &&
            !(at >= wall.box[2 * c] && at <= wall.box[2 * c + 1]))
            return false;
        r[c] = at - placed.centre[c];
    }
    normal = {};
    if (wall.kind == WallKind::plane) {
        depth = -wall.side * r[axis];
        normal[axis] = wall.side;
        const double thickness = wall.box[2 * axis + 1] - wall.box[2 * axis];
        return !(wall.set_name.empty() && thickness > 0 && depth > 0.5 * thickness);
    }
    if (wall.kind == WallKind::cylinder) r[axis] = 0;
    const double distance = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]);
    if (!(distance > 0)) return false;
    depth = wall.side * (wall.radius - distance);
    for (std::size_t c = 0; c < 3; ++c) normal[c] = wall.side * r[c] / distance;
    return true;
}

bool WallSet::push(const ContactArrays& arrays, double time) {
    for (Placed& placed : walls_) {
        for (std::size_t c = 0; c < 3; ++c) {
            placed.now[c] = placed.wall.motion[c].at(time, parameters_);
            placed.next[c] = placed.wall.motion[c].at(time + step_, parameters_);
            const bool known = std::isfinite(placed.now[c]);
            if (known && std::isfinite(placed.next[c])) continue;
            trouble_ = formatted("wall %s: its displacement '%s' is %g at time %.6g",
                                 placed.wall.name.c_str(), placed.wall.motion[c].text.c_str(),
                                 known ? placed.next[c] : placed.now[c], known ? time + step_ : time);
            return false;
        }
        placed.touches.clear();
        const std::vector<std::int32_t>& nodes = nodes_of(placed);
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            const std::int32_t n = nodes[i];
            const std::size_t at = 4 * n;
            std::array<double, 3> normal;
            double depth;
            const bool behind = reach(placed, arrays.x + at, normal, depth) && depth > 0 &&
                                (arrays.b[at] != 0 || arrays.b[at + 1] != 0 || arrays.b[at + 2] != 0);
            if (!behind) {
                if (!placed.sticking.empty()) placed.sticking[i].closed = false;
                continue;
            }
            const double m = arrays.mass[at];
            const double k =
                placed.wall.stiffness > 0 ? placed.wall.stiffness : placed.share * m / (d_time_ * d_time_);
            double away = 0;  // speed out of the wall
            for (std::size_t c = 0; c < 3; ++c)
                away += normal[c] * (arrays.v[at + c] - (placed.next[c] - placed.now[c]) / step_);
            const double press = std::max(0.0, k * depth - 2 * placed.wall.damping * std::sqrt(k * m) * away);
            Touch touch{n, normal, {}, press};
            for (std::size_t c = 0; c < 3; ++c) touch.force[c] = press * normal[c];
            if (!placed.sticking.empty() && members_[n]) stick(placed, placed.sticking[i], touch, k, arrays);
            for (std::size_t c = 0; c < 3; ++c) arrays.F[at + c] += touch.force[c];
            placed.touches.push_back(touch);
            if (depth > deepest_.depth)
                deepest_ = {static_cast<std::size_t>(&placed - walls_.data()),
                            depth,
                            n,
                            {arrays.x[at], arrays.x[at + 1], arrays.x[at + 2]},
                            time};
        }
    }
    return true;
}

// A member's motion is that of its body, which its own force hardly changes: a spring holds it where it came
// down, and gives way at the limit (Coulomb).
void WallSet::stick(Placed& placed, Sticking& sticking, Touch& touch, double k,
                    const ContactArrays& arrays) const {
    const std::size_t at = 4 * touch.node;
    std::array<double, 3> slip{}, speed{};
    double off = 0, away = 0;
    for (std::size_t c = 0; c < 3; ++c) {
        const double place = arrays.x[at + c] - placed.now[c];
        if (!sticking.closed) sticking.place[c] = place;
        slip[c] = place - sticking.place[c];
        speed[c] = arrays.v[at + c] - (placed.next[c] - placed.now[c]) / step_;
        off += slip[c] * touch.normal[c];
        away += speed[c] * touch.normal[c];
    }
    sticking.closed = true;
    const double stiffness = sticking_share * k, limit = placed.wall.friction * touch.press;
    const double damping =
        2 * std::max(sticking_damping, placed.wall.damping) * std::sqrt(stiffness * arrays.mass[at]);
    double pull = 0, size = 0;
    std::array<double, 3> force{};
    for (std::size_t c = 0; c < 3; ++c) {
        slip[c] -= off * touch.normal[c];
        force[c] = -stiffness * slip[c] - damping * (speed[c] - away * touch.normal[c]);
        pull += slip[c] * slip[c];
        size += force[c] * force[c];
    }
    pull = stiffness * std::sqrt(pull);
    size = std::sqrt(size);
    for (std::size_t c = 0; c < 3; ++c) {
        touch.force[c] += size > limit ? force[c] * limit / size : force[c];
        if (pull > limit) sticking.place[c] += (1 - limit / pull) * slip[c];
    }
}

void WallSet::rub(const ContactArrays& arrays, double* v_new) {
    for (Placed& placed : walls_) {
        if (!(placed.wall.friction > 0)) continue;
        for (Touch& touch : placed.touches) {
            if (!placed.sticking.empty() && members_[touch.node]) continue;
            const std::size_t at = 4 * touch.node;
            std::array<double, 3> slip{};
            double along = 0, speed = 0, gain = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                slip[c] = v_new[at + c] - (placed.next[c] - placed.now[c]) / step_;
                along += slip[c] * touch.normal[c];
                gain = std::max(gain, arrays.b[at + c]);
            }
            for (std::size_t c = 0; c < 3; ++c) {
                slip[c] -= along * touch.normal[c];
                speed += slip[c] * slip[c];
            }
            speed = std::sqrt(speed);
            if (!(speed > 0)) continue;
            // what stops the slip within the step, at most the sliding force
            const double force = std::min(placed.wall.friction * touch.press, speed / gain);
            for (std::size_t c = 0; c < 3; ++c) {
                if (arrays.b[at + c] == 0) continue;
                const double f = -force * slip[c] / speed;
                touch.force[c] += f;
                arrays.F[at + c] += f;
                v_new[at + c] += arrays.b[at + c] * f;
            }
        }
    }
}

std::array<double, 2> WallSet::power(const double* v, const double* v_new) const {
    std::array<double, 2> sum{};
    for (const Placed& placed : walls_)
        for (const Touch& touch : placed.touches) {
            if (touch.node >= owned_) continue;
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t at = 4 * touch.node + c;
                sum[0] += touch.force[c] * v[at];
                sum[1] += touch.force[c] * v_new[at];
            }
        }
    return sum;
}

std::array<double, 2> WallSet::friction_power(const double* v, const double* v_new) const {
    std::array<double, 2> sum{};
    for (const Placed& placed : walls_) {
        if (!(placed.wall.friction > 0)) continue;
        for (const Touch& touch : placed.touches) {
            if (touch.node >= owned_) continue;
            const double pressed = dot(touch.force, touch.normal);
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t at = 4 * touch.node + c;
                const double along = touch.force[c] - pressed * touch.normal[c],
                             moves = (placed.next[c] - placed.now[c]) / step_;
                sum[0] -= along * (v[at] - moves);
                sum[1] -= along * (v_new[at] - moves);
            }
        }
    }
    return sum;
}

bool WallSet::rubs() const {
    return std::ranges::any_of(walls_, [](const Placed& placed) { return placed.wall.friction > 0; });
}

std::array<double, 3> WallSet::force(std::size_t wall) const {
    std::array<double, 3> sum{};
    for (const Touch& touch : walls_[wall].touches)
        for (std::size_t c = 0; c < 3 && touch.node < owned_; ++c) sum[c] += touch.force[c];
    return sum;
}

std::int64_t WallSet::touching() const {
    std::int64_t count = 0;
    for (const Placed& placed : walls_)
        count +=
            std::ranges::count_if(placed.touches, [this](const Touch& touch) { return touch.node < owned_; });
    return count;
}

void WallSet::keep(std::span<const std::int32_t> place_of, std::int64_t owned) {
    const auto keep = [&](std::vector<std::int32_t>& nodes) {
        std::erase_if(nodes, [&](std::int32_t n) { return place_of[n] < 0; });
        for (std::int32_t& n : nodes) n = place_of[n];
        std::ranges::sort(nodes);
    };
    keep(nodes_);
    for (Placed& placed : walls_) {
        keep(placed.own_nodes);
        if (!placed.sticking.empty()) placed.sticking.assign(nodes_of(placed).size(), {});
    }
    if (!members_.empty()) {
        std::vector<char> members(std::ranges::max(place_of) + 1, 0);
        for (std::size_t n = 0; n < place_of.size(); ++n)
            if (place_of[n] >= 0) members[place_of[n]] = members_[n];
        members_ = std::move(members);
    }
    owned_ = static_cast<std::int32_t>(owned);
}

double WallSet::stiff_spring(std::span<const double> mass) const {
    double least = 0;
    for (const Placed& placed : walls_)
        for (std::int32_t n : placed.wall.set_name.empty() ? nodes_ : placed.own_nodes) {
            const double m = mass[4 * n];
            if (!(placed.wall.stiffness > placed.share * m / (d_time_ * d_time_))) continue;
            const double ratio = m / placed.wall.stiffness;
            least = least > 0 ? std::min(least, ratio) : ratio;
        }
    return least;
}

}  // namespace kestralum
