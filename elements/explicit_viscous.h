// Bulk viscosity: a pressure against the change of volume, q = ρ l (b1 c |tr d| + b2² l (tr d)²) (Landshoff,
// 1955; von Neumann and Richtmyer, J. Appl. Phys. 21, 1950), the linear part in both directions, the other in
// compression. Included by explicit_kernel_body.h alone.
//
// Its forces are -q ∂V/∂x in the configuration reached, tr d the change of a volume in the step over its
// mean: a rigid motion of any size leaves none. Hexahedra and linear tetrahedra have one q, quadratic
// tetrahedra one at each point.
#pragma once

#include "elements/explicit_hexahedra.h"

namespace kestralum {
namespace {

// Of block b.
struct Viscous {
    Vec linear, quadratic, work, fastest;
};
KESTRALUM_INLINE void begin(const ViscousArrays& k, std::int64_t b, Viscous& v) {
    v.linear = load(k.coefficients + 2 * W * b);
    v.quadratic = load(k.coefficients + (2 * b + 1) * W);
    v.work = v.fastest = Vec{};
}
KESTRALUM_INLINE void finish(const ViscousArrays& k, std::int64_t b, const Viscous& v) {
    store(k.work + W * b, load(k.work + W * b) + v.work);
    store(k.rate + W * b, v.fastest);
}

// q of the volumes of this step and the one before; `at` is its place in the pressures.
KESTRALUM_INLINE Vec viscous_pressure(const ViscousArrays& k, std::int64_t at, Vec now, Vec former,
                                      Viscous& v) {
    const Vec growth = now - former, rate = (2 * k.per_step) * growth / (now + former);
    const Vec squeezed = larger_of(Vec{} - rate, Vec{});
    const Vec q = v.quadratic * squeezed * squeezed - v.linear * rate;
    double* stored = k.pressure + W * at;
    v.work -= 0.5 * (load(stored) + q) * growth;
    v.fastest = larger_of(v.fastest, squeezed);
    store(stored, q);
    return q;
}

// cof_a of the configuration reached; the volumes per weight of the point, of it and of that before.
KESTRALUM_INLINE void find_volumes(const Vec3 (&g)[3], const Vec3 (&U)[3], Vec3 (&cof)[3], Vec& now,
                                   Vec& former) {
    Vec3 before[3];
    for (int a = 0; a < 3; ++a) {
        cof[a] = cross(g[(a + 1) % 3], g[(a + 2) % 3]);
        for (int r = 0; r < 3; ++r) before[a].c[r] = g[a].c[r] - U[a].c[r];
    }
    now = dot(g[0], cof[0]);
    former = dot(before[0], cross(before[1], before[2]));
}

void viscous_hexahedra(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        HexaField x, du, sum{};
        hexa_gather(k.x, k.nodes + 8 * W * b, x);
        hexa_gather(k.du, k.nodes + 8 * W * b, du);
        Viscous v;
        begin(k.viscous, b, v);
        Vec now{}, former{};
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            const Vec3 g[3] = {x.along[0][place[p][0]], x.along[1][place[p][1]], x.along[2][place[p][2]]};
            const Vec3 U[3] = {du.along[0][place[p][0]], du.along[1][place[p][1]], du.along[2][place[p][2]]};
            Vec3 cof[3];
            Vec at_point, before;
            find_volumes(g, U, cof, at_point, before);
            now += at_point;
            former += before;
            for (int a = 0; a < 3; ++a)
                for (int r = 0; r < 3; ++r) sum.along[a][place[p][a]].c[r] += cof[a].c[r];
        }
        const Vec q = viscous_pressure(k.viscous, b, now, former, v);
        for (auto& direction : sum.along)
            for (Vec3& at : direction)
                for (Vec& c : at.c) c = Vec{} - q * c;
        hexa_scatter(sum, k, b);
        finish(k.viscous, b, v);
    }
}

void viscous_tetrahedra4(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    constexpr double weight = 1.0 / 6.0;
    for (std::int64_t b = first; b < last; ++b) {
        Vec3 g[3], U[3], cof[3], apex;
        tetra_edges(k, b, g, U);
        Viscous v;
        begin(k.viscous, b, v);
        Vec now, former;
        find_volumes(g, U, cof, now, former);
        const Vec q = viscous_pressure(k.viscous, b, weight * now, weight * former, v);
        const std::uint16_t* places = k.places + 4 * W * b;
        for (int a = 0; a < 3; ++a) {
            for (int r = 0; r < 3; ++r) {
                cof[a].c[r] = (-weight) * (q * cof[a].c[r]);
                apex.c[r] -= cof[a].c[r];
            }
            scatter_add(cof[a].c[0], cof[a].c[1], cof[a].c[2], places + W * (a + 1), k.sums);
        }
        scatter_add(apex.c[0], apex.c[1], apex.c[2], places, k.sums);
        finish(k.viscous, b, v);
    }
}

}  // namespace
}  // namespace kestralum
