// The elements of a Gmsh mesh file: section "$Elements" of formats 2.2 and 4.1.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "mesh/gmsh_input.h"
#include "mesh/gmsh_reader.h"
#include "mesh/node_numbers.h"

namespace kestralum {

struct GmshElementType;

class GmshElements {
public:
    // All must outlive the reader. `nodes`: those of the file.
    GmshElements(GmshInput& in, const NodeNumbers& nodes, GmshMesh& mesh)
        : in_(in), nodes_(nodes), mesh_(mesh) {}

    // Read the section from its counts to before its last line; false with an error of the input's, without
    // one where it asks to stop.
    bool read2();
    bool read4();

private:
    bool read_tagged(std::int64_t type, std::int64_t number, std::int64_t tags);
    bool read_block(int dimension, std::int64_t type, std::int64_t count, std::int32_t entity);
    const GmshElementType* usable_type(std::int64_t type, std::int64_t number);
    bool read_element(const GmshElementType& type, std::int64_t number, std::int32_t entity);
    bool add_solid(const GmshElementType& type, std::int64_t number, std::int32_t entity,
                   std::span<const std::int32_t> nodes);
    bool is_solid_type(const GmshElementType& type, std::int64_t number);
    std::int32_t entity_index(int dimension, std::int64_t tag, std::int64_t physical);

    GmshInput& in_;
    const NodeNumbers& nodes_;
    GmshMesh& mesh_;
    bool format4_ = false;
    const GmshElementType *type_ = nullptr, *solid_type_ = nullptr;  // of the last element, of all solids
    std::map<std::array<std::int64_t, 3>, std::int32_t> entity_of_;  // by dimension, tag, physical
    std::array<std::int64_t, 3> last_key_{};
    std::int32_t last_entity_ = 0;
};

}  // namespace kestralum
