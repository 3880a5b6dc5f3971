// Springs of supports (spring=, spring_normal=): stiffness per area on the faces of a support.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "conditions/surface_loads.h"
#include "model/model.h"
#include "model/topology.h"
#include "solver/sparse.h"

namespace kestralum {

bool has_springs(const Model& model);

// Adds a block of nodes to the values on the pattern of all degrees of freedom, which has every pair of them.
AddBlock adding_to(const SparseKM& km, std::vector<double>& values);

// The springs of one support; `add` once for every face.
void support_springs(const BoundaryCondition& record, const Mesh& mesh, const NodeElements& node_elements,
                     const AddBlock& add);

// The springs of all supports, face by face; not empty: the support that has no face, or no finite value.
std::string all_springs(const Model& model, const Mesh& mesh, const NodeElements& node_elements,
                        const AddBlock& add);

// Adds them to the values; what it returns is that of all_springs().
std::string add_springs(const Model& model, const Mesh& mesh, const NodeElements& node_elements,
                        const SparseKM& km, std::vector<double>& values);

// What the springs of one support resist the displacements u (3 per node) with, N, added to `nodal`.
void add_spring_forces(const BoundaryCondition& record, const Mesh& mesh, const NodeElements& node_elements,
                       std::span<const double> u, std::span<double> nodal);

}  // namespace kestralum
