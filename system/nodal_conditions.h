// The conditions of a model on the nodes of its own mesh, without an analysis.
#pragma once

#include "model/model.h"
#include "model/nodal_conditions.h"
#include "model/progress.h"
#include "model/remarks.h"
#include "model/settings.h"

namespace kestralum {

// Finds what a static analysis with these settings would apply, to the last digit, in the numbering of
// model.mesh. Prints nothing. False with an error in `remarks` where the model cannot be analysed, an area
// force meets an element without a volume, or `progress` asks to stop; notices as those of the analysis, and
// where nodes between parts that are heated differently have one temperature.
bool find_nodal_conditions(const Model& model, const Settings& settings, const Progress& progress,
                           NodalConditions& out, Remarks& remarks);

}  // namespace kestralum
