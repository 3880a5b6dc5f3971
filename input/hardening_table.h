// The hardening curve of a material in the control file.
#pragma once

#include <array>
#include <vector>

#include "input/record_options.h"

namespace kestralum {

// table=STRAIN:STRESS,STRAIN:STRESS,…: plastic strains that rise from 0 and the yield stresses there, above 0
// Pa, all of them expressions. Empty where the option is not given, or wrong.
std::vector<std::array<double, 2>> read_hardening_table(const RecordOptions& options);

}  // namespace kestralum
