// Letters: N_k axes of C and n_k those of the body as it is, λ_k stretches, μ_k = λ_k², e_k = ln λ_k; all
// tensors are in these axes until the end. h(x) = x / sinh x.
#include "elements/finite_kinematic.h"

#include <cmath>

#include "model/symmetric3.h"

namespace kestralum {

namespace {

constexpr int row_of[6] = {0, 1, 2, 0, 1, 2}, column_of[6] = {0, 1, 2, 1, 2, 0};

using Tensor3 = double[3][3];

double x_over_sinh(double x) {
    if (std::abs(x) > 1e-2) return x / std::sinh(x);
    const double y = x * x;
    return 1 - y / 6 + 7 * y * y / 360 - 31 * y * y * y / 15120;
}

// Q A Qᵀ of a symmetric tensor given by components; rows of Q: `axis`.
void to_axes(const std::array<double, 6>& a, const double* axis, Tensor3& out) {
    const double full[9] = {a[0], a[3], a[5], a[3], a[1], a[4], a[5], a[4], a[2]};
    for (int k = 0; k < 3; ++k)
        for (int l = 0; l < 3; ++l) {
            out[k][l] = 0;
            for (int r = 0; r < 3; ++r)
                for (int s = 0; s < 3; ++s) out[k][l] += axis[3 * k + r] * full[3 * r + s] * axis[3 * l + s];
        }
}

// Back to components.
void from_axes(const Tensor3& a, const double* axis, std::array<double, 6>& out) {
    for (int m = 0; m < 6; ++m) {
        double sum = 0;
        for (int k = 0; k < 3; ++k)
            for (int l = 0; l < 3; ++l) sum += a[k][l] * axis[3 * k + row_of[m]] * axis[3 * l + column_of[m]];
        out[m] = sum;
    }
}

// -2 λi λj λk² times the second divided difference of ln at μi, μk, μj: 2 λi λj λk² ∫ ds/((μi+s)(μk+s)(μj+s))
// over s > 0, by Gauss's twelve points in t = s/(m + s) with m the geometric mean. Smooth where stretches
// meet; off by 1e-11 where they stand as 1 to 4.
double curvature_of_log(double ei, double ek, double ej) {
    constexpr double at[6] = {0.1252334085114689, 0.3678314989981802, 0.5873179542866175,
                              0.7699026741943047, 0.9041172563704749, 0.9815606342467193};
    constexpr double weight[6] = {0.2491470458134028, 0.2334925365383548, 0.2031674267230659,
                                  0.1600783285433462, 0.1069393259953184, 0.0471753363865118};
    const double mean = (ei + ek + ej) / 3;  // of m = 1 after scaling
    const double mi = std::exp(2 * (ei - mean)), mk = std::exp(2 * (ek - mean)),
                 mj = std::exp(2 * (ej - mean));
    double sum = 0;
    for (int p = 0; p < 6; ++p)
        for (const double sign : {-1.0, 1.0}) {
            const double t = 0.5 * (1 + sign * at[p]), s = 1 - t;
            sum += 0.5 * weight[p] * s / ((mi * s + t) * (mk * s + t) * (mj * s + t));
        }
    return 2 * std::sqrt(mi * mj) * mk * sum;
}

// What the return leaves: the stress T with the plastic strain, and its derivative 2G scale dev + K tr - φ
// ξ⊗ξ.
struct LogReturn {
    Tensor3 T, xi;
    double scale = 1, phi = 0;
};

// c in the axes n: pairs 00 11 22 01 12 20.
void tangent_in_axes(const PlasticMaterial& m, const LogReturn& at, const double* e, double (*c)[6]) {
    const double G2 = 2 * m.shear * at.scale;
    double h[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) h[i][j] = x_over_sinh(e[i] - e[j]);
    for (int a = 0; a < 6; ++a)
        for (int b = 0; b < 6; ++b) {
            const int i = row_of[a], j = column_of[a], k = row_of[b], l = column_of[b];
            double sum = -at.phi * at.xi[i][j] * at.xi[k][l];
            if (i == j && k == l) sum += m.bulk - G2 / 3;
            if (a == b) sum += a < 3 ? G2 : 0.5 * G2;
            c[a][b] = h[i][j] * h[k][l] * sum;
        }
    // T : the second derivative of E: 2 g T_ij on d_ik d_jk, shared among the pairs' two orders
    constexpr int pair[3][3] = {{0, 3, 5}, {3, 1, 4}, {5, 4, 2}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) {
                const double value = -2 * curvature_of_log(e[i], e[k], e[j]) * at.T[i][j];
                const double share = (i == k ? 1 : 0.5) * (j == k ? 1 : 0.5);
                c[pair[i][k]][pair[j][k]] += share * value;
            }
}

void rotate_tangent(const double (*c)[6], const double* n, double* out) {
    double S[6][6], cS[6][6];
    for (int m = 0; m < 6; ++m)
        for (int a = 0; a < 6; ++a) {
            const double *k = n + 3 * row_of[a], *l = n + 3 * column_of[a];
            const int r = row_of[m], s = column_of[m];
            S[m][a] = a < 3 ? k[r] * k[s] : k[r] * l[s] + l[r] * k[s];
        }
    for (int a = 0; a < 6; ++a)
        for (int m = 0; m < 6; ++m) {
            cS[a][m] = 0;
            for (int b = 0; b < 6; ++b) cS[a][m] += c[a][b] * S[m][b];
        }
    for (int r = 0; r < 6; ++r)
        for (int s = r; s < 6; ++s) {
            double sum = 0;
            for (int a = 0; a < 6; ++a) sum += S[r][a] * cS[a][s];
            out[6 * r + s] = out[6 * s + r] = sum;
        }
}

// n_k = F N_k / λ_k
void turned_axes(const double* H, const PrincipalAxes& at, double* n) {
    for (int k = 0; k < 3; ++k) {
        const double* N = at.axis.data() + 3 * k;
        const double stretch = std::sqrt(1 + at.value[k]);
        for (int r = 0; r < 3; ++r)
            n[3 * k + r] = (N[r] + H[3 * r] * N[0] + H[3 * r + 1] * N[1] + H[3 * r + 2] * N[2]) / stretch;
    }
}

// The return in the axes of C; Ep comes in as it was and leaves as it is.
LogReturn return_in_axes(const PlasticMaterial& m, const double* e, double thermal, double& alpha,
                         Tensor3& Ep) {
    const double trace = e[0] + e[1] + e[2], G2 = 2 * m.shear;
    LogReturn out;
    double size = 0;
    for (int k = 0; k < 3; ++k)
        for (int l = 0; l < 3; ++l) {
            const double deviator = (k == l ? e[k] - trace / 3 : 0) - Ep[k][l];
            out.T[k][l] = G2 * deviator;
            out.xi[k][l] = out.T[k][l] - 2.0 / 3.0 * m.kinematic * Ep[k][l];
            size += out.xi[k][l] * out.xi[k][l];
        }
    const double q = std::sqrt(1.5 * size), stiffness = 3 * m.shear + m.kinematic;
    const HardeningSegment* segment = m.curve.data();
    const double d_alpha = return_to_curve(segment, q, alpha, stiffness);
    const double flow = d_alpha > 0 ? 1.5 * d_alpha / q : 0;
    for (int k = 0; k < 3; ++k)
        for (int l = 0; l < 3; ++l) {
            out.T[k][l] -= G2 * flow * out.xi[k][l];
            if (k == l) out.T[k][l] += m.bulk * (trace - 3 * thermal);
            Ep[k][l] += flow * out.xi[k][l];
        }
    alpha += d_alpha;
    if (!(d_alpha > 0)) return out;
    out.scale = 1 - G2 * flow;
    out.phi = 9 * m.shear * m.shear / (q * q) * (1 / (stiffness + segment->slope) - d_alpha / q);
    return out;
}

}  // namespace

bool kinematic_response(const PlasticMaterial& m, const double* H, const FinitePointState& committed,
                        bool with_tangent, FiniteResponse& out, const PrincipalAxes* known) {
    out.J = invert_deformation(H, out.F_inverse.data());
    if (!(out.J > 0) || !std::isfinite(out.J)) return false;
    for (int a = 0; a < 6; ++a) {  // C - 1 = H + Hᵀ + HᵀH
        const int r = row_of[a], c = column_of[a];
        out.trial.be[a] = H[3 * r + c] + H[3 * c + r];
        for (int k = 0; k < 3; ++k) out.trial.be[a] += H[3 * k + r] * H[3 * k + c];
    }
    if (known && known->be == out.trial.be)
        out.trial = *known;
    else
        symmetric_eigen3(out.trial.be.data(), out.trial.value.data(), out.trial.axis.data());
    double e[3];
    for (int k = 0; k < 3; ++k) {
        if (!(out.trial.value[k] > -1)) return false;
        e[k] = 0.5 * std::log1p(out.trial.value[k]);
    }
    out.state = committed;
    Tensor3 Ep, tau;
    to_axes(committed.P, out.trial.axis.data(), Ep);
    const LogReturn back = return_in_axes(m, e, committed.thermal, out.state.alpha, Ep);
    if (out.state.alpha > committed.alpha) from_axes(Ep, out.trial.axis.data(), out.state.P);
    double n[9];
    turned_axes(H, out.trial, n);
    for (int k = 0; k < 3; ++k)
        for (int l = 0; l < 3; ++l) tau[k][l] = back.T[k][l] * x_over_sinh(e[k] - e[l]);
    from_axes(tau, n, out.tau);
    for (const double t : out.tau)
        if (!std::isfinite(t)) return false;
    if (!with_tangent) return true;
    double c[6][6];
    tangent_in_axes(m, back, e, c);
    rotate_tangent(c, n, out.tangent.data());
    return true;
}

}  // namespace kestralum
