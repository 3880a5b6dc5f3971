#include "elements/stresses.h"

#include <algorithm>

#include "elements/linear_element.h"

namespace kestralum {

void point_stresses(const Mesh& mesh, std::span<const Part> parts, const Elasticity& elasticity,
                    std::span<const double> u, int threads, PointResults& out, const Progress& progress,
                    const PointOptions& options) {
    const ElementType& type = element_type(mesh.element_type);
    const std::int32_t elements = mesh.element_num();
    const std::size_t values = std::size_t(6) * type.points * elements;
    out.stress.resize(values);
    out.strain.resize(values);
    out.volume.resize(elements);
    out.weight.resize(values / 6);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (std::int32_t e = 0; e < elements; ++e) {
        if (progress.cancelled()) continue;
        ElementPoints points;
        evaluate_points(type, mesh, e, points);
        out.volume[e] = element_volume(type, points);
        std::copy_n(points.weight.begin(), type.points, out.weight.begin() + std::ptrdiff_t(e) * type.points);
        const std::int32_t* element = mesh.element(e).data();
        double at[3 * most_nodes];
        for (int i = 0; i < type.nodes; ++i) {
            const double* from = u.data() + 3 * node_index(element[i]);
            std::copy(from, from + 3, at + 3 * i);
        }
        const std::size_t first = 6 * std::size_t(e) * type.points;
        element_stresses(type, points, moduli(elasticity, parts[mesh.p_ele_part_id[e]].material_id),
                         options.form, at, options.initial.empty() ? nullptr : options.initial.data() + first,
                         out.strain.data() + first, out.stress.data() + first);
    }
}

namespace {

// One part's average at a node.
struct PartAverage {
    std::int32_t part;
    double volume;
    double value[13];  // six stresses, six strains, equivalent plastic strain
};

// Adds element e's values, extrapolated to its local node, to its part's average.
void add_element(const ElementType& type, const PointResults& points, std::span<const double> plastic,
                 std::int32_t e, int local, PartAverage& average) {
    const double volume = points.volume[e];
    average.volume += volume;
    double sum[12];  // apart from the points' arrays, so that it stays in registers
    std::copy_n(average.value, 12, sum);
    for (int p = 0; p < type.points; ++p) {
        const double factor = volume * type.extrapolation[local * type.points + p];
        const std::size_t at = std::size_t(e) * type.points + p;
        for (std::size_t c = 0; c < 6; ++c) {
            sum[c] += factor * points.stress[6 * at + c];
            sum[6 + c] += factor * points.strain[6 * at + c];
        }
        if (!plastic.empty()) average.value[12] += factor * plastic[at];
    }
    std::copy_n(sum, 12, average.value);
}

// Writes the governing part's average into the node's slots of the five groups.
void store_node(std::span<PartAverage> averages, std::size_t node, std::size_t dof_num,
                std::span<double> out) {
    const PartAverage* governing = nullptr;
    double largest = -1;
    for (PartAverage& average : averages) {
        for (double& value : average.value) value /= average.volume;
        const double equivalent = mises(average.value);
        if (!governing || equivalent > largest) {
            governing = &average;
            largest = equivalent;
        }
    }
    if (!governing) return;
    for (std::size_t group = 0; group < 4; ++group)
        for (std::size_t c = 0; c < 3; ++c)
            out[group * dof_num + 3 * node + c] = governing->value[3 * group + c];
    double* last = &out[4 * dof_num + 3 * node];
    last[0] = largest;
    last[1] = std::max(governing->value[12], 0.0);
    last[2] = largest_principal(governing->value);
}

}  // namespace

void mean_stress_strain(const Mesh& mesh, const NodeElements& node_elements, const PointResults& points,
                        std::span<const double> plastic_strain, int threads, std::span<double> node_stress,
                        Progress& progress) {
    const ElementType& type = element_type(mesh.element_type);
    const std::int32_t nodes = mesh.node_num();
    const std::size_t dof_num = 3 * nodes;
#pragma omp parallel num_threads(threads)
    {
        std::vector<PartAverage> averages;
        averages.reserve(8);
#pragma omp for schedule(static)
        for (std::int32_t n = 0; n < nodes; ++n) {
            if (progress.cancelled()) continue;
            averages.clear();
            for (const std::int32_t e : node_elements.of(n)) {
                const auto element = mesh.element(e);
                const auto local =
                    static_cast<int>(std::find(element.begin(), element.end(), n + 1) - element.begin());
                const std::int32_t part = mesh.p_ele_part_id[e];
                auto average = std::find_if(averages.begin(), averages.end(),
                                            [&](const PartAverage& a) { return a.part == part; });
                if (average == averages.end())
                    average = averages.insert(averages.end(), PartAverage{part, 0, {}});
                add_element(type, points, plastic_strain, e, local, *average);
            }
            store_node(averages, n, dof_num, node_stress);
        }
    }
    progress.print("mean_stress_strain\n");
}

std::vector<float> point_means(std::span<const double> values, int points, int components) {
    const std::size_t own = std::size_t(points) * components, width = components;
    std::vector<float> out(values.size() / points);
    for (std::size_t k = 0; k < out.size(); ++k) {
        const double* first = values.data() + k / width * own + k % width;
        double sum = 0;
        for (int p = 0; p < points; ++p) sum += first[width * p];
        out[k] = static_cast<float>(sum / points);
    }
    return out;
}

std::vector<double> internal_forces(const Mesh& mesh, const PointResults& points,
                                    std::span<const char> wanted, HexahedronForm form) {
    const ElementType& type = element_type(mesh.element_type);
    std::vector<double> force(mesh.coordinates.size(), 0.0);
    ElementPoints element_points;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::int32_t* element = mesh.element(e).data();
        if (std::none_of(element, element + type.nodes,
                         [&](std::int32_t n) { return wanted[node_index(n)]; }))
            continue;
        evaluate_points(type, mesh, e, element_points);
        double stress[6 * most_points];
        balancing_stresses(type, element_points, form,
                           points.stress.data() + 6 * std::ptrdiff_t(e) * type.points, stress);
        for (int p = 0; p < type.points; ++p) {
            const double* s = stress + 6 * p;
            const double w = element_points.weight[p];
            for (int i = 0; i < type.nodes; ++i) {
                if (!wanted[node_index(element[i])]) continue;
                const double* d = element_points.dN.data() + 3 * (type.nodes * p + i);
                double* f = force.data() + 3 * node_index(element[i]);
                f[0] += w * (s[0] * d[0] + s[3] * d[1] + s[5] * d[2]);
                f[1] += w * (s[3] * d[0] + s[1] * d[1] + s[4] * d[2]);
                f[2] += w * (s[5] * d[0] + s[4] * d[1] + s[2] * d[2]);
            }
        }
    }
    return force;
}

}  // namespace kestralum
