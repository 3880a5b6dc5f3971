// The internal forces of the explicit analysis: the program's hottest loop. Elements stand in blocks
// of as many as a vector register has lanes; every array of a block runs lane by lane innermost.
//
// Updated Lagrangian: the strain increment is the symmetric gradient of the displacement increment in
// the mid-step configuration, the stress of the step before is turned by Hughes and Winget's rotation
// (Int. J. Numer. Methods Eng. 15, 1980), and the forces are Σ ∫ Bᵀ σ dV in the configuration reached.
// A finite rigid rotation leaves no strain.
#pragma once

#include <cstdint>

#include "model/element_kind.h"

namespace kestralum {

struct HardeningSegment;

// What the general law has beyond the others; each may be absent (null) but `segments`.
struct GeneralArrays {
    double* back = nullptr;           // block × point × 6 × lane, in and out: backstress, N/m^2
    const double* thermal = nullptr;  // block × point × lane: thermal strain that the step adds
    double* heat = nullptr;  // block × lane, added to: work of the thermal strains, J; with `thermal`
    const double* kinematic = nullptr;  // block × lane, N/m^2
    const HardeningSegment* const* segments =
        nullptr;  // block × lane: first piece of the yield stress' curve
};

// What bulk viscosity has beyond the stresses. Viscous points: one an element, four of a ten-node
// tetrahedron.
struct ViscousArrays {
    const double* coefficients = nullptr;  // block × 2 × lane: ρ c b1 l, Pa·s, and ρ (b2 l)², Pa·s^2
    double* pressure = nullptr;            // block × viscous point × lane, in and out, N/m^2
    double* work = nullptr;                // block × lane, added to: dissipated, J
    double* rate = nullptr;                // block × lane, out: fastest compression of the points, 1/s
    double per_step = 0;                   // 1/s, of the step that led to x; 0: none did
};

// Sizes: `lanes` elements a block; a point's stress is xx yy zz xy yz zx, Cauchy, N/m^2.
struct KernelArrays {
    const std::int32_t* nodes;  // block × local node × lane: 0-based node
    const double* x;            // node × 4: coordinates reached, m; the fourth is 0
    const double* du;           // node × 4: displacement increment that led there, m
    const double* material;     // block × 4 × lane: λ, G, Sy, H; Sy infinite where nothing yields, N/m^2
    double* stress;             // block × point × 6 × lane, in and out
    double* alpha;  // block × point × lane, in and out: equivalent plastic strain; unused when elastic
    const std::uint16_t* places;  // block × local node × lane: the node's place in `sums`
    double* sums;    // place × 4, added to by block, local node and lane: N; the fourth stays as it is
    double* energy;  // block × 2 × lane, added to: internal work and its plastic part, J
    double* least;   // block × lane, out: smallest det J of the points, m^3 (scaled)
    GeneralArrays general = {};
    ViscousArrays viscous = {};
};

// Takes the blocks first <= b < last.
using ForceKernel = void (*)(const KernelArrays& arrays, std::int64_t first, std::int64_t last);

// general: with curves of the yield stress, backstress or thermal strain; point by point and slower.
enum class PointLaw { elastic, plastic, general };
inline constexpr int point_laws = 3;

// Rows of a run's nodes, node × 4 each: place at rest and reached (m), displacement and its last increment
// (m), velocities before and after (m/s), constant, contact and internal forces (N), the factors of the
// velocity update and the damping (N·s/m).
struct NodeRows {
    const double* X;
    double *x, *u, *du;
    const double* v;
    double* v_new;
    const double *F, *F_contact, *R, *a, *b, *damping;
};

// Take the nodes first <= n < last.
// du = step · v, u += du, x = X + u; returns Σ u - u, which is 0 or not a number.
using MoveKernel = double (*)(const NodeRows& rows, std::int64_t first, std::int64_t last, double step);
// v_new of the equation of motion. power: of the damping before and after, W, added to; null without damping.
using VelocityKernel = void (*)(const NodeRows& rows, std::int64_t first, std::int64_t last, double* power);

// What acts at the nodes of a VelocityKernel.
enum class NodeForces { internal, constant, contact };  // R; F - R; F + F_contact - R

// One build of the kernels. `mean_dilatation`: hexahedra that average the volume change over their points
// (Nagtegaal, Parks and Rice, Comput. Methods Appl. Mech. Eng. 4, 1974); `mean_once_yielded`: only those
// where a point has yielded. `enhanced`: with the internal strains of enhanced_hexahedron.h.
struct KernelSet {
    const char* name;
    int lanes;
    ForceKernel kernel[3][point_laws];        // by ElementKind and PointLaw
    ForceKernel mean_dilatation[point_laws];  // by PointLaw
    ForceKernel mean_once_yielded[2];         // plastic, general
    ForceKernel enhanced[point_laws];         // by PointLaw
    ForceKernel viscosity[3];                 // by ElementKind: adds the forces of bulk viscosity
    MoveKernel move;
    VelocityKernel velocities[3];  // by NodeForces
};

// The widest set that this processor runs; `widest` bounds the lanes (a test compares widths).
const KernelSet& kernel_set(int widest = 8);

namespace kernels {
extern const KernelSet base, avx2, avx512;
}

}  // namespace kestralum
