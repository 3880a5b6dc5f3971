// The faces of a mesh that belong to one element only: its surface.
#pragma once

#include <cstdint>
#include <vector>

#include "model/model_store.h"

namespace kestralum {

struct ElementFace {
    std::int32_t element;  // 0-based
    std::int32_t face;     // row of the kind's face table
};

// Faces whose corner nodes no other element shares, in element order. O(faces).
std::vector<ElementFace> free_faces(const Mesh& mesh);

}  // namespace kestralum
