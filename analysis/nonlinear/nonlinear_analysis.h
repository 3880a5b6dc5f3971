// The nonlinear static analysis: large displacements and plasticity by load increments.
#pragma once

#include "analysis/analysis_table.h"

namespace kestralum {

// Increment k of `step_num` applies k/step_num of the loads (options.factors: others), materials with Sy > 0
// yield. One frame per increment done, its load factor in n_freq. Writes the result file,
// "log\integ_stress.txt", "log\Q.txt" and "log\history_nonlinear_NAME.csv". An increment that does not
// converge ends the run with NL_STATIC "stop"; a divergence always does: the status is then `failed`, and the
// frames before stand. A cancel leaves nothing.
Run analyse_nonlinear(const Model& model, const Settings& settings, const RunOptions& options,
                      Progress& progress);

}  // namespace kestralum
