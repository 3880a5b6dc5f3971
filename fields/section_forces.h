// What is carried across a plane.
//
// The nodes are taken to one side of the plane each. Nodal forces of an element that stands on one side
// balance each other, so the force that the other side exerts on this one comes through the elements with
// nodes on both: minus the sum of their nodal forces on this side. It is in balance with the loads, reactions
// and inertia of the nodes cut off to the equilibrium of the solution itself, wherever the plane passes
// through the elements, and so is its moment.
#pragma once

#include <functional>
#include <span>

#include "fields/plane_cut.h"
#include "model/run.h"

namespace kestralum {

// Nodal forces (3 per node of the element, N) of element e, 0-based: Σ w Bᵀ σ.
using ElementForces = std::function<void(std::int32_t e, std::span<double> f)>;

// A state in balance. Tables are 3 per node, N; empty: none.
struct SectionState {
    const Mesh& mesh;
    std::span<const double> u = {};  // m, where the forces act; empty: at rest
    ElementForces element_forces;
    std::span<const double> internal = {};  // Σ of the element forces, at `held` nodes at least
    std::span<const double> applied = {};
    std::span<const double> inertia = {};
    std::span<const char> held = {};   // per node: something beside loads and elements acts on it
    bool internal_everywhere = false;  // `internal` has what the element forces leave out: the sum over all
                                       // parts is taken from it
};

// The plane is laid through the body at rest, so that it cuts the same elements in every frame.
SectionSum section_forces(const SectionState& state, const SectionPlane& plane);

// The same from a frame's nodal stresses alone, for results that were read from a file: ∫ σ n dA over the
// polygons at rest, those of elements that are out left out. As exact as the averaged stresses are; loads,
// held and inertia are left 0.
SectionSum section_of_stresses(const Mesh& mesh, const Frame& frame, const SectionPlane& plane);

}  // namespace kestralum
