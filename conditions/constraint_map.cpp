#include "conditions/constraint_map.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace kestralum {

namespace {

constexpr Mat3 identity{1, 0, 0, 0, 1, 0, 0, 0, 1};

double size_of(const ConstraintMap::Weights& weights) {
    double sum = 0;
    for (const auto& [master, weight] : weights) sum += std::abs(weight);
    return sum;
}

}  // namespace

std::int32_t ConstraintMap::special(std::int32_t n, std::int32_t nodes) {
    if (empty()) {
        node_row_.assign(nodes, -1);
        tied_.assign(nodes, 0);
    }
    if (node_row_[n] < 0) {
        node_row_[n] = static_cast<std::int32_t>(special_.size());
        special_.push_back(n);
        axes_.push_back(identity);
        weights_.emplace_back();
    }
    return node_row_[n];
}

void ConstraintMap::set_axes(std::int32_t n, std::int32_t nodes, const Mat3& axes) {
    axes_[special(n, nodes)] = axes;
}

void ConstraintMap::tie(std::int32_t n, std::int32_t nodes, Weights weights) {
    weights_[special(n, nodes)] = std::move(weights);
    tied_[n] = 1;
}

// Puts what the node's own nodes follow in their place. state: 0 not seen, 1 under way, 2 done.
bool ConstraintMap::resolve(std::int32_t n, std::vector<char>& state) {
    if (!tied_[n] || state[node_row_[n]] == 2) return true;
    if (state[node_row_[n]] == 1) return false;
    state[node_row_[n]] = 1;
    std::map<std::int32_t, double> sum;
    for (const auto& [other, weight] : Weights(weights_[node_row_[n]])) {
        if (!resolve(other, state)) return false;
        if (!tied_[other])
            sum[other] += weight;
        else
            for (const auto& [master, share] : weights_[node_row_[other]]) sum[master] += weight * share;
    }
    weights_[node_row_[n]].assign(sum.begin(), sum.end());
    state[node_row_[n]] = 2;
    return true;
}

std::int32_t ConstraintMap::close() {
    if (empty()) return -1;
    std::vector<std::int32_t> order(special_.size());
    std::iota(order.begin(), order.end(), 0);
    std::ranges::sort(order, {}, [this](std::int32_t k) { return special_[k]; });
    ConstraintMap sorted;
    for (const std::int32_t k : order) {
        const auto nodes = static_cast<std::int32_t>(node_row_.size());
        sorted.set_axes(special_[k], nodes, axes_[k]);
        if (tied_[special_[k]]) sorted.tie(special_[k], nodes, std::move(weights_[k]));
    }
    *this = std::move(sorted);
    std::vector<char> state(special_.size(), 0);
    for (const std::int32_t n : special_)
        if (!resolve(n, state)) return n;
    start_.assign(1, 0);
    const auto add = [this](std::int32_t node, std::int32_t direction, double factor) {
        if (node_row_[node] < 0) return terms_.push_back({3 * node + direction, factor});
        const Mat3& axes = axes_[node_row_[node]];
        for (std::int32_t c = 0; c < 3; ++c)
            if (const double part = axes[3 * c + direction]; part != 0)
                terms_.push_back({3 * node + c, factor * part});
    };
    for (const std::int32_t n : special_)
        for (std::int32_t direction = 0; direction < 3; ++direction) {
            if (!tied_[n]) add(n, direction, 1);
            if (tied_[n])
                for (const auto& [master, weight] : weights_[node_row_[n]]) add(master, direction, weight);
            start_.push_back(static_cast<std::int64_t>(terms_.size()));
        }
    return -1;
}

Vec3 ConstraintMap::axis(std::int32_t dof) const {
    const Mat3& axes = empty() || plain(dof) ? identity : axes_[node_row_[dof / 3]];
    return triple(axes, dof % 3);
}

void ConstraintMap::expand(std::span<double> q) const {
    std::vector<double> values;  // T reads places that it writes
    for (const std::int32_t n : special_)
        for (std::int32_t c = 0; c < 3; ++c) {
            double sum = 0;
            for (const auto& [dof, factor] : row(3 * n + c)) sum += factor * q[dof];
            values.push_back(sum);
        }
    for (std::size_t k = 0; k < special_.size(); ++k)
        for (std::size_t c = 0; c < 3; ++c) q[3 * special_[k] + c] = values[3 * k + c];
}

void ConstraintMap::gather(std::span<double> f) const {
    std::vector<double> values;
    for (const std::int32_t n : special_)
        for (std::int32_t c = 0; c < 3; ++c) {
            values.push_back(f[3 * n + c]);
            f[3 * n + c] = 0;
        }
    for (std::size_t k = 0; k < special_.size(); ++k)
        for (std::int32_t c = 0; c < 3; ++c)
            for (const auto& [dof, factor] : row(3 * special_[k] + c)) f[dof] += factor * values[3 * k + c];
}

void ConstraintMap::follow(std::span<double> u) const {
    for (std::size_t k = 0; k < special_.size(); ++k) {
        const std::int32_t n = special_[k];
        for (std::size_t c = 0; c < 3 && tied_[n]; ++c) {
            u[3 * n + c] = 0;
            for (const auto& [master, weight] : weights_[k]) u[3 * n + c] += weight * u[3 * master + c];
        }
    }
}

void ConstraintMap::gather_mass(std::span<double> mass) const {
    for (std::size_t k = 0; k < special_.size(); ++k) {
        const std::int32_t n = special_[k];
        if (!tied_[n]) continue;
        const double sum = size_of(weights_[k]);
        for (std::size_t c = 0; c < 3; ++c) {
            for (const auto& [master, weight] : weights_[k])
                mass[3 * master + c] += std::abs(weight) / sum * mass[3 * n + c];
            mass[3 * n + c] = 0;
        }
    }
}

double ConstraintMap::spread() const {
    double most = 1;
    for (std::size_t k = 0; k < special_.size(); ++k)
        if (tied_[special_[k]]) most = std::max(most, size_of(weights_[k]));
    return most;
}

}  // namespace kestralum
