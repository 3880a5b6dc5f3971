// Linear buckling: the load factors at which the static state of the loads is no longer stable, and the
// shapes in which the body leaves it.
#pragma once

#include "analysis/analysis_table.h"

namespace kestralum {

// One frame per factor, as many as the model asks for modes, the smallest above zero: n_freq the factor, the
// shape with a largest displacement of 1 and its nodal stresses. The loads are all of the model's or those of
// options.load_case. Factors that are fewer, not resolved or not complete by the count of pivots are a failed
// run; so are a free body, loads that stress nothing and loads without a factor above zero.
Run analyse_buckling(const Model& model, const Settings& settings, const RunOptions& options,
                     Progress& progress);

}  // namespace kestralum
