#include "elements/body_loads.h"

#include "elements/element_type.h"

namespace kestralum {

void add_body_force(const Mesh& mesh, std::span<const double> density,
                    const std::function<Vec3(const Vec3& x)>& acceleration, std::span<double> nodal) {
    const ElementType& type = element_type(mesh.element_type);
    std::array<double, most_nodes * most_nodes> mass;
    std::array<double, 3 * most_nodes> x;
    std::array<Vec3, most_nodes> b;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto element = mesh.element(e);
        for (std::size_t j = 0; j < element.size(); ++j) {
            const Vec3 at = place_of(mesh, node_index(element[j]));
            for (std::size_t c = 0; c < 3; ++c) x[3 * j + c] = at[c];
            b[j] = acceleration(at);
        }
        type.mass(x.data(), mass.data());
        const double rho = density[mesh.p_ele_part_id[e]];
        for (std::size_t i = 0; i < element.size(); ++i)
            for (std::size_t j = 0; j < element.size(); ++j)
                for (std::size_t c = 0; c < 3; ++c)
                    nodal[3 * node_index(element[i]) + c] += rho * mass[i * element.size() + j] * b[j][c];
    }
}

void add_thermal_strain(const Mesh& mesh, std::span<const double> expansion,
                        std::span<const char> part_chosen, const FieldExpression& temperature,
                        double reference, double time, double factor, std::span<double> strain, int threads) {
    const ElementType& type = element_type(mesh.element_type);
#pragma omp parallel for schedule(static) num_threads(threads) if (threads > 1)
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::int32_t part = mesh.p_ele_part_id[e];
        if (!part_chosen[part]) continue;
        const auto element = mesh.element(e);
        for (int p = 0; p < type.points; ++p) {
            Vec3 x{};
            for (int i = 0; i < type.nodes; ++i)
                x = plus(x, times(type.shape[p * type.nodes + i], place_of(mesh, node_index(element[i]))));
            strain[std::int64_t{e} * type.points + p] +=
                factor * expansion[part] * (temperature.at(x.data(), time) - reference);
        }
    }
}

}  // namespace kestralum
