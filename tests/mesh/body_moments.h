// Volume, centre of mass and moments of inertia of bodies: exactly of straight tetrahedra, and of a mesh as
// its elements' interpolation makes the body.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "mesh/part_mesh.h"
#include "model/vector3.h"

namespace kestralum::testing {

// Indices of the six moments: xx, yy, zz, xy, xz, yz.
inline constexpr std::array<std::array<std::size_t, 2>, 6> moment_index{
    {{0, 0}, {1, 1}, {2, 2}, {0, 1}, {0, 2}, {1, 2}}};

struct Moments {
    double volume = 0;
    Vec3 first{};                    // ∫ x
    std::array<double, 6> second{};  // ∫ x_i x_j

    Vec3 centre() const { return times(1 / volume, first); }
    // About the centre, of unit density: diagonal ∫ (y² + z²) …, beside it -∫ x y …
    std::array<double, 6> inertia() const {
        const Vec3 c = centre();
        std::array<double, 6> S, I;
        for (std::size_t k = 0; k < 6; ++k)
            S[k] = second[k] - volume * c[moment_index[k][0]] * c[moment_index[k][1]];
        for (std::size_t k = 0; k < 6; ++k) I[k] = k < 3 ? S[0] + S[1] + S[2] - S[k] : -S[k];
        return I;
    }
};

// ∫ x_i x_j over a tetrahedron = V/20 (Σ x_i Σ x_j + Σ x_i x_j), the sums over its corners.
inline void add_straight(const std::array<Vec3, 4>& corner, Moments& m) {
    Vec3 sum{};
    for (const Vec3& x : corner) sum = plus(sum, x);
    const double V = std::abs(dot(minus(corner[1], corner[0]),
                                  cross(minus(corner[2], corner[0]), minus(corner[3], corner[0])))) /
                     6;
    m.volume += V;
    m.first = plus(m.first, times(V / 4, sum));
    for (std::size_t k = 0; k < 6; ++k) {
        const auto [i, j] = moment_index[k];
        double products = sum[i] * sum[j];
        for (const Vec3& x : corner) products += x[i] * x[j];
        m.second[k] += V / 20 * products;
    }
}

// Place x(t) in an element and det dx/dt, t the parameters of the unit cube or of the unit tetrahedron.
struct ElementPoint {
    Vec3 x{};
    double det = 0;
};
inline ElementPoint element_point(ElementKind kind, std::span<const Vec3> node, const Vec3& t) {
    const Vec3 L_by[4] = {{-1, -1, -1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const double L[4] = {1 - t[0] - t[1] - t[2], t[0], t[1], t[2]};
    ElementPoint point;
    Vec3 J[3] = {};
    for (std::size_t n = 0; n < node.size(); ++n) {
        double N = 1;
        Vec3 N_by{1, 1, 1};
        if (kind == ElementKind::hexahedron) {
            for (std::size_t k = 0; k < 3; ++k) {
                const double f = hexa_corner[n][k] ? t[k] : 1 - t[k];
                N *= f;
                for (std::size_t m = 0; m < 3; ++m) N_by[m] *= m != k ? f : hexa_corner[n][k] ? 1 : -1;
            }
        } else if (kind == ElementKind::tetrahedron4) {
            N = L[n];
            N_by = L_by[n];
        } else if (n < 4) {
            N = L[n] * (2 * L[n] - 1);
            N_by = times(4 * L[n] - 1, L_by[n]);
        } else {
            const auto a = std::size_t(tetra10_edge[n - 4][0]), b = std::size_t(tetra10_edge[n - 4][1]);
            N = 4 * L[a] * L[b];
            N_by = plus(times(4 * L[a], L_by[b]), times(4 * L[b], L_by[a]));
        }
        point.x = plus(point.x, times(N, node[n]));
        for (std::size_t k = 0; k < 3; ++k) J[k] = plus(J[k], times(N_by[k], node[n]));
    }
    point.det = dot(J[0], cross(J[1], J[2]));
    return point;
}

// By Gauss's rule of five points a direction, which is exact to degree 9 (Abramowitz and Stegun 1964, table
// 25.4); tetrahedra by t = (u, (1-u) v, (1-u)(1-v) w). x_i x_j det has degree 7 at most in a tetrahedron,
// with (1-u)²(1-v) degree 9.
inline Moments moments_of(const PartMesh& mesh) {
    constexpr double place[] = {-0.90617984593866399, -0.53846931010568309, 0, 0.53846931010568309,
                                0.90617984593866399};
    constexpr double weight[] = {0.23692688505618909, 0.47862867049936647, 0.56888888888888889,
                                 0.47862867049936647, 0.23692688505618909};
    const std::size_t per = nodes_per_element(mesh.kind);
    Moments sum;
    std::vector<Vec3> node(per);
    for (std::size_t e = 0; e < mesh.connectivity.size() / per; ++e) {
        for (std::size_t k = 0; k < per; ++k)
            node[k] = triple(mesh.coordinates, node_index(mesh.connectivity[per * e + k]));
        for (std::size_t p = 0; p < 125; ++p) {
            const std::size_t at[3] = {p / 25, p / 5 % 5, p % 5};
            Vec3 t;
            double w = 1;
            for (std::size_t k = 0; k < 3; ++k) {
                t[k] = (1 + place[at[k]]) / 2;
                w *= weight[at[k]] / 2;
            }
            if (mesh.kind != ElementKind::hexahedron) {
                const double u = t[0], v = t[1];
                t = {u, (1 - u) * v, (1 - u) * (1 - v) * t[2]};
                w *= (1 - u) * (1 - u) * (1 - v);
            }
            const ElementPoint point = element_point(mesh.kind, node, t);
            const double dV = w * point.det;
            sum.volume += dV;
            sum.first = plus(sum.first, times(dV, point.x));
            for (std::size_t k = 0; k < 6; ++k)
                sum.second[k] += dV * point.x[moment_index[k][0]] * point.x[moment_index[k][1]];
        }
    }
    return sum;
}

}  // namespace kestralum::testing
