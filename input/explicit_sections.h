// The tables of the control file that the explicit analysis reads.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "input/input_remarks.h"
#include "model/explicit_records.h"
#include "model/mesh.h"

namespace kestralum {

// A table of the control file: its tokens and the "%" that closed it (empty at the end of the file).
struct TableSection {
    std::string_view key;
    std::vector<Token> tokens;
    Token closing;
};

// The records of a table, `length` tokens each; left-over tokens are an error, a missing "%" a notice.
std::vector<std::span<const Token>> records_of(const TableSection& table, std::size_t length,
                                               InputRemarks& remarks);

// Token layouts, all numbers expressions:
//   RIGID_WALL        name  plane|cylinder|sphere  +x…-z  radius  stiffness  friction  damping
//                     xmin xmax ymin ymax zmin zmax  ux uy uz (displacements, may name `time`)
//   INITIAL_VELOCITY  name  plane|area|volume|part  x|y|z  velocity  xmin xmax ymin ymax zmin zmax
//   VELOCITY_INPUT    the same; the velocity may name `time`
//   ELEMENT_CONTACT   name  part  part  penalty  friction  damping  gap  xmin xmax ymin ymax zmin zmax  time
// In a wall and a contact pair "set NAME" may stand in place of the six coordinates: a set of `mesh`. (Where
// the model has a parameter named "set" the word is that parameter.) Each replaces `out`, prints the
// section's echo and adds to `remarks` what is wrong; it ends early where `progress` asks to stop.
void read_walls(const TableSection& table, std::span<const Parameter> parameters, const Mesh& mesh,
                InputRemarks& remarks, std::vector<RigidWall>& out, Progress& progress);
void read_initial_velocities(const TableSection& table, std::span<const Parameter> parameters,
                             std::span<const Part> parts, InputRemarks& remarks,
                             std::vector<VelocityRecord>& out, Progress& progress);
void read_velocity_inputs(const TableSection& table, std::span<const Parameter> parameters,
                          std::span<const Part> parts, InputRemarks& remarks,
                          std::vector<VelocityRecord>& out, Progress& progress);
void read_contacts(const TableSection& table, std::span<const Parameter> parameters,
                   std::span<const Part> parts, const Mesh& mesh, InputRemarks& remarks,
                   std::vector<ContactPair>& out, Progress& progress);

}  // namespace kestralum
