// The eigen analyses: the lowest natural frequencies and mode shapes.
#pragma once

#include "analysis/analysis_table.h"
#include "system/job.h"

namespace kestralum {

// One frame per mode: n_freq in Hz, the mode scaled to φᵀ M φ = 1 and its nodal stresses. Modes that are
// fewer than the model asks for, not resolved or not complete by the count of pivots are a failed run.
Run analyse_eigen_subspace(const Model& model, const Settings& settings, const RunOptions& options,
                           Progress& progress);
Run analyse_eigen_lanczos(const Model& model, const Settings& settings, const RunOptions& options,
                          Progress& progress);

// Whether every material that the mesh uses has a density; false with status bad_input.
bool check_densities(Job& job);

// Whether the residuals of the report's modes are those of modes; notes the worst where it has few digits.
// False with status failed.
bool check_resolved(Job& job);

}  // namespace kestralum
