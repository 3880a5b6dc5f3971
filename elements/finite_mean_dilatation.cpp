#include <cmath>

#include "elements/finite_forms.h"

namespace kestralum {

namespace {

constexpr int nodes = 8, points = 8, size = 3 * nodes;

// det(1 + H) - 1, with the digits of small H
double volume_change(const double* H) {
    const double minors = H[0] * H[4] - H[1] * H[3] + H[4] * H[8] - H[5] * H[7] + H[8] * H[0] - H[6] * H[2];
    const double det = H[0] * (H[4] * H[8] - H[5] * H[7]) + H[1] * (H[5] * H[6] - H[3] * H[8]) +
                       H[2] * (H[3] * H[7] - H[4] * H[6]);
    return H[0] + H[4] + H[8] + minors + det;
}

// At every point F̄ - 1, (θ/J)^⅓ and the share of the volume reached.
struct Averaged {
    double H[points][9];
    double scale[points], share[points];

    // False where a volume is not positive.
    bool find(const FiniteElementState& state) {
        double change[points], mean = 0, before = 0;
        for (int p = 0; p < points; ++p) {
            displacement_gradient(nodes, state.u.data(), state.points.dN.data() + size * p, H[p]);
            change[p] = volume_change(H[p]);
            if (!(change[p] > -1)) return false;
            mean += state.points.weight[p] * change[p];
            before += state.points.weight[p];
        }
        for (int p = 0; p < points; ++p)
            share[p] = state.points.weight[p] * (1 + change[p]) / (before + mean);
        mean /= before;
        for (int p = 0; p < points; ++p) {
            const double over = std::expm1((std::log1p(mean) - std::log1p(change[p])) / 3);
            scale[p] = 1 + over;
            for (int k = 0; k < 9; ++k) H[p][k] = scale[p] * H[p][k] + (k % 4 == 0 ? over : 0);
        }
        return true;
    }
};

// Gradients in the configuration reached; F̄⁻¹ is F⁻¹ over the scale.
void find_gradients(const FiniteElementState& state, const Averaged& averaged, int p,
                    const std::array<double, 9>& F_inverse, double* dn) {
    push_gradients(nodes, state.points.dN.data() + size * p, F_inverse, dn);
    for (int d = 0; d < size; ++d) dn[d] *= averaged.scale[p];
}

// b̄ = Σ share ∇N with the points' shares of the volume reached, w J / Σ w J
void find_mean_gradients(const Averaged& averaged, const double (*dn)[size], double* mean) {
    for (int d = 0; d < size; ++d) mean[d] = 0;
    for (int p = 0; p < points; ++p)
        for (int d = 0; d < size; ++d) mean[d] += averaged.share[p] * dn[p][d];
}

// τ∇N: nodes × 3
void stress_on(const std::array<double, 6>& t, const double* dn, double* out) {
    for (int n = 0; n < nodes; ++n) {
        const double* v = dn + 3 * n;
        out[3 * n] = t[0] * v[0] + t[3] * v[1] + t[5] * v[2];
        out[3 * n + 1] = t[3] * v[0] + t[1] * v[1] + t[4] * v[2];
        out[3 * n + 2] = t[5] * v[0] + t[4] * v[1] + t[2] * v[2];
    }
}

// With L = e_r ⊗ ∇Ni and M = e_s ⊗ ∇Nj, d = (b̄ - ∇N)/3 and l = L + d 1:
// w (l:c:l + tr(LτMᵀ) + 2 d_i τ:M + 2 d_j τ:L + tr τ (2 d_i d_j + tr(LM)/3))
void add_point(const double* dn, const double* mean, const FiniteResponse& at, double w, double* ke) {
    double tn[size], d[size], B[6][size], cB[6][size];
    stress_on(at.tau, dn, tn);
    for (int i = 0; i < size; ++i) d[i] = (mean[i] - dn[i]) / 3;
    strain_displacement(nodes, dn, &B[0][0]);
    for (int m = 0; m < 3; ++m)
        for (int i = 0; i < size; ++i) B[m][i] += d[i];
    for (int m = 0; m < 6; ++m)
        for (int i = 0; i < size; ++i) {
            double sum = 0;
            for (int k = 0; k < 6; ++k) sum += at.tangent[6 * m + k] * B[k][i];
            cB[m][i] = w * sum;
        }
    const double trace = at.tau[0] + at.tau[1] + at.tau[2];
    for (int a = 0; a < size; ++a) {
        const int i = a / 3, r = a % 3;
        for (int b = a; b < size; ++b) {
            const int j = b / 3, s = b % 3;
            double sum = 0;
            for (int m = 0; m < 6; ++m) sum += B[m][a] * cB[m][b];
            double geometric = 2 * (d[a] * tn[b] + tn[a] * d[b]) +
                               trace * (2 * d[a] * d[b] + dn[3 * i + s] * dn[3 * j + r] / 3);
            if (r == s)
                geometric +=
                    dn[3 * i] * tn[3 * j] + dn[3 * i + 1] * tn[3 * j + 1] + dn[3 * i + 2] * tn[3 * j + 2];
            ke[size * a + b] += sum + w * geometric;
        }
    }
}

}  // namespace

void mean_dilatation_gradients(const FiniteElementState& state, double* H) {
    Averaged averaged;
    averaged.find(state);
    std::copy(&averaged.H[0][0], &averaged.H[0][0] + 9 * points, H);
}

bool update_mean_dilatation(FiniteBody& body, const FiniteElementState& state, std::int32_t e) {
    Averaged averaged;
    if (!averaged.find(state)) return false;
    double dn[points][size], mean[size], pressure = 0;
    double* f = body.element_force.data() + std::ptrdiff_t(e) * size;
    std::fill(f, f + size, 0.0);
    const std::size_t first = std::size_t(e) * points;
    for (int p = 0; p < points; ++p) {
        FiniteResponse response;
        if (!finite_response(material_of(body, e), averaged.H[p], body.committed[first + p], false, response))
            return false;
        find_gradients(state, averaged, p, response.F_inverse, dn[p]);
        store_response(body, first + p, response);
        const double w = state.points.weight[p];
        std::array<double, 6> deviator = response.tau;
        const double share = (deviator[0] + deviator[1] + deviator[2]) / 3;
        for (int c = 0; c < 3; ++c) deviator[c] -= share;
        pressure += w * share;
        add_point_forces(nodes, dn[p], deviator, w, f);
    }
    find_mean_gradients(averaged, dn, mean);
    for (int d = 0; d < size; ++d) f[d] += pressure * mean[d];
    return true;
}

bool mean_dilatation_tangent(const FiniteBody& body, const FiniteElementState& state, std::int32_t e,
                             double* ke) {
    Averaged averaged;
    if (!averaged.find(state)) return false;
    FiniteResponse response[points];
    double dn[points][size], mean[size], pressure = 0;
    const std::size_t first = std::size_t(e) * points;
    for (int p = 0; p < points; ++p) {
        FiniteResponse& at = response[p];
        if (!finite_response(material_of(body, e), averaged.H[p], body.committed[first + p], true, at,
                             &body.trial[first + p]))
            return false;
        find_gradients(state, averaged, p, at.F_inverse, dn[p]);
        pressure += state.points.weight[p] * (at.tau[0] + at.tau[1] + at.tau[2]) / 3;
    }
    find_mean_gradients(averaged, dn, mean);
    for (int p = 0; p < points; ++p) add_point(dn[p], mean, response[p], state.points.weight[p], ke);
    // what is left of the second derivative of ln θ: Σ w J (tr L tr M - tr(LM)) / (V θ) - b̄ b̄
    for (int a = 0; a < size; ++a)
        for (int b = a; b < size; ++b) {
            double sum = -mean[a] * mean[b];
            const int across = 3 * (a / 3) + b % 3, back = 3 * (b / 3) + a % 3;
            for (int p = 0; p < points; ++p)
                sum += averaged.share[p] * (dn[p][a] * dn[p][b] - dn[p][across] * dn[p][back]);
            ke[size * a + b] += pressure * sum;
        }
    return true;
}

}  // namespace kestralum
