#include "elements/linear_element.h"

#include <algorithm>

#include "elements/enhanced_hexahedron.h"

namespace kestralum {

namespace {

HexahedronForm form_of(const ElementType& type, HexahedronForm form) {
    return type.kind == ElementKind::hexahedron ? form : HexahedronForm::full;
}

double trace(const double* s) {
    return s[0] + s[1] + s[2];
}

// Σ w t / Σ w of the points' traces
double mean_trace(const ElementType& type, const ElementPoints& points, const double* values) {
    double sum = 0, volume = 0;
    for (int p = 0; p < type.points; ++p) {
        sum += points.weight[p] * trace(values + 6 * p);
        volume += points.weight[p];
    }
    return sum / volume;
}

// Puts the element's mean trace in place of each point's.
void average_trace(const ElementType& type, const ElementPoints& points, double* values) {
    const double mean = mean_trace(type, points, values);
    for (int p = 0; p < type.points; ++p) {
        const double change = (mean - trace(values + 6 * p)) / 3;
        for (int c = 0; c < 3; ++c) values[6 * p + c] += change;
    }
}

// The deviatoric part as it stands, K V b̄ b̄ᵀ for the volume.
void mean_dilatation_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                               double* ke) {
    element_stiffness(type, points, {D.a, -2.0 / 3.0 * D.g, D.g}, ke);
    const int size = 3 * type.nodes;
    double b[3 * most_nodes] = {}, volume = 0;  // V b̄
    for (int p = 0; p < type.points; ++p) {
        volume += points.weight[p];
        for (int d = 0; d < size; ++d) b[d] += points.weight[p] * points.dN[size * p + d];
    }
    const double bulk = (D.a + 2 * D.b) / 3 / volume;
    for (int r = 0; r < size; ++r)
        for (int c = 0; c < size; ++c) ke[size * r + c] += bulk * (b[r] * b[c]);
}

void add_forces(const ElementType& type, const ElementPoints& points, const double* stress, double* fe) {
    for (int p = 0; p < type.points; ++p) {
        const double* s = stress + 6 * p;
        const double w = points.weight[p];
        for (int i = 0; i < type.nodes; ++i) {
            const double* d = points.dN.data() + 3 * (type.nodes * p + i);
            double* f = fe + 3 * i;
            f[0] += w * (s[0] * d[0] + s[3] * d[1] + s[5] * d[2]);
            f[1] += w * (s[3] * d[0] + s[1] * d[1] + s[4] * d[2]);
            f[2] += w * (s[5] * d[0] + s[4] * d[1] + s[2] * d[2]);
        }
    }
}

void stress_of(const IsotropicModuli& D, const double* e, double* s) {
    const auto [a, b, g] = D;
    s[0] = a * e[0] + b * e[1] + b * e[2];
    s[1] = b * e[0] + a * e[1] + b * e[2];
    s[2] = b * e[0] + b * e[1] + a * e[2];
    for (int c = 3; c < 6; ++c) s[c] = g * e[c];
}

// ε = B u at the points
void strains(const ElementType& type, const ElementPoints& points, const double* u, double* out) {
    for (int p = 0; p < type.points; ++p) {
        double du[3][3] = {};  // ∂u_r/∂x_c
        for (int i = 0; i < type.nodes; ++i) {
            const double* dN = points.dN.data() + 3 * (type.nodes * p + i);
            for (int r = 0; r < 3; ++r)
                for (int c = 0; c < 3; ++c) du[r][c] += u[3 * i + r] * dN[c];
        }
        double* strain = out + 6 * p;
        for (int c = 0; c < 3; ++c) strain[c] = du[c][c];
        strain[3] = du[0][1] + du[1][0];
        strain[4] = du[1][2] + du[2][1];
        strain[5] = du[2][0] + du[0][2];
    }
}

}  // namespace

void element_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                       HexahedronForm form, double* ke) {
    form = form_of(type, form);
    if (form == HexahedronForm::mean_dilatation) return mean_dilatation_stiffness(type, points, D, ke);
    element_stiffness(type, points, D, ke);
    if (form == HexahedronForm::enhanced) condense_enhanced(points, D, ke);
}

void element_stresses(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                      HexahedronForm form, const double* u, const double* initial, double* strain,
                      double* stress) {
    form = form_of(type, form);
    strains(type, points, u, strain);
    if (form == HexahedronForm::mean_dilatation) average_trace(type, points, strain);
    if (form == HexahedronForm::enhanced) {
        const auto alpha = enhanced_parameters(points, D, u, initial);
        const EnhancedFrame frame = enhanced_frame(points);
        for (int p = 0; p < type.points; ++p) add_enhanced_strain(frame, alpha, p, strain + 6 * p);
    }
    for (int p = 0; p < type.points; ++p) {
        if (!initial) {
            stress_of(D, strain + 6 * p, stress + 6 * p);
            continue;
        }
        double elastic[6];
        for (int c = 0; c < 6; ++c) elastic[c] = strain[6 * p + c] - initial[6 * p + c];
        stress_of(D, elastic, stress + 6 * p);
    }
}

void balancing_stresses(const ElementType& type, const ElementPoints& points, HexahedronForm form,
                        const double* stress, double* out) {
    if (out != stress) std::copy(stress, stress + 6 * type.points, out);
    if (form_of(type, form) == HexahedronForm::mean_dilatation) average_trace(type, points, out);
}

void stress_forces(const ElementType& type, const ElementPoints& points, HexahedronForm form,
                   const double* stress, double* fe) {
    double balancing[6 * most_points];
    balancing_stresses(type, points, form, stress, balancing);
    std::fill_n(fe, 3 * type.nodes, 0.0);
    add_forces(type, points, balancing, fe);
}

void initial_strain_forces(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                           HexahedronForm form, const double* initial, double* fe) {
    double stress[6 * most_points];
    for (int p = 0; p < type.points; ++p) stress_of(D, initial + 6 * p, stress + 6 * p);
    balancing_stresses(type, points, form, stress, stress);
    std::fill(fe, fe + 3 * type.nodes, 0.0);
    add_forces(type, points, stress, fe);
    if (form_of(type, form) == HexahedronForm::enhanced) add_condensed_forces(points, D, initial, fe);
}

void geometric_stiffness(const ElementType& type, const ElementPoints& points, const double* stress,
                         double* ke) {
    const int n = type.nodes, size = 3 * n;
    std::fill(ke, ke + size * size, 0.0);
    for (int p = 0; p < type.points; ++p) {
        const double *s = stress + 6 * p, *dN = points.dN.data() + 3 * n * p;
        for (int i = 0; i < n; ++i) {
            const double *d = dN + 3 * i, w = points.weight[p];
            const double sd[3] = {w * (s[0] * d[0] + s[3] * d[1] + s[5] * d[2]),
                                  w * (s[3] * d[0] + s[1] * d[1] + s[4] * d[2]),
                                  w * (s[5] * d[0] + s[4] * d[1] + s[2] * d[2])};
            for (int j = i; j < n; ++j)
                ke[3 * i * size + 3 * j] += sd[0] * dN[3 * j] + sd[1] * dN[3 * j + 1] + sd[2] * dN[3 * j + 2];
        }
    }
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j)
            for (int r = 0; r < 3; ++r)
                ke[(3 * i + r) * size + 3 * j + r] = ke[(3 * j + r) * size + 3 * i + r] =
                    ke[3 * i * size + 3 * j];
}

}  // namespace kestralum
