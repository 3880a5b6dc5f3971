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
        Vec3 g[3], U[3];
        tetra_edges(k, b, g, U);
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

// The ten-node tetrahedron at its four points. A field's derivative by the volume coordinate L_i is
// (4 L_i - 1) f_i + 4 Σ_j L_j f_ij over the middles f_ij of the edges at corner i. Point p has L_p = α, the
// others are β: so it is a part that all points share and 4 (α - β) times f_p for i = p, f_ip else.
constexpr double tetra_alpha = 0.5854101966249685, tetra_beta = 0.1381966011250105;
constexpr double tetra_own = 4 * (tetra_alpha - tetra_beta);

// Local node of corner i = j or of the middle between corners i and j.
struct TetraNodes {
    int of[4][4];
};
constexpr TetraNodes make_tetra_nodes() {
    TetraNodes out{};
    for (int i = 0; i < 4; ++i) out.of[i][i] = i;
    for (int n = 0; n < 6; ++n) {
        const int i = tetra10_edge[static_cast<std::size_t>(n)][0],
                  j = tetra10_edge[static_cast<std::size_t>(n)][1];
        out.of[i][j] = out.of[j][i] = 4 + n;
    }
    return out;
}
constexpr TetraNodes tetra_nodes = make_tetra_nodes();

struct TetraField {
    Vec3 node[10];
    Vec3 shared[4];  // the derivatives' parts that all points share
};
KESTRALUM_INLINE void tetra_gather(const double* at, const std::int32_t* nodes, TetraField& field) {
    for (int n = 0; n < 10; ++n) {
        Vec3& f = field.node[n];
        gather(at, nodes + W * n, f.c[0], f.c[1], f.c[2]);
    }
    const auto& of = tetra_nodes.of;
    for (int i = 0; i < 4; ++i)
        for (int r = 0; r < 3; ++r) {
            Vec middles{};
            for (int j = 0; j < 4; ++j)
                if (j != i) middles += field.node[of[i][j]].c[r];
            field.shared[i].c[r] = (4 * tetra_beta - 1) * field.node[i].c[r] + 4 * tetra_beta * middles;
        }
}
// Derivatives along ξ, the volume coordinates of corners 2, 3 and 4.
KESTRALUM_INLINE void differentiate(const TetraField& field, int p, Vec3 (&out)[3]) {
    const auto& of = tetra_nodes.of;
    for (int r = 0; r < 3; ++r) {
        const Vec first = field.shared[0].c[r] + tetra_own * field.node[of[p][0]].c[r];
        for (int a = 0; a < 3; ++a)
            out[a].c[r] = field.shared[a + 1].c[r] + tetra_own * field.node[of[p][a + 1]].c[r] - first;
    }
}

struct TetraForces {
    Vec3 node[10];   // by the points' own parts, over 4 (α - β)
    Vec3 shared[4];  // what works on the derivative by L_i, summed over the points
};
// along: what works on the derivatives along ξ at point p.
KESTRALUM_INLINE void add_point(TetraForces& f, int p, const Vec3 (&along)[3]) {
    for (int r = 0; r < 3; ++r)
        for (int i = 0; i < 4; ++i) {
            const Vec P = i > 0 ? along[i - 1].c[r] : Vec{} - along[0].c[r] - along[1].c[r] - along[2].c[r];
            f.shared[i].c[r] += P;
            f.node[tetra_nodes.of[p][i]].c[r] += P;
        }
}
KESTRALUM_INLINE void tetra_scatter(const TetraForces& f, const KernelArrays& k, std::int64_t b) {
    for (int i = 0; i < 4; ++i)
        for (int j = i; j < 4; ++j) {
            const int n = tetra_nodes.of[i][j];
            Vec3 sum;
            for (int r = 0; r < 3; ++r) {
                const Vec share = i == j ? (4 * tetra_beta - 1) * f.shared[i].c[r]
                                         : 4 * tetra_beta * (f.shared[i].c[r] + f.shared[j].c[r]);
                sum.c[r] = tetra_own * f.node[n].c[r] + share;
            }
            scatter_add(sum.c[0], sum.c[1], sum.c[2], k.places + W * (10 * b + n), k.sums);
        }
}

template <PointLaw law>
void tetrahedra10(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    constexpr double weight = 1.0 / 24.0;
    for (std::int64_t b = first; b < last; ++b) {
        if (b + 1 < last) fetch_nodes<10>(k, b + 1);
        TetraField x, u;
        tetra_gather(k.x, k.nodes + 10 * W * b, x);
        tetra_gather(k.du, k.nodes + 10 * W * b, u);
        const BlockMaterial material = material_of(k, b);
        Sums sums;
        begin(sums);
        TetraForces forces;
#pragma GCC unroll 1
        for (int p = 0; p < 4; ++p) {
            Vec3 g[3], U[3];
            differentiate(x, p, g);
            differentiate(u, p, U);
            Motion m;
            find_motion(g, U, m, sums);
            Vec s[6];
            update_stress<law>(k, b, 4 * b + p, m, material, weight, s, sums, m.e);
            Vec3 along[3];
            flux(s, m.cof, weight, along);
            add_point(forces, p, along);
        }
        tetra_scatter(forces, k, b);
        finish(k, b, sums);
    }
}

void viscous_tetrahedra10(const KernelArrays& k, std::int64_t first, std::int64_t last) {
    constexpr double weight = 1.0 / 24.0;
    for (std::int64_t b = first; b < last; ++b) {
        TetraField x, u;
        tetra_gather(k.x, k.nodes + 10 * W * b, x);
        tetra_gather(k.du, k.nodes + 10 * W * b, u);
        Viscous v;
        begin(k.viscous, b, v);
        TetraForces forces;
#pragma GCC unroll 1
        for (int p = 0; p < 4; ++p) {
            Vec3 g[3], U[3], cof[3];
            differentiate(x, p, g);
            differentiate(u, p, U);
            Vec now, former;
            find_volumes(g, U, cof, now, former);
            const Vec q = weight * viscous_pressure(k.viscous, 4 * b + p, weight * now, weight * former, v);
            for (int a = 0; a < 3; ++a)
                for (int r = 0; r < 3; ++r) cof[a].c[r] = Vec{} - q * cof[a].c[r];
            add_point(forces, p, cof);
        }
        tetra_scatter(forces, k, b);
        finish(k.viscous, b, v);
    }
}

// --- Nodes ----------------------------------------------------------------------------------------

typedef double Row __attribute__((vector_size(32)));
typedef double LooseRow __attribute__((vector_size(32), aligned(8), may_alias));
KESTRALUM_INLINE Row row_at(const double* rows, std::ptrdiff_t at) {
    return *reinterpret_cast<const LooseRow*>(rows + at);
}
KESTRALUM_INLINE void put_row(double* rows, std::ptrdiff_t at, Row row) {
    *reinterpret_cast<LooseRow*>(rows + at) = row;
}
KESTRALUM_INLINE double sum_of(Row row) {
    return row[0] + row[1] + row[2] + row[3];
}

double move_nodes(const NodeRows& r, std::int64_t first, std::int64_t last, double step) {
    Row lost{};
    for (std::ptrdiff_t at = 4 * first; at < 4 * last; at += 4) {
        const Row du = step * row_at(r.v, at), u = row_at(r.u, at) + du;
        put_row(r.du, at, du);
        put_row(r.u, at, u);
        put_row(r.x, at, row_at(r.X, at) + u);
        lost += u - u;
    }
    return sum_of(lost);
}

template <NodeForces forces>
KESTRALUM_INLINE Row force_at(const NodeRows& r, std::ptrdiff_t at) {
    Row force = -row_at(r.R, at);
    if constexpr (forces != NodeForces::internal) force += row_at(r.F, at);
    if constexpr (forces == NodeForces::contact) force += row_at(r.F_contact, at);
    return force;
}

// Without damping a is 1, or 0 where b is.
template <NodeForces forces>
void node_velocities(const NodeRows& r, std::int64_t first, std::int64_t last, double* power) {
    Row before{}, after{};
    for (std::ptrdiff_t at = 4 * first; at < 4 * last; at += 4) {
        const Row v = row_at(r.v, at), b = row_at(r.b, at), gain = b * force_at<forces>(r, at);
        if (!power) {
            put_row(r.v_new, at, b == Row{} ? Row{} : v + gain);
            continue;
        }
        const Row reached = row_at(r.a, at) * v + gain;
        put_row(r.v_new, at, reached);
        const Row force = 0.5 * row_at(r.damping, at) * (v + reached);
        before += force * v;
        after += force * reached;
    }
    if (!power) return;
    power[0] += sum_of(before);
    power[1] += sum_of(after);
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
    {viscous_hexahedra, viscous_tetrahedra4, viscous_tetrahedra10},
    move_nodes,
    {node_velocities<NodeForces::internal>, node_velocities<NodeForces::constant>,
     node_velocities<NodeForces::contact>}};

}  // namespace kestralum
