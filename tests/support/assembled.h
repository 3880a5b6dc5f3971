// Matrices and loads of a mesh of one material, without a driver.
#pragma once

#include <vector>

#include "elements/linear_element.h"
#include "elements/stresses.h"
#include "model/mesh.h"
#include "solver/sparse.h"

namespace kestralum::testing {

// One element's K and M, M with the material's density.
inline auto element_matrices(const Mesh& mesh, const Material& material, const Elasticity& elasticity,
                             HexahedronForm form = HexahedronForm::full) {
    return [&, form](std::int32_t e, double* ke, double* me) {
        const ElementType& type = element_type(mesh.element_type);
        ElementPoints points;
        if (!evaluate_points(type, mesh, e, points)) return false;
        element_stiffness(type, points, moduli(elasticity, 0), form, ke);
        type.mass(points.x.data(), me);
        for (int k = 0; k < type.nodes * type.nodes; ++k) me[k] *= material.density;
        return true;
    };
}

inline SparseKM assemble(const Mesh& mesh, const Material& material, const Elasticity& elasticity,
                         HexahedronForm form = HexahedronForm::full) {
    SparseKM km;
    SilentProgress silent;
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh), silent);
    count_overlap(neighbours, km, silent);
    build_index(neighbours, km, silent);
    find_diagonals(km);
    assemble_km(mesh, neighbours, element_matrices(mesh, material, elasticity, form), 2, km, silent);
    return km;
}

// Node forces of the uniform traction along `axis` (N/m^2) on the upper end of the mesh: Σ ∫ Bᵀ σ dV of the
// stress that is in balance with it.
inline std::vector<double> end_forces(const Mesh& mesh, std::size_t axis, double traction) {
    constexpr std::size_t component[] = {5, 4, 2};  // zx, yz, zz
    const std::size_t points = static_cast<std::size_t>(element_type(mesh.element_type).points);
    PointResults uniform;
    uniform.stress.assign(6 * points * static_cast<std::size_t>(mesh.element_num()), 0.0);
    for (std::size_t k = component[axis]; k < uniform.stress.size(); k += 6) uniform.stress[k] = traction;
    std::vector<char> end;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n)
        end.push_back(mesh.node(n)[2] > mesh.size_info[5] - 1e-9);
    std::vector<double> force = internal_forces(mesh, uniform, end);
    for (std::size_t d = 0; d < force.size(); ++d)
        if (d % 3 != axis) force[d] = 0;  // of the sides, which the shear stress would need
    return force;
}

}  // namespace kestralum::testing
