#include "app/orders/exact_field.h"

#include "elements/element_type.h"

namespace kestralum {

namespace {

double trace(const Mat3& a) {
    return a[0] + a[4] + a[8];
}

Mat3 deformation(const Mat3& H) {
    Mat3 F = H;
    for (std::size_t c = 0; c < 3; ++c) F[4 * c] += 1;
    return F;
}

// ln A of a symmetric positive definite matrix: 2 artanh Y with Y = (A - 1)(A + 1)⁻¹, as a series that ends
// with the digits (|Y| < 1 always, 0.3 where a length doubles).
Mat3 logarithm(const Mat3& A) {
    Mat3 less = A, more = A, inverse{};
    for (std::size_t c = 0; c < 3; ++c) {
        less[4 * c] -= 1;
        more[4 * c] += 1;
    }
    invert3(more.data(), inverse.data());
    const Mat3 Y = multiply3(less, inverse), Y2 = multiply3(Y, Y);
    Mat3 power = Y, out{};
    for (int k = 1; k < 200; k += 2) {
        double largest = 0;
        for (std::size_t i = 0; i < 9; ++i) {
            out[i] += 2 * power[i] / k;
            largest = std::max(largest, std::abs(power[i]));
        }
        if (largest < 1e-18) break;
        power = multiply3(power, Y2);
    }
    return out;
}

// P = τ F⁻ᵀ
Mat3 nominal_stress(const Mat3& H, const Lame& moduli) {
    Mat3 inverse{};
    invert3(deformation(H).data(), inverse.data());
    return multiply3(kirchhoff_stress(H, moduli), transposed(inverse));
}

}  // namespace

Lame lame_of(const Material& material) {
    const double E = material.young, nu = material.poisson;
    return {E * nu / ((1 + nu) * (1 - 2 * nu)), E / (2 * (1 + nu))};
}

Strain6 strain_of(const Mat3& H) {
    return {H[0], H[4], H[8], H[1] + H[3], H[5] + H[7], H[2] + H[6]};
}

Strain6 stress_of(const Strain6& strain, const Lame& moduli) {
    const double pressure = moduli.lambda * (strain[0] + strain[1] + strain[2]);
    Strain6 out;
    for (std::size_t c = 0; c < 6; ++c)
        out[c] = c < 3 ? pressure + 2 * moduli.mu * strain[c] : moduli.mu * strain[c];
    return out;
}

double SineField::value(std::size_t c, const Vec3& x) const {
    double product = amplitude[c];
    for (std::size_t k = 0; k < 3; ++k) product *= std::sin(wave_number[3 * c + k] * x[k] + phase[3 * c + k]);
    return product;
}

Mat3 SineField::gradient(const Vec3& x) const {
    Mat3 H;
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t d = 0; d < 3; ++d) {
            H[3 * c + d] = amplitude[c];
            for (std::size_t k = 0; k < 3; ++k) {
                const double w = wave_number[3 * c + k], at = w * x[k] + phase[3 * c + k];
                H[3 * c + d] *= k == d ? w * std::cos(at) : std::sin(at);
            }
        }
    return H;
}

Vec3 SineField::body_force(const Vec3& x, const Lame& moduli) const {
    // ∂²u_c / ∂x_d ∂x_e
    const auto second = [&](std::size_t c, std::size_t d, std::size_t e) {
        double product = amplitude[c];
        for (std::size_t k = 0; k < 3; ++k) {
            const double w = wave_number[3 * c + k], at = w * x[k] + phase[3 * c + k];
            const int times_derived = (k == d) + (k == e);
            product *= times_derived == 0   ? std::sin(at)
                       : times_derived == 1 ? w * std::cos(at)
                                            : -w * w * std::sin(at);
        }
        return product;
    };
    Vec3 f{};
    for (std::size_t c = 0; c < 3; ++c)
        for (std::size_t k = 0; k < 3; ++k)
            f[c] -= (moduli.lambda + moduli.mu) * second(k, c, k) + moduli.mu * second(c, k, k);
    return f;
}

SineField sine_field(double largest) {
    return {{largest, -0.8 * largest, 0.9 * largest},
            {1.7, 2.3, 1.1, 2.1, 1.3, 1.9, 1.2, 1.8, 2.2},
            {0.3, 0.7, 0.5, 0.6, 0.2, 0.9, 0.8, 0.4, 0.1}};
}

Mat3 kirchhoff_stress(const Mat3& H, const Lame& moduli) {
    const Mat3 F = deformation(H);
    Mat3 tau = logarithm(multiply3(F, transposed(F)));  // 2 ln V
    const double volume = 0.5 * trace(tau);
    for (double& t : tau) t *= moduli.mu;
    for (std::size_t c = 0; c < 3; ++c) tau[4 * c] += moduli.lambda * volume;
    return tau;
}

Strain6 cauchy_stress(const Mat3& H, const Lame& moduli) {
    const Mat3 F = deformation(H), tau = kirchhoff_stress(H, moduli);
    Mat3 inverse{};
    const double J = invert3(F.data(), inverse.data());
    return {tau[0] / J, tau[4] / J, tau[8] / J, tau[1] / J, tau[5] / J, tau[2] / J};
}

Vec3 finite_body_force(const SineField& field, const Vec3& X, const Lame& moduli) {
    constexpr double step = 2e-3;  // m, of a cube of 1 m: 16 step⁴ is beside rounding
    constexpr double weight[4] = {1, -8, 8, -1}, at[4] = {-2, -1, 1, 2};
    Vec3 f{};
    for (std::size_t d = 0; d < 3; ++d)
        for (std::size_t s = 0; s < 4; ++s) {
            Vec3 place = X;
            place[d] += at[s] * step;
            const Mat3 P = nominal_stress(field.gradient(place), moduli);
            for (std::size_t c = 0; c < 3; ++c) f[c] -= weight[s] / (12 * step) * P[3 * c + d];
        }
    return f;
}

}  // namespace kestralum
