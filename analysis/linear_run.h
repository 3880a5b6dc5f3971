// The frame of the linear analyses, which open their result file before they begin.
#pragma once

#include <functional>

#include "analysis/analysis_table.h"
#include "system/assembly.h"

namespace kestralum {

// What one of them does between the opening of the file and its last write: fills job.run. False, with the
// status set, where the run ends early.
using LinearWork = std::function<bool(Job& job, AssembledSystem& system)>;

// Checks and renumbers the model, opens the result file, works, and writes its frames, at least `columns` of
// them. An early end leaves an earlier result file as it was. `check`: what else keeps the model from this
// analysis, before anything is touched; may be null.
void run_linear(Job&& job, bool (*check)(Job& job), const LinearWork& work, std::int32_t columns = 0);

}  // namespace kestralum
