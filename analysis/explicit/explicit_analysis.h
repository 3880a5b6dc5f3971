// The driver of the explicit analysis: the whole run at once, or step by step while a window draws.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "model/model_store.h"
#include "model/run_report.h"
#include "model/settings.h"

namespace kestralum {

struct ExplicitOptions {
    std::vector<std::array<double, 3>> probes;  // places whose nearest nodes go into the history, m
    bool mean_dilatation = false;               // hexahedra with one pressure per element
};

// The options of runs on the process-wide store; set by the command line or the window.
ExplicitOptions& explicit_options();

// The whole analysis on the process-wide store: set-up, every step, result and displacement file.
// console::request_cancel() ends it after the step under way, with the files written.
RunReport exec_explicit();

// The same on one store.
RunReport run_explicit(ModelStore& store, const Settings& settings, const ExplicitOptions& options = {});

// --- Real time, on the process-wide store. One run at a time; its state is kept between the calls. ---

// The set-up alone: sets ana_type, renumbers the mesh, sizes the results for every frame and stores
// frame 1, the start. False: nothing can be stepped and report.remarks.errors says why.
// A run that was under way is dropped.
bool begin_explicit(RunReport& report);

// Steps first <= s < end, numbered from 1; frame k of the store's results holds step
// (k - 1)·output_frequency. *diverged becomes 1 on divergence and is never reset here.
void step_explicit(std::int64_t first, std::int64_t end, int* diverged);

// Writes result and displacement file with the frames so far, prints the analysis time and lets the
// run's state go; the store keeps results of the frames that were reached.
RunReport finish_explicit();

// Lets the state go without writing: before another analysis starts or another model is read.
void drop_explicit();

// Frame counter: frames 1 … k hold results. 0 when no run has begun, or it is finished or dropped.
std::int64_t explicit_frame();

// One output interval, as a repaint calls it: steps (k - 1)·output_frequency + 1 up to, exclusively,
// min(k·output_frequency + 1, time_num); then k rises by one with the line " ti_current = %d\n". On
// divergence and when k has reached out_time_num the run is finished and `report` holds its outcome.
// True while there is more to step. The caller makes the pause (100 ms) and draws frame k.
bool advance_explicit(RunReport& report);

}  // namespace kestralum
