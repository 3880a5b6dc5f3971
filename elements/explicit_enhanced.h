// The explicit kernel of enhanced hexahedra. Included by explicit_kernel_body.h alone.
//
// The enhanced hexahedron (enhanced_hexahedron.h) in rates: the increments of its internal strains
// H̃ = (det J0/det J) [Σ φi gi ⊗ Δai + Σ φk Δβk 1] follow from the stresses that the nodes' motion alone would
// bring, R = Σ w G·σ, as -ω K⁻¹ R: K the blocks of its elastic stiffness that couple nothing, which is all of
// it in a parallelepiped, ω <= 1 a bound of the rest, so that the residual falls from step to step. What is
// left of it in distorted or yielding elements goes into the next step; it gives back no energy. The element
// is never stiffer than the plain one: neither is its stable step smaller.
#pragma once

#include "elements/explicit_hexahedra.h"

namespace kestralum {
namespace {

// Walsh's sums Σ s(p)/det J(p) over the points, s a product of the signs of ξ η ζ; bit c of the index: sign
// c.
KESTRALUM_INLINE void walsh_sums(const Vec (&volume)[8], Vec (&sum)[8]) {
    for (int p = 0; p < 8; ++p) {
        const int at = (signs.of[p][0] > 0) + 2 * (signs.of[p][1] > 0) + 4 * (signs.of[p][2] > 0);
        sum[at] = 1.0 / volume[p];
    }
    for (int bit = 1; bit < 8; bit *= 2)
        for (int k = 0; k < 8; ++k) {
            if (k & bit) continue;
            const Vec low = sum[k], high = sum[k + bit];
            sum[k] = high + low;
            sum[k + bit] = high - low;
        }
}

struct InternalModes {
    Vec3 g[3];  // ∇ξi at the centre
    Vec det;
    Vec3 a[3];  // first Σ φi σ gi, then Δai
    Vec b[3];   // first Σ φk tr σ, then Δβk
};
KESTRALUM_INLINE void find_centre(const HexaField& x, InternalModes& m) {
    Vec3 J[3];
    for (int a = 0; a < 3; ++a)
        for (int r = 0; r < 3; ++r)
            J[a].c[r] =
                0.25 * (x.along[a][0].c[r] + x.along[a][1].c[r] + x.along[a][2].c[r] + x.along[a][3].c[r]);
    m.g[0] = cross(J[1], J[2]);
    m.g[1] = cross(J[2], J[0]);
    m.g[2] = cross(J[0], J[1]);
    m.det = dot(J[0], m.g[0]);
    const Vec r = 1.0 / m.det;
    for (Vec3& g : m.g)
        for (Vec& c : g.c) c = r * c;
}
KESTRALUM_INLINE void add_residual(const Vec (&s)[6], int p, InternalModes& m) {
    for (int i = 0; i < 3; ++i) {
        const double phi = gauss * signs.of[p][i];
        const Vec3& g = m.g[i];
        m.a[i].c[0] += phi * (s[0] * g.c[0] + s[3] * g.c[1] + s[5] * g.c[2]);
        m.a[i].c[1] += phi * (s[3] * g.c[0] + s[1] * g.c[1] + s[4] * g.c[2]);
        m.a[i].c[2] += phi * (s[5] * g.c[0] + s[4] * g.c[1] + s[2] * g.c[2]);
    }
    const Vec trace = s[0] + s[1] + s[2];
    for (int k = 0; k < 3; ++k)
        m.b[k] += (gauss * gauss * signs.of[p][(k + 1) % 3] * signs.of[p][(k + 2) % 3]) * trace;
}
// K of ai: det J0 Σ φi²/det J times (λ+μ) g⊗g + μ g·g 1, of βk: times 9 times the bulk modulus, all with the
// factor det J0 that R has too.
KESTRALUM_INLINE void find_increments(const Vec (&volume)[8], const BlockMaterial& material,
                                      InternalModes& m) {
    Vec sum[8];
    walsh_sums(volume, sum);
    Vec others{};
    for (int k = 1; k < 8; ++k) others += larger_of(sum[k], Vec{} - sum[k]);
    const Vec relaxed = sum[0] / (sum[0] + others);
    const Vec scale = (-3.0) * relaxed / (m.det * sum[0]);
    const Vec shear = larger_of(material.j2.shear, 1e-30 + Vec{}), lambda = material.lambda;
    const Vec bulk = larger_of(material.j2.bulk, 1e-30 + Vec{});
    const Vec ratio = (lambda + shear) / (lambda + 2.0 * shear);
    for (int i = 0; i < 3; ++i) {
        const Vec gg = dot(m.g[i], m.g[i]), along = ratio * dot(m.g[i], m.a[i]) / gg;
        const Vec factor = scale / (shear * gg);
        for (int c = 0; c < 3; ++c) m.a[i].c[c] = factor * (m.a[i].c[c] - along * m.g[i].c[c]);
    }
    for (Vec& b : m.b) b = (1.0 / 3.0) * scale * b / bulk;
}
// The internal part at a point: strain added to e, its spin to h.
KESTRALUM_INLINE void add_internal(const InternalModes& m, int p, Vec volume, Vec (&e)[6], Vec3& h) {
    const Vec f = m.det / volume;
    Vec H[3][3];
    for (int i = 0; i < 3; ++i)
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) H[r][c] += (gauss * signs.of[p][i]) * (m.g[i].c[r] * m.a[i].c[c]);
    for (int k = 0; k < 3; ++k)
        for (int r = 0; r < 3; ++r)
            H[r][r] += (gauss * gauss * signs.of[p][(k + 1) % 3] * signs.of[p][(k + 2) % 3]) * m.b[k];
    for (int c = 0; c < 3; ++c) e[c] += f * H[c][c];
    e[3] += f * (H[0][1] + H[1][0]);
    e[4] += f * (H[1][2] + H[2][1]);
    e[5] += f * (H[2][0] + H[0][2]);
    h.c[0] += 0.25 * (f * (H[2][1] - H[1][2]));
    h.c[1] += 0.25 * (f * (H[0][2] - H[2][0]));
    h.c[2] += 0.25 * (f * (H[1][0] - H[0][1]));
}

template <PointLaw law>
void hexahedra_enhanced(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        if (b + 1 < last) fetch_nodes<8>(k, b + 1);
        HexaField x, du, sum{};
        hexa_gather(k.x, k.nodes + 8 * W * b, x);
        hexa_gather(k.du, k.nodes + 8 * W * b, du);
        const BlockMaterial material = material_of(k, b);
        double* stress = k.stress + 48 * W * b;
        Sums sums;
        begin(sums);
        InternalModes modes{};
        find_centre(x, modes);
        Motion motion[8];
        Vec volume[8];
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            Motion& m = motion[p];
            find_motion_at(x, du, p, m, sums);
            volume[p] = m.volume;
            Vec s[6];
            for (int c = 0; c < 6; ++c) s[c] = load(stress + (6 * p + c) * W);
            turn(m.h, s);
            add_elastic(material, m.e, s);
            if constexpr (law == PointLaw::general)
                for (int c = 0; c < 3; ++c) s[c] -= 3.0 * material.j2.bulk * heating(k, 8 * b + p);
            add_residual(s, p, modes);
        }
        find_increments(volume, material, modes);
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            Motion whole = motion[p];
            add_internal(modes, p, volume[p], whole.e, whole.h);
            Vec s[6];
            update_stress<law>(k, b, 8 * b + p, whole, material, 1.0, s, sums, motion[p].e);
            add_flux(s, whole.cof, p, sum);
        }
        hexa_scatter(sum, k, b);
        finish(k, b, sums);
    }
}

}  // namespace
}  // namespace kestralum
