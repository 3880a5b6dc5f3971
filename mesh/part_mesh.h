// The mesh of one part and what every mesher shares: the counts that are known before anything is
// generated, and the memory that the parts of a model may use together.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "mesh/part_groups.h"
#include "model/element_kind.h"
#include "model/progress.h"
#include "model/records.h"
#include "model/remarks.h"

namespace kestralum {

// Nodes and elements of one part in its own frame.
struct PartMesh {
    ElementKind kind = ElementKind::hexahedron;
    bool surface = false;                    // STL facets: drawn and exported, no solid elements
    std::vector<std::int32_t> connectivity;  // elements × nodes per element, 1-based within the part
    std::vector<double> coordinates;         // nodes × 3: x y z, m (the unit factor is applied)
    std::string lines;                       // the mesher's console lines, in order
    std::vector<PartGroup> groups;           // named groups of an imported mesh

    std::int64_t node_num() const { return static_cast<std::int64_t>(coordinates.size() / 3); }
    std::int64_t element_num() const {
        return static_cast<std::int64_t>(connectivity.size()) / nodes_per_element(kind);
    }
};

struct MeshCounts {
    std::int64_t elements = 0, nodes = 0;
};

// "Nelem1=%d,Nnode1=%d\n": what most shapes print first.
std::string counts_line(const MeshCounts& counts);

// What a mesher is handed beside its part.
struct MeshContext {
    std::string_view model_file_name;  // mesh files are also looked for beside it
    MeshCounts left;                   // what the parts still to come may use together
    Remarks& remarks;
    Progress& progress;
};

// What this machine can hold: node and degree-of-freedom numbers are 32-bit, and an analysis needs
// some kilobytes per node.
MeshCounts memory_budget();

// Takes `counts` from what is left; false with an error when they do not fit. Called before
// anything of that size is allocated.
bool take_from_budget(const Part& part, const MeshCounts& counts, MeshContext& context);

// a·b for a, b ≥ 0, the largest 64-bit value where the product passes it.
inline std::int64_t saturated_product(std::int64_t a, std::int64_t b) {
    std::int64_t product;
    return __builtin_mul_overflow(a, b, &product) ? std::numeric_limits<std::int64_t>::max() : product;
}

// Meshes one part according to its row of the catalogue. True with an empty mesh and a notice for
// a part without elements; false with an error in context.remarks, or without one where context.progress
// asks to stop, the mesh then empty but for its console lines.
bool mesh_part(const Part& part, MeshContext& context, PartMesh& mesh);

}  // namespace kestralum
