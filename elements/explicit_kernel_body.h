// The kernels themselves, compiled once for each vector width: the including file defines
// KESTRALUM_LANES and KESTRALUM_KERNEL_SET. All of it has internal linkage and uses nothing of the
// standard library, so that no code for a wide processor can reach the others through the linker.
//
// Letters: g_a = ∂x/∂ξ_a, U_a = ∂Δu/∂ξ_a, cof_a = g_b × g_c (cyclic; det·∂ξ_a/∂x), A = ∂Δu/∂x in the
// configuration reached, G = A (I - A/2)⁻¹ the same in the mid-step one, h half the axial vector of the
// spin of G, Q = I + 2 (H + H²)/(1 + h·h) with H = [h]×, Cayley's form of Hughes and Winget's rotation.
#ifdef __x86_64__
#include <immintrin.h>
#endif

#include "elements/explicit_kernel.h"
#include "elements/plasticity.h"

namespace kestralum {
namespace {

#define KESTRALUM_INLINE [[gnu::always_inline]] inline

constexpr int W = KESTRALUM_LANES;
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

struct Sums {
    Vec internal, plastic, least;
};

struct BlockMaterial {
    Vec lambda;
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
    const Vec det = dot(g[0], m.cof[0]);
    sums.least = smaller_of(sums.least, det);
    const Vec r = 1.0 / det;
    Vec3 A[3];  // rows
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            A[i].c[j] =
                r * (U[0].c[i] * m.cof[0].c[j] + U[1].c[i] * m.cof[1].c[j] + U[2].c[i] * m.cof[2].c[j]);
    Vec3 M[3];  // rows of I - A/2
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) M[i].c[j] = (i == j ? 1.0 : 0.0) - 0.5 * A[i].c[j];
    const Vec3 n[3] = {cross(M[1], M[2]), cross(M[2], M[0]), cross(M[0], M[1])};
    const Vec dm = dot(M[0], n[0]);
    const Vec rm = 1.0 / dm;
    auto G = [&](int i, int j) { return rm * dot(A[i], n[j]); };
    m.volume = det * dm;
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
    Vec Q[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) Q[i][j] = f * h.c[i] * h.c[j];
    for (int i = 0; i < 3; ++i) Q[i][i] += diagonal;
    Q[0][1] -= f * h.c[2];
    Q[1][0] += f * h.c[2];
    Q[0][2] += f * h.c[1];
    Q[2][0] -= f * h.c[1];
    Q[1][2] -= f * h.c[0];
    Q[2][1] += f * h.c[0];
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

// Brings a trial deviator back onto the yield surface; returns the plastic work per volume.
KESTRALUM_INLINE Vec yield(const BlockMaterial& m, Vec (&d)[6], double* alpha) {
    const Vec q = root(1.5 * (d[0] * d[0] + d[1] * d[1] + d[2] * d[2]) +
                       3.0 * (d[3] * d[3] + d[4] * d[4] + d[5] * d[5]));
    const Vec a = load(alpha);
    const Vec zero{}, tiny = 1e-300 + zero;
    const RadialReturn<Vec> back = radial_return(m.j2, q, a, zero, tiny);
    for (Vec& c : d) c = back.scale * c;
    store(alpha, a + back.d_alpha);
    return q * back.scale * back.d_alpha;
}

// The same onto curves of the yield stress and about a backstress (Simo and Hughes, 1998, box 3.1): on ξ = s
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

// P_a = weight · σ cof_a: the force of the node whose shape function has the derivative 1 along ξ_a.
KESTRALUM_INLINE void flux(const Vec (&s)[6], const Vec3 (&cof)[3], double weight, Vec3 (&P)[3]) {
    for (int a = 0; a < 3; ++a) {
        const Vec3 n{{weight * cof[a].c[0], weight * cof[a].c[1], weight * cof[a].c[2]}};
        P[a].c[0] = s[0] * n.c[0] + s[3] * n.c[1] + s[5] * n.c[2];
        P[a].c[1] = s[3] * n.c[0] + s[1] * n.c[1] + s[4] * n.c[2];
        P[a].c[2] = s[5] * n.c[0] + s[4] * n.c[1] + s[2] * n.c[2];
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

// --- Hexahedron -----------------------------------------------------------------------------------
// A derivative along one reference direction does not change along that direction: it has four values
// at the eight points, one for each of the four edges' sides. Sums over edges take the place of the
// eight-term sums over nodes.

constexpr int corner[2][2][2] = {{{1, 0}, {2, 3}}, {{5, 4}, {6, 7}}};  // local node at (i, j, k)
constexpr double gauss = 0.57735026918962576451;                       // 1/√3
constexpr double near1 = 0.5 * (1 + gauss), far1 = 0.5 * (1 - gauss);
constexpr double near2 = 0.5 * near1, far2 = 0.5 * far1;  // with the ½ of the difference

// Where the four values of direction `a` lie: edge (q, r) runs along a.
constexpr int edge_node(int a, int q, int r, int end) {
    return a == 0 ? corner[end][q][r] : a == 1 ? corner[q][end][r] : corner[q][r][end];
}

template <int a>
KESTRALUM_INLINE void differentiate(const Vec (&c)[8], Vec (&out)[4]) {
    Vec e[2][2], t[2][2];
    for (int q = 0; q < 2; ++q)
        for (int r = 0; r < 2; ++r) e[q][r] = c[edge_node(a, q, r, 1)] - c[edge_node(a, q, r, 0)];
    for (int q = 0; q < 2; ++q)
        for (int r = 0; r < 2; ++r) t[q][r] = near2 * e[q][r] + far2 * e[1 - q][r];
    for (int q = 0; q < 2; ++q)
        for (int r = 0; r < 2; ++r) out[2 * q + r] = near1 * t[q][r] + far1 * t[q][1 - r];
}
// The transpose of the above, added to f.
template <int a>
KESTRALUM_INLINE void spread(const Vec (&in)[4], Vec (&f)[8]) {
    Vec t[2][2];
    for (int q = 0; q < 2; ++q)
        for (int r = 0; r < 2; ++r) t[q][r] = near1 * in[2 * q + r] + far1 * in[2 * q + 1 - r];
    for (int q = 0; q < 2; ++q)
        for (int r = 0; r < 2; ++r) {
            const Vec e = near2 * t[q][r] + far2 * t[1 - q][r];
            f[edge_node(a, q, r, 1)] += e;
            f[edge_node(a, q, r, 0)] -= e;
        }
}

struct HexaField {
    Vec3 along[3][4];  // derivative along a at its four places
};
KESTRALUM_INLINE void hexa_gather(const double* at, const std::int32_t* nodes, HexaField& field) {
    Vec c[3][8];
    for (int i = 0; i < 8; ++i) gather(at, nodes + W * i, c[0][i], c[1][i], c[2][i]);
    for (int r = 0; r < 3; ++r) {
        Vec d[3][4];
        differentiate<0>(c[r], d[0]);
        differentiate<1>(c[r], d[1]);
        differentiate<2>(c[r], d[2]);
        for (int a = 0; a < 3; ++a)
            for (int q = 0; q < 4; ++q) field.along[a][q].c[r] = d[a][q];
    }
}
KESTRALUM_INLINE void hexa_store(const HexaField& P, double* force) {
    for (int r = 0; r < 3; ++r) {
        Vec f[8], d[4];
        for (int q = 0; q < 4; ++q) d[q] = P.along[0][q].c[r];
        spread<0>(d, f);
        for (int q = 0; q < 4; ++q) d[q] = P.along[1][q].c[r];
        spread<1>(d, f);
        for (int q = 0; q < 4; ++q) d[q] = P.along[2][q].c[r];
        spread<2>(d, f);
        for (int i = 0; i < 8; ++i) store(force + (3 * i + r) * W, f[i]);
    }
}

// Places of point p = local node p in the three sets of four.
constexpr int place[8][3] = {{1, 1, 0}, {0, 0, 0}, {2, 0, 1}, {3, 1, 1},
                             {1, 3, 2}, {0, 2, 2}, {2, 2, 3}, {3, 3, 3}};

// Signs of ξ η ζ at point p.
struct PointSigns {
    double of[8][3];
};
constexpr PointSigns make_point_signs() {
    PointSigns out{};
    for (int i = 0; i < 2; ++i)
        for (int j = 0; j < 2; ++j)
            for (int k = 0; k < 2; ++k) {
                double* at = out.of[corner[i][j][k]];
                at[0] = 2 * i - 1;
                at[1] = 2 * j - 1;
                at[2] = 2 * k - 1;
            }
    return out;
}
constexpr PointSigns signs = make_point_signs();

KESTRALUM_INLINE void add_flux(const Vec (&s)[6], const Vec3 (&cof)[3], int p, HexaField& sum) {
    Vec3 P[3];
    flux(s, cof, 1.0, P);
    for (int a = 0; a < 3; ++a)
        for (int r = 0; r < 3; ++r) sum.along[a][place[p][a]].c[r] += P[a].c[r];
}

template <PointLaw law>
void hexahedra(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        HexaField x, du, sum{};
        hexa_gather(k.x, k.nodes + 8 * W * b, x);
        hexa_gather(k.du, k.nodes + 8 * W * b, du);
        const BlockMaterial material = material_of(k, b);
        Sums sums;
        begin(sums);
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            const Vec3 g[3] = {x.along[0][place[p][0]], x.along[1][place[p][1]], x.along[2][place[p][2]]};
            const Vec3 U[3] = {du.along[0][place[p][0]], du.along[1][place[p][1]], du.along[2][place[p][2]]};
            Motion m;
            find_motion(g, U, m, sums);
            Vec s[6];
            update_stress<law>(k, b, 8 * b + p, m, material, 1.0, s, sums, m.e);
            add_flux(s, m.cof, p, sum);
        }
        hexa_store(sum, k.force + 24 * W * b);
        finish(k, b, sums);
    }
}

// The same with the volume change averaged over the points: one pressure an element. Everywhere, or only in
// elements that have yielded (`once_yielded`): before, each point has its own there, so that elastic bodies
// are those of the full integration.
template <PointLaw law, bool once_yielded>
void hexahedra_mean_dilatation(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        HexaField x, du, sum{};
        hexa_gather(k.x, k.nodes + 8 * W * b, x);
        hexa_gather(k.du, k.nodes + 8 * W * b, du);
        const BlockMaterial material = material_of(k, b);
        double* stress = k.stress + 48 * W * b;
        double* alpha = k.alpha + 8 * W * b;
        Sums sums;
        begin(sums);
        Vec dilatation{}, volume{}, weighted{}, strained{};
        if constexpr (!once_yielded) strained = 1.0 + Vec{};
        Vec3 cof[8][3];
        Vec deviator[8][6], pressure[8], part[8], trace[8], grown[8];
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            const Vec3 g[3] = {x.along[0][place[p][0]], x.along[1][place[p][1]], x.along[2][place[p][2]]};
            const Vec3 U[3] = {du.along[0][place[p][0]], du.along[1][place[p][1]], du.along[2][place[p][2]]};
            Motion m;
            find_motion(g, U, m, sums);
            Vec s[6], before[6];
            for (int c = 0; c < 6; ++c) s[c] = load(stress + (6 * p + c) * W);
            trace[p] = m.e[0] + m.e[1] + m.e[2];
            part[p] = m.volume;
            pressure[p] = (1.0 / 3.0) * (s[0] + s[1] + s[2]);
            if constexpr (law == PointLaw::general) {
                grown[p] = heating(k, 8 * b + p);
                dilatation -= 3.0 * grown[p] * m.volume;
            }
            dilatation += trace[p] * m.volume;
            weighted += pressure[p] * m.volume;
            volume += m.volume;
            for (int c = 0; c < 3; ++c) s[c] -= pressure[p];
            for (int c = 0; c < 6; ++c) before[c] = s[c];
            turn(m.h, s);
            for (int c = 0; c < 3; ++c) m.e[c] -= (1.0 / 3.0) * trace[p];
            for (int c = 0; c < 3; ++c) s[c] += 2.0 * material.j2.shear * m.e[c];
            for (int c = 3; c < 6; ++c) s[c] += material.j2.shear * m.e[c];
            if constexpr (law == PointLaw::plastic) {
                strained = larger_of(strained, load(alpha + W * p));
                sums.plastic += yield(material, s, alpha + W * p) * m.volume;
            }
            if constexpr (law == PointLaw::general) {
                strained = larger_of(strained, load(alpha + W * p));
                sums.plastic += yield_generally(k, b, 8 * b + p, material, m.h, s) * m.volume;
            }
            for (int c = 0; c < 6; ++c) {
                deviator[p][c] = s[c];
                before[c] = 0.5 * (before[c] + s[c]);
            }
            sums.internal += contract(before, m.e) * m.volume;
            for (int a = 0; a < 3; ++a) cof[p][a] = m.cof[a];
        }
        const Vec mean = weighted / volume, reached_mean = mean + material.j2.bulk * dilatation / volume;
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            const Vec before = choose(strained, mean, pressure[p]);
            Vec own = pressure[p] + material.j2.bulk * trace[p];
            if constexpr (law == PointLaw::general) own -= 3.0 * material.j2.bulk * grown[p];
            const Vec reached = choose(strained, reached_mean, own);
            if constexpr (law == PointLaw::general)
                add_heat(k, b, (-1.5) * (before + reached) * grown[p] * part[p]);
            sums.internal += 0.5 * (before + reached) * trace[p] * part[p];
            for (int c = 0; c < 3; ++c) deviator[p][c] += reached;
            for (int c = 0; c < 6; ++c) store(stress + (6 * p + c) * W, deviator[p][c]);
            add_flux(deviator[p], cof[p], p, sum);
        }
        hexa_store(sum, k.force + 24 * W * b);
        finish(k, b, sums);
    }
}

// The enhanced hexahedron (enhanced_hexahedron.h) in rates: the increments of its internal strains
// H̃ = (det J0/det J) [Σ φi gi ⊗ Δai + Σ φk Δβk 1] follow from the stresses that the nodes' motion alone would
// bring, R = Σ w G·σ, as -ω K⁻¹ R: K the blocks of its elastic stiffness that couple nothing, which is all of
// it in a parallelepiped, ω <= 1 a bound of the rest, so that the residual falls from step to step. What is
// left of it in distorted or yielding elements goes into the next step; it gives back no energy. The element
// is never stiffer than the plain one: neither is its stable step smaller.

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
            const Vec3 g[3] = {x.along[0][place[p][0]], x.along[1][place[p][1]], x.along[2][place[p][2]]};
            const Vec3 U[3] = {du.along[0][place[p][0]], du.along[1][place[p][1]], du.along[2][place[p][2]]};
            Motion& m = motion[p];
            find_motion(g, U, m, sums);
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
        hexa_store(sum, k.force + 24 * W * b);
        finish(k, b, sums);
    }
}

// --- Tetrahedra -----------------------------------------------------------------------------------

// One point; ξ_a is the volume coordinate of local node a + 1.
template <PointLaw law>
void tetrahedra4(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        Vec3 x[4], u[4], g[3], U[3];
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
        Sums sums;
        begin(sums);
        Motion m;
        find_motion(g, U, m, sums);
        Vec s[6];
        update_stress<law>(k, b, b, m, material_of(k, b), 1.0 / 6.0, s, sums, m.e);
        Vec3 P[3];
        flux(s, m.cof, 1.0 / 6.0, P);
        double* force = k.force + 12 * W * b;
        for (int r = 0; r < 3; ++r) {
            store(force + r * W, Vec{} - P[0].c[r] - P[1].c[r] - P[2].c[r]);
            for (int a = 0; a < 3; ++a) store(force + (3 * (a + 1) + r) * W, P[a].c[r]);
        }
        finish(k, b, sums);
    }
}

// ∂N/∂ξ of the ten-node tetrahedron at its four points, ξ the volume coordinates of corners 2, 3, 4.
struct TetraTable {
    double d[4][10][3];
};
constexpr TetraTable make_tetra_table() {
    constexpr double alpha = 0.5854101966249685, beta = 0.1381966011250105;
    TetraTable t{};
    for (int p = 0; p < 4; ++p) {
        double L[4] = {beta, beta, beta, beta};
        L[p] = alpha;
        double full[10][4] = {};
        for (int n = 0; n < 4; ++n) full[n][n] = 4 * L[n] - 1;
        for (int n = 0; n < 6; ++n) {
            const int i = tetra10_edge[static_cast<std::size_t>(n)][0],
                      j = tetra10_edge[static_cast<std::size_t>(n)][1];
            full[4 + n][i] = 4 * L[j];
            full[4 + n][j] = 4 * L[i];
        }
        for (int n = 0; n < 10; ++n)
            for (int a = 0; a < 3; ++a) t.d[p][n][a] = full[n][a + 1] - full[n][0];
    }
    return t;
}
constexpr TetraTable tetra_table = make_tetra_table();

template <PointLaw law>
void tetrahedra10(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    constexpr double weight = 1.0 / 24.0;
    for (std::int64_t b = first; b < last; ++b) {
        Vec3 x[10], u[10], f[10];
        const std::int32_t* nodes = k.nodes + 10 * W * b;
        for (int i = 0; i < 10; ++i) {
            gather(k.x, nodes + W * i, x[i].c[0], x[i].c[1], x[i].c[2]);
            gather(k.du, nodes + W * i, u[i].c[0], u[i].c[1], u[i].c[2]);
        }
        const BlockMaterial material = material_of(k, b);
        Sums sums;
        begin(sums);
#pragma GCC unroll 1
        for (int p = 0; p < 4; ++p) {
            Vec3 g[3], U[3];
            const double(*d)[3] = tetra_table.d[p];
            for (int i = 0; i < 10; ++i)
                for (int a = 0; a < 3; ++a)
                    for (int r = 0; r < 3; ++r) {
                        g[a].c[r] += d[i][a] * x[i].c[r];
                        U[a].c[r] += d[i][a] * u[i].c[r];
                    }
            Motion m;
            find_motion(g, U, m, sums);
            Vec s[6];
            update_stress<law>(k, b, 4 * b + p, m, material, weight, s, sums, m.e);
            Vec3 P[3];
            flux(s, m.cof, weight, P);
            for (int i = 0; i < 10; ++i)
                for (int r = 0; r < 3; ++r)
                    f[i].c[r] += d[i][0] * P[0].c[r] + d[i][1] * P[1].c[r] + d[i][2] * P[2].c[r];
        }
        double* force = k.force + 30 * W * b;
        for (int i = 0; i < 10; ++i)
            for (int r = 0; r < 3; ++r) store(force + (3 * i + r) * W, f[i].c[r]);
        finish(k, b, sums);
    }
}

}  // namespace

const KernelSet kernels::KESTRALUM_KERNEL_SET{
    KESTRALUM_KERNEL_NAME,
    W,
    {{hexahedra<PointLaw::elastic>, hexahedra<PointLaw::plastic>, hexahedra<PointLaw::general>},
     {tetrahedra4<PointLaw::elastic>, tetrahedra4<PointLaw::plastic>, tetrahedra4<PointLaw::general>},
     {tetrahedra10<PointLaw::elastic>, tetrahedra10<PointLaw::plastic>, tetrahedra10<PointLaw::general>}},
    {hexahedra_mean_dilatation<PointLaw::elastic, false>, hexahedra_mean_dilatation<PointLaw::plastic, false>,
     hexahedra_mean_dilatation<PointLaw::general, false>},
    {hexahedra_mean_dilatation<PointLaw::plastic, true>, hexahedra_mean_dilatation<PointLaw::general, true>},
    {hexahedra_enhanced<PointLaw::elastic>, hexahedra_enhanced<PointLaw::plastic>,
     hexahedra_enhanced<PointLaw::general>}};

}  // namespace kestralum
