// What the explicit kernels do at one point, a vector register of elements at a time. Included by
// explicit_kernel_body.h alone, once for each vector width.
//
// Letters: g_a = ∂x/∂ξ_a, U_a = ∂Δu/∂ξ_a, cof_a = g_b × g_c (cyclic; det·∂ξ_a/∂x), G the gradient of Δu in
// the mid-step configuration, whose Jacobian has the columns g_a - U_a/2, h half the axial vector of the
// spin of G, Q = I + 2 (H + H²)/(1 + h·h) with H = [h]×, Cayley's form of Hughes and Winget's rotation.
#pragma once

#ifdef __x86_64__
#include <immintrin.h>
#endif

#include "elements/explicit_kernel.h"
#include "elements/plasticity.h"

namespace kestralum {
namespace {

#define KESTRALUM_INLINE [[gnu::always_inline]] inline

constexpr int W = KESTRALUM_LANES;
constexpr int ahead = 8;  // points whose stresses are asked for early
typedef double Native __attribute__((vector_size(W * 8)));
typedef double Loose __attribute__((vector_size(W * 8), aligned(8), may_alias));

// One double per lane.
struct Vec {
    Native v{};
};
KESTRALUM_INLINE Vec operator+(Vec a, Vec b) {
    return {a.v + b.v};
}
KESTRALUM_INLINE Vec operator-(Vec a, Vec b) {
    return {a.v - b.v};
}
KESTRALUM_INLINE Vec operator*(Vec a, Vec b) {
    return {a.v * b.v};
}
KESTRALUM_INLINE Vec operator/(Vec a, Vec b) {
    return {a.v / b.v};
}
KESTRALUM_INLINE Vec operator*(double a, Vec b) {
    return {a * b.v};
}
KESTRALUM_INLINE Vec operator/(double a, Vec b) {
    return {a / b.v};
}
KESTRALUM_INLINE Vec operator+(double a, Vec b) {
    return {a + b.v};
}
KESTRALUM_INLINE Vec operator-(double a, Vec b) {
    return {a - b.v};
}
KESTRALUM_INLINE void operator+=(Vec& a, Vec b) {
    a.v += b.v;
}
KESTRALUM_INLINE void operator-=(Vec& a, Vec b) {
    a.v -= b.v;
}
KESTRALUM_INLINE Vec larger_of(Vec a, Vec b) {
    return {a.v < b.v ? b.v : a.v};
}
KESTRALUM_INLINE Vec smaller_of(Vec a, Vec b) {
    return {b.v < a.v ? b.v : a.v};
}
// a where the condition is above 0, b elsewhere
KESTRALUM_INLINE Vec choose(Vec condition, Vec a, Vec b) {
    return {condition.v > Native{} ? a.v : b.v};
}
KESTRALUM_INLINE Vec load(const double* p) {
    return {*reinterpret_cast<const Loose*>(p)};
}
KESTRALUM_INLINE void store(double* p, Vec a) {
    *reinterpret_cast<Loose*>(p) = a.v;
}
KESTRALUM_INLINE Vec root(Vec a) {
#if KESTRALUM_LANES == 8
    return {_mm512_sqrt_pd(a.v)};
#elif KESTRALUM_LANES == 4
    return {_mm256_sqrt_pd(a.v)};
#else
    return {Native{__builtin_sqrt(a.v[0]), __builtin_sqrt(a.v[1])}};
#endif
}

// √a and 1/√a, a ≥ 1e-300, in Goldschmidt's steps (1964) where the processor has a first guess: its root and
// division take longer.
struct Roots {
    Vec root, inverse;
};
KESTRALUM_INLINE Roots roots(Vec a) {
#if KESTRALUM_LANES == 8
    const Native guess = _mm512_rsqrt14_pd(a.v);
    Native g = a.v * guess, h = 0.5 * guess;
    for (int step = 0; step < 2; ++step) {
        const Native left = 0.5 - g * h;
        g += g * left;
        h += h * left;
    }
    return {{g}, {2.0 * h}};
#else
    const Vec r = root(a);
    return {r, 1.0 / r};
#endif
}

// x, y and z of the lanes' nodes from node × 4 storage.
KESTRALUM_INLINE void gather(const double* at, const std::int32_t* n, Vec& x, Vec& y, Vec& z) {
    auto row = [at](std::int32_t node) { return at + 4 * static_cast<std::ptrdiff_t>(node); };
#if KESTRALUM_LANES == 8
    auto two = [&](int a, int b) {
        return _mm512_insertf64x4(_mm512_castpd256_pd512(_mm256_loadu_pd(row(n[a]))),
                                  _mm256_loadu_pd(row(n[b])), 1);
    };
    const __m512d a0 = two(0, 2), a1 = two(1, 3), b0 = two(4, 6), b1 = two(5, 7);
    const __m512d a_lo = _mm512_unpacklo_pd(a0, a1), b_lo = _mm512_unpacklo_pd(b0, b1);
    x.v = _mm512_shuffle_f64x2(a_lo, b_lo, 0x88);
    y.v = _mm512_shuffle_f64x2(_mm512_unpackhi_pd(a0, a1), _mm512_unpackhi_pd(b0, b1), 0x88);
    z.v = _mm512_shuffle_f64x2(a_lo, b_lo, 0xdd);
#elif KESTRALUM_LANES == 4
    const __m256d a = _mm256_loadu_pd(row(n[0])), b = _mm256_loadu_pd(row(n[1]));
    const __m256d c = _mm256_loadu_pd(row(n[2])), d = _mm256_loadu_pd(row(n[3]));
    const __m256d ab_lo = _mm256_unpacklo_pd(a, b), cd_lo = _mm256_unpacklo_pd(c, d);
    x.v = _mm256_permute2f128_pd(ab_lo, cd_lo, 0x20);
    y.v = _mm256_permute2f128_pd(_mm256_unpackhi_pd(a, b), _mm256_unpackhi_pd(c, d), 0x20);
    z.v = _mm256_permute2f128_pd(ab_lo, cd_lo, 0x31);
#else
    const double *a = row(n[0]), *b = row(n[1]);
    x.v = Native{a[0], b[0]};
    y.v = Native{a[1], b[1]};
    z.v = Native{a[2], b[2]};
#endif
}

// Asks for the nodes of a block ahead of its turn: their places in memory follow no pattern that the
// processor foresees.
template <int nodes_per_element>
KESTRALUM_INLINE void fetch_nodes(const KernelArrays& k, std::int64_t b) {
    const std::int32_t* nodes = k.nodes + nodes_per_element * W * b;
    for (int i = 0; i < nodes_per_element * W; ++i) {
        __builtin_prefetch(k.x + 4 * static_cast<std::ptrdiff_t>(nodes[i]));
        __builtin_prefetch(k.du + 4 * static_cast<std::ptrdiff_t>(nodes[i]));
    }
}

// The lanes' x, y and z added to rows of four, one lane after the other: several may meet in a row.
KESTRALUM_INLINE void scatter_add(const Vec& x, const Vec& y, const Vec& z, const std::uint16_t* n,
                                  double* to) {
    auto row = [to](std::uint16_t place) { return to + 4 * static_cast<std::ptrdiff_t>(place); };
#if KESTRALUM_LANES == 8
    auto add = [&](int lane, __m256d force) {
        double* at = row(n[lane]);
        _mm256_storeu_pd(at, _mm256_loadu_pd(at) + force);
    };
    const __m512d xy[2] = {_mm512_unpacklo_pd(x.v, y.v), _mm512_unpackhi_pd(x.v, y.v)};
    const __m512i low[2] = {_mm512_setr_epi64(0, 1, 8, 8, 2, 3, 10, 10),
                            _mm512_setr_epi64(0, 1, 9, 9, 2, 3, 11, 11)},
                  high[2] = {_mm512_setr_epi64(4, 5, 12, 12, 6, 7, 14, 14),
                             _mm512_setr_epi64(4, 5, 13, 13, 6, 7, 15, 15)};
    constexpr __mmask8 three = 0x77;  // of four
    __m512d rows[2][2];
    for (int odd = 0; odd < 2; ++odd) {
        rows[0][odd] = _mm512_maskz_permutex2var_pd(three, xy[odd], low[odd], z.v);   // lanes odd, odd + 2
        rows[1][odd] = _mm512_maskz_permutex2var_pd(three, xy[odd], high[odd], z.v);  // odd + 4, odd + 6
    }
    for (int half = 0; half < 2; ++half)
        for (int part = 0; part < 2; ++part)
            for (int odd = 0; odd < 2; ++odd)
                add(4 * half + 2 * part + odd, part == 0 ? _mm512_castpd512_pd256(rows[half][odd])
                                                         : _mm512_extractf64x4_pd(rows[half][odd], 1));
#elif KESTRALUM_LANES == 4
    auto add = [&](int lane, __m256d force) {
        double* at = row(n[lane]);
        _mm256_storeu_pd(at, _mm256_loadu_pd(at) + force);
    };
    const __m256d none = _mm256_setzero_pd();
    const __m256d xy[2] = {_mm256_unpacklo_pd(x.v, y.v), _mm256_unpackhi_pd(x.v, y.v)};
    const __m256d zw[2] = {_mm256_unpacklo_pd(z.v, none), _mm256_unpackhi_pd(z.v, none)};
    for (int odd = 0; odd < 2; ++odd) add(odd, _mm256_permute2f128_pd(xy[odd], zw[odd], 0x20));
    for (int odd = 0; odd < 2; ++odd) add(2 + odd, _mm256_permute2f128_pd(xy[odd], zw[odd], 0x31));
#else
    for (int lane = 0; lane < W; ++lane) {
        double* at = row(n[lane]);
        at[0] += x.v[lane];
        at[1] += y.v[lane];
        at[2] += z.v[lane];
    }
#endif
}

struct Vec3 {
    Vec c[3];
};
KESTRALUM_INLINE Vec dot(const Vec3& a, const Vec3& b) {
    return a.c[0] * b.c[0] + a.c[1] * b.c[1] + a.c[2] * b.c[2];
}
KESTRALUM_INLINE Vec3 cross(const Vec3& a, const Vec3& b) {
    return {{a.c[1] * b.c[2] - a.c[2] * b.c[1], a.c[2] * b.c[0] - a.c[0] * b.c[2],
             a.c[0] * b.c[1] - a.c[1] * b.c[0]}};
}

// From the first corner of the 4-node tetrahedra of block b to the others: in the configuration reached, and
// of the increments.
KESTRALUM_INLINE void tetra_edges(const KernelArrays& k, std::int64_t b, Vec3 (&g)[3], Vec3 (&U)[3]) {
    Vec3 x[4], u[4];
    const std::int32_t* nodes = k.nodes + 4 * W * b;
    for (int i = 0; i < 4; ++i) {
        gather(k.x, nodes + W * i, x[i].c[0], x[i].c[1], x[i].c[2]);
        gather(k.du, nodes + W * i, u[i].c[0], u[i].c[1], u[i].c[2]);
    }
    for (int a = 0; a < 3; ++a)
        for (int r = 0; r < 3; ++r) {
            g[a].c[r] = x[a + 1].c[r] - x[0].c[r];
            U[a].c[r] = u[a + 1].c[r] - u[0].c[r];
        }
}

struct Sums {
    Vec internal, plastic, least;
};

struct BlockMaterial {
    Vec lambda, compliance;  // λ and 1/(3G + H)
    J2Material<Vec> j2;
};
KESTRALUM_INLINE BlockMaterial material_of(const KernelArrays& k, std::int64_t b) {
    const double* m = k.material + 4 * W * b;
    BlockMaterial out;
    out.lambda = load(m);
    out.j2.shear = load(m + W);
    out.j2.bulk = out.lambda + (2.0 / 3.0) * out.j2.shear;
    out.j2.yield = load(m + 2 * W);
    out.j2.hardening = load(m + 3 * W);
    out.compliance = 1.0 / (3.0 * out.j2.shear + out.j2.hardening);
    return out;
}

// Strain increment and rotation at a point.
struct Motion {
    Vec3 cof[3];
    Vec e[6];  // Δε, engineering shear strains
    Vec3 h;
    Vec volume;  // det J in the mid-step configuration
};
KESTRALUM_INLINE void find_motion(const Vec3 (&g)[3], const Vec3 (&U)[3], Motion& m, Sums& sums) {
    m.cof[0] = cross(g[1], g[2]);
    m.cof[1] = cross(g[2], g[0]);
    m.cof[2] = cross(g[0], g[1]);
    sums.least = smaller_of(sums.least, dot(g[0], m.cof[0]));
    Vec3 h[3];  // columns of the Jacobian of the mid-step configuration
    for (int a = 0; a < 3; ++a)
        for (int c = 0; c < 3; ++c) h[a].c[c] = g[a].c[c] - 0.5 * U[a].c[c];
    const Vec3 mid[3] = {cross(h[1], h[2]), cross(h[2], h[0]), cross(h[0], h[1])};
    m.volume = dot(h[0], mid[0]);
    const Vec r = 1.0 / m.volume;
    auto G = [&](int i, int j) {
        return r * (U[0].c[i] * mid[0].c[j] + U[1].c[i] * mid[1].c[j] + U[2].c[i] * mid[2].c[j]);
    };
    m.e[0] = G(0, 0);
    m.e[1] = G(1, 1);
    m.e[2] = G(2, 2);
    const Vec xy = G(0, 1), yx = G(1, 0), yz = G(1, 2), zy = G(2, 1), zx = G(2, 0), xz = G(0, 2);
    m.e[3] = xy + yx;
    m.e[4] = yz + zy;
    m.e[5] = zx + xz;
    m.h.c[0] = 0.25 * (zy - yz);
    m.h.c[1] = 0.25 * (xz - zx);
    m.h.c[2] = 0.25 * (yx - xy);
}

// s := Q s Qᵀ
KESTRALUM_INLINE void turn(const Vec3& h, Vec (&s)[6]) {
    const Vec hh = dot(h, h);
    const Vec f = 2.0 / (1.0 + hh);
    const Vec diagonal = 1.0 - f * hh;
    const Vec fh[3] = {f * h.c[0], f * h.c[1], f * h.c[2]};
    const Vec xy = fh[0] * h.c[1], yz = fh[1] * h.c[2], zx = fh[2] * h.c[0];
    const Vec Q[3][3] = {{diagonal + fh[0] * h.c[0], xy - fh[2], zx + fh[1]},
                         {xy + fh[2], diagonal + fh[1] * h.c[1], yz - fh[0]},
                         {zx - fh[1], yz + fh[0], diagonal + fh[2] * h.c[2]}};
    const Vec S[3][3] = {{s[0], s[3], s[5]}, {s[3], s[1], s[4]}, {s[5], s[4], s[2]}};
    Vec T[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) T[i][j] = Q[i][0] * S[0][j] + Q[i][1] * S[1][j] + Q[i][2] * S[2][j];
    auto product = [&](int i, int j) { return T[i][0] * Q[j][0] + T[i][1] * Q[j][1] + T[i][2] * Q[j][2]; };
    s[0] = product(0, 0);
    s[1] = product(1, 1);
    s[2] = product(2, 2);
    s[3] = product(0, 1);
    s[4] = product(1, 2);
    s[5] = product(2, 0);
}

KESTRALUM_INLINE Vec contract(const Vec (&s)[6], const Vec (&e)[6]) {
    return s[0] * e[0] + s[1] * e[1] + s[2] * e[2] + s[3] * e[3] + s[4] * e[4] + s[5] * e[5];
}

// Brings a trial deviator back onto the yield surface (Simo and Hughes, 1998, box 3.1), without branches: a
// material that never yields has an infinite yield stress. Returns the plastic work per volume.
KESTRALUM_INLINE Vec yield(const BlockMaterial& m, Vec (&d)[6], double* alpha) {
    const Vec zero{}, tiny = 1e-300 + zero;
    const Roots q = roots(larger_of(tiny, 1.5 * (d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) +
                                              3.0 * (d[3] * d[3] + d[4] * d[4] + d[5] * d[5])));
    const Vec a = load(alpha);
    const Vec d_alpha = m.compliance * larger_of(zero, q.root - (m.j2.yield + m.j2.hardening * a));
    const Vec scale = 1.0 - 3.0 * m.j2.shear * d_alpha * q.inverse;
    for (Vec& c : d) c = scale * c;
    store(alpha, a + d_alpha);
    return q.root * scale * d_alpha;
}

// The same onto curves of the yield stress and about a backstress (Simo and Hughes, 1998, box 3.1): on ξ
// = s
// - β, with Δεp = 3/2 Δα ξ/q and Δβ = 2/3 H Δεp. h turns the backstress first; `at` is block · points +
// point.
KESTRALUM_INLINE Vec yield_generally(const KernelArrays& k, std::int64_t b, std::int64_t at,
                                     const BlockMaterial& m, const Vec3& h, Vec (&d)[6]) {
    Vec back[6];
    double* stored = k.general.back ? k.general.back + 6 * W * at : nullptr;
    for (int c = 0; c < 6 && stored; ++c) back[c] = load(stored + c * W);
    if (stored) turn(h, back);
    Vec xi[6];
    for (int c = 0; c < 6; ++c) xi[c] = d[c] - back[c];
    const Vec zero{}, tiny = 1e-300 + zero;
    const Vec q = root(1.5 * (xi[0] * xi[0] + xi[1] * xi[1] + xi[2] * xi[2]) +
                       3.0 * (xi[3] * xi[3] + xi[4] * xi[4] + xi[5] * xi[5]));
    const Vec kinematic = load(k.general.kinematic + W * b);
    const Vec alpha = load(k.alpha + W * at), stiffness = 3.0 * m.j2.shear + kinematic;
    Vec d_alpha;
    for (int lane = 0; lane < W; ++lane) {
        const HardeningSegment* segment = k.general.segments[W * b + lane];
        d_alpha.v[lane] = return_to_curve(segment, q.v[lane], alpha.v[lane], stiffness.v[lane]);
    }
    store(k.alpha + W * at, alpha + d_alpha);
    const Vec flow = d_alpha / larger_of(q, tiny), loss = 3.0 * m.j2.shear * flow;
    Vec work{};  // of the stress on 3/2 Δα ξ/q
    for (int c = 0; c < 6; ++c) {
        d[c] -= loss * xi[c];
        work += (c < 3 ? 1.5 : 3.0) * (d[c] * xi[c]);
        if (stored) store(stored + c * W, back[c] + kinematic * flow * xi[c]);
    }
    return work * flow;
}

// Thermal strain that the step adds at a point of a block.
KESTRALUM_INLINE Vec heating(const KernelArrays& k, std::int64_t at) {
    return k.general.thermal ? load(k.general.thermal + W * at) : Vec{};
}
KESTRALUM_INLINE void add_heat(const KernelArrays& k, std::int64_t b, Vec work) {
    if (k.general.heat) store(k.general.heat + W * b, load(k.general.heat + W * b) + work);
}

KESTRALUM_INLINE void add_elastic(const BlockMaterial& material, const Vec (&e)[6], Vec (&s)[6]) {
    const Vec mean = material.lambda * (e[0] + e[1] + e[2]);
    const Vec twice = 2.0 * material.j2.shear;
    for (int c = 0; c < 3; ++c) s[c] += mean + twice * e[c];
    for (int c = 3; c < 6; ++c) s[c] += material.j2.shear * e[c];
}

// Stress at the end of the step and its work; `weight` is that of the integration rule, `at` is block ·
// points
// + point. nodal: the strain that the nodes' motion makes, on which the stress works.
template <PointLaw law>
KESTRALUM_INLINE void update_stress(const KernelArrays& k, std::int64_t b, std::int64_t at, const Motion& m,
                                    const BlockMaterial& material, double weight, Vec (&s)[6], Sums& sums,
                                    const Vec (&nodal)[6]) {
    double* stress = k.stress + 6 * W * at;
    double* alpha = k.alpha + W * at;
    Vec before[6];
    for (int c = 0; c < 6; ++c) __builtin_prefetch(stress + (6 * ahead + c) * W, 1);
    for (int c = 0; c < 6; ++c) s[c] = before[c] = load(stress + c * W);
    turn(m.h, s);
    add_elastic(material, m.e, s);
    const Vec volume = weight * m.volume;
    if constexpr (law == PointLaw::general) {
        const Vec grown = heating(k, at);
        const Vec p = (1.0 / 3.0) * (s[0] + s[1] + s[2]), reached = p - 3.0 * material.j2.bulk * grown;
        for (int c = 0; c < 3; ++c) s[c] -= p;
        sums.plastic += yield_generally(k, b, at, material, m.h, s) * volume;
        for (int c = 0; c < 3; ++c) s[c] += reached;
        const Vec twice_mean = before[0] + before[1] + before[2] + 3.0 * reached;
        add_heat(k, b, (-0.5) * twice_mean * grown * volume);
    }
    if constexpr (law == PointLaw::plastic) {
        const Vec p = (1.0 / 3.0) * (s[0] + s[1] + s[2]);
        for (int c = 0; c < 3; ++c) s[c] -= p;
        sums.plastic += yield(material, s, alpha) * volume;
        for (int c = 0; c < 3; ++c) s[c] += p;
    }
    for (int c = 0; c < 6; ++c) {
        store(stress + c * W, s[c]);
        before[c] = 0.5 * (before[c] + s[c]);
    }
    sums.internal += contract(before, nodal) * volume;
}

// P += σ n, by multiply-adds alone.
KESTRALUM_INLINE void add_traction(const Vec (&s)[6], const Vec3& n, Vec3& P) {
    P.c[0] = P.c[0] + s[0] * n.c[0] + s[3] * n.c[1] + s[5] * n.c[2];
    P.c[1] = P.c[1] + s[3] * n.c[0] + s[1] * n.c[1] + s[4] * n.c[2];
    P.c[2] = P.c[2] + s[5] * n.c[0] + s[4] * n.c[1] + s[2] * n.c[2];
}

// P_a = weight · σ cof_a: the force of the node whose shape function has the derivative 1 along ξ_a.
KESTRALUM_INLINE void flux(const Vec (&s)[6], const Vec3 (&cof)[3], double weight, Vec3 (&P)[3]) {
    for (int a = 0; a < 3; ++a) {
        const Vec3 n{{weight * cof[a].c[0], weight * cof[a].c[1], weight * cof[a].c[2]}};
        P[a] = Vec3{};
        add_traction(s, n, P[a]);
    }
}

KESTRALUM_INLINE void begin(Sums& sums) {
    sums.least = 1e300 + Vec{};
}
KESTRALUM_INLINE void finish(const KernelArrays& k, std::int64_t b, const Sums& sums) {
    double* energy = k.energy + 2 * W * b;
    store(energy, load(energy) + sums.internal);
    store(energy + W, load(energy + W) + sums.plastic);
    store(k.least + W * b, sums.least);
}

}  // namespace
}  // namespace kestralum
