// Four-node tetrahedron, linear: constant strain, one point at the centre with the element's volume
// as weight (Zienkiewicz and Taylor, 2000, vol. 1, ch. 6).
#include "elements/element_type.h"

namespace kestralum {

namespace {

constexpr int nodes = 4;

bool gradients(const double* x, double* dN, double* weight) {
    // rows of J: edges from node 0 to nodes 1, 2, 3; L1 … L3 are the reference coordinates
    double J[9], inverse[9] = {};
    for (int a = 0; a < 3; ++a)
        for (int c = 0; c < 3; ++c) J[3 * a + c] = x[3 * (a + 1) + c] - x[c];
    weight[0] = invert3(J, inverse) / 6;
    for (int c = 0; c < 3; ++c) {
        for (int a = 0; a < 3; ++a) dN[3 * (a + 1) + c] = inverse[3 * c + a];
        dN[c] = -(dN[3 + c] + dN[6 + c] + dN[9 + c]);
    }
    return weight[0] > 0;
}

// ∫ Li Lj dV = V (1 + δij) / 20.
void mass(const double* x, double* me) {
    double dN[3 * nodes], volume;
    gradients(x, dN, &volume);
    for (int i = 0; i < nodes; ++i)
        for (int j = 0; j < nodes; ++j) me[nodes * i + j] = volume / 20 * (i == j ? 2 : 1);
}

constexpr double extrapolation[nodes] = {1, 1, 1, 1};
constexpr double N[nodes] = {0.25, 0.25, 0.25, 0.25};

}  // namespace

const ElementType tetrahedron4_type{
    ElementKind::tetrahedron4, "4-node tetrahedron", nodes, 1, gradients, mass, extrapolation, N};

}  // namespace kestralum
