// The driver of the linear analyses.
#pragma once

#include "model/model_store.h"
#include "model/run_report.h"
#include "model/settings.h"

namespace kestralum {

// Linear static analysis of the process-wide store: K u = F, stresses, result file. The store keeps
// the renumbered mesh and the results; the factor files stay in the log folder.
RunReport exec_static();

// The same on one store.
RunReport run_static(ModelStore& store, const Settings& settings);

}  // namespace kestralum
