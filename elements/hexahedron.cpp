// Eight-node hexahedron, trilinear, 2 × 2 × 2 Gauss points (Zienkiewicz and Taylor, The Finite
// Element Method, 5th ed. 2000, vol. 1, ch. 8 and 9). Point p lies nearest to local node p.
#include <cmath>

#include "elements/element_type.h"

namespace kestralum {

namespace {

constexpr int nodes = 8, points = 8;

// Reference corner (ξi, ηi, ζi) = ±1 of local node i.
constexpr double corner(int i, int c) {
    return 2.0 * hexa_corner[i][c] - 1.0;
}

struct Tables {
    double N[points][nodes];              // shape functions at the points
    double dN[points][nodes][3];          // ∂N/∂(ξ η ζ)
    double extrapolation[nodes][points];  // the trilinear function through the points, at the corners
};

Tables make_tables() {
    Tables t{};
    const double gauss = 1 / std::sqrt(3.0);
    for (int p = 0; p < points; ++p)
        for (int i = 0; i < nodes; ++i) {
            double f[3], value = 0.125, at_corner = 0.125;
            for (int c = 0; c < 3; ++c) {
                f[c] = 1 + gauss * corner(p, c) * corner(i, c);
                value *= f[c];
                at_corner *= 1 + std::sqrt(3.0) * corner(p, c) * corner(i, c);
            }
            t.N[p][i] = value;
            t.extrapolation[i][p] = at_corner;
            t.dN[p][i][0] = 0.125 * corner(i, 0) * f[1] * f[2];
            t.dN[p][i][1] = 0.125 * corner(i, 1) * f[0] * f[2];
            t.dN[p][i][2] = 0.125 * corner(i, 2) * f[0] * f[1];
        }
    return t;
}

const Tables tables = make_tables();

bool gradients(const double* x, double* dN, double* weight) {
    bool sound = true;
    for (int p = 0; p < points; ++p) {
        weight[p] = map_gradients(nodes, tables.dN[p], x, dN + 3 * nodes * p);
        sound = sound && weight[p] > 0;
    }
    return sound;
}

// 2 × 2 × 2 is exact on parallelepipeds: each direction of Ni Nj is of degree 2.
void mass(const double* x, double* me) {
    for (int k = 0; k < nodes * nodes; ++k) me[k] = 0;
    for (int p = 0; p < points; ++p) {
        double J[9], inverse[9];
        jacobian(nodes, tables.dN[p], x, J);
        const double det = invert3(J, inverse);
        for (int i = 0; i < nodes; ++i)
            for (int j = 0; j < nodes; ++j) me[nodes * i + j] += det * tables.N[p][i] * tables.N[p][j];
    }
}

}  // namespace

const ElementType hexahedron_type{
    ElementKind::hexahedron,     "8-node hexahedron", nodes, points, gradients, mass,
    &tables.extrapolation[0][0], &tables.N[0][0]};

}  // namespace kestralum
