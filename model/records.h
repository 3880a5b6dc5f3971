// The records of a model: what a model file and its control file describe, one struct per table.
// Physical values are SI (m, kg, s, N, N/m^2). The text widths bound what the files can carry;
// readers cut longer texts with truncate_text().
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/load_records.h"

namespace kestralum {

inline constexpr std::size_t material_text_width = 67;   // material and parameter names
inline constexpr std::size_t parameter_text_width = 63;  // expression text kept with a parameter
inline constexpr std::size_t name_text_width = 63;       // names, words, paths of parts and records
inline constexpr std::size_t field_text_width = 127;     // expression texts kept with a part

// `text` cut to at most `width` bytes.
std::string truncate_text(std::string_view text, std::size_t width);

struct Material {
    std::int32_t id = 0;
    std::string name;
    double density = 0;        // kg/m^3
    double young = 0;          // E, Pa
    double poisson = 0;        // ν
    double shear_modulus = 0;  // G, Pa; 0 unless the control file gives it
    double yield_stress = 0;   // Sy, Pa
    double hardening = 0;      // Sd, Pa: isotropic hardening modulus, 0 = perfectly plastic
    double expansion = 0;      // alpha=: of lengths, 1/K
    double kinematic = 0;      // kinematic=: linear kinematic hardening modulus, Pa
    std::vector<std::array<double, 2>> hardening_table{};  // table=: plastic strain, yield stress (Pa); takes
                                                           // the place of Sy and Sd; empty: not given
    double erode =
        0;  // erode=: equivalent plastic strain at which explicit runs take an element out; 0: never
    bool elastic_shear = false;  // shear=elastic: G of the control file is not used
};

struct Parameter {
    std::int32_t id = 0;
    std::string name;
    double value = 0;
    std::string expression;  // the text that gave the value
};

// Shape keywords of a part; the value is the type id of the files.
enum class Shape : std::int32_t {
    rect = 0,
    cyli = 1,
    cyli2rect = 2,
    hollowrect = 3,
    hollowcyli = 4,
    trapezoid = 5,
    tripole = 6,
    sphere = 7,
    arch = 8,
    half_arch = 9,
    half_cyli = 10,
    quart_cyli = 11,
    stl = 12,
    vol = 13,
    half_hollowcyli = 14,
    quart_hollowcyli = 15,
    msh = 16,
    inp = 17,
    step = 18,
    surf_circle = 1000,
    surf_rect = 1001,
    hole_cyli = 2000,
    hole_rect = 2001,
    r_chamfer = 2002,
    fillet = 2003,
    hole_halfcyli = 2004,
};

// How the mesher of CAD files is to divide a part: its options in the model file. Lengths in the part's unit.
struct MeshOptions {
    double size = 0;         // edge of an element; 0: not given
    std::int32_t order = 2;  // 1: 4-node, 2: 10-node tetrahedra
    double curvature = -1;   // elements per turn of a curved face; 0: by the size alone; -1: not given
    bool fragment = false;   // bodies that touch get common faces
    struct Refinement {
        std::string group;  // of faces or of bodies
        double size = 0;    // edge of an element there
        bool operator==(const Refinement&) const = default;
    };
    std::vector<Refinement> refinements;
    bool operator==(const MeshOptions&) const = default;
};

// A group of bodies of an imported part that has a material of its own.
struct GroupMaterial {
    std::string group, material_name;
};

struct Part {
    std::int32_t id = 0;
    std::string name;
    std::string color_name;
    std::array<double, 3> color{1, 1, 1};  // red, green, blue, 0 … 1
    std::string material_name;
    std::int32_t material_id = 0;  // index into the material table
    std::string type_name;         // shape keyword as written
    Shape type = Shape::rect;
    std::array<double, 6> size{};          // values as evaluated, before the unit factor
    std::array<std::int32_t, 6> div{};     // element divisions
    std::array<double, 3> origin{};        // values as evaluated, before the unit factor
    std::array<double, 3> euler_angles{};  // degrees, z-x-z: Rz(0)·Rx(1)·Rz(2)
    std::int32_t active = 1;
    std::array<std::string, 6> size_text, div_text;
    std::array<std::string, 3> origin_text, euler_text;
    std::int32_t parent_index = -1;    // index of the parent part, -1 = none
    std::string parent_name = "NONE";  // parts read from a file: its path
    std::string unit_text = "M";
    double unit_factor = 1.0;  // m per unit of size and origin
    MeshOptions mesh_options;
    std::vector<GroupMaterial> group_materials;
    std::int32_t derived_from = -1;  // of a working part made of a group's elements: the part they came from
};

// Whether part `index` is one of the name, or was derived from one.
bool is_of_part(std::span<const Part> parts, std::size_t index, std::string_view name);

// How a boundary condition selects nodes; the value is the `kind` of the files.
enum class Selection : std::int32_t { plane = 0, area = 1, volume = 2 };

// A support: every selected node is fixed in x, y and z, or as its options say.
struct BoundaryCondition {
    std::int32_t id = 0;
    std::string name;
    std::string selection_word, axis_word;  // as written
    Selection kind = Selection::plane;
    std::int32_t axis = 0;        // normal of the selecting plane: 0 x, 1 y, 2 z
    std::array<double, 6> box{};  // xmin xmax ymin ymax zmin zmax, m
    std::string set_name;  // not empty: the nodes of this set are selected, `box` is the box around them
    SupportOptions options{};
};

enum class ForceKind : std::int32_t { node = 0, area = 1 };

struct AppliedForce {
    std::int32_t id = 0;
    std::string name;
    std::string kind_word;
    ForceKind kind = ForceKind::node;
    std::string axis_word;
    std::int32_t axis = 0;          // loaded direction: 0 x, 1 y, 2 z
    double value = 0;               // total force, N
    std::array<double, 3> point{};  // kind node: place, m
    std::array<double, 6> box{};    // kind area: xmin xmax ymin ymax zmin zmax, m
    std::string set_name;  // kind area, not empty: the nodes of this set, `box` is the box around them
    LoadOptions options{};
};

enum class RigidSelection : std::int32_t { area = 0, round = 1 };

struct RigidElement {
    std::int32_t id = 0;
    std::string name;
    std::string selection_word;
    RigidSelection kind = RigidSelection::area;
    std::array<double, 3> reference{};  // reference point, m
    // area: xmin xmax ymin ymax zmin zmax; round: centre x y z, radius, axis (0, 1, 2),
    // half thickness along the axis (m)
    std::array<double, 6> region{};
    std::string set_name;  // kind area, not empty: the nodes of this set, `region` is the box around them
    bool of_load = false;  // made of a remote load of load_info
};

enum class RigidDirection : std::int32_t { x = 0, y = 1, z = 2, rx = 3, ry = 4, rz = 5, normal = 6 };

struct RigidForce {
    std::int32_t id = 0;
    std::string name;
    std::string element_name;
    std::int32_t element = -1;  // index into the rigid elements
    std::string direction_word;
    RigidDirection direction = RigidDirection::x;
    double value = 0;  // N, or N·m for rx ry rz
    LoadOptions options{};
    bool of_load = false;  // made of a remote load of load_info
};

struct RigidCombine {
    std::int32_t id = 0;
    std::string name;
    std::array<std::string, 2> element_name;
    std::array<std::int32_t, 2> element{-1, -1};
    std::array<std::string, 6> stiffness_text;  // as written
    std::array<double, 6> stiffness{};          // kx ky kz (N/m), krx kry krz (N·m/rad)
    std::array<double, 6> damping{};            // cx= … crz=: dashpots beside them, N·s/m, N·m·s/rad
    bool body_axes = false;                     // axes=body: x y z turn with the first element

    bool damped() const {
        for (const double c : damping)
            if (c != 0) return true;
        return false;
    }
};

}  // namespace kestralum
