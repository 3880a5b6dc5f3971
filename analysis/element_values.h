// What the elements of a frame have themselves, not averaged around nodes.
#pragma once

#include <vector>

#include "model/run.h"

namespace kestralum {

// Per element of run.mesh (0-based) the mean of its points' values, in the layout of Frame::node_stress with
// elements in place of nodes: value group · 3 · element_num + 3 · element + k of stress_groups groups. Mises
// and largest principal stress are those of the mean stress.
//
// Static, eigen, buckling: from the frame's displacements by the run's own routines, thermal strains of the
// load case included; empty where the run was read from a file, which has no materials. Nonlinear, explicit:
// of what the frame kept (Frame::element_stress); empty where it was read from a result file, or lies on
// disk. The logarithmic strain of an explicit run comes from the displacements, 0 in elements that are out.
std::vector<double> element_values(const Model& model, const Run& run, const Frame& frame);

}  // namespace kestralum
