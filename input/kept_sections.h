// What an earlier model leaves to the next one that is read over it.
#pragma once

#include <string>
#include <vector>

#include "input/model_sections.h"
#include "model/model.h"

namespace kestralum {

// Keywords whose table in `former` stays in force because the file has no such section. Tables that are as at
// start-up are nobody's.
std::vector<std::string> kept_sections(const Model& former, const ModelSections& sections);

}  // namespace kestralum
