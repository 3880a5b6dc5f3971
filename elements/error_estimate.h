// How good a mesh was for a result: the recovered-stress error estimate of Zienkiewicz and Zhu (Int. J.
// Numer. Methods Eng. 24, 1987). The stresses averaged at the nodes and interpolated, σ*, are better than
// those of the elements, σ: their difference stands for the error, in the energy norm ‖e‖² = ∫ (σ* - σ)ᵀ D⁻¹
// (σ* - σ) dV.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "elements/stresses.h"

namespace kestralum {

// Of one element, J: ‖e‖² and ‖σ‖² in the energy norm.
struct ElementEnergies {
    double error = 0, stress = 0;
};
std::vector<ElementEnergies> element_energies(const Mesh& mesh, std::span<const Part> parts,
                                              std::span<const Material> materials,
                                              const NodeElements& node_elements, const PointResults& points,
                                              std::span<const double> node_stress, int threads);

struct ErrorEstimate {
    double strain_energy = 0;  // ∫ ½ σᵀ D⁻¹ σ dV, J
    double relative = 0;       // ‖e‖ / √(‖σ‖² + ‖e‖²), 0 … 1
    std::vector<double> element;  // per element its part: √((‖e‖²ₑ / Vₑ) / ((‖σ‖² + ‖e‖²) / V)); the mean
                                  // square over the volume is `relative`²
    std::int32_t worst = -1;  // element with the largest share of ‖e‖², 0-based; -1: no stress at all
};

// node_stress: of the same stresses (mean_stress_strain); at nodes of several parts every part's own average
// is taken. materials: per element its Young's modulus and Poisson's ratio come from its part.
ErrorEstimate estimate_error(const Mesh& mesh, std::span<const Part> parts,
                             std::span<const Material> materials, const NodeElements& node_elements,
                             const PointResults& points, std::span<const double> node_stress, int threads);

// Means of the element values at the nodes, by volume.
std::vector<double> nodal_error(const Mesh& mesh, const NodeElements& node_elements,
                                const ErrorEstimate& estimate, std::span<const double> volume);

}  // namespace kestralum
