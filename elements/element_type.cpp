#include "elements/element_type.h"

#include <algorithm>

namespace kestralum {

const ElementType& element_type(ElementKind kind) {
    switch (kind) {
        case ElementKind::tetrahedron4:
            return tetrahedron4_type;
        case ElementKind::tetrahedron10:
            return tetrahedron10_type;
        default:
            return hexahedron_type;
    }
}

bool evaluate_points(const ElementType& type, const Mesh& mesh, std::int32_t e, ElementPoints& out) {
    const std::int32_t* element = mesh.connectivity.data() + static_cast<std::ptrdiff_t>(e) * type.nodes;
    for (int i = 0; i < type.nodes; ++i) {
        const double* from = mesh.coordinates.data() + 3 * node_index(element[i]);
        std::copy(from, from + 3, out.x.data() + 3 * i);
    }
    return type.gradients(out.x.data(), out.dN.data(), out.weight.data());
}

double element_volume(const ElementType& type, const ElementPoints& points) {
    double volume = 0;
    for (int p = 0; p < type.points; ++p) volume += points.weight[p];
    return volume;
}

void strain_displacement(int nodes, const double* dN, double* B) {
    const int columns = 3 * nodes;
    std::fill(B, B + 6 * columns, 0.0);
    for (int i = 0; i < nodes; ++i) {
        const double nx = dN[3 * i], ny = dN[3 * i + 1], nz = dN[3 * i + 2];
        double* b = B + 3 * i;
        b[0] = nx;
        b[columns + 1] = ny;
        b[2 * columns + 2] = nz;
        b[3 * columns] = ny;
        b[3 * columns + 1] = nx;
        b[4 * columns + 1] = nz;
        b[4 * columns + 2] = ny;
        b[5 * columns] = nz;
        b[5 * columns + 2] = nx;
    }
}

std::array<double, 3> element_centre(const Mesh& mesh, std::int32_t e) {
    const int nodes = mesh.node_per_element();
    std::array<double, 3> centre{};
    for (int i = 0; i < nodes; ++i) {
        const std::size_t n =
            node_index(mesh.connectivity[static_cast<std::size_t>(e) * static_cast<std::size_t>(nodes) +
                                         static_cast<std::size_t>(i)]);
        for (std::size_t c = 0; c < 3; ++c) centre[c] += mesh.coordinates[3 * n + c] / nodes;
    }
    return centre;
}

void jacobian(int nodes, const double (*d)[3], const double* x, double* J) {
    for (int k = 0; k < 9; ++k) J[k] = 0;
    for (int i = 0; i < nodes; ++i)
        for (int a = 0; a < 3; ++a)
            for (int c = 0; c < 3; ++c) J[3 * a + c] += d[i][a] * x[3 * i + c];
}

double map_gradients(int nodes, const double (*d)[3], const double* x, double* dN) {
    double J[9], inverse[9] = {};
    jacobian(nodes, d, x, J);
    const double det = invert3(J, inverse);
    for (int i = 0; i < nodes; ++i)
        for (int c = 0; c < 3; ++c)
            dN[3 * i + c] =
                inverse[3 * c] * d[i][0] + inverse[3 * c + 1] * d[i][1] + inverse[3 * c + 2] * d[i][2];
    return det;
}

double invert3(const double* J, double* inverse) {
    const double c00 = J[4] * J[8] - J[5] * J[7], c01 = J[5] * J[6] - J[3] * J[8],
                 c02 = J[3] * J[7] - J[4] * J[6];
    const double det = J[0] * c00 + J[1] * c01 + J[2] * c02;
    if (det == 0) return 0;
    const double r = 1 / det;
    inverse[0] = c00 * r;
    inverse[1] = (J[2] * J[7] - J[1] * J[8]) * r;
    inverse[2] = (J[1] * J[5] - J[2] * J[4]) * r;
    inverse[3] = c01 * r;
    inverse[4] = (J[0] * J[8] - J[2] * J[6]) * r;
    inverse[5] = (J[2] * J[3] - J[0] * J[5]) * r;
    inverse[6] = c02 * r;
    inverse[7] = (J[1] * J[6] - J[0] * J[7]) * r;
    inverse[8] = (J[0] * J[4] - J[1] * J[3]) * r;
    return det;
}

}  // namespace kestralum
