// What an explicit run writes beside its result file: "log\disp_NAME", mesh and frames without the
// definition tables, and the names of its history and of its frames for ParaView.
#pragma once

#include <string>

#include "model/model_store.h"

namespace kestralum {

// "log\disp_" and what follows the last separator of the model file name.
std::string displacement_file_name(const ModelStore& store);

// "log\history_NAME.csv": the model file's name without its folder and its last ending.
std::string history_file_name(const ModelStore& store);

// Writes the store's mesh and frames; the file takes its name when it is whole. False when it could
// not be written; the reason has been printed and an earlier file of the name is as it was.
bool write_displacements(const ModelStore& store, int threads);

}  // namespace kestralum
