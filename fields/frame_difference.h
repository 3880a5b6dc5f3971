// Values of one frame less those of another on the same mesh, whose nodes may have other numbers there.
//
// node_of: per node of the first frame's mesh its node in the second's, as match_meshes() gives it; empty:
// the numbers are the same.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kestralum {

// a - b, `components` per node, or per element with an empty node_of. Empty where one has no values, or not
// as many as the other or the map.
std::vector<double> value_difference(std::span<const double> a, std::span<const double> b, int components,
                                     std::span<const std::int32_t> node_of);

}  // namespace kestralum
