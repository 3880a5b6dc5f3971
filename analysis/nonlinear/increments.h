// The increments of a nonlinear run, from the loads to the frames, reports and files; of whatever body.
#pragma once

#include <vector>

#include "analysis/nonlinear/newton_body.h"
#include "analysis/nonlinear/nonlinear_output.h"
#include "elements/plasticity.h"

namespace kestralum {

// False with status bad_input: the model, its materials, load factors or settings cannot be run, or the
// frames, where they are kept, are too many for the memory.
bool check_nonlinear(Job& job, bool keeps_frames = true);

// The materials as the points take them; says which law runs where the control file leaves a doubt.
std::vector<PlasticMaterial> point_materials(Job& job);
// Per element of the mesh: its material.
std::vector<std::int32_t> element_materials(const Model& model, const Mesh& mesh);

// All increments of the body, which is at rest. False where no increment stands; the status tells of the
// others.
bool run_nonlinear(Job& job, const Freedoms& freedoms, NewtonBody& body, NonlinearHistory& history);

// The logs, the history and, of frames that are kept, the result file.
void write_nonlinear(Job& job, const NonlinearHistory& history, bool keeps_frames = true);

}  // namespace kestralum
