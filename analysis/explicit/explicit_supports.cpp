#include "analysis/explicit/explicit_supports.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/format.h"
#include "system/support_springs.h"

namespace kestralum {

ExplicitSupports::ExplicitSupports(const Job& job, const NodeConstraints& constraints,
                                   std::span<const double> stiffness, std::span<const double> lumped,
                                   double damping)
    : job_(job), constraints_(constraints), mesh_(job.mesh()) {
    const ConstraintMap& map = constraints.map;
    special_.assign(map.special_nodes().begin(), map.special_nodes().end());
    if (!map.empty()) {
        turned_of_.assign(lumped.size() / 3, -1);
        is_tied_.assign(lumped.size() / 3, 0);
    }
    for (const std::int32_t n : special_) {
        if (map.is_tied(n)) {
            is_tied_[n] = 1;
            tied_.push_back({n, map.weights_of(n)});
            continue;
        }
        Turned node{.node = n, .axes = {}};
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3 axis = map.axis(3 * n + static_cast<std::int32_t>(c));
            double along = 0;  // the diagonal's part of the stiffness along the axis
            for (std::size_t k = 0; k < 3; ++k) {
                node.axes[3 * c + k] = axis[k];
                along += axis[k] * axis[k] * stiffness[3 * n + k];
            }
            node.damping[c] = 2 * std::sqrt(along * lumped[3 * n]) * damping;
        }
        turned_of_[n] = static_cast<std::int32_t>(turned_.size());
        turned_.push_back(node);
    }
    for (std::size_t k = 0; k < constraints.held.size(); ++k) {
        const HeldDof& held = constraints.held[k];
        const std::int32_t n = held.dof / 3, c = held.dof % 3;
        const bool moves = std::ranges::any_of(held.parts, [&](const HeldDof::Part& part) {
            return acts_in_case(job.model.boundary_conditions[part.record].options.case_name,
                                job.options.load_case);
        });
        if (is_turned(n)) {
            Turned& node = turned_[turned_of_[n]];
            node.held[c] = true;
            if (moves) node.motion[c] = static_cast<std::int32_t>(motions_.size());
            if (moves) motions_.push_back({k});
        } else if (moves) {
            moved_.push_back({std::size_t(4 * n + c), {k}});
        }
    }
}

std::vector<std::size_t> ExplicitSupports::moved_places() const {
    std::vector<std::size_t> places;
    for (const Moved& moved : moved_) places.push_back(moved.place);
    return places;
}

void ExplicitSupports::release(std::int32_t place) {
    std::erase_if(moved_, [&](const Moved& m) { return m.place == static_cast<std::size_t>(place); });
}

void ExplicitSupports::keep(std::span<const std::int32_t> place_of, std::int64_t owned) {
    std::erase_if(moved_, [&](const Moved& m) { return place_of[m.place / 4] < 0; });
    for (Moved& moved : moved_) moved.place = 4 * std::size_t(place_of[moved.place / 4]) + moved.place % 4;
    counted_ = 4 * static_cast<std::size_t>(owned);
    if (special_.empty()) return;
    const auto nodes = static_cast<std::size_t>(
        std::ranges::count_if(place_of, [](std::int32_t place) { return place >= 0; }));
    const auto take_place = [&](std::int32_t& node) { node = place_of[node]; };
    std::erase_if(special_, [&](std::int32_t n) { return place_of[n] < 0; });
    std::ranges::for_each(special_, take_place);
    std::ranges::sort(special_);
    std::erase_if(tied_, [&](const Tied& tied) { return place_of[tied.node] < 0; });
    is_tied_.assign(nodes, 0);
    for (Tied& tied : tied_) {
        take_place(tied.node);
        is_tied_[tied.node] = 1;
        for (auto& [master, weight] : tied.masters) take_place(master);
    }
    std::erase_if(turned_, [&](const Turned& turned) { return place_of[turned.node] < 0; });
    turned_of_.assign(nodes, -1);
    for (std::size_t k = 0; k < turned_.size(); ++k) {
        take_place(turned_[k].node);
        turned_of_[turned_[k].node] = static_cast<std::int32_t>(k);
    }
}

double ExplicitSupports::displacement(const Motion& motion, double time) const {
    return constraints_.displacement(constraints_.held[motion.held], job_.model.boundary_conditions, mesh_,
                                     time, job_.options.load_case);
}

bool ExplicitSupports::find_next(Motion& motion, double time) {
    motion.now = motion.next;
    motion.next = displacement(motion, time);
    motion.velocity = (motion.next - motion.now) / step_;
    if (std::isfinite(motion.next)) return true;
    const HeldDof& held = constraints_.held[motion.held];
    const double* x = mesh_.node(held.dof / 3);
    trouble_ = formatted("support %s: its displacement at (%.6g, %.6g, %.6g) is %g at time %.6g",
                         job_.model.boundary_conditions[held.record].name.c_str(), x[0], x[1], x[2],
                         motion.next, time);
    return false;
}

void ExplicitSupports::set_step(double step, double mean, const double* mass) {
    step_ = step;
    mean_ = mean;
    for (Turned& node : turned_)
        for (std::size_t c = 0; c < 3; ++c) {
            if (node.held[c]) continue;
            const double per_step = mass[4 * node.node] / mean, half = 0.5 * node.damping[c];
            node.a[c] = (per_step - half) / (per_step + half);
            node.b[c] = 1 / (per_step + half);
        }
}

std::vector<std::string> ExplicitSupports::start(double d_time, const NodeArrays& at) {
    set_step(d_time, d_time, at.mass);
    std::vector<std::string> displaced;
    const auto stand = [&](Motion& motion) {
        if (!find_next(motion, 0)) return;
        const std::string& name = job_.model.boundary_conditions[constraints_.held[motion.held].record].name;
        if (motion.next != 0 && std::ranges::find(displaced, name) == displaced.end())
            displaced.push_back(name);
    };
    for (Moved& moved : moved_) {
        stand(moved.motion);
        at.u[moved.place] = at.du[moved.place] = moved.motion.next;
        at.x[moved.place] = at.X[moved.place] + moved.motion.next;
    }
    for (Motion& motion : motions_) stand(motion);
    for (const Turned& node : turned_)
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t place = 4 * node.node + k;
            double u = 0;
            for (std::size_t c = 0; c < 3; ++c)
                if (node.motion[c] >= 0) u += node.axes[3 * c + k] * motions_[node.motion[c]].next;
            at.u[place] = at.du[place] = u;
            at.x[place] = at.X[place] + u;
        }
    arrive(at);
    return displaced;
}

void ExplicitSupports::project(double* v) const {
    for (const Turned& node : turned_) {
        double* of = v + 4 * std::ptrdiff_t(node.node);
        Vec3 along{};
        for (std::size_t c = 0; c < 3; ++c)
            if (!node.held[c]) along[c] = dot(triple(node.axes, c), {of[0], of[1], of[2]});
        for (std::size_t k = 0; k < 3; ++k)
            of[k] = node.axes[k] * along[0] + node.axes[3 + k] * along[1] + node.axes[6 + k] * along[2];
    }
}

void ExplicitSupports::gather(const NodeArrays& at) const {
    for (const Tied& tied : tied_)
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t k = 4 * tied.node + c;
            const double own = k < counted_ ? at.R[k] - at.F[k] - at.F_contact[k] : at.R[k];
            for (const auto& [master, weight] : tied.masters) at.R[4 * master + c] += weight * own;
        }
}

void ExplicitSupports::settle(const NodeArrays& at) const {
    for (const Tied& tied : tied_)
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t k = 4 * tied.node + c;
            at.R[k] = at.F[k] + at.F_contact[k];
        }
}

bool ExplicitSupports::advance(double next_time, const NodeArrays& at, Halves& driving, Halves& damping) {
    const auto force_at = [&](std::size_t k) { return at.F[k] + at.F_contact[k] - at.R[k]; };
    for (Motion& motion : motions_)
        if (!find_next(motion, next_time)) return false;
    for (const Turned& node : turned_) {
        const std::size_t first = 4 * node.node;
        const double m = at.mass[first], counts = first < counted_ ? 1 : 0;
        Vec3 v_new{};
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3 axis = triple(node.axes, c);
            const double v = dot(axis, {at.v[first], at.v[first + 1], at.v[first + 2]});
            const double f = dot(axis, {force_at(first), force_at(first + 1), force_at(first + 2)});
            double reached = node.a[c] * v + node.b[c] * f;
            if (node.held[c]) {
                reached = node.motion[c] < 0 ? 0 : motions_[node.motion[c]].velocity;
                const double held = counts * (m * (reached - v) / mean_ - f);
                driving[0] += held * v;
                driving[1] += held * reached;
            } else {
                const double resisted = counts * 0.5 * node.damping[c] * (v + reached);
                damping[0] += resisted * v;
                damping[1] += resisted * reached;
            }
            for (std::size_t k = 0; k < 3; ++k) v_new[k] += axis[k] * reached;
        }
        for (std::size_t k = 0; k < 3; ++k) at.v_new[first + k] = v_new[k];
    }
    for (Moved& moved : moved_) {
        if (!find_next(moved.motion, next_time)) return false;
        const std::size_t k = moved.place;
        const double v = at.v[k], reached = at.v_new[k] = moved.motion.velocity;
        if (k >= counted_) continue;
        const double held = at.mass[k] * (reached - v) / mean_ - force_at(k);
        driving[0] += held * v;
        driving[1] += held * reached;
    }
    return true;
}

void ExplicitSupports::follow(double* v_new) const {
    for (const Tied& tied : tied_)
        for (std::size_t c = 0; c < 3; ++c) {
            double sum = 0;
            for (const auto& [master, weight] : tied.masters) sum += weight * v_new[4 * master + c];
            v_new[4 * tied.node + c] = sum;
        }
}

void ExplicitSupports::arrive(const NodeArrays& at) const {
    for (const Moved& moved : moved_) {
        at.u[moved.place] = moved.motion.next;
        at.x[moved.place] = at.X[moved.place] + moved.motion.next;
    }
    for (const Tied& tied : tied_)
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t k = 4 * tied.node + c;
            at.u[k] = at.du[k] = 0;
            for (const auto& [master, weight] : tied.masters) {
                at.u[k] += weight * at.u[4 * master + c];
                at.du[k] += weight * at.du[4 * master + c];
            }
            at.x[k] = at.X[k] + at.u[k];
        }
}

Vec3 ExplicitSupports::reaction(const NodeArrays& at, double mean) const {
    Vec3 sum{};
    const auto held_at = [&](std::size_t k) {
        return at.mass[k] * (at.v_new[k] - at.v[k]) / mean + at.R[k] - at.F[k] - at.F_contact[k];
    };
    for (const Moved& moved : moved_)
        if (moved.place < counted_) sum[moved.place % 4] += held_at(moved.place);
    for (const Turned& node : turned_) {
        const std::size_t k = 4 * node.node;
        if (k >= counted_) continue;
        const Vec3 force{held_at(k), held_at(k + 1), held_at(k + 2)};
        for (std::size_t c = 0; c < 3; ++c)
            if (node.held[c]) sum = plus(sum, times(dot(triple(node.axes, c), force), triple(node.axes, c)));
    }
    return sum;
}

std::string SpringSet::collect(const Job& job, const NodeElements& node_elements) {
    return all_springs(job.model, job.mesh(), node_elements,
                       [this](std::span<const std::int32_t> nodes, std::span<const double> block) {
                           first_node_.push_back(nodes_.size());
                           first_value_.push_back(values_.size());
                           nodes_.insert(nodes_.end(), nodes.begin(), nodes.end());
                           values_.insert(values_.end(), block.begin(), block.end());
                       });
}

std::span<const std::int32_t> SpringSet::nodes(std::size_t block) const {
    const std::size_t last = block + 1 < first_node_.size() ? first_node_[block + 1] : nodes_.size();
    return std::span(nodes_).subspan(first_node_[block], last - first_node_[block]);
}

void SpringSet::keep(std::span<const std::int32_t> place_of, std::int64_t owned) {
    SpringSet kept;
    for (std::size_t b = 0; b < blocks(); ++b) {
        const auto of = nodes(b);
        const std::int32_t first = place_of[of.front()];
        if (first < 0 || first >= owned) continue;
        kept.first_node_.push_back(kept.nodes_.size());
        kept.first_value_.push_back(kept.values_.size());
        for (const std::int32_t n : of) kept.nodes_.push_back(place_of[n]);
        const auto values = std::span(values_).subspan(first_value_[b], 9 * of.size() * of.size());
        kept.values_.insert(kept.values_.end(), values.begin(), values.end());
    }
    *this = std::move(kept);
}

template <typename Visit>
void SpringSet::each(Visit visit) const {
    for (std::size_t b = 0; b < blocks(); ++b) {
        const auto node = nodes(b);
        const double* value = values_.data() + first_value_[b];
        const std::size_t size = 3 * node.size();
        for (std::size_t i = 0; i < size; ++i)
            for (std::size_t j = 0; j < size; ++j)
                visit(3 * std::size_t(node[i / 3]) + i % 3, 3 * std::size_t(node[j / 3]) + j % 3,
                      value[i * size + j]);
    }
}

namespace {

std::size_t place_of_dof(std::size_t dof) {
    return 4 * (dof / 3) + dof % 3;
}

}  // namespace

void SpringSet::add_forces(const double* u, double* R) const {
    each([&](std::size_t i, std::size_t j, double k) { R[place_of_dof(i)] += k * u[place_of_dof(j)]; });
}

double SpringSet::energy(const double* u) const {
    double sum = 0;
    each([&](std::size_t i, std::size_t j, double k) {
        sum += 0.5 * k * u[place_of_dof(i)] * u[place_of_dof(j)];
    });
    return sum;
}

Vec3 SpringSet::force(const double* u) const {
    Vec3 sum{};
    each([&](std::size_t i, std::size_t j, double k) { sum[i % 3] -= k * u[place_of_dof(j)]; });
    return sum;
}

void SpringSet::add_diagonal(std::span<double> stiffness) const {
    each([&](std::size_t i, std::size_t j, double k) { stiffness[i] += i == j ? k : 0; });
}

double SpringSet::rate(std::span<const double> mass) const {
    std::vector<double> row(mass.size(), 0.0);
    each([&](std::size_t i, std::size_t j, double k) {
        if (mass[i] > 0 && mass[j] > 0) row[i] += std::abs(k) / std::sqrt(mass[i] * mass[j]);
    });
    return row.empty() ? 0 : std::ranges::max(row);
}

}  // namespace kestralum
