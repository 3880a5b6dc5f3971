#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "model/records.h"

namespace kestralum {

/// J2 (von Mises) plasticity with linear isotropic hardening, one point. Moduli and stresses in Pa.
template <class Real>
struct J2Material {
    Real shear{};      ///< G
    Real bulk{};       ///< K
    Real yield{};      ///< Sy, the initial yield stress
    Real hardening{};  ///< H, slope of yield stress over equivalent plastic strain; 0: perfectly plastic
};

/// What one radial return (Simo and Hughes, Computational Inelasticity, 1998, box 3.1 with sqrt(3/2)|s| = q)
/// changes at a point.
struct RadialReturn {
    double scale = 0;    ///< the trial deviator is multiplied by this; 1 where the step is elastic
    double d_alpha = 0;  ///< increment of the equivalent plastic strain; 0 where the step is elastic
};

inline double larger_of(double a, double b) {
    return a < b ? b : a;
}

/// One straight piece of a curve of yield stress over equivalent plastic strain.
struct HardeningSegment {
    double start = 0, end = 0;  ///< strains; the last piece ends at infinity
    double stress = 0;          ///< yield stress at its start, Pa
    double slope = 0;           ///< Pa
};

/// The return onto a curve: the increment of the equivalent plastic strain at which
/// q_trial - stiffness Δα = σy(α + Δα), found piece by piece and exact; 0 where q_trial <= σy(α).
/// stiffness: 3G and the kinematic modulus. `segment` comes in as the curve's first piece and leaves as the
/// one that the return ends on. Inlined always: code for a wide processor must not reach others.
[[gnu::always_inline]] inline double return_to_curve(const HardeningSegment*& segment, double q_trial,
                                                     double alpha, double stiffness) {
    while (alpha > segment->end) ++segment;
    for (;;) {
        const double over = q_trial - (segment->stress + segment->slope * (alpha - segment->start));
        const double d_alpha = over / (stiffness + segment->slope);
        if (!(d_alpha > 0)) return 0;
        if (!(alpha + d_alpha > segment->end)) return d_alpha;
        ++segment;
    }
}

/// A material as its points take it.
struct PlasticMaterial : J2Material<double> {
    double kinematic = 0;                 ///< of backstress, 2/3 of it over plastic strain (Prager 1956)
    std::vector<HardeningSegment> curve;  ///< yield stress; of one piece where Sy and Sd make it
    /// One line Sy + H α and no backstress.
    bool is_plain() const { return kinematic == 0 && curve.size() == 1; }
};

/// Whether a material has a yield stress, by Sy or by a table.
bool has_yield_stress(const Material& record);

/// What is wrong with the constants of a material that yields; empty: nothing. "material STEEL: …".
std::string wrong_plastic_constant(const Material& record);

/// The point material of a record: moduli from Young's modulus and Poisson's ratio; Sy <= 0 without a table,
/// or `may_yield` false, never yields. Sd is H. Defined for -1 < Poisson's ratio < 0.5 (checked before a
/// run).
PlasticMaterial j2_material(const Material& record, bool may_yield);

}  // namespace kestralum
