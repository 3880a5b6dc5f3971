// What opening another model would leave in force of the one before.
#pragma once

#include <string>
#include <vector>

#include "model/model.h"
#include "model/progress.h"

namespace kestralum {

// The sections and settings that neither a model file nor the control file beside it brings, of which
// `former` has others than the start-up ones: reading the file into `former` keeps them. Reads the files'
// keywords only; empty for a file that cannot be read.
std::vector<std::string> kept_tables(const Model& former, const std::string& model_file_name,
                                     const Progress& progress);

// The file is the one that the model came from, under whatever name.
bool same_file(const std::string& a, const std::string& b);

}  // namespace kestralum
