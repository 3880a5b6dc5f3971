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

StepBound::StepBound(const Mesh& mesh, std::span<const Part> parts, std::span<const Material> materials, double mass_factor, int threads)
    : mesh_(mesh), parts_(parts), materials_(materials), type_(element_type(mesh.element_type)), mass_factor_(mass_factor) {
    const std::int32_t elements = mesh.element_num();
    const auto count = static_cast<std::size_t>(elements);
    std::vector<double> estimates(count), squared(count, 0.0);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e) {
        double x[most_dofs];
        gather(e, nullptr, x);
        estimates[static_cast<std::size_t>(e)] = estimate(e, x, nullptr);
    }
    // congruent elements of one part: the same estimate to rounding
    std::vector<std::int32_t> order(count);
    std::iota(order.begin(), order.end(), 0);
    auto part = [&](std::int32_t e) { return mesh.p_ele_part_id[static_cast<std::size_t>(e)]; };
    std::sort(order.begin(), order.end(), [&](std::int32_t a, std::int32_t b) {
        if (part(a) != part(b)) return part(a) < part(b);
        const double x = estimates[static_cast<std::size_t>(a)], y = estimates[static_cast<std::size_t>(b)];
        return x != y ? x < y : a < b;
    });
    std::vector<std::size_t> heads;
    for (std::size_t k = 0; k < count; ++k) {
        const bool same = k > 0 && part(order[k]) == part(order[heads.back()]) &&
                          estimates[static_cast<std::size_t>(order[k])] <= estimates[static_cast<std::size_t>(order[heads.back()])] * (1 + 1e-9);
        if (!same) heads.push_back(k);
    }
    const auto groups = static_cast<std::int64_t>(heads.size());
#pragma omp parallel for schedule(dynamic, 64) num_threads(threads)
    for (std::int64_t h = 0; h < groups; ++h) {
        const std::int32_t e = order[heads[static_cast<std::size_t>(h)]];
        double x[most_dofs];
        gather(e, nullptr, x);
        estimate(e, x, &squared[static_cast<std::size_t>(e)]);
    }
    ratio_.resize(count);
    double largest = 0;
    for (std::size_t h = 0; h < heads.size(); ++h) {
        const auto head = static_cast<std::size_t>(order[heads[h]]);
        for (std::size_t k = heads[h]; k < (h + 1 < heads.size() ? heads[h + 1] : count); ++k)
            ratio_[static_cast<std::size_t>(order[k])] = squared[head] / estimates[head];
        if (squared[head] > largest) {
            largest = squared[head];
            undeformed_ = {2 / std::sqrt(largest), static_cast<std::int32_t>(head)};
        }
    }
}

void StepBound::gather(std::int32_t e, const double* x4, double* coordinates) const {
    const std::int32_t* element = mesh_.connectivity.data() + static_cast<std::ptrdiff_t>(e) * type_.nodes;
    for (int i = 0; i < type_.nodes; ++i) {
        const std::int64_t n = node_index(element[i]);
        const double* from = x4 ? x4 + 4 * n : mesh_.coordinates.data() + 3 * n;
        std::copy(from, from + 3, coordinates + 3 * i);
    }
}

void StepBound::element_mass(std::int32_t e, double* mass) const {
    double x[most_dofs], me[most_nodes * most_nodes];
    gather(e, nullptr, x);
    type_.mass(x, me);
    const Part& part = parts_[static_cast<std::size_t>(mesh_.p_ele_part_id[static_cast<std::size_t>(e)])];
    const double density = materials_[static_cast<std::size_t>(part.material_id)].density;
    for (int i = 0; i < type_.nodes; ++i)
        for (int c = 0; c < 3; ++c) mass[3 * i + c] = me[i * type_.nodes + i] * density * mass_factor_;
}

// The estimate is the trace of diag(mass)⁻¹ Ke; with `squared_frequency` its largest eigenvalue too.
double StepBound::estimate(std::int32_t e, const double* coordinates, double* squared_frequency) const {
    const Part& part = parts_[static_cast<std::size_t>(mesh_.p_ele_part_id[static_cast<std::size_t>(e)])];
    const IsotropicModuli D = moduli_of(materials_[static_cast<std::size_t>(part.material_id)]);
    ElementPoints points;
    type_.gradients(coordinates, points.dN.data(), points.weight.data());
    double mass[most_dofs];
    element_mass(e, mass);
    double trace = 0;
    for (int p = 0; p < type_.points; ++p)
        for (int i = 0; i < type_.nodes; ++i) {
            const double* d = points.dN.data() + 3 * (type_.nodes * p + i);
            trace += points.weight[static_cast<std::size_t>(p)] * (D.a + 2 * D.g) * (d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) / mass[3 * i];
        }
    if (squared_frequency) {
        double ke[most_dofs * most_dofs];
        element_stiffness(type_, points, D, ke);
        *squared_frequency = largest_eigenvalue(3 * type_.nodes, ke, mass);
    }
    return trace;
}

StableStep StepBound::worst_above(const double* x, double step, int threads) const {
    const double limit = 4 / (step * step);
    const std::int32_t elements = mesh_.element_num();
    std::vector<double> squared(static_cast<std::size_t>(elements), 0.0);
#pragma omp parallel for schedule(dynamic, 256) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e) {
        double at[most_dofs];
        gather(e, x, at);
        // a fifth below the limit the change of shape may have changed the ratio as well
        if (estimate(e, at, nullptr) * ratio_[static_cast<std::size_t>(e)] > 0.8 * limit) estimate(e, at, &squared[static_cast<std::size_t>(e)]);
    }
    StableStep worst;
    for (std::int32_t e = 0; e < elements; ++e)
        if (squared[static_cast<std::size_t>(e)] > std::max(limit, worst.step)) worst = {squared[static_cast<std::size_t>(e)], e};
    if (worst.element >= 0) worst.step = 2 / std::sqrt(worst.step);
    return worst;
}

}  // namespace kestralum
