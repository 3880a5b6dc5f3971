// A smooth field of displacements with all that follows from it exactly, for linear elasticity and for
// Hencky's law at finite strain. Written apart from the elements and the material points that it is held
// against.
#pragma once

#include "model/records.h"
#include "model/vector3.h"

namespace kestralum {

using Strain6 = std::array<double, 6>;  // xx yy zz xy yz zx; of strains shears are doubled

// λ and μ, N/m^2
struct Lame {
    double lambda, mu;
};
Lame lame_of(const Material& material);

// ε of a displacement gradient H[3r + c] = ∂u_r/∂x_c, and D ε
Strain6 strain_of(const Mat3& H);
Strain6 stress_of(const Strain6& strain, const Lame& moduli);

// u_c = a_c Π_k sin(w_ck x_k + p_ck)
struct SineField {
    Vec3 amplitude;           // m
    Mat3 wave_number, phase;  // 3c + k, 1/m

    double value(std::size_t c, const Vec3& x) const;
    Mat3 gradient(const Vec3& x) const;
    // f = -div(D ε(u)), N/m^3
    Vec3 body_force(const Vec3& x, const Lame& moduli) const;
};

// A field of that kind, not small anywhere and with shears of the size of its stretches; `largest`: of its
// displacements, m.
SineField sine_field(double largest);

// Hencky's law, τ = λ tr(ln V) 1 + 2 μ ln V with ln V = ½ ln(F Fᵀ), F = 1 + H
Mat3 kirchhoff_stress(const Mat3& H, const Lame& moduli);
// σ = τ / det F, xx yy zz xy yz zx
Strain6 cauchy_stress(const Mat3& H, const Lame& moduli);
// -Div(τ F⁻ᵀ), by differences of fourth order, N/m^3 of the body at rest
Vec3 finite_body_force(const SineField& field, const Vec3& X, const Lame& moduli);

}  // namespace kestralum
