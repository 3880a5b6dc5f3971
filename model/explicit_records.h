// The records that only the explicit analysis reads: walls, velocities, contact pairs.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/records.h"

namespace kestralum {

// Value of an expression at a time, s; handed in by the reader, which knows the calculator. Not a
// number where the expression has no value.
using EvaluateAtTime = double (*)(std::string_view text, std::span<const Parameter> parameters, double time);

// A number that may change with time.
struct TimeExpression {
    std::string text = "0";             // as written
    double start = 0;                   // value at time 0
    bool varies = false;                // the text names `time`
    EvaluateAtTime evaluate = nullptr;  // needed where it varies

    double at(double time, std::span<const Parameter> parameters) const {
        return varies && evaluate ? evaluate(text, parameters, time) : start;
    }
};

enum class VelocitySelection : std::int32_t { plane = 0, area = 1, volume = 2, part = 3 };

// INITIAL_VELOCITY and VELOCITY_INPUT: the nodes selected, and their velocity along the axis.
struct VelocityRecord {
    std::string name;  // selection `part`: the part's name
    std::string selection_word, axis_word;
    VelocitySelection kind = VelocitySelection::plane;
    std::int32_t axis = 0;        // direction of the velocity, and normal of a selecting plane: 0 x, 1 y, 2 z
    TimeExpression velocity;      // m/s
    std::array<double, 6> box{};  // xmin xmax ymin ymax zmin zmax, m
};

enum class WallKind : std::int32_t { plane = 0, cylinder = 1, sphere = 2 };

struct RigidWall {
    std::string name, kind_word, axis_word;
    WallKind kind = WallKind::plane;
    std::int32_t axis = 0;        // normal of a plane, axis of a cylinder
    std::int32_t side = 1;        // +1: bodies are on the positive side, or outside; -1: on the other
    double radius = 0;            // m
    double stiffness = 0;         // N/m per node; 0 = chosen by the step
    double friction = 0;          // Coulomb's coefficient
    double damping = 0;           // fraction of the critical damping of the node on its spring
    std::array<double, 6> box{};  // extent, m; its centre is the wall's place
    std::string set_name;  // not empty: only the nodes of this set meet the wall, without bounds; `box` is
                           // the box around them
    std::array<TimeExpression, 3> motion;  // displacement of the wall in x y z, m
};

struct ContactPair {
    std::string name;
    std::array<std::string, 2> part_name;  // found by name in the model in force
    double penalty = 1;                    // factor on the stiffness that the step allows
    double friction = 0;
    double damping = 0;           // fraction of the critical damping
    double gap = 0;               // m: surfaces touch at this distance
    std::array<double, 6> box{};  // where contact is looked for, m
    std::string set_name;         // not empty: only faces with all nodes in this set meet; `box` is then 0
    double start_time = 0;        // s: the pair acts from here on
};

struct ExplicitTables {
    std::vector<RigidWall> walls;
    std::vector<VelocityRecord> initial_velocities, velocity_inputs;
    std::vector<ContactPair> contacts;
};

}  // namespace kestralum
