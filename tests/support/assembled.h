// Problems with prescribed displacements or forces on a mesh of one material, solved through the
// assembled K without the driver: for patch tests and convergence studies.
#pragma once

#include <cmath>
#include <functional>
#include <vector>

#include "elements/elasticity.h"
#include "elements/stresses.h"
#include "model/model_store.h"
#include "solver/ldl.h"
#include "solver/sparse.h"

namespace kestralum::testing {

struct Problem {
    const Mesh& mesh;
    Material material;
    // per node: true where all three displacements are prescribed
    std::function<bool(const double* x)> prescribed;
    std::function<void(const double* x, double* u)> displacement;
    std::vector<double> force = {};  // 3 per node, N; may be empty
};

struct Solution {
    std::vector<double> u;  // 3 per node
    std::vector<Part> parts;
    Elasticity elasticity;
    PointResults points;
};

inline SparseKM assemble(const Mesh& mesh, const Material& material, const Elasticity& elasticity) {
    SparseKM km;
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, elements_of_nodes(mesh));
    count_overlap(neighbours, km);
    build_index(neighbours, km);
    find_diagonals(km);
    const ElementType& type = element_type(mesh.element_type);
    assemble_km(mesh, neighbours, [&](std::int32_t e, double* ke, double* me) {
        ElementPoints points;
        if (!evaluate_points(type, mesh, e, points)) return false;
        element_stiffness(type, points, moduli(elasticity, 0), ke);
        type.mass(points.x.data(), me);
        for (int k = 0; k < type.nodes * type.nodes; ++k) me[k] *= material.density;
        return true;
    }, 2, km);
    return km;
}

// The factor's files go to the log directory in force.
inline Solution solve(const Problem& problem) {
    const Mesh& mesh = problem.mesh;
    Solution out;
    out.parts.resize(1);
    out.elasticity = build_elasticity(std::span(&problem.material, 1));
    SparseKM km = assemble(mesh, problem.material, out.elasticity);
    const auto dofs = static_cast<std::size_t>(mesh.dof_num);
    out.u.assign(dofs, 0.0);
    std::vector<std::int32_t> map(dofs, -1), free;
    for (std::size_t n = 0; n < dofs / 3; ++n) {
        const double* x = &mesh.coordinates[3 * n];
        if (problem.prescribed(x)) {
            problem.displacement(x, &out.u[3 * n]);
            continue;
        }
        for (std::size_t c = 0; c < 3; ++c) {
            map[3 * n + c] = static_cast<std::int32_t>(free.size());
            free.push_back(static_cast<std::int32_t>(3 * n + c));
        }
    }
    std::vector<double> Ku(dofs), rhs(free.size());
    multiply(km, km.K_value, out.u, Ku);
    for (std::size_t k = 0; k < free.size(); ++k) {
        const auto dof = static_cast<std::size_t>(free[k]);
        rhs[k] = (problem.force.empty() ? 0.0 : problem.force[dof]) - Ku[dof];
    }
    eliminate_fixed(map, km);
    const Profile profile = make_profile(km);
    SkylineFactor factor(profile, plan_divisions(profile, 1e9, 1, profile.max_height), {.threads = 2});
    if (factor.factor_ldl(km, km.K_value) != FactorStatus::ok || !factor.solve_ldl(rhs)) {
        out.u.assign(dofs, std::nan(""));
        return out;
    }
    for (std::size_t k = 0; k < free.size(); ++k) out.u[static_cast<std::size_t>(free[k])] = rhs[k];
    point_stresses(mesh, out.parts, out.elasticity, out.u, 2, out.points);
    return out;
}

// Node forces of the uniform traction t (N/m^2) on the free faces where on_face holds at all corners:
// Σ ∫ N t dA, exact for flat faces (bilinear and linear faces; on the six-node triangle only the
// mid-side nodes carry, a third each).
inline std::vector<double> consistent_forces(const Mesh& mesh, const double* t, const std::function<bool(const double*)>& on_face) {
    std::vector<double> force(mesh.coordinates.size(), 0.0);
    const int nodes = mesh.node_per_element();
    const int faces = face_table(mesh.element_type).faces;
    auto x = [&](std::int32_t node) { return &mesh.coordinates[3 * static_cast<std::size_t>(node - 1)]; };
    auto area = [&](std::int32_t a, std::int32_t b, std::int32_t c) {
        double n[3], u[3], v[3];
        for (int k = 0; k < 3; ++k) {
            u[k] = x(b)[k] - x(a)[k];
            v[k] = x(c)[k] - x(a)[k];
        }
        for (int k = 0; k < 3; ++k) n[k] = u[(k + 1) % 3] * v[(k + 2) % 3] - u[(k + 2) % 3] * v[(k + 1) % 3];
        return 0.5 * std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    };
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::int32_t* element = mesh.connectivity.data() + e * nodes;
        for (int f = 0; f < faces; ++f) {
            const auto local = face_corners(mesh.element_type, f);
            bool loaded = true;
            for (int p : local) loaded = loaded && on_face(x(element[p]));
            if (!loaded) continue;
            std::vector<std::int32_t> carriers;
            double A = area(element[local[0]], element[local[1]], element[local[2]]);
            for (int p : local) carriers.push_back(element[p]);
            if (mesh.element_type == ElementKind::hexahedron) {
                A *= 2;  // parallelogram faces
            } else if (mesh.element_type == ElementKind::tetrahedron10) {
                carriers.clear();
                for (std::size_t m = 0; m < 6; ++m)
                    if (std::count(local.begin(), local.end(), tetra10_edge[m][0]) && std::count(local.begin(), local.end(), tetra10_edge[m][1]))
                        carriers.push_back(element[4 + m]);
            }
            for (std::int32_t node : carriers)
                for (std::size_t c = 0; c < 3; ++c)
                    force[3 * static_cast<std::size_t>(node - 1) + c] += t[c] * A / static_cast<double>(carriers.size());
        }
    }
    return force;
}

}  // namespace kestralum::testing
