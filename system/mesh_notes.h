// What a run has to say of its mesh: hexahedra that carry bending with too few through the thickness,
// slivers.
#pragma once

#include "elements/stresses.h"
#include "system/freedoms.h"

namespace kestralum {

// Elements with an angle under two degrees, in one line; nothing where there are none.
void note_slivers(Job& job);

// Full hexahedra that bend with one or two of them through the thickness: those in which the part of the
// stress that varies from one free side to the other has more than a fifth of the energy, where they have
// more than a twentieth of the model's. One line.
void note_thin_bending(Job& job, const NodeElements& node_elements, const PointResults& points);

}  // namespace kestralum
