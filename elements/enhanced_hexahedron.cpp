#include "elements/enhanced_hexahedron.h"

#include <cmath>

namespace kestralum {

namespace {

constexpr int nodes = 8, modes = enhanced_modes;

constexpr double sign_of(int i, int c) {
    return 2.0 * hexa_corner[i][c] - 1.0;
}

EnhancedShapes make_shapes() {
    EnhancedShapes out{};
    const double gauss = 1 / std::sqrt(3.0);
    for (int p = 0; p < 8; ++p) {
        const double at[3] = {gauss * sign_of(p, 0), gauss * sign_of(p, 1), gauss * sign_of(p, 2)};
        out[p] = {at[0], at[1], at[2], at[1] * at[2], at[2] * at[0], at[0] * at[1]};
    }
    return out;
}

// K_αα = L Lᵀ and the coupling K_αu, mode × 24.
struct EnhancedMatrices {
    EnhancedFrame frame;
    double L[modes][modes];
    double coupling[modes][3 * nodes];
};

// With the weights det J the factor w (det J0/det J) is det J0 at each point: the coupling needs the sums
// m = Σ φ ∇N alone.
void find_coupling(const ElementPoints& points, const IsotropicModuli& D, EnhancedMatrices& out) {
    double m[6][3 * nodes] = {};
    for (int p = 0; p < 8; ++p) {
        const double* dN = points.dN.data() + 3 * nodes * p;
        for (int k = 0; k < 6; ++k)
            for (int d = 0; d < 3 * nodes; ++d) m[k][d] += enhanced_shapes[p][k] * dN[d];
    }
    const double lambda = out.frame.det * D.b, mu = out.frame.det * D.g;
    for (int i = 0; i < 3; ++i) {
        const double* g = out.frame.g.data() + 3 * i;
        for (int n = 0; n < nodes; ++n) {
            const double* v = m[i] + 3 * n;
            const double dot = mu * (g[0] * v[0] + g[1] * v[1] + g[2] * v[2]);
            for (int c = 0; c < 3; ++c) {
                double* row = out.coupling[3 * i + c] + 3 * n;
                for (int r = 0; r < 3; ++r) row[r] = lambda * g[c] * v[r] + mu * g[r] * v[c];
                row[c] += dot;
            }
        }
    }
    const double bulk3 = out.frame.det * (D.a + 2 * D.b);
    for (int k = 0; k < 3; ++k)
        for (int d = 0; d < 3 * nodes; ++d) out.coupling[9 + k][d] = bulk3 * m[3 + k][d];
}

void find_mode_stiffness(const IsotropicModuli& D, EnhancedMatrices& out) {
    double S[6][6] = {};  // Σ w (det J0/det J)² φ φ
    for (int p = 0; p < 8; ++p) {
        const auto& phi = enhanced_shapes[p];
        const double w = out.frame.det * out.frame.factor[p];
        for (int k = 0; k < 6; ++k)
            for (int l = 0; l <= k; ++l) S[k][l] += w * phi[k] * phi[l];
    }
    const double bulk3 = D.a + 2 * D.b;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j <= i; ++j) {
            const double *g = out.frame.g.data() + 3 * i, *h = out.frame.g.data() + 3 * j;
            const double dot = g[0] * h[0] + g[1] * h[1] + g[2] * h[2];
            for (int c = 0; c < 3; ++c) {
                double* row = out.L[3 * i + c] + 3 * j;
                for (int d = 0; d < 3; ++d)
                    row[d] = S[i][j] * (D.b * g[c] * h[d] + D.g * (g[d] * h[c] + (c == d ? dot : 0)));
            }
        }
    for (int k = 0; k < 3; ++k) {
        for (int j = 0; j < 3; ++j)
            for (int d = 0; d < 3; ++d)
                out.L[9 + k][3 * j + d] = S[3 + k][j] * bulk3 * out.frame.g[3 * j + d];
        for (int l = 0; l <= k; ++l) out.L[9 + k][9 + l] = S[3 + k][3 + l] * 3 * bulk3;
    }
    factor_modes(out.L);
}

EnhancedMatrices find_matrices(const ElementPoints& points, const IsotropicModuli& D) {
    EnhancedMatrices out;
    out.frame = enhanced_frame(points);
    find_coupling(points, D, out);
    find_mode_stiffness(D, out);
    return out;
}

// Σ w Gᵀ D ε0
void add_initial(const EnhancedFrame& frame, const IsotropicModuli& D, const double* initial, double* r) {
    for (int p = 0; p < 8; ++p) {
        const double* e = initial + 6 * p;
        const double pressure = frame.det * D.b * (e[0] + e[1] + e[2]), mu = frame.det * D.g;
        const double s[6] = {pressure + 2 * mu * e[0],
                             pressure + 2 * mu * e[1],
                             pressure + 2 * mu * e[2],
                             mu * e[3],
                             mu * e[4],
                             mu * e[5]};
        for (int i = 0; i < 3; ++i) {
            const double* g = frame.g.data() + 3 * i;
            const double phi = enhanced_shapes[p][i];
            r[3 * i] += phi * (s[0] * g[0] + s[3] * g[1] + s[5] * g[2]);
            r[3 * i + 1] += phi * (s[3] * g[0] + s[1] * g[1] + s[4] * g[2]);
            r[3 * i + 2] += phi * (s[5] * g[0] + s[4] * g[1] + s[2] * g[2]);
        }
        for (int k = 0; k < 3; ++k) r[9 + k] += enhanced_shapes[p][3 + k] * (s[0] + s[1] + s[2]);
    }
}

}  // namespace

const EnhancedShapes enhanced_shapes = make_shapes();

EnhancedFrame enhanced_frame(const ElementPoints& points) {
    static constexpr auto derivatives = [] {
        struct {
            double d[nodes][3];
        } out{};
        for (int i = 0; i < nodes; ++i)
            for (int c = 0; c < 3; ++c) out.d[i][c] = 0.125 * sign_of(i, c);
        return out;
    }();
    EnhancedFrame out;
    double J[9], inverse[9] = {};
    jacobian(nodes, derivatives.d, points.x.data(), J);
    out.det = invert3(J, inverse);
    for (int i = 0; i < 3; ++i)
        for (int c = 0; c < 3; ++c) out.g[3 * i + c] = inverse[3 * c + i];
    for (int n = 0; n < nodes; ++n)
        for (int c = 0; c < 3; ++c)
            out.dN[3 * n + c] = derivatives.d[n][0] * out.g[c] + derivatives.d[n][1] * out.g[3 + c] +
                                derivatives.d[n][2] * out.g[6 + c];
    for (int p = 0; p < 8; ++p) out.factor[p] = out.det / points.weight[p];
    return out;
}

bool factor_modes(double (*A)[modes]) {
    for (int r = 0; r < modes; ++r)
        for (int c = 0; c <= r; ++c) {
            double sum = A[r][c];
            for (int k = 0; k < c; ++k) sum -= A[r][k] * A[c][k];
            if (r > c) {
                A[r][c] = sum / A[c][c];
            } else {
                if (!(sum > 0)) return false;
                A[r][r] = std::sqrt(sum);
            }
        }
    return true;
}

void solve_lower(const double (*L)[modes], double* x) {
    for (int r = 0; r < modes; ++r) {
        for (int k = 0; k < r; ++k) x[r] -= L[r][k] * x[k];
        x[r] /= L[r][r];
    }
}

void solve_upper(const double (*L)[modes], double* x) {
    for (int r = modes - 1; r >= 0; --r) {
        for (int k = r + 1; k < modes; ++k) x[r] -= L[k][r] * x[k];
        x[r] /= L[r][r];
    }
}

// K_uu - K_uα K_αα⁻¹ K_αu, the product as that of L⁻¹ K_αu with itself
void condense_enhanced(const ElementPoints& points, const IsotropicModuli& D, double* ke) {
    constexpr int size = 3 * nodes;
    EnhancedMatrices m = find_matrices(points, D);
    for (int r = 0; r < modes; ++r) {
        for (int k = 0; k < r; ++k)
            for (int d = 0; d < size; ++d) m.coupling[r][d] -= m.L[r][k] * m.coupling[k][d];
        const double scale = 1 / m.L[r][r];
        for (int d = 0; d < size; ++d) m.coupling[r][d] *= scale;
    }
    for (int i = 0; i < size; ++i) {
        double row[size] = {};
        for (int k = 0; k < modes; ++k)
            for (int j = 0; j < size; ++j) row[j] += m.coupling[k][i] * m.coupling[k][j];
        for (int j = 0; j < size; ++j) ke[size * i + j] -= row[j];
    }
}

std::array<double, enhanced_modes> enhanced_parameters(const ElementPoints& points, const IsotropicModuli& D,
                                                       const double* u, const double* initial) {
    const EnhancedMatrices m = find_matrices(points, D);
    std::array<double, modes> alpha{};
    if (initial) add_initial(m.frame, D, initial, alpha.data());
    for (int k = 0; k < modes; ++k)
        for (int d = 0; d < 3 * nodes; ++d) alpha[k] -= m.coupling[k][d] * u[d];
    solve_lower(m.L, alpha.data());
    solve_upper(m.L, alpha.data());
    return alpha;
}

void add_enhanced_strain(const EnhancedFrame& frame, const std::array<double, enhanced_modes>& alpha, int p,
                         double* strain) {
    const auto& phi = enhanced_shapes[p];
    const double volume = frame.factor[p] * (phi[3] * alpha[9] + phi[4] * alpha[10] + phi[5] * alpha[11]);
    for (int i = 0; i < 3; ++i) {
        const double *g = frame.g.data() + 3 * i, *a = alpha.data() + 3 * i;
        const double f = frame.factor[p] * phi[i];
        for (int c = 0; c < 3; ++c) strain[c] += f * g[c] * a[c];
        strain[3] += f * (g[0] * a[1] + g[1] * a[0]);
        strain[4] += f * (g[1] * a[2] + g[2] * a[1]);
        strain[5] += f * (g[2] * a[0] + g[0] * a[2]);
    }
    for (int c = 0; c < 3; ++c) strain[c] += volume;
}

// - K_uα K_αα⁻¹ Σ w Gᵀ D ε0
void add_condensed_forces(const ElementPoints& points, const IsotropicModuli& D, const double* initial,
                          double* fe) {
    const EnhancedMatrices m = find_matrices(points, D);
    double x[modes] = {};
    add_initial(m.frame, D, initial, x);
    solve_lower(m.L, x);
    solve_upper(m.L, x);
    for (int k = 0; k < modes; ++k)
        for (int d = 0; d < 3 * nodes; ++d) fe[d] -= m.coupling[k][d] * x[k];
}

}  // namespace kestralum
