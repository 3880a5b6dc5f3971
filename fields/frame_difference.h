// One frame less another on the same mesh, whose nodes may have other numbers there.
//
// node_of: per node of the first frame's mesh its node in the second's, as match_meshes() gives it; empty:
// the numbers are the same.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "fields/quantities.h"
#include "model/run.h"

namespace kestralum {

// a - b, `components` per node, or per element with an empty node_of. Empty where one has no values, or not
// as many as the other or the map.
std::vector<double> value_difference(std::span<const double> a, std::span<const double> b, int components,
                                     std::span<const std::int32_t> node_of);

// Displacements, node_stress and error of a less those of b, number by number: Mises stress and largest
// principal stress are differences of those, not of the difference of the stresses. What is out in one is
// out. It has nothing else; further quantities have their own differences below.
Frame frame_difference(const Frame& a, const Frame& b, std::span<const std::int32_t> node_of);

// A further quantity; empty where one frame does not have it, and for directions, which have none.
std::vector<double> quantity_difference(const FieldQuantityRow& row, const FieldValues& a,
                                        const FieldValues& b, std::span<const std::int32_t> node_of);

}  // namespace kestralum
