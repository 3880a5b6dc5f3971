#include "analysis/explicit/explicit_viscosity.h"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

#include "elements/plasticity.h"

namespace kestralum {

namespace {

constexpr std::int64_t longest_interval = 64;                // steps
constexpr double small_change = 0.005, large_change = 0.02;  // of a length, between two looks

double damped_share(double xi) {
    return std::sqrt(1 + xi * xi) - xi;
}

}  // namespace

BulkViscosity::BulkViscosity(const Model& model, const Mesh& mesh, std::span<const char> rigid)
    : linear_(model.control.linear_viscosity),
      quadratic_(model.control.quadratic_viscosity),
      rigid_(rigid.begin(), rigid.end()) {
    for (const std::int32_t p : mesh.p_ele_part_id) {
        const Material& material = model.materials[model.parts[p].material_id];
        const J2Material<double> m = j2_material(material, false);
        density_.push_back(material.density);
        const double pressing = m.bulk + 4.0 / 3.0 * m.shear;
        speed_.push_back(std::sqrt(pressing / material.density));
        stiffer_.push_back(pressing / m.bulk);
    }
    stiffest_ = *std::ranges::max_element(stiffer_);
    length_.assign(density_.size(), 0.0);
    weight_.assign(density_.size(), 0.0);
}

// The largest change of a length, as a share of it. An element without a frequency keeps its length.
double BulkViscosity::find_lengths(const double* x, const StepBound& bound, int threads) {
    const std::vector<double> squared = bound.estimates_at(x, threads);
    double change = 0;
    for (std::size_t e = 0; e < length_.size(); ++e) {
        const double length = 2 * speed_[e] / std::sqrt(squared[e]);
        if (!(length > 0) || !std::isfinite(length) || (!rigid_.empty() && rigid_[e])) continue;
        change = std::max(change, std::abs(length - length_[e]) / length);
        length_[e] = length;
        weight_[e] = quadratic_ * quadratic_ * length / speed_[e] * stiffer_[e];
    }
    return change;
}

void BulkViscosity::set(ElementBlocks& blocks) {
    std::vector<double> linear(length_.size()), quadratic(length_.size());
    for (std::size_t e = 0; e < length_.size(); ++e) {
        const double l = length_[e], along = quadratic_ * l;
        linear[e] = density_[e] * speed_[e] * linear_ * l;
        quadratic[e] = density_[e] * along * along;
    }
    blocks.set_viscosity(linear, quadratic);
}

void BulkViscosity::follow(std::int64_t step, const double* x, const StepBound& bound, int threads,
                           ElementBlocks& blocks, const ExplicitTeam* ranks) {
    if (step < next_) return;
    double change = find_lengths(x, bound, threads);
    if (ranks) change = ranks->largest(change);
    set(blocks);
    if (change > large_change) interval_ = std::max<std::int64_t>(1, interval_ / 2);
    if (change < small_change) interval_ = std::min(longest_interval, 2 * interval_);
    next_ = step + interval_;
}

void BulkViscosity::keep(std::span<const std::int32_t> elements) {
    const auto keep = [&](auto& values) {
        if (values.empty()) return;
        std::remove_reference_t<decltype(values)> out;
        for (const std::int32_t e : elements) out.push_back(values[e]);
        values = std::move(out);
    };
    for (std::vector<double>* values : {&density_, &speed_, &stiffer_, &length_, &weight_}) keep(*values);
    keep(rigid_);
}

double BulkViscosity::share_at_rest() const {
    return damped_share(linear_ * stiffest_);
}

double BulkViscosity::share_now(const ElementBlocks& blocks) const {
    return damped_share(linear_ * stiffest_ + blocks.largest_compression(weight_));
}

}  // namespace kestralum
