#include "analysis/explicit/explicit_sweep.h"

#include <algorithm>

#include "analysis/explicit/explicit_state.h"

namespace kestralum {

namespace {

std::int64_t node_num(const ExplicitState& s) {
    return std::ssize(s.u) / 4;
}

NodeRows rows_of(ExplicitState& s) {
    return {s.X.data(), s.x.data(),         s.u.data(), s.du.data(), s.v.data(), s.v_new.data(),
            s.F.data(), s.F_contact.data(), s.R.data(), s.a.data(),  s.b.data(), s.damping.data()};
}

}  // namespace

void begin_sweep(ExplicitState& s) {
    constexpr std::int64_t portion = NodeSweep::portion_nodes;
    std::vector<NodeForces>& forces = s.sweep.forces;
    forces.assign((node_num(s) + portion - 1) / portion, NodeForces::internal);
    const auto acts = [&](std::int64_t node, NodeForces what) {
        forces[node / portion] = std::max(forces[node / portion], what);
    };
    for (std::int64_t k = 0; k < std::ssize(s.F); ++k)
        if (s.F[k] != 0) acts(k / 4, NodeForces::constant);
    if (s.loads)
        for (const std::int32_t place : s.loads->touched()) acts(place / 4, NodeForces::constant);
    for (const std::int32_t n : s.contact_nodes) acts(n, NodeForces::contact);
    s.sweep.damping.assign(2 * forces.size(), 0.0);
}

std::array<double, 2> update_velocities(ExplicitState& s) {
    NodeSweep& sweep = s.sweep;
    const NodeRows rows = rows_of(s);
    const auto portions = std::ssize(sweep.forces);
#pragma omp parallel for schedule(dynamic, 2) num_threads(s.team) if (s.team > 1)
    for (std::int64_t p = 0; p < portions; ++p) {
        const std::int64_t first = p * NodeSweep::portion_nodes;
        double power[2] = {0, 0};
        const std::int64_t last = std::min(first + NodeSweep::portion_nodes, node_num(s)),
                           counted = std::clamp(s.owned, first, last);
        const VelocityKernel sweep_over =
            s.blocks->kernels().velocities[static_cast<std::size_t>(sweep.forces[p])];
        sweep_over(rows, first, counted, s.damped ? power : nullptr);
        double of_others[2] = {0, 0};
        if (counted < last) sweep_over(rows, counted, last, s.damped ? of_others : nullptr);
        sweep.damping[2 * p] = 0.5 * s.before * power[0];
        sweep.damping[2 * p + 1] = 0.5 * s.after * power[1];
    }
    std::array<double, 2> work{};
    for (std::size_t k = 0; k < sweep.damping.size(); ++k) work[k % 2] += sweep.damping[k];
    return work;
}

bool move_nodes(ExplicitState& s) {
    s.v.swap(s.v_new);
    const NodeRows rows = rows_of(s);
    const auto portions = std::ssize(s.sweep.forces);
    int lost = 0;
#pragma omp parallel for schedule(dynamic, 2) num_threads(s.team) if (s.team > 1) reduction(| : lost)
    for (std::int64_t p = 0; p < portions; ++p) {
        const std::int64_t first = p * NodeSweep::portion_nodes;
        lost |= !(s.blocks->kernels().move(
                      rows, first, std::min(first + NodeSweep::portion_nodes, node_num(s)), s.after) == 0);
    }
    return lost == 0;
}

}  // namespace kestralum
