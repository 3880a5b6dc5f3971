// The explicit kernels of hexahedra: plain and with the mean dilatation. Included by explicit_kernel_body.h
// alone.
//
// A derivative along one reference direction does not change along that direction: it has four values
// at the eight points, one for each of the four edges' sides. Sums over edges take the place of the
// eight-term sums over nodes.
#pragma once

#include "elements/explicit_points.h"

namespace kestralum {
namespace {

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
// The forces of block b, added to the sums.
KESTRALUM_INLINE void hexa_scatter(const HexaField& P, const KernelArrays& k, std::int64_t b) {
    Vec f[3][8];
    for (int r = 0; r < 3; ++r) {
        Vec d[4];
        for (int q = 0; q < 4; ++q) d[q] = P.along[0][q].c[r];
        spread<0>(d, f[r]);
        for (int q = 0; q < 4; ++q) d[q] = P.along[1][q].c[r];
        spread<1>(d, f[r]);
        for (int q = 0; q < 4; ++q) d[q] = P.along[2][q].c[r];
        spread<2>(d, f[r]);
    }
    for (int i = 0; i < 8; ++i) scatter_add(f[0][i], f[1][i], f[2][i], k.places + W * (8 * b + i), k.sums);
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
    for (int a = 0; a < 3; ++a) add_traction(s, cof[a], sum.along[a][place[p][a]]);
}

KESTRALUM_INLINE void find_motion_at(const HexaField& x, const HexaField& du, int p, Motion& m, Sums& sums) {
    const Vec3 g[3] = {x.along[0][place[p][0]], x.along[1][place[p][1]], x.along[2][place[p][2]]};
    const Vec3 U[3] = {du.along[0][place[p][0]], du.along[1][place[p][1]], du.along[2][place[p][2]]};
    find_motion(g, U, m, sums);
}

template <PointLaw law>
void hexahedra(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        if (b + 1 < last) fetch_nodes<8>(k, b + 1);
        HexaField x, du, sum{};
        hexa_gather(k.x, k.nodes + 8 * W * b, x);
        hexa_gather(k.du, k.nodes + 8 * W * b, du);
        const BlockMaterial material = material_of(k, b);
        Sums sums;
        begin(sums);
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            Motion m;
            find_motion_at(x, du, p, m, sums);
            Vec s[6];
            update_stress<law>(k, b, 8 * b + p, m, material, 1.0, s, sums, m.e);
            add_flux(s, m.cof, p, sum);
        }
        hexa_scatter(sum, k, b);
        finish(k, b, sums);
    }
}

// The same with the volume change averaged over the points: one pressure an element. Everywhere, or only in
// elements that have yielded (`once_yielded`): before, each point has its own there, so that elastic bodies
// are those of the full integration.
template <PointLaw law, bool once_yielded>
void hexahedra_mean_dilatation(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        if (b + 1 < last) fetch_nodes<8>(k, b + 1);
        HexaField x, du, sum{};
        hexa_gather(k.x, k.nodes + 8 * W * b, x);
        hexa_gather(k.du, k.nodes + 8 * W * b, du);
        const BlockMaterial material = material_of(k, b);
        double* stress = k.stress + 48 * W * b;
        double* alpha = k.alpha + 8 * W * b;
        Sums sums;
        begin(sums);
        Vec dilatation{}, volume{}, weighted{}, strained{}, heated{};
        if constexpr (!once_yielded) strained = 1.0 + Vec{};
        Vec3 cof[8][3];
        Vec deviator[8][6], pressure[8], part[8], trace[8], grown[8];
#pragma GCC unroll 1
        for (int p = 0; p < 8; ++p) {
            Motion m;
            find_motion_at(x, du, p, m, sums);
            Vec s[6], before[6];
            for (int c = 0; c < 6; ++c) s[c] = load(stress + (6 * p + c) * W);
            trace[p] = m.e[0] + m.e[1] + m.e[2];
            part[p] = m.volume;
            pressure[p] = (1.0 / 3.0) * (s[0] + s[1] + s[2]);
            if constexpr (law == PointLaw::general) {
                grown[p] = heating(k, 8 * b + p);
                heated += grown[p] * m.volume;
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
            sums.internal += 0.5 * (before + reached) * trace[p] * part[p];
            for (int c = 0; c < 3; ++c) deviator[p][c] += reached;
            for (int c = 0; c < 6; ++c) store(stress + (6 * p + c) * W, deviator[p][c]);
            if constexpr (law == PointLaw::general) {
                // a point's own temperature is in its own pressure, which the forces take the mean of
                Vec apart{};
                if constexpr (!once_yielded)
                    apart = pressure[p] - mean - 3.0 * material.j2.bulk * (grown[p] - heated / volume);
                for (int c = 0; c < 3; ++c) store(stress + (6 * p + c) * W, deviator[p][c] + apart);
                add_heat(k, b, (-1.5) * (pressure[p] + reached + apart) * grown[p] * part[p]);
            }
            add_flux(deviator[p], cof[p], p, sum);
        }
        hexa_scatter(sum, k, b);
        finish(k, b, sums);
    }
}

}  // namespace
}  // namespace kestralum
