// The kernels themselves, compiled once for each vector width: the including file defines
// KESTRALUM_LANES and KESTRALUM_KERNEL_SET. All of it has internal linkage and uses nothing of the
// standard library, so that no code for a wide processor can reach the others through the linker.
#include "elements/explicit_enhanced.h"
#include "elements/explicit_hexahedra.h"
#include "elements/explicit_kernel.h"
#include "elements/explicit_points.h"
#include "elements/explicit_viscous.h"

namespace kestralum {
namespace {

// --- Tetrahedra -----------------------------------------------------------------------------------

// One point; ξ_a is the volume coordinate of local node a + 1.
template <PointLaw law>
void tetrahedra4(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    for (std::int64_t b = first; b < last; ++b) {
        if (b + 1 < last) fetch_nodes<4>(k, b + 1);
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
        Vec3 first_node;
        for (int r = 0; r < 3; ++r) first_node.c[r] = Vec{} - P[0].c[r] - P[1].c[r] - P[2].c[r];
        const std::uint16_t* places = k.places + 4 * W * b;
        scatter_add(first_node.c[0], first_node.c[1], first_node.c[2], places, k.sums);
        for (int a = 0; a < 3; ++a)
            scatter_add(P[a].c[0], P[a].c[1], P[a].c[2], places + W * (a + 1), k.sums);
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
        if (b + 1 < last) fetch_nodes<10>(k, b + 1);
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
        for (int i = 0; i < 10; ++i)
            scatter_add(f[i].c[0], f[i].c[1], f[i].c[2], k.places + W * (10 * b + i), k.sums);
        finish(k, b, sums);
    }
}

void viscous_tetrahedra10(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    constexpr double weight = 1.0 / 24.0;
    for (std::int64_t b = first; b < last; ++b) {
        Vec3 x[10], u[10], f[10];
        const std::int32_t* nodes = k.nodes + 10 * W * b;
        for (int i = 0; i < 10; ++i) {
            gather(k.x, nodes + W * i, x[i].c[0], x[i].c[1], x[i].c[2]);
            gather(k.du, nodes + W * i, u[i].c[0], u[i].c[1], u[i].c[2]);
        }
        Viscous v;
        begin(k.viscous, b, v);
#pragma GCC unroll 1
        for (int p = 0; p < 4; ++p) {
            Vec3 g[3], U[3], cof[3];
            const double(*d)[3] = tetra_table.d[p];
            for (int i = 0; i < 10; ++i)
                for (int a = 0; a < 3; ++a)
                    for (int r = 0; r < 3; ++r) {
                        g[a].c[r] += d[i][a] * x[i].c[r];
                        U[a].c[r] += d[i][a] * u[i].c[r];
                    }
            Vec now, former;
            find_volumes(g, U, cof, now, former);
            const Vec q = weight * viscous_pressure(k.viscous, 4 * b + p, weight * now, weight * former, v);
            for (int i = 0; i < 10; ++i)
                for (int r = 0; r < 3; ++r)
                    f[i].c[r] -= q * (d[i][0] * cof[0].c[r] + d[i][1] * cof[1].c[r] + d[i][2] * cof[2].c[r]);
        }
        for (int i = 0; i < 10; ++i)
            scatter_add(f[i].c[0], f[i].c[1], f[i].c[2], k.places + W * (10 * b + i), k.sums);
        finish(k.viscous, b, v);
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
     hexahedra_enhanced<PointLaw::general>},
    {viscous_hexahedra, viscous_tetrahedra4, viscous_tetrahedra10}};

}  // namespace kestralum
