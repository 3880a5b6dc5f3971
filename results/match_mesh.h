// Whether a mesh read from a file is one that is known.
#pragma once

#include <cstdint>
#include <vector>

#include "model/mesh.h"

namespace kestralum {

// Per node of `own` its node in `read` (both 0-based), where `read` is the same mesh with its nodes numbered
// in another order and its coordinates written as "%e". Elements keep their order. Empty where it is not.
std::vector<std::int32_t> match_nodes(const Mesh& own, const Mesh& read);

}  // namespace kestralum
