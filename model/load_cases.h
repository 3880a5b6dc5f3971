// The load cases of a model.
#pragma once

#include <string>
#include <vector>

#include "model/model.h"

namespace kestralum {

// `base` and then every case that a support's displacement, a force, a rigid force or a load names, in this
// order and that of the tables; each once.
std::vector<std::string> load_cases(const Model& model);

}  // namespace kestralum
