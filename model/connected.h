// Which nodes of a mesh hang together.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/model_store.h"

namespace kestralum {

// Per node the lowest node that it hangs together with through elements and `links`, pairs of nodes; all
// 0-based.
std::vector<std::int32_t> connected_nodes(const Mesh& mesh,
                                          std::span<const std::array<std::int32_t, 2>> links = {});

}  // namespace kestralum
