#include "mesh/inp_types.h"

#include <algorithm>

namespace kestralum {

namespace {

using Role = InpType::Role;
using enum ElementKind;

struct Solid {
    const char* word;
    InpType type;
};
constexpr InpType hexahedron8{Role::solid, hexahedron, 8, 0, "an 8-node hexahedron"};
constexpr InpType tetrahedron_4{Role::solid, tetrahedron4, 4, 0, "a 4-node tetrahedron"};
constexpr InpType tetrahedron_10{Role::solid, tetrahedron10, 10, 0, "a 10-node tetrahedron"};
constexpr Solid solids[] = {
    {"C3D8", hexahedron8},      {"C3D8R", hexahedron8},     {"C3D8I", hexahedron8},
    {"C3D8H", hexahedron8},     {"C3D8RH", hexahedron8},    {"C3D8IH", hexahedron8},
    {"C3D4", tetrahedron_4},    {"C3D4H", tetrahedron_4},   {"C3D10", tetrahedron_10},
    {"C3D10M", tetrahedron_10}, {"C3D10H", tetrahedron_10}, {"C3D10MH", tetrahedron_10},
    {"C3D10I", tetrahedron_10}, {"C3D10HS", tetrahedron_10}};

// A family: its letters, the digits that follow, and what an element of it is. Longer words come first.
struct Family {
    const char* begins;
    InpType type;
};
constexpr InpType other_solid(const char* words) {
    return {Role::foreign_solid, hexahedron, 0, 0, words};
}
constexpr Family foreign[] = {
    {"C3D27", other_solid("a 27-node hexahedron")}, {"C3D20", other_solid("a 20-node hexahedron")},
    {"C3D15", other_solid("a 15-node wedge")},      {"C3D6", other_solid("a 6-node wedge")},
    {"C3D5", other_solid("a 5-node pyramid")},      {"C3D13", other_solid("a 13-node pyramid")},
    {"SC8", other_solid("a continuum shell")},      {"SC6", other_solid("a continuum shell")}};

constexpr const char* surface_letters[] = {"STRI", "CPS", "CPE",  "CAX",  "CGAX", "SFM3D",
                                           "M3D",  "R3D", "DC2D", "DCAX", "DS",   "S"};
struct SurfaceNodes {
    const char* digits;
    int nodes, corners;
};
constexpr SurfaceNodes surface_nodes[] = {{"65", 6, 3}, {"3", 3, 3}, {"4", 4, 4},
                                          {"6", 6, 3},  {"8", 8, 4}, {"9", 9, 4}};

// Beams and trusses, and what joins or loads single nodes.
struct Line {
    const char* word;
    int nodes;
};
constexpr Line lines[] = {{"T2D2", 2},    {"T2D3", 3},    {"T3D2", 2},     {"T3D3", 3},     {"B21", 2},
                          {"B22", 3},     {"B23", 2},     {"B31", 2},      {"B32", 3},      {"B33", 2},
                          {"PIPE21", 2},  {"PIPE22", 3},  {"PIPE31", 2},   {"PIPE32", 3},   {"R2D2", 2},
                          {"RB2D2", 2},   {"RB3D2", 2},   {"DC1D2", 2},    {"DC1D3", 3},    {"SPRING1", 1},
                          {"SPRING2", 2}, {"SPRINGA", 2}, {"DASHPOT1", 1}, {"DASHPOT2", 2}, {"DASHPOTA", 2},
                          {"MASS", 1},    {"ROTARYI", 1}, {"CONN3D2", 2},  {"GAPUNI", 2}};

// What may follow the number of nodes: variants of integration, degrees of freedom and thermal coupling.
bool is_variant(std::string_view suffix) {
    return suffix.size() <= 4 && suffix.find_first_not_of("RHIMTSPEWO5") == std::string_view::npos;
}

InpType surface_type(std::string_view word) {
    for (const std::string_view letters : surface_letters) {
        if (!word.starts_with(letters)) continue;
        const std::string_view rest = word.substr(letters.size());
        for (const auto& [digits, nodes, corners] : surface_nodes)
            if (rest.starts_with(digits) && is_variant(rest.substr(std::string_view(digits).size())))
                return {Role::surface, hexahedron, nodes, corners, "a surface element"};
    }
    return {};
}

constexpr std::array<int, 8> hexa_order{4, 0, 3, 7, 5, 1, 2, 6};
constexpr std::array<int, 10> tetra_order{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
constexpr int hexa_sides[6][4] = {{0, 1, 2, 3}, {4, 7, 6, 5}, {0, 4, 5, 1},
                                  {1, 5, 6, 2}, {2, 6, 7, 3}, {3, 7, 4, 0}};
constexpr int tetra_sides[4][3] = {{0, 1, 2}, {0, 3, 1}, {1, 3, 2}, {2, 3, 0}};

}  // namespace

InpType inp_type(std::string_view word) {
    for (const Solid& solid : solids)
        if (word == solid.word) return solid.type;
    for (const Family& family : foreign)
        if (word.starts_with(family.begins)) return family.type;
    for (const auto& [begins, nodes] : lines)
        if (word.starts_with(begins) && is_variant(word.substr(std::string_view(begins).size())))
            return {Role::line, hexahedron, nodes, 0, "a line element"};
    return surface_type(word);
}

std::span<const int> inp_node_order(ElementKind kind) {
    if (kind == hexahedron) return hexa_order;
    return std::span(tetra_order).first(nodes_per_element(kind));
}

std::span<const int> inp_side_corners(ElementKind kind, int side) {
    if (side < 0 || side >= (kind == hexahedron ? 6 : 4)) return {};
    if (kind == hexahedron) return hexa_sides[side];
    return tetra_sides[side];
}

}  // namespace kestralum
