// What can move: the run's numbering of the nodes, its supports, rigid bodies and degrees of freedom.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "conditions/constraints.h"
#include "conditions/rigid_bodies.h"
#include "system/job.h"

namespace kestralum {

struct Freedoms {
    std::int32_t diag_num = 0;  // band measure of the numbering in force
    NodeElements node_elements;
    NodeConstraints constraints;  // of supports with options and of ties
    DofNumbering numbering;       // of the places of q, see constraint_map.h
    RigidSystem rigid;
};

// Looks for what keeps the model from being analysed: a definition that is not whole, no elements, unknown
// materials, loads that are no numbers. False with the report's status bad_input.
bool check_analysable(Job& job);

// "element 12 of part A at (x, y, z)", e 0-based, in the run's numbering.
std::string place_of_element(const Job& job, std::int32_t e);

// Makes the run's mesh: the model's, renumbered by the settings' ORDERING_TYPE or along the longest axis,
// with its node normals and the nodes of point forces; then the rigid bodies on it. Prints the counts and the
// renumbering. False with status bad_input where the rigid records contradict the mesh, each other, or name
// no element.
enum class Renumbering { by_settings, along_longest };
bool make_run_mesh(Job& job, Renumbering how, Freedoms& freedoms);
// Its two halves: the run's mesh, and what is found on job.mesh().
bool order_run_mesh(Job& job, Renumbering how, Freedoms& freedoms);
bool find_bodies(Job& job, Freedoms& freedoms);

// The mesh with other numbers for its nodes (0-based, per node): connectivity, facets, sets, normals.
std::unique_ptr<StepMesh> renumbered(const Mesh& mesh, std::vector<std::int32_t> number);
// Nodal values, groups of 3 per node of job.mesh(), in the order of the run's nodes.
std::vector<double> of_run_nodes(const Job& job, std::span<const double> values);

// Refuses rigid bodies whose supports would not leave the same motions once they have turned: false with
// status bad_input. For analyses with large rotations.
bool check_turning_bodies(Job& job, const RigidSystem& rigid);

// Supports and the numbering of the free degrees of freedom, with the progress lines; sets report.free_dofs.
// number_freedoms: false with status failed when nothing is free.
void count_freedoms(Job& job, Freedoms& freedoms);
bool number_freedoms(Job& job, Freedoms& freedoms);

// Largest displacement and Mises stress of a frame, of the nodes that have an element left; of all nodes
// where no element is.
void report_largest(Job& job, const Frame& frame);

}  // namespace kestralum
