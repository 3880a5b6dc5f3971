// The eigen analyses: the lowest natural frequencies and mode shapes.
#pragma once

#include "analysis/analysis_table.h"

namespace kestralum {

// One frame per mode: n_freq in Hz, the mode scaled to φᵀ M φ = 1 and its nodal stresses. Modes that are
// fewer than the model asks for, not resolved or not complete by the count of pivots are a failed run.
Run analyse_eigen_subspace(const Model& model, const Settings& settings, const RunOptions& options,
                           Progress& progress);
Run analyse_eigen_lanczos(const Model& model, const Settings& settings, const RunOptions& options,
                          Progress& progress);

}  // namespace kestralum
