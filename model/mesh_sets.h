// Named sets of nodes and faces of a mesh: how a model file defines them, and what they are on its mesh.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/mesh.h"
#include "model/progress.h"
#include "model/records.h"
#include "model/remarks.h"

namespace kestralum {

enum class SetKind {
    box,       // xmin xmax ymin ymax zmin zmax, m
    plane,     // coordinate along `axis`, m
    sphere,    // centre, radius, m: its surface
    cylinder,  // a point of the axis, radius, m, along `axis`: its surface
    normal,    // direction, largest angle to it, degrees: faces
    patch,  // a place, m, largest angle between neighbours, degrees: the smooth faces around the nearest one
    where,  // value >= 0
    part,   // operands[0]
    group,  // operands[0]: PART.GROUP of an imported mesh
    union_of,      // of operands
    intersection,  // of operands
    difference,    // the first operand without the others
};

// The words of the kinds, in their order.
std::span<const std::string_view> set_kind_words();

struct SetDefinition {
    std::string name;
    std::string place;  // where it stands in its file, for remarks
    SetKind kind = SetKind::box;
    std::int32_t axis = 0;  // 0 x, 1 y, 2 z
    std::array<double, 6> numbers{};
    double tolerance = -1;  // m; negative: merging_fraction of the mesh's longest edge
    std::vector<std::string> operands;
    std::function<double(const double* x)> where;  // at a place, m
};

// Fills mesh.sets behind those that are there (groups of imported meshes): nodes of solid elements and free
// faces. Sets by place and by expression have the nodes there and the faces that have all corners there;
// those by direction have faces and their nodes; operations take nodes with nodes and faces with faces.
// O(nodes + faces) for each set. Errors: a part, group or set that is unknown. False with one, and where
// `progress` asks to stop.
bool define_sets(std::span<const SetDefinition> definitions, std::span<const Part> parts, Mesh& mesh,
                 Remarks& remarks, const Progress& progress);

// Null where there is none.
const MeshSet* find_set(const Mesh& mesh, std::string_view name);

// What `check` tells of a set; the box is xmin xmax ymin ymax zmin zmax, m.
struct SetFigures {
    double area = 0;  // of its faces, m^2
    std::array<double, 6> box{};
};
SetFigures measure_set(const Mesh& mesh, const MeshSet& set);

}  // namespace kestralum
