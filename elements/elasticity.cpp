#include "elements/elasticity.h"

#include <algorithm>
#include <cmath>

#include "model/console.h"

namespace kestralum {

Elasticity build_elasticity(std::span<const Material> materials) {
    const int count = static_cast<int>(materials.size());
    Elasticity table{TNT::Array3D<double>(6, 6, std::max(count, 1), 0.0)};
    for (int m = 0; m < count; ++m) {
        const double E = materials[static_cast<std::size_t>(m)].young, nu = materials[static_cast<std::size_t>(m)].poisson;
        const double a = E * (1 - nu) / ((1 + nu) * (1 - 2 * nu));
        const double b = nu * a / (1 - nu);
        const double g = (1 - 2 * nu) * a * 0.5 / (1 - nu);
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) table.D[i][j][m] = i == j ? a : b;
            table.D[i + 3][i + 3][m] = g;
        }
    }
    console::print("Dmat\n");
    return table;
}

IsotropicModuli moduli(const Elasticity& elasticity, std::int32_t material) {
    return {elasticity.D[0][0][material], elasticity.D[0][1][material], elasticity.D[3][3][material]};
}

// With D00 = D01 + 2 D33, the 3 × 3 block of nodes i and j is
// b ∇Ni ∇Njᵀ + g ∇Nj ∇Niᵀ + g (∇Ni·∇Nj) I.
void element_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D, double* ke) {
    const int n = type.nodes, size = 3 * n;
    std::fill(ke, ke + size * size, 0.0);
    for (int p = 0; p < type.points; ++p) {
        const double* dN = points.dN.data() + 3 * n * p;
        const double w = points.weight[static_cast<std::size_t>(p)];
        for (int i = 0; i < n; ++i) {
            const double* u = dN + 3 * i;
            const double bu[3] = {w * D.b * u[0], w * D.b * u[1], w * D.b * u[2]};
            const double gu[3] = {w * D.g * u[0], w * D.g * u[1], w * D.g * u[2]};
            for (int j = i; j < n; ++j) {
                const double* v = dN + 3 * j;
                const double dot = gu[0] * v[0] + gu[1] * v[1] + gu[2] * v[2];
                double* block = ke + 3 * i * size + 3 * j;
                for (int r = 0; r < 3; ++r) {
                    for (int c = 0; c < 3; ++c) block[r * size + c] += bu[r] * v[c] + gu[c] * v[r];
                    block[r * size + r] += dot;
                }
            }
        }
    }
    for (int r = 0; r < size; ++r)
        for (int c = 0; c < r; ++c) ke[r * size + c] = ke[c * size + r];
}

double mises(const double* s) {
    const double xy = s[0] - s[1], yz = s[1] - s[2], zx = s[2] - s[0];
    return std::sqrt(0.5 * (xy * xy + yz * yz + zx * zx + 6 * (s[3] * s[3] + s[4] * s[4] + s[5] * s[5])));
}

// Cyclic Jacobi rotations (Golub and Van Loan, Matrix Computations, 3rd ed. 1996, 8.4): accurate for
// equal and vanishing principal stresses too, where the closed cosine formula loses half the digits.
double largest_principal(const double* s) {
    double a[3][3] = {{s[0], s[3], s[5]}, {s[3], s[1], s[4]}, {s[5], s[4], s[2]}};
    for (int sweep = 0; sweep < 10; ++sweep) {
        const double off = std::abs(a[0][1]) + std::abs(a[1][2]) + std::abs(a[0][2]);
        const double size = std::abs(a[0][0]) + std::abs(a[1][1]) + std::abs(a[2][2]) + off;
        if (!(off > 1e-17 * size)) break;
        for (int p = 0; p < 2; ++p)
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
                const double t = (theta >= 0 ? 1 : -1) / (std::abs(theta) + std::sqrt(theta * theta + 1));
                const double c = 1 / std::sqrt(t * t + 1), d = t * c;
                a[p][p] -= t * a[p][q];
                a[q][q] += t * a[p][q];
                a[p][q] = a[q][p] = 0;
                const int r = 3 - p - q;
                const double rp = a[r][p], rq = a[r][q];
                a[r][p] = a[p][r] = c * rp - d * rq;
                a[r][q] = a[q][r] = d * rp + c * rq;
            }
    }
    return std::max({a[0][0], a[1][1], a[2][2]});
}

}  // namespace kestralum
