// The element types of Abaqus input decks: which are solids that the program computes with, which lie on
// surfaces or lines or at single nodes (springs, masses) and serve groups only, and which it has no element
// for.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>

#include "model/element_kind.h"

namespace kestralum {

struct InpType {
    enum class Role { solid, surface, line, foreign_solid, unknown };
    Role role = Role::unknown;
    ElementKind kind = ElementKind::hexahedron;  // of a solid
    int nodes = 0;                               // node numbers that an element has
    int corners = 0;                             // of a surface element: the first so many are its corners
    const char* words = "";                      // "a 6-node wedge"
};

// By the word of TYPE=, in capitals: "C3D8R". Variants of one shape (reduced integration, hybrid, …) are
// alike.
InpType inp_type(std::string_view word);

// File position of each node of the program's order.
std::span<const int> inp_node_order(ElementKind kind);

// The side that "S1" … "S6" name: side 0 … 5; its corners as file positions, 3 or 4 of them. Empty for a side
// that the kind does not have.
std::span<const int> inp_side_corners(ElementKind kind, int side);

}  // namespace kestralum
