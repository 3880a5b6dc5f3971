// Problems with prescribed displacements or forces on a mesh of one material, solved through the
// assembled K without the driver: for patch tests and convergence studies.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "elements/elasticity.h"
#include "elements/stresses.h"
#include "model/mesh.h"
#include "model/vector3.h"
#include "solver/ldl.h"
#include "solver/sparse.h"

namespace kestralum::testing {

struct Problem {
    const Mesh& mesh;
    Material material;
    // per node: true where all three displacements are prescribed
    std::function<bool(const double* x)> prescribed;
    std::function<void(const double* x, double* u)> displacement;
};

struct Solution {
    std::vector<double> u;  // 3 per node
    std::vector<Part> parts;
    Elasticity elasticity;
    PointResults points;
};

// One element's K and M, M with the material's density.
inline auto element_matrices(const Mesh& mesh, const Material& material, const Elasticity& elasticity) {
    return [&](std::int32_t e, double* ke, double* me) {
        const ElementType& type = element_type(mesh.element_type);
        ElementPoints points;
        if (!evaluate_points(type, mesh, e, points)) return false;
        element_stiffness(type, points, moduli(elasticity, 0), ke);
        type.mass(points.x.data(), me);
        for (int k = 0; k < type.nodes * type.nodes; ++k) me[k] *= material.density;
        return true;
    };
}

inline SparseKM assemble(const Mesh& mesh, const Material& material, const Elasticity& elasticity) {
    SparseKM km;
    SilentProgress silent;
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh), silent);
    count_overlap(neighbours, km, silent);
    build_index(neighbours, km, silent);
    find_diagonals(km);
    assemble_km(mesh, neighbours, element_matrices(mesh, material, elasticity), 2, km, silent);
    return km;
}

// The factor's files go to `log_folder`.
inline Solution solve(const Problem& problem, const std::string& log_folder) {
    SilentProgress silent;
    const Mesh& mesh = problem.mesh;
    Solution out;
    out.parts.resize(1);
    out.elasticity = build_elasticity(std::span(&problem.material, 1), silent);
    SparseKM km = assemble(mesh, problem.material, out.elasticity);
    out.u.assign(mesh.dof_num(), 0.0);
    std::vector<std::int32_t> map(mesh.dof_num(), -1), free;
    for (std::int32_t d = 0; d < mesh.dof_num(); ++d) {
        const double* x = &mesh.coordinates[d / 3 * 3];
        if (problem.prescribed(x)) {
            if (d % 3 == 0) problem.displacement(x, &out.u[d]);
            continue;
        }
        map[d] = static_cast<std::int32_t>(free.size());
        free.push_back(d);
    }
    std::vector<double> Ku(mesh.dof_num()), rhs;
    multiply(km, km.K_value, out.u, Ku);
    for (std::int32_t d : free) rhs.push_back(-Ku[d]);
    eliminate_fixed(map, km, silent);
    const Profile profile = make_profile(km);
    SkylineFactor factor(profile, plan_divisions(profile, 1e9, 1, profile.max_height, silent),
                         {.threads = 2, .log_folder = log_folder});
    if (factor.factor_ldl(km, km.K_value, silent) != FactorStatus::ok || !factor.solve_ldl(rhs)) {
        out.u.assign(mesh.dof_num(), std::nan(""));
        return out;
    }
    for (std::size_t k = 0; k < free.size(); ++k) out.u[free[k]] = rhs[k];
    point_stresses(mesh, out.parts, out.elasticity, out.u, 2, out.points, silent);
    return out;
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
