// Ten-node tetrahedron, quadratic, in volume coordinates L1 … L4 (Zienkiewicz and Taylor, 2000,
// vol. 1, ch. 8). The map is isoparametric: with mid-side nodes on the edge midpoints it is the
// linear tetrahedron's, ∂N/∂x = (1/6V) Σ bk ∂N/∂Lk, to the last rounding.
//
// Stiffness: the symmetric 4-point rule of degree 2 (Hammer, Marlowe and Stroud, 1956).
// Mass: the 14-point rule of degree 5 with positive weights (Grundmann and Möller, 1978; Walkington,
// 2000), exact for Ni Nj of degree 4; with the 4-point rule the mass would be singular.
#include <array>

#include "elements/element_type.h"

namespace kestralum {

namespace {

constexpr int nodes = 10, points = 4, mass_points = 14;
constexpr double alpha = 0.5854101966249685, beta = 0.1381966011250105;

using Volume = std::array<double, 4>;  // L1 … L4

void shape(const Volume& L, double* N) {
    for (std::size_t k = 0; k < 4; ++k) N[k] = L[k] * (2 * L[k] - 1);
    for (std::size_t m = 0; m < 6; ++m) N[4 + m] = 4 * L[tetra10_edge[m][0]] * L[tetra10_edge[m][1]];
}

// ∂N/∂(L1 L2 L3) with L4 = 1 - L1 - L2 - L3, as rows of a 3 × 3 map: local node × 3.
void shape_derivatives(const Volume& L, double (*d)[3]) {
    double full[nodes][4] = {};
    for (std::size_t k = 0; k < 4; ++k) full[k][k] = 4 * L[k] - 1;
    for (std::size_t m = 0; m < 6; ++m) {
        const auto a = static_cast<std::size_t>(tetra10_edge[m][0]),
                   b = static_cast<std::size_t>(tetra10_edge[m][1]);
        full[4 + m][a] = 4 * L[b];
        full[4 + m][b] = 4 * L[a];
    }
    for (int i = 0; i < nodes; ++i)
        for (int c = 0; c < 3; ++c) d[i][c] = full[i][c + 1] - full[i][0];  // L2, L3, L4 against L1
}

struct Tables {
    double N[points][nodes];
    double dN[points][nodes][3];
    double mass_N[mass_points][nodes];
    double mass_dN[mass_points][nodes][3];
    double mass_weight[mass_points];
    double extrapolation[nodes][points];
};

Tables make_tables() {
    Tables t{};
    for (std::size_t p = 0; p < points; ++p) {
        Volume L{beta, beta, beta, beta};
        L[p] = alpha;
        shape(L, t.N[p]);
        shape_derivatives(L, t.dN[p]);
    }
    // the linear function through the points at corner k: (v_k - β Σv) / (α - β)
    for (std::size_t k = 0; k < 4; ++k)
        for (std::size_t p = 0; p < points; ++p)
            t.extrapolation[k][p] = ((k == p ? 1 : 0) - beta) / (alpha - beta);
    for (std::size_t m = 0; m < 6; ++m)
        for (std::size_t p = 0; p < points; ++p)
            t.extrapolation[4 + m][p] =
                0.5 * (t.extrapolation[tetra10_edge[m][0]][p] + t.extrapolation[tetra10_edge[m][1]][p]);

    constexpr double a1 = 0.31088591926330060980, w1 = 0.11268792571801585080;
    constexpr double a2 = 0.09273525031089122640, w2 = 0.07349304311636194934;
    constexpr double a3 = 0.04550370412564964949, w3 = 0.04254602077708146644;
    std::size_t q = 0;
    auto add = [&](const Volume& L, double weight) {
        shape(L, t.mass_N[q]);
        shape_derivatives(L, t.mass_dN[q]);
        t.mass_weight[q++] = weight;
    };
    for (std::size_t k = 0; k < 4; ++k) {
        Volume L{a1, a1, a1, a1};
        L[k] = 1 - 3 * a1;
        add(L, w1);
        L = {a2, a2, a2, a2};
        L[k] = 1 - 3 * a2;
        add(L, w2);
    }
    for (std::size_t m = 0; m < 6; ++m) {
        Volume L{a3, a3, a3, a3};
        for (int end : tetra10_edge[m]) L[end] = 0.5 - a3;
        add(L, w3);
    }
    return t;
}

const Tables tables = make_tables();

bool gradients(const double* x, double* dN, double* weight) {
    bool sound = true;
    for (int p = 0; p < points; ++p) {
        weight[p] = 0.25 * map_gradients(nodes, tables.dN[p], x, dN + 3 * nodes * p) / 6;
        sound = sound && weight[p] > 0;
    }
    return sound;
}

void mass(const double* x, double* me) {
    for (int k = 0; k < nodes * nodes; ++k) me[k] = 0;
    for (int q = 0; q < mass_points; ++q) {
        double J[9], inverse[9];
        jacobian(nodes, tables.mass_dN[q], x, J);
        const double w = tables.mass_weight[q] * invert3(J, inverse) / 6;
        for (int i = 0; i < nodes; ++i)
            for (int j = 0; j < nodes; ++j)
                me[nodes * i + j] += w * tables.mass_N[q][i] * tables.mass_N[q][j];
    }
}

}  // namespace

const ElementType tetrahedron10_type{
    ElementKind::tetrahedron10,  "10-node tetrahedron", nodes, points, gradients, mass,
    &tables.extrapolation[0][0], &tables.N[0][0]};

}  // namespace kestralum
