// The driver of the nonlinear static analysis.
#pragma once

#include <array>
#include <vector>

#include "model/model_store.h"
#include "model/run_report.h"
#include "model/settings.h"

namespace kestralum {

struct NonlinearOptions {
    std::vector<double> factors;                // of the load, one per increment; empty: k/step_num
    std::vector<std::array<double, 3>> probes;  // places whose nearest nodes go into the history, m
};

// Options of runs on the process-wide store; set by the command line or the window.
NonlinearOptions& nonlinear_options();

// Large displacements and plasticity (Sy > 0) by load increments: increment k of `step_num` applies
// k/step_num of the loads. Stores one frame per increment done, writes the result file,
// "log\integ_stress.txt", "log\Q.txt" and "log\history_NAME.csv". An increment that does not converge ends
// the run with NL_STATIC "stop"; a divergence always does. report.status is then `failed` and the frames
// before stand.
RunReport run_nonlinear(ModelStore& store, const Settings& settings, const NonlinearOptions& options = {});

// The same on the process-wide store and settings.
RunReport exec_nonlinear();

}  // namespace kestralum
