// Supports: which nodes are fixed, and the numbering of the free degrees of freedom.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "conditions/node_constraints.h"
#include "model/progress.h"
#include "model/topology.h"

namespace kestralum {

struct DofNumbering {
    std::vector<std::int32_t> fixed_nodes;   // 0-based, record by record; a node selected twice stands twice
    std::vector<std::int32_t> fixed_record;  // per entry of fixed_nodes: its record
    std::vector<std::int32_t> selected;      // per record: nodes on solid elements that it selects
    std::vector<std::int32_t> free_dofs;     // equation -> global degree of freedom, ascending
    std::vector<std::int32_t> dof_map;  // global degree of freedom -> equation, -1 = fixed, tied or hanging
    std::int32_t hanging_nodes = 0;     // nodes on no solid element, eliminated like fixed ones

    // Nodes that stand in the list more than once.
    std::int32_t repeated_nodes() const;

    std::int32_t fix_node_num() const { return static_cast<std::int32_t>(fixed_nodes.size()); }
};

// Nodes that the records without options select, record by record, and per entry its record.
std::vector<std::int32_t> wholly_fixed_nodes(std::span<const BoundaryCondition> records, const Mesh& mesh);

// Fixes all three degrees of freedom of every node that a record without options selects, and what the
// constraints hold: they count degrees of freedom of q (constraint_map.h). fn_free comes in as 3·node_num and
// falls by 3 for every entry of the list of whole nodes, repeats included; free_dofs.size() is the true
// number. shown: per node, the number that lines give it and by which lists are sorted; empty: its own.
DofNumbering apply_boundary_conditions(std::span<const BoundaryCondition> records, const Mesh& mesh,
                                       const NodeElements& node_elements, const NodeConstraints& constraints,
                                       std::int32_t& fn_free, Progress& progress,
                                       std::span<const std::int32_t> shown = {});

}  // namespace kestralum
