#pragma once

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

/// What one radial return changes at a point.
template <class Real>
struct RadialReturn {
    Real scale{};    ///< the trial deviator is multiplied by this; 1 where the step is elastic
    Real d_alpha{};  ///< increment of the equivalent plastic strain; 0 where the step is elastic
};

inline double larger_of(double a, double b) {
    return a < b ? b : a;
}

/// Radial return (Simo and Hughes, Computational Inelasticity, 1998, box 3.1 with sqrt(3/2)|s| = q):
/// q_trial is the trial equivalent stress (>= 0, Pa), alpha the equivalent plastic strain so far.
/// Without branches, so that `Real` may be a vector of several points for which larger_of() is overloaded.
/// A material that never yields has `yield` infinite. `tiny` > 0 keeps q_trial = 0 from dividing by zero.
template <class Real>
inline RadialReturn<Real> radial_return(const J2Material<Real>& m, Real q_trial, Real alpha, Real zero,
                                        Real tiny) {
    const Real over = larger_of(zero, q_trial - (m.yield + m.hardening * alpha));
    RadialReturn<Real> r;
    r.d_alpha = over / (3.0 * m.shear + m.hardening);
    r.scale = 1.0 - 3.0 * m.shear * r.d_alpha / larger_of(q_trial, tiny);
    return r;
}

/// The point material of a record: moduli from Young's modulus and Poisson's ratio; Sy <= 0 or
/// `may_yield` false never yields. Sd is H. Defined for -1 < Poisson's ratio < 0.5 (checked before a run).
J2Material<double> j2_material(const Material& record, bool may_yield);

}  // namespace kestralum
