// What a run writes beside its result file: "log\disp_NAME", mesh and frames without the definition
// tables, and the histories.
#pragma once

#include <string>
#include <string_view>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"

namespace kestralum {

// "log\disp_" and what follows the last separator of the model file's name.
std::string displacement_file_name(std::string_view model_file_name);

// "log\history_NAME.csv" of an explicit run, "log\history_nonlinear_NAME.csv" of a nonlinear one: the model
// file's name without its folder and its last ending.
std::string history_file_name(std::string_view model_file_name);
std::string nonlinear_history_file_name(std::string_view model_file_name);

// The rows as text, "%e" between commas, behind a line of the columns' names. False when they could not be
// written, as write_results().
bool write_history(std::string_view target, std::string_view log_folder, const HistoryRows& history,
                   Progress& progress);

// Writes the run's mesh and frames; the file takes its name when it is whole. False when it could not be
// written or was cancelled, as write_results().
bool write_displacements(const Model& model, const Run& run, Progress& progress);

}  // namespace kestralum
