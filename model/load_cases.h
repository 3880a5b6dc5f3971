// The load cases of a model.
#pragma once

#include <string>
#include <vector>

#include "model/model.h"

namespace kestralum {

// Names of the load cases: of forces, rigid forces, loads and displacements of supports, in this order and
// that of the tables; `base` first where one of them has no case, or where there are none. At least one, each
// once.
std::vector<std::string> case_names(const Model& model);

}  // namespace kestralum
