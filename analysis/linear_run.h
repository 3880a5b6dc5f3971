// The frame of the linear analyses, which open their result file before they begin.
#pragma once

#include <functional>

#include "analysis/analysis_table.h"
#include "elements/stresses.h"
#include "system/assembly.h"

namespace kestralum {

// What one of them does between the opening of the file and its last write: fills job.run. False, with the
// status set, where the run ends early.
using LinearWork = std::function<bool(Job& job, AssembledSystem& system)>;

// Checks and renumbers the model, opens the result file, works, and writes its frames, at least `columns` of
// them. An early end leaves an earlier result file as it was. `check`: what else keeps the model from this
// analysis, before anything is touched; may be null.
void run_linear(Job&& job, bool (*check)(Job& job), const LinearWork& work, std::int32_t columns = 0);

// Stresses of a frame's displacements into it, and of its points into `points`.
void recover_stresses(Job& job, const AssembledSystem& system, const PointOptions& options,
                      PointResults& points, Frame& frame);

// Appends a frame for each value: the shape (of `vectors`, equations × count) on all nodes, made the right
// size by `scale` (may be null), with the strains and stresses it means. False where a stop was asked for.
bool store_shapes(Job& job, const AssembledSystem& system, std::span<const double> values,
                  std::span<const double> vectors, void (*scale)(std::span<double> u) = nullptr);

}  // namespace kestralum
