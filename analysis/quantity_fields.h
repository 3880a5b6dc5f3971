// The quantities of a run's frames as further data of its files for ParaView.
#pragma once

#include "results/vtu_file.h"

namespace kestralum {

// The scalars, directions and vectors of fields/quantities.h that a frame has, but for the plastic strain,
// which the files of increments have anyway. Borrows the model.
PointFields quantity_fields(const Model& model, const Mesh& mesh);

}  // namespace kestralum
