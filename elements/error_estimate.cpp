#include "elements/error_estimate.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "elements/element_type.h"

namespace kestralum {

namespace {

using Stress = std::array<double, 6>;

// aᵀ D⁻¹ b of isotropic elasticity, times E.
double product(const Stress& a, const Stress& b, double poisson) {
    double sum = 0;
    for (std::size_t c = 0; c < 6; ++c) sum += (c < 3 ? 1 : 2) * a[c] * b[c];
    return (1 + poisson) * sum - poisson * (a[0] + a[1] + a[2]) * (b[0] + b[1] + b[2]);
}

class Recovered {
public:
    Recovered(const Mesh& mesh, const NodeElements& node_elements, const PointResults& points,
              std::span<const double> node_stress)
        : mesh_(mesh),
          node_elements_(node_elements),
          points_(points),
          node_stress_(node_stress),
          type_(element_type(mesh.element_type)) {
        several_.resize(mesh.node_num());
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            const auto around = node_elements.of(n);
            for (const std::int32_t e : around)
                if (mesh.p_ele_part_id[e] != mesh.p_ele_part_id[around[0]]) several_[n] = 1;
        }
    }

    // The recovered stress at a node, as element e's part has it.
    Stress at(std::int32_t n, std::int32_t e) const {
        Stress out{};
        if (several_[n]) return part_average(n, mesh_.p_ele_part_id[e]);
        const std::size_t dofs = mesh_.dof_num();
        for (std::size_t c = 0; c < 6; ++c) out[c] = node_stress_[c / 3 * dofs + 3 * n + c % 3];
        return out;
    }

private:
    Stress part_average(std::int32_t n, std::int32_t part) const {
        Stress sum{};
        double volume = 0;
        for (const std::int32_t e : node_elements_.of(n)) {
            if (mesh_.p_ele_part_id[e] != part) continue;
            const auto nodes = mesh_.element(e);
            const auto local = std::find(nodes.begin(), nodes.end(), n + 1) - nodes.begin();
            volume += points_.volume[e];
            for (int p = 0; p < type_.points; ++p) {
                const double factor = points_.volume[e] * type_.extrapolation[local * type_.points + p];
                for (std::size_t c = 0; c < 6; ++c)
                    sum[c] += factor * points_.stress[6 * (std::size_t(e) * type_.points + p) + c];
            }
        }
        for (double& s : sum) s /= volume;
        return sum;
    }

    const Mesh& mesh_;
    const NodeElements& node_elements_;
    const PointResults& points_;
    std::span<const double> node_stress_;
    const ElementType& type_;
    std::vector<char> several_;  // per node: elements of several parts meet there
};

Stress stress_at(const PointResults& points, const ElementType& type, std::int32_t e, int p) {
    Stress out;
    for (std::size_t c = 0; c < 6; ++c) out[c] = points.stress[6 * (std::size_t(e) * type.points + p) + c];
    return out;
}

// Of an element with one constant stress: the difference runs linearly between its nodes, ∫ Ni Nj = V (1 +
// δij)/20.
ElementEnergies of_constant(const std::array<Stress, most_nodes>& nodal, const Stress& own, double volume,
                            double E, double poisson) {
    ElementEnergies out;
    std::array<Stress, 4> d;
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t c = 0; c < 6; ++c) d[i][c] = nodal[i][c] - own[c];
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            out.error += volume / 20 * (i == j ? 2 : 1) * product(d[i], d[j], poisson) / E;
    out.stress = volume * product(own, own, poisson) / E;
    return out;
}

ElementEnergies of_element(const Mesh& mesh, const ElementType& type, const PointResults& points,
                           const Recovered& recovered, const Material& material, std::int32_t e) {
    const auto nodes = mesh.element(e);
    std::array<Stress, most_nodes> nodal;
    for (int i = 0; i < type.nodes; ++i)
        nodal[i] = recovered.at(static_cast<std::int32_t>(node_index(nodes[i])), e);
    if (type.points == 1)
        return of_constant(nodal, stress_at(points, type, e, 0), points.volume[e], material.young,
                           material.poisson);
    const double* weight = points.weight.data() + std::ptrdiff_t(e) * type.points;
    ElementEnergies out;
    for (int p = 0; p < type.points; ++p) {
        const Stress own = stress_at(points, type, e, p);
        Stress d{};
        for (int i = 0; i < type.nodes; ++i)
            for (std::size_t c = 0; c < 6; ++c) d[c] += type.shape[p * type.nodes + i] * nodal[i][c];
        for (std::size_t c = 0; c < 6; ++c) d[c] -= own[c];
        out.error += weight[p] * product(d, d, material.poisson) / material.young;
        out.stress += weight[p] * product(own, own, material.poisson) / material.young;
    }
    return out;
}

}  // namespace

std::vector<ElementEnergies> element_energies(const Mesh& mesh, std::span<const Part> parts,
                                              std::span<const Material> materials,
                                              const NodeElements& node_elements, const PointResults& points,
                                              std::span<const double> node_stress, int threads) {
    const ElementType& type = element_type(mesh.element_type);
    const Recovered recovered(mesh, node_elements, points, node_stress);
    const std::int32_t elements = mesh.element_num();
    std::vector<ElementEnergies> energies(elements);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e)
        energies[e] =
            of_element(mesh, type, points, recovered, materials[parts[mesh.p_ele_part_id[e]].material_id], e);
    return energies;
}

ErrorEstimate estimate_error(const Mesh& mesh, std::span<const Part> parts,
                             std::span<const Material> materials, const NodeElements& node_elements,
                             const PointResults& points, std::span<const double> node_stress, int threads) {
    const std::vector<ElementEnergies> energies =
        element_energies(mesh, parts, materials, node_elements, points, node_stress, threads);
    const std::int32_t elements = mesh.element_num();
    ErrorEstimate out;
    double error = 0, stress = 0, volume = 0;
    for (std::int32_t e = 0; e < elements; ++e) {
        error += energies[e].error;
        stress += energies[e].stress;
        volume += points.volume[e];
        if (energies[e].error > 0 && (out.worst < 0 || energies[e].error > energies[out.worst].error))
            out.worst = e;
    }
    out.strain_energy = 0.5 * stress;
    out.element.assign(elements, 0.0);
    if (!(error + stress > 0)) return out;
    out.relative = std::sqrt(error / (error + stress));
    for (std::int32_t e = 0; e < elements; ++e)
        out.element[e] = std::sqrt(energies[e].error / points.volume[e] * volume / (error + stress));
    return out;
}

std::vector<double> nodal_error(const Mesh& mesh, const NodeElements& node_elements,
                                const ErrorEstimate& estimate, std::span<const double> volume) {
    std::vector<double> out(mesh.node_num(), 0.0);
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        double all = 0;
        for (const std::int32_t e : node_elements.of(n)) {
            out[n] += volume[e] * estimate.element[e];
            all += volume[e];
        }
        if (all > 0) out[n] /= all;
    }
    return out;
}

}  // namespace kestralum
