// Integration over the elements of a mesh with rules of higher degree than the elements' own, and with shape
// functions written apart from theirs.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "elements/element_type.h"
#include "model/vector3.h"

namespace kestralum {

// What a rule knows of one of its points in one element.
struct RulePoint {
    std::span<const std::int32_t> nodes;  // of the element, 1-based
    std::int32_t element;                 // 0-based
    const double* N;                      // nodes
    const double* dN;                     // nodes × 3, ∂N/∂(x y z), 1/m
    Vec3 x;
    double weight;  // with det J, m^3

    // Σ N_i v_i of nodal values, 3 per node
    Vec3 value(std::span<const double> v) const;
    // Σ v_i ⊗ ∇N_i
    Mat3 gradient(std::span<const double> v) const;
};

// Calls `at` with each point of each element: 3 × 3 × 3 Gauss points in hexahedra, a conical product of 3³
// or, where edges are quadratic, 4³ points in tetrahedra (Stroud, Approximate Calculation of Multiple
// Integrals, 1971).
void for_points(const Mesh& mesh, const std::function<void(const RulePoint&)>& at);

}  // namespace kestralum
