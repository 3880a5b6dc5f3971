// `export`: a model as a file for another program.
#pragma once

#include <string>

#include "model/model.h"
#include "model/progress.h"
#include "model/run_report.h"
#include "model/settings.h"

namespace kestralum {

// Why a file name cannot be exported to, one line; empty if it can.
std::string refused_ending(const std::string& file_name);

// Writes the model into `file`, whose ending says the format, and prints notes and what was written. Errors
// are printed: bad_input where the model has nothing to export or the file is one that it was read from,
// failed where it cannot be written.
RunStatus export_model(const Model& model, const Settings& settings, const std::string& file,
                       Progress& progress);

}  // namespace kestralum
