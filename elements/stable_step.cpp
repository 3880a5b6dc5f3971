#include "elements/stable_step.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "elements/elasticity.h"
#include "elements/plasticity.h"

namespace kestralum {

namespace {

constexpr int most_dofs = 3 * most_nodes;

IsotropicModuli moduli_of(const Material& material) {
    const J2Material<double> m = j2_material(material, false);
    const double lambda = m.bulk - 2.0 / 3.0 * m.shear;
    return {lambda + 2 * m.shear, lambda, m.shear};
}

}  // namespace

// Power iteration; the residual of the last round is added, so that what is left to gain is not lost.
double largest_eigenvalue(int size, const double* ke, const double* mass) {
    double root[most_dofs], a[most_dofs * most_dofs], x[most_dofs], y[most_dofs];
    for (int i = 0; i < size; ++i) root[i] = 1 / std::sqrt(mass[i]);
    for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j) a[i * size + j] = ke[i * size + j] * root[i] * root[j];
    // a start without symmetry: every mode is in it
    for (int i = 0; i < size; ++i) x[i] = std::sin(1.0 + 2.7 * i) + 0.1 * i;
    double value = 0;
    for (int round = 0; round < 400; ++round) {
        double norm = 0;
        for (int i = 0; i < size; ++i) norm += x[i] * x[i];
        norm = 1 / std::sqrt(norm);
        for (int i = 0; i < size; ++i) x[i] *= norm;
        double product = 0, residual = 0;
        for (int i = 0; i < size; ++i) {
            y[i] = 0;
            for (int j = 0; j < size; ++j) y[i] += a[i * size + j] * x[j];
            product += x[i] * y[i];
        }
        for (int i = 0; i < size; ++i) residual += (y[i] - product * x[i]) * (y[i] - product * x[i]);
        value = product + std::sqrt(residual);
        if (!(residual > 1e-8 * product * product)) break;  // 1e-4 of the value
        std::copy(y, y + size, x);
    }
    return value;
}

StepBound::StepBound(const Mesh& mesh, std::span<const Part> parts, std::span<const Material> materials,
                     double mass_factor, int threads, std::span<const char> rigid)
    : mesh_(mesh), parts_(parts), materials_(materials), type_(element_type(mesh.element_type)) {
    const std::int32_t elements = mesh.element_num();
    const std::size_t count = elements;
    std::vector<double> estimates(count), squared(count, 0.0);
    const std::size_t nodes = type_.nodes;
    mass_.resize(count * nodes);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e) {
        double x[most_dofs], me[most_nodes * most_nodes];
        gather(e, nullptr, x);
        type_.mass(x, me);
        const Part& part = parts_[mesh_.p_ele_part_id[e]];
        const double factor = materials_[part.material_id].density * mass_factor;
        for (std::size_t i = 0; i < nodes; ++i)
            mass_[static_cast<std::size_t>(e) * nodes + i] = me[i * (nodes + 1)] * factor;
        estimates[e] = estimate(e, x, nullptr);
    }
    // congruent elements of one part: the same estimate to rounding
    std::vector<std::int32_t> order;
    const bool any_strained = rigid.empty() || std::find(rigid.begin(), rigid.end(), 0) != rigid.end();
    for (std::int32_t e = 0; e < elements; ++e)
        if (rigid.empty() || !any_strained || !rigid[e]) order.push_back(e);
    auto part = [&](std::int32_t e) { return mesh.p_ele_part_id[e]; };
    std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) {
        if (part(a) != part(b)) return part(a) < part(b);
        const double x = estimates[a], y = estimates[b];
        return x != y ? x < y : a < b;
    });
    std::vector<std::size_t> heads;
    for (std::size_t k = 0; k < order.size(); ++k) {
        const bool same = k > 0 && part(order[k]) == part(order[heads.back()]) &&
                          estimates[order[k]] <= estimates[order[heads.back()]] * (1 + 1e-9);
        if (!same) heads.push_back(k);
    }
    const auto groups = static_cast<std::int64_t>(heads.size());
#pragma omp parallel for schedule(dynamic, 64) num_threads(threads)
    for (std::int64_t h = 0; h < groups; ++h) {
        const std::int32_t e = order[heads[h]];
        double x[most_dofs];
        gather(e, nullptr, x);
        estimate(e, x, &squared[e]);
    }
    ratio_.resize(count);
    double largest = 0;
    for (std::size_t h = 0; h < heads.size(); ++h) {
        const std::size_t head = order[heads[h]];
        const Material& material = materials_[parts_[part(order[heads[h]])].material_id];
        const double size = 2 * std::sqrt(moduli_of(material).a / material.density / squared[head]);
        if (h == 0 || size < least_size_) least_size_ = size;
        for (std::size_t k = heads[h]; k < (h + 1 < heads.size() ? heads[h + 1] : order.size()); ++k)
            ratio_[order[k]] = squared[head] / estimates[head];
        if (squared[head] > largest) {
            largest = squared[head];
            undeformed_ = {2 / std::sqrt(largest), static_cast<std::int32_t>(head)};
        }
    }
}

StepBound::StepBound(const StepBound& whole, const Mesh& mesh, std::span<const std::int32_t> elements)
    : mesh_(mesh),
      parts_(whole.parts_),
      materials_(whole.materials_),
      type_(whole.type_),
      undeformed_(whole.undeformed_),
      least_size_(whole.least_size_) {
    const auto nodes = static_cast<std::ptrdiff_t>(type_.nodes);
    for (const std::int32_t e : elements) {
        const auto first = whole.mass_.begin() + nodes * e;
        mass_.insert(mass_.end(), first, first + nodes);
        ratio_.push_back(whole.ratio_[e]);
    }
}

AddedMass StepBound::add_mass(double step) {
    AddedMass added;
    added.nodes.assign(mesh_.node_num(), 0.0);
    added.parts.assign(parts_.size(), 0.0);
    added.present = added.parts;
    added.elements.assign(parts_.size(), 0);
    const std::size_t nodes = type_.nodes;
    StableStep reached;
    for (std::int32_t e = 0; e < mesh_.element_num(); ++e) {
        double x[most_dofs];
        gather(e, nullptr, x);
        const double squared = estimate(e, x, nullptr) * ratio_[e], factor = squared * step * step / 4;
        const std::int32_t part = mesh_.p_ele_part_id[e];
        const bool gets = factor > 1 + 1e-9;
        added.elements[part] += gets;
        for (std::size_t i = 0; i < nodes; ++i) {
            double& mass = mass_[static_cast<std::size_t>(e) * nodes + i];
            added.present[part] += mass;
            if (!gets) continue;
            added.nodes[node_index(mesh_.element(e)[i])] += (factor - 1) * mass;
            added.parts[part] += (factor - 1) * mass;
            mass *= factor;
        }
        const double own = 2 / std::sqrt(gets ? squared / factor : squared);
        if (reached.element < 0 || own < reached.step) reached = {own, e};
    }
    if (std::ranges::any_of(added.elements, [](std::int32_t count) { return count > 0; }))
        undeformed_ = reached;
    return added;
}

void StepBound::gather(std::int32_t e, const double* x4, double* coordinates) const {
    const std::int32_t* element = mesh_.connectivity.data() + static_cast<std::ptrdiff_t>(e) * type_.nodes;
    for (int i = 0; i < type_.nodes; ++i) {
        const std::int64_t n = node_index(element[i]);
        const double* from = x4 ? x4 + 4 * n : mesh_.coordinates.data() + 3 * n;
        std::copy(from, from + 3, coordinates + 3 * i);
    }
}

// The estimate is the trace of diag(mass)⁻¹ Ke; with `squared_frequency` its largest eigenvalue too.
double StepBound::estimate(std::int32_t e, const double* coordinates, double* squared_frequency) const {
    const Part& part = parts_[mesh_.p_ele_part_id[e]];
    const IsotropicModuli D = moduli_of(materials_[part.material_id]);
    ElementPoints points;
    type_.gradients(coordinates, points.dN.data(), points.weight.data());
    const double* mass = mass_.data() + static_cast<std::size_t>(e) * static_cast<std::size_t>(type_.nodes);
    double trace = 0;
    for (int p = 0; p < type_.points; ++p)
        for (int i = 0; i < type_.nodes; ++i) {
            const double* d = points.dN.data() + 3 * (type_.nodes * p + i);
            trace += points.weight[p] * (D.a + 2 * D.g) * (d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) / mass[i];
        }
    if (squared_frequency) {
        double ke[most_dofs * most_dofs], of_dof[most_dofs];
        for (int i = 0; i < 3 * type_.nodes; ++i) of_dof[i] = mass[i / 3];
        element_stiffness(type_, points, D, ke);
        *squared_frequency = largest_eigenvalue(3 * type_.nodes, ke, of_dof);
    }
    return trace;
}

namespace {

constexpr std::size_t most_in_full = 16;  // elements whose frequency is computed

}  // namespace

const std::size_t StepBound::most_candidates = most_in_full + 1;

std::vector<double> StepBound::estimates_at(const double* x, int threads) const {
    const std::int32_t elements = mesh_.element_num();
    std::vector<double> estimates(elements);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e) {
        if (ratio_[e] == 0) continue;
        double at[most_dofs];
        gather(e, x, at);
        estimates[e] = estimate(e, at, nullptr) * ratio_[e];
    }
    return estimates;
}

void StepBound::put_highest_first(std::vector<std::int32_t>& candidates, std::size_t few,
                                  const std::vector<double>& estimates) {
    std::partial_sort(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(few),
                      candidates.end(), [&](std::int32_t a, std::int32_t b) {
                          const double p = estimates[a], q = estimates[b];
                          return p != q ? p > q : a < b;
                      });
}

std::vector<StepBound::Candidate> StepBound::highest(const double* x, int threads) const {
    const std::vector<double> estimates = estimates_at(x, threads);
    std::vector<std::int32_t> elements(estimates.size());
    std::iota(elements.begin(), elements.end(), 0);
    for (const std::int32_t e : elements)
        if (!std::isfinite(estimates[e])) return {{estimates[e], e}};
    const std::size_t count = std::min(most_candidates, elements.size());
    put_highest_first(elements, count, estimates);
    std::vector<Candidate> out;
    for (std::size_t k = 0; k < count; ++k) out.push_back({estimates[elements[k]], elements[k]});
    return out;
}

StableStep StepBound::judged(const double* x, std::span<const Candidate> highest) const {
    if (highest.empty() || !std::isfinite(highest.front().estimate)) return {};
    const std::size_t few = std::min(most_in_full, highest.size());
    double largest = highest.size() > few ? highest[few].estimate : 0;
    std::int32_t worst = highest.back().element;
    for (std::size_t k = 0; k < few; ++k) {
        const std::int32_t e = highest[k].element;
        if (e < 0 || !(ratio_[e] > 0)) continue;
        double at[most_dofs], squared = 0;
        gather(e, x, at);
        estimate(e, at, &squared);
        if (squared > largest) worst = e;
        largest = std::max(largest, squared);
    }
    return {2 / std::sqrt(largest), worst};
}

StableStep StepBound::now(const double* x, int threads) const {
    return judged(x, highest(x, threads));
}

StableStep StepBound::worst_above(const double* x, double step, int threads) const {
    const double limit = 4 / (step * step);
    const std::int32_t elements = mesh_.element_num();
    const std::vector<double> estimates = estimates_at(x, threads);
    // a fifth below the limit the change of shape may have changed the ratio as well
    std::vector<std::int32_t> candidates;
    for (std::int32_t e = 0; e < elements; ++e)
        if (!(estimates[e] <= 0.8 * limit)) candidates.push_back(e);
    const std::size_t few = std::min(candidates.size(), most_in_full);
    put_highest_first(candidates, few, estimates);
    StableStep worst;
    for (std::size_t k = 0; k < few; ++k) {
        double at[most_dofs], squared = 0;
        gather(candidates[k], x, at);
        estimate(candidates[k], at, &squared);
        if (squared > std::max(limit, worst.step)) worst = {squared, candidates[k]};
    }
    if (worst.element >= 0) worst.step = 2 / std::sqrt(worst.step);
    return worst;
}

}  // namespace kestralum
