// The linear static analysis: K u = F.
#pragma once

#include "analysis/analysis_table.h"

namespace kestralum {

// Displacements and nodal stresses of the loads, in one frame; the result file has six columns, the first of
// which is the frame. The report has the largest values, loads, reactions and the residual. A body that the
// supports do not hold is a failed run.
Run analyse_static(const Model& model, const Settings& settings, const RunOptions& options,
                   Progress& progress);

}  // namespace kestralum
