// The records that say more of supports and loads than a box and an axis: options of a record, load_info,
// load_combination and tie_info of a model file.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "model/vector3.h"

namespace kestralum {

// A value over place (x, m) and time (s; in a nonlinear run the load factor). Made by the reader, which knows
// the calculator; safe to call from several threads.
struct FieldExpression {
    std::string text;     // as written; empty: not given
    bool varies = false;  // the text names `time`
    std::function<double(const double* x, double time)> at;

    bool given() const { return !text.empty(); }
    bool operator==(const FieldExpression& other) const { return text == other.text; }
};

// Why the field of a record cannot be used at x (null: it is of time alone): "RECORD: '1/x' is inf at (0, 0,
// 0) m, time 1". Empty where the value is finite and not below `least`.
std::string wrong_value(const std::string& record, const FieldExpression& field, const double* x, double time,
                        double least = -std::numeric_limits<double>::infinity());

// factor= and case= of a load. Without a factor a load is whole in static, eigen and explicit analyses and
// grows with the load factor in nonlinear ones. Static analyses take `time` 1.
struct LoadOptions {
    FieldExpression factor;  // of `time`
    std::string case_name;   // empty: of the case `base`
};
inline constexpr const char* base_case = "base";

// What the options of a support make of it. Without any, the support holds all three directions.
struct SupportOptions {
    bool given = false;
    std::array<bool, 3> fixed{};                  // fix=: x y z; true too where a displacement is given
    bool normal = false;                          // fix=normal: along the outward normal of the faces
    std::array<FieldExpression, 3> displacement;  // ux= uy= uz=, m
    FieldExpression spring, normal_spring;        // spring= (all directions), spring_normal=, N/m^3
    std::string case_name;                        // case=: the displacements are those of this load case
};

enum class LoadKind { pressure, traction, force, bearing, remote, gravity, centrifugal, temperature };

struct Load {
    std::string name;
    std::string place;  // where it stands in its file, for remarks
    LoadKind kind = LoadKind::pressure;
    std::string set_name;   // of faces: pressure traction force bearing remote
    std::string part_name;  // temperature; "all": every part
    FieldExpression value;  // pressure: Pa, positive against the outward normal; temperature: K or °C
    std::array<FieldExpression, 3> vector;  // traction: Pa
    Vec3 force{};                           // force, bearing, remote: N
    Vec3 moment{};                          // remote: about its point, N m
    Vec3 point{};                           // remote: where it acts; centrifugal: a point of the axis, m
    Vec3 direction{};                       // gravity: acceleration, m/s^2; centrifugal: unit axis
    double speed = 0;                       // centrifugal: rad/s
    double reference = 0;                   // temperature: without strain
    LoadOptions options;
};

// A result frame that is a sum of load cases.
struct LoadCombination {
    std::string name, text;
    std::vector<std::pair<std::string, double>> terms;  // case, factor
};

// Nodes of one set of faces follow the faces of another.
struct TieRecord {
    std::string name;
    std::string slave_set, master_set;
    double tolerance = -1;  // largest distance of a node that is tied, m; negative: chosen from the mesh
};

}  // namespace kestralum
