#include "elements/finite_strain.h"

#include <cmath>

#include "elements/element_type.h"
#include "elements/finite_kinematic.h"
#include "model/symmetric3.h"

namespace kestralum {

namespace {

constexpr int row_of[6] = {0, 1, 2, 0, 1, 2}, column_of[6] = {0, 1, 2, 1, 2, 0};

// H + Hᵀ + H Hᵀ + F P Fᵀ = F (1 + P) Fᵀ - 1
void push_forward(const double* H, const std::array<double, 6>& P, double* out) {
    const double full[9] = {P[0], P[3], P[5], P[3], P[1], P[4], P[5], P[4], P[2]};
    double FP[9];  // F P
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            FP[3 * r + c] = full[3 * r + c];
            for (int k = 0; k < 3; ++k) FP[3 * r + c] += H[3 * r + k] * full[3 * k + c];
        }
    for (int m = 0; m < 6; ++m) {
        const int r = row_of[m], c = column_of[m];
        double sum = H[3 * r + c] + H[3 * c + r] + FP[3 * r + c];
        for (int k = 0; k < 3; ++k) sum += H[3 * r + k] * H[3 * c + k] + FP[3 * r + k] * H[3 * c + k];
        out[m] = sum;
    }
}

// x coth x, smooth through 0
double x_coth_x(double x) {
    if (std::abs(x) < 1e-2) {
        const double y = x * x;
        return 1 + y / 3 - y * y / 45 + 2 * y * y * y / 945;
    }
    return x / std::tanh(x);
}

// Σ value[k] n_k ⊗ n_k
template <typename Out>
void compose(const double* value, const double* n, Out& out) {
    for (int m = 0; m < 6; ++m) {
        double sum = 0;
        for (int k = 0; k < 3; ++k) sum += value[k] * n[3 * k + row_of[m]] * n[3 * k + column_of[m]];
        out[m] = sum;
    }
}

// From the principal axes n_k to x y z: c = Σ C[k][l] (n_k⊗n_k)(n_l⊗n_l) + Σ g[kl] S_kl S_kl with
// S_kl = n_k⊗n_l + n_l⊗n_k for the pairs 01, 12, 20.
void rotate_tangent(const double (*C)[3], const double* g, const double* n, double* c) {
    double N[3][6], S[3][6];
    for (int k = 0; k < 3; ++k) {
        const double* a = n + 3 * k;
        const double* b = n + 3 * ((k + 1) % 3);
        for (int m = 0; m < 6; ++m) {
            const int r = row_of[m], s = column_of[m];
            N[k][m] = a[r] * a[s];
            S[k][m] = a[r] * b[s] + b[r] * a[s];
        }
    }
    for (int r = 0; r < 6; ++r)
        for (int s = r; s < 6; ++s) {
            double sum = 0;
            for (int k = 0; k < 3; ++k) {
                for (int l = 0; l < 3; ++l) sum += C[k][l] * N[k][r] * N[l][s];
                sum += g[k] * S[k][r] * S[k][s];
            }
            c[6 * r + s] = c[6 * s + r] = sum;
        }
}

// F⁻¹ (1 + B) F⁻ᵀ - 1 with Hi = F⁻¹ - 1
std::array<double, 6> pull_back(const double* Fi, const double* H, const std::array<double, 6>& B) {
    double Hi[9];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            Hi[3 * r + c] = 0;
            for (int k = 0; k < 3; ++k) Hi[3 * r + c] -= Fi[3 * r + k] * H[3 * k + c];
        }
    std::array<double, 6> out;
    push_forward(Hi, B, out.data());
    return out;
}

}  // namespace

double invert_deformation(const double* H, double* F_inverse) {
    double F[9];
    for (int k = 0; k < 9; ++k) F[k] = H[k] + (k % 4 == 0 ? 1 : 0);
    return invert3(F, F_inverse);
}

bool finite_response(const PlasticMaterial& m, const double* H, const FinitePointState& committed,
                     bool with_tangent, FiniteResponse& out, const PrincipalAxes* known) {
    if (m.kinematic > 0) return kinematic_response(m, H, committed, with_tangent, out, known);
    double* Fi = out.F_inverse.data();
    out.J = invert_deformation(H, Fi);
    if (!(out.J > 0) || !std::isfinite(out.J)) return false;
    push_forward(H, committed.P, out.trial.be.data());
    double* mu = out.trial.value.data();  // λ² - 1
    double* n = out.trial.axis.data();
    if (known && known->be == out.trial.be)
        out.trial = *known;
    else
        symmetric_eigen3(out.trial.be.data(), mu, n);
    double e[3], trace = 0;  // trial logarithmic strains
    for (int k = 0; k < 3; ++k) {
        if (!(mu[k] > -1)) return false;
        e[k] = 0.5 * std::log1p(mu[k]);
        trace += e[k];
    }
    double dev[3], size = 0;  // deviatoric strains and their norm
    for (int k = 0; k < 3; ++k) {
        dev[k] = e[k] - trace / 3;
        size += dev[k] * dev[k];
    }
    size = std::sqrt(size);
    const double G2 = 2 * m.shear, q = std::sqrt(1.5) * G2 * size;
    const HardeningSegment* segment = m.curve.data();
    RadialReturn back;
    back.d_alpha = return_to_curve(segment, q, committed.alpha, 3 * m.shear);
    back.scale = 1 - 3 * m.shear * back.d_alpha / larger_of(q, 1e-300);
    double tau[3];
    for (int k = 0; k < 3; ++k) tau[k] = m.bulk * (trace - 3 * committed.thermal) + G2 * back.scale * dev[k];
    compose(tau, n, out.tau);
    for (double t : out.tau)
        if (!std::isfinite(t)) return false;
    out.state = committed;
    if (back.d_alpha > 0) {
        out.state.alpha += back.d_alpha;
        double stretch[3];  // λ² - 1 after the return
        for (int k = 0; k < 3; ++k) stretch[k] = std::expm1(2 * (trace / 3 + back.scale * dev[k]));
        std::array<double, 6> B;
        compose(stretch, n, B);
        out.state.P = pull_back(Fi, H, B);
    }
    if (!with_tangent) return true;
    // with H the slope that the return ends on, 2G [3G/(3G+H) - 3G Δα/q] in the direction of flow (Simo and
    // Hughes, 1998, box 3.2)
    const double flow =
        back.d_alpha > 0
            ? G2 * (3 * m.shear / (3 * m.shear + segment->slope) - (1 - back.scale)) / (size * size)
            : 0;
    double C[3][3], g[3];
    for (int k = 0; k < 3; ++k) {
        const int l = (k + 1) % 3;
        for (int j = 0; j < 3; ++j) C[k][j] = m.bulk - G2 * back.scale / 3 - flow * dev[k] * dev[j];
        C[k][k] += G2 * back.scale - 2 * tau[k];
        // (τk λl² - τl λk²)/(λk² - λl²), with τk - τl = 2G scale (ek - el)
        g[k] = m.shear * back.scale * x_coth_x(e[k] - e[l]) - 0.5 * (tau[k] + tau[l]);
    }
    rotate_tangent(C, g, n, out.tangent.data());
    return true;
}

void logarithmic_strain(const double* H, double* strain) {
    double b[6], mu[3], n[9], e[3];
    push_forward(H, {}, b);
    symmetric_eigen3(b, mu, n);
    for (int k = 0; k < 3; ++k) e[k] = 0.5 * std::log1p(mu[k]);
    compose(e, n, strain);
    for (int k = 3; k < 6; ++k) strain[k] *= 2;
}

}  // namespace kestralum
