// A mesh some of whose elements have been taken out: what is left of its surface and its nodes.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "model/mesh.h"

namespace kestralum {

// Which faces of elements have the same corners.
struct FaceNumbers {
    std::vector<std::int32_t> of;  // element_num × faces of an element: the number of the face, from 0
    std::int32_t count = 0;
};
FaceNumbers number_faces(const Mesh& mesh);  // O(faces)

// free_faces() of a mesh without the elements that are `gone` (element_num flags), under the numbers that the
// elements have in the whole mesh.
std::vector<ElementFace> free_faces_left(const Mesh& mesh, const FaceNumbers& numbers,
                                         std::span<const char> gone);

// Per node whether elements had it and all of these are `removed` (0-based; others than the mesh's are passed
// over). Empty where `removed` is.
std::vector<char> bare_nodes(const Mesh& mesh, std::span<const std::int32_t> removed);

}  // namespace kestralum
