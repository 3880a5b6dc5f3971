// Letters: Γ the internal part, x_i = F_0 g_i, b_n = ∇N_n + Γᵀ∇N_n(centre), so that F = 1 + Γ + Σ u_n ⊗ b_n
// is linear in u, and linear in α; P = τ F⁻ᵀ; l = ∂F/∂q F⁻¹ for a parameter or displacement q.
#include <algorithm>
#include <cmath>

#include "elements/enhanced_hexahedron.h"
#include "elements/finite_forms.h"

namespace kestralum {

namespace {

constexpr int nodes = 8, points = 8, size = 3 * nodes, modes = enhanced_modes;
using Parameters = std::array<double, modes>;

struct Element {
    const FiniteBody& body;
    const FiniteElementState& state;
    std::size_t first;  // point
    EnhancedFrame frame;
    double F0[9], x[3][3];

    Element(const FiniteBody& of, const FiniteElementState& at, std::int32_t e)
        : body(of), state(at), first(std::size_t(e) * points), frame(enhanced_frame(at.points)) {
        displacement_gradient(nodes, state.u.data(), frame.dN.data(), F0);
        for (int k = 0; k < 9; k += 4) F0[k] += 1;
        for (int i = 0; i < 3; ++i)
            for (int r = 0; r < 3; ++r)
                x[i][r] = F0[3 * r] * frame.g[3 * i] + F0[3 * r + 1] * frame.g[3 * i + 1] +
                          F0[3 * r + 2] * frame.g[3 * i + 2];
    }

    void gamma(const Parameters& alpha, int p, double* out) const {
        const auto& phi = enhanced_shapes[p];
        const double volume = frame.factor[p] * (phi[3] * alpha[9] + phi[4] * alpha[10] + phi[5] * alpha[11]);
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                double sum = 0;
                for (int i = 0; i < 3; ++i) sum += phi[i] * frame.g[3 * i + r] * alpha[3 * i + c];
                out[3 * r + c] = frame.factor[p] * sum + (r == c ? volume : 0);
            }
    }

    // b_n and H at a point
    void kinematics(const Parameters& alpha, int p, double* b, double* H) const {
        double G[9];
        gamma(alpha, p, G);
        const double* dN = state.points.dN.data() + size * p;
        for (int n = 0; n < nodes; ++n)
            for (int c = 0; c < 3; ++c) {
                const double* at_centre = frame.dN.data() + 3 * n;
                b[3 * n + c] =
                    dN[3 * n + c] + G[c] * at_centre[0] + G[3 + c] * at_centre[1] + G[6 + c] * at_centre[2];
            }
        displacement_gradient(nodes, state.u.data(), b, H);
        for (int k = 0; k < 9; ++k) H[k] += G[k];
    }

    bool respond(const double* H, int p, bool with_tangent, FiniteResponse& out) const {
        const std::int32_t e = static_cast<std::int32_t>(first / points);
        return finite_response(material_of(body, e), H, body.committed[first + p], with_tangent, out,
                               &body.trial[first + p]);
    }

    // l of the parameters: modes × 9
    void parameter_gradients(int p, const std::array<double, 9>& Fi, double (*l)[9]) const {
        const auto& phi = enhanced_shapes[p];
        for (int i = 0; i < 3; ++i)
            for (int c = 0; c < 3; ++c)
                for (int r = 0; r < 3; ++r)
                    for (int s = 0; s < 3; ++s)
                        l[3 * i + c][3 * r + s] = frame.factor[p] * phi[i] * x[i][r] * Fi[3 * c + s];
        for (int r = 0; r < 3; ++r)
            for (int s = 0; s < 3; ++s) {
                const double ratio =
                    F0[3 * r] * Fi[s] + F0[3 * r + 1] * Fi[3 + s] + F0[3 * r + 2] * Fi[6 + s];
                for (int k = 0; k < 3; ++k) l[9 + k][3 * r + s] = frame.factor[p] * phi[3 + k] * ratio;
            }
    }
};

// Of the parameters at one point: l, l τ, and w c:l.
struct ParameterPoint {
    double l[modes][9], lt[modes][9], cl[modes][6], strain[modes][6];

    ParameterPoint(const Element& element, int p, const FiniteResponse& at) {
        element.parameter_gradients(p, at.F_inverse, l);
        const auto& t = at.tau;
        const double w = element.state.points.weight[p];
        for (int k = 0; k < modes; ++k) {
            for (int r = 0; r < 3; ++r) {
                const double* a = l[k] + 3 * r;
                lt[k][3 * r] = w * (a[0] * t[0] + a[1] * t[3] + a[2] * t[5]);
                lt[k][3 * r + 1] = w * (a[0] * t[3] + a[1] * t[1] + a[2] * t[4]);
                lt[k][3 * r + 2] = w * (a[0] * t[5] + a[1] * t[4] + a[2] * t[2]);
            }
            double* s = strain[k];
            s[0] = l[k][0];
            s[1] = l[k][4];
            s[2] = l[k][8];
            s[3] = l[k][1] + l[k][3];
            s[4] = l[k][5] + l[k][7];
            s[5] = l[k][6] + l[k][2];
            for (int m = 0; m < 6; ++m) {
                double sum = 0;
                for (int q = 0; q < 6; ++q) sum += at.tangent[6 * m + q] * s[q];
                cl[k][m] = w * sum;
            }
        }
    }
    // Adds Σ w τ:l and Σ w (l:c:l + tr(lτlᵀ)).
    void add(double* r, double (*K)[modes]) const {
        for (int k = 0; k < modes; ++k) {
            r[k] += lt[k][0] + lt[k][4] + lt[k][8];
            for (int j = 0; j <= k; ++j) {
                double sum = 0;
                for (int m = 0; m < 6; ++m) sum += strain[j][m] * cl[k][m];
                for (int m = 0; m < 9; ++m) sum += l[j][m] * lt[k][m];
                K[k][j] += sum;
            }
        }
    }
};

// LU with row interchanges: the geometric part may make K_αα indefinite.
struct ModeFactor {
    double A[modes][modes];
    int row[modes];

    bool factor(const double (*K)[modes]) {
        for (int k = 0; k < modes; ++k)
            for (int j = 0; j < modes; ++j) A[k][j] = j <= k ? K[k][j] : K[j][k];
        for (int k = 0; k < modes; ++k) {
            int best = k;
            for (int i = k + 1; i < modes; ++i)
                if (std::abs(A[i][k]) > std::abs(A[best][k])) best = i;
            row[k] = best;
            if (!(std::abs(A[best][k]) > 0)) return false;
            if (best != k) std::swap(A[best], A[k]);
            for (int i = k + 1; i < modes; ++i) {
                const double f = A[i][k] /= A[k][k];
                for (int j = k + 1; j < modes; ++j) A[i][j] -= f * A[k][j];
            }
        }
        return true;
    }
    void solve(double* b) const {
        for (int k = 0; k < modes; ++k) std::swap(b[k], b[row[k]]);
        for (int k = 0; k < modes; ++k)
            for (int j = 0; j < k; ++j) b[k] -= A[k][j] * b[j];
        for (int k = modes - 1; k >= 0; --k) {
            for (int j = k + 1; j < modes; ++j) b[k] -= A[k][j] * b[j];
            b[k] /= A[k][k];
        }
    }
};

// Residual and stiffness of the parameters; false where a point has no response.
bool parameter_system(const Element& element, const Parameters& alpha, double* r, double (*K)[modes]) {
    std::fill(r, r + modes, 0.0);
    std::fill(&K[0][0], &K[0][0] + modes * modes, 0.0);
    for (int p = 0; p < points; ++p) {
        double b[size], H[9];
        element.kinematics(alpha, p, b, H);
        FiniteResponse response;
        if (!element.respond(H, p, true, response)) return false;
        ParameterPoint(element, p, response).add(r, K);
    }
    return true;
}

// The largest strain that a change of the parameters makes.
double strain_of(const Element& element, const double* change) {
    double largest = 0;
    for (int i = 0; i < 3; ++i) {
        const double *g = element.frame.g.data() + 3 * i, *a = change + 3 * i;
        const double gg = g[0] * g[0] + g[1] * g[1] + g[2] * g[2];
        largest = std::max(
            {largest, gg * (a[0] * a[0] + a[1] * a[1] + a[2] * a[2]), change[9 + i] * change[9 + i]});
    }
    return std::sqrt(largest);
}

// Newton's method on Σ w τ:l = 0, a step halved while it leads to no response. A last step below `enough`
// leaves an error of its square.
bool find_parameters(const Element& element, Parameters& alpha) {
    constexpr double enough = 1e-9;
    constexpr int most = 30;
    double r[modes], K[modes][modes];
    if (!parameter_system(element, alpha, r, K)) return false;
    for (int round = 0; round < most; ++round) {
        ModeFactor factor;
        if (!factor.factor(K)) return false;
        factor.solve(r);
        const double change = strain_of(element, r);
        if (!std::isfinite(change)) return false;
        const Parameters before = alpha;
        const double most_strain = 0.1;
        double step = std::min(1.0, most_strain / std::max(change, 1e-300));
        for (int k = 0; k < modes; ++k) alpha[k] = before[k] - step * r[k];
        if (change < enough) return true;
        Parameters direction;
        std::copy(r, r + modes, direction.begin());
        for (int half = 0; !parameter_system(element, alpha, r, K); ++half) {
            if (half == 10) return false;
            step *= 0.5;
            for (int k = 0; k < modes; ++k) alpha[k] = before[k] - step * direction[k];
        }
    }
    return false;
}

Parameters parameters_of(const std::vector<double>& table, std::size_t first) {
    Parameters out;
    const auto from = table.begin() + std::ptrdiff_t(first / points * modes);
    std::copy(from, from + modes, out.begin());
    return out;
}

// Adds w (l_n:c:l_k + l_kτ∇n + P:∂²F/∂u∂α) of one point: modes × size.
void add_coupling(const Element& element, int p, const ParameterPoint& of, const FiniteResponse& at,
                  const double* dn, double (*coupling)[size]) {
    const auto& Fi = at.F_inverse;
    const auto& t = at.tau;
    const double w = element.state.points.weight[p];
    const double tau[9] = {t[0], t[3], t[5], t[3], t[1], t[4], t[5], t[4], t[2]};
    double P[9];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            P[3 * r + c] =
                tau[3 * r] * Fi[3 * c] + tau[3 * r + 1] * Fi[3 * c + 1] + tau[3 * r + 2] * Fi[3 * c + 2];
    const auto& phi = enhanced_shapes[p];
    for (int n = 0; n < nodes; ++n) {
        const double *v = dn + 3 * n, *centre = element.frame.dN.data() + 3 * n;
        for (int k = 0; k < modes; ++k) {
            const double *c = of.cl[k], *lt = of.lt[k];
            double out[3] = {c[0] * v[0] + c[3] * v[1] + c[5] * v[2], c[3] * v[0] + c[1] * v[1] + c[4] * v[2],
                             c[5] * v[0] + c[4] * v[1] + c[2] * v[2]};
            for (int r = 0; r < 3; ++r)
                out[r] += lt[3 * r] * v[0] + lt[3 * r + 1] * v[1] + lt[3 * r + 2] * v[2];
            const double f = w * element.frame.factor[p];
            if (k < 9) {
                const double* g = element.frame.g.data() + k / 3 * 3;
                const double dot = f * phi[k / 3] * (g[0] * centre[0] + g[1] * centre[1] + g[2] * centre[2]);
                for (int r = 0; r < 3; ++r) out[r] += dot * P[3 * r + k % 3];
            } else {
                for (int r = 0; r < 3; ++r)
                    out[r] += f * phi[3 + k - 9] *
                              (P[3 * r] * centre[0] + P[3 * r + 1] * centre[1] + P[3 * r + 2] * centre[2]);
            }
            for (int r = 0; r < 3; ++r) coupling[k][3 * n + r] += out[r];
        }
    }
}

}  // namespace

bool update_enhanced(FiniteBody& body, const FiniteElementState& state, std::int32_t e) {
    const Element element(body, state, e);
    Parameters alpha = parameters_of(body.current_internal, element.first);
    if (!find_parameters(element, alpha)) {
        alpha = parameters_of(body.committed_internal, element.first);
        if (!find_parameters(element, alpha)) return false;
    }
    double* f = body.element_force.data() + std::ptrdiff_t(e) * size;
    std::fill(f, f + size, 0.0);
    for (int p = 0; p < points; ++p) {
        double b[size], H[9], dn[size];
        element.kinematics(alpha, p, b, H);
        FiniteResponse response;
        if (!element.respond(H, p, false, response)) return false;
        store_response(body, element.first + p, response);
        push_gradients(nodes, b, response.F_inverse, dn);
        add_point_forces(nodes, dn, response.tau, state.points.weight[p], f);
    }
    std::copy(alpha.begin(), alpha.end(), body.current_internal.begin() + std::ptrdiff_t(e) * modes);
    return true;
}

// K_uu - K_uα K_αα⁻¹ K_αu
bool enhanced_tangent(const FiniteBody& body, const FiniteElementState& state, std::int32_t e, double* ke) {
    const Element element(body, state, e);
    const Parameters alpha = parameters_of(body.current_internal, element.first);
    double r[modes] = {}, K[modes][modes] = {}, coupling[modes][size] = {};
    for (int p = 0; p < points; ++p) {
        double b[size], H[9], dn[size];
        element.kinematics(alpha, p, b, H);
        FiniteResponse response;
        if (!element.respond(H, p, true, response)) return false;
        push_gradients(nodes, b, response.F_inverse, dn);
        add_point_stiffness(nodes, dn, response, state.points.weight[p], ke);
        const ParameterPoint of(element, p, response);
        of.add(r, K);
        add_coupling(element, p, of, response, dn, coupling);
    }
    ModeFactor factor;
    if (!factor.factor(K)) return false;
    for (int b = 0; b < size; ++b) {
        double column[modes];
        for (int k = 0; k < modes; ++k) column[k] = coupling[k][b];
        factor.solve(column);
        for (int a = 0; a <= b; ++a)
            for (int k = 0; k < modes; ++k) ke[size * a + b] -= coupling[k][a] * column[k];
    }
    return true;
}

void enhanced_gradients(const FiniteBody& body, const FiniteElementState& state, std::int32_t e, double* H) {
    const Element element(body, state, e);
    const Parameters alpha = parameters_of(body.current_internal, element.first);
    for (int p = 0; p < points; ++p) {
        double b[size];
        element.kinematics(alpha, p, b, H + 9 * p);
    }
}

}  // namespace kestralum
