// What the planes of a run's options carry in the frame that was added last.
#pragma once

#include <functional>

#include "elements/stresses.h"
#include "fields/section_forces.h"
#include "system/freedoms.h"

namespace kestralum {

// Per node of job.mesh(): something beside loads and elements acts on it: supports, their springs, ties,
// rigid elements.
std::vector<char> held_nodes(const Job& job, const Freedoms& freedoms);

// Nodal forces of the points' stresses in the elements of a mesh displaced by u; empty: at rest. form: of
// element e. Borrows all.
ElementForces forces_of_stresses(const Mesh& mesh, std::span<const double> u, std::span<const double> stress,
                                 std::function<HexahedronForm(std::int32_t e)> form);

// Adds a row for every plane.
void add_sections(Job& job, const SectionState& state);

}  // namespace kestralum
