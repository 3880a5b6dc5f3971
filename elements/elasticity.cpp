#include "elements/elasticity.h"

#include <algorithm>
#include <cmath>

#include "model/symmetric3.h"

namespace kestralum {

Elasticity build_elasticity(std::span<const Material> materials, Progress& progress) {
    const int count = static_cast<int>(materials.size());
    Elasticity table{TNT::Array3D<double>(6, 6, std::max(count, 1), 0.0)};
    for (int m = 0; m < count; ++m) {
        const double E = materials[m].young, nu = materials[m].poisson;
        const double a = E * (1 - nu) / ((1 + nu) * (1 - 2 * nu));
        const double b = nu * a / (1 - nu);
        const double g = (1 - 2 * nu) * a * 0.5 / (1 - nu);
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) table.D[i][j][m] = i == j ? a : b;
            table.D[i + 3][i + 3][m] = g;
        }
    }
    progress.print("Dmat\n");
    return table;
}

IsotropicModuli moduli(const Elasticity& elasticity, std::int32_t material) {
    return {elasticity.D[0][0][material], elasticity.D[0][1][material], elasticity.D[3][3][material]};
}

// With D00 = D01 + 2 D33, the 3 × 3 block of nodes i and j is
// b ∇Ni ∇Njᵀ + g ∇Nj ∇Niᵀ + g (∇Ni·∇Nj) I.
void element_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                       double* ke) {
    const int n = type.nodes, size = 3 * n;
    std::fill(ke, ke + size * size, 0.0);
    for (int p = 0; p < type.points; ++p) {
        const double* dN = points.dN.data() + 3 * n * p;
        const double w = points.weight[p];
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

double largest_principal(const double* s) {
    double values[3];
    symmetric_eigen3(s, values, nullptr);
    return std::max({values[0], values[1], values[2]});
}

}  // namespace kestralum
