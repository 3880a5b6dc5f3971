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

// Node forces of the uniform traction t (N/m^2) on the free faces where on_face holds at all corners:
// Σ ∫ N t dA, exact for flat faces (bilinear and linear faces; on the six-node triangle only the
// mid-side nodes carry, a third each).
inline std::vector<double> consistent_forces(const Mesh& mesh, const double* t,
                                             const std::function<bool(const double*)>& on_face) {
    std::vector<double> force(mesh.coordinates.size(), 0.0);
    const ElementKind kind = mesh.element_type;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::int32_t* element = &mesh.connectivity[e * mesh.node_per_element()];
        const auto x = [&](int p) { return triple(mesh.coordinates, node_index(element[p])); };
        for (int f = 0; f < face_table(kind).faces; ++f) {
            const auto corners = face_corners(kind, f);
            if (!std::ranges::all_of(corners, [&](int p) { return on_face(x(p).data()); })) continue;
            const Vec3 a = x(corners[0]);
            const double area = norm(cross(minus(x(corners[1]), a), minus(x(corners[2]), a))) *
                                (kind == ElementKind::hexahedron ? 1 : 0.5);
            std::vector<int> carriers(corners.begin(), corners.end());
            if (kind == ElementKind::tetrahedron10) {
                carriers.clear();
                for (int m = 0; m < 6; ++m)
                    if (std::ranges::count(corners, tetra10_edge[m][0]) > 0 &&
                        std::ranges::count(corners, tetra10_edge[m][1]) > 0)
                        carriers.push_back(4 + m);
            }
            for (int p : carriers)
                for (int k = 0; k < 3; ++k)
                    force[3 * (element[p] - 1) + k] += t[k] * area / static_cast<double>(carriers.size());
        }
    }
    return force;
}

}  // namespace kestralum::testing
