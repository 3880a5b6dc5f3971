// Where a part stands in the model.
#pragma once

#include <array>
#include <span>

#include "model/records.h"

namespace kestralum {

// Rz(a1)·Rx(a2)·Rz(a3), angles in degrees; exact 0 and ±1 at multiples of 90.
std::array<std::array<double, 3>, 3> euler_rotation(const std::array<double, 3>& angles);

// The part's origin in m: the record's values times the unit factor.
std::array<double, 3> origin_in_metres(const Part& part);

// p → origin + R·p for nodes × 3 coordinates in m.
void place(const Part& part, std::span<double> coordinates);

}  // namespace kestralum
