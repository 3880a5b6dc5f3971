// A mesh with data on its nodes and cells as a VTK unstructured grid: XML with raw appended data
// (version 1.0, 64-bit block sizes, this machine's byte order).
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/format.h"
#include "model/model.h"
#include "results/text_output.h"

namespace kestralum {

struct VtuArray {
    std::string header;  // the DataArray element without its offset
    std::vector<char> bytes;
};

// `type` is VTK's word for T; `name` as it may stand in XML.
template <typename T>
VtuArray make_vtu_array(const char* type, const char* name, int components, std::span<const T> values) {
    VtuArray array;
    array.header =
        formatted("<DataArray type=\"%s\" Name=\"%s\" NumberOfComponents=\"%d\" format=\"appended\"", type,
                  name, components);
    const char* bytes = reinterpret_cast<const char*>(values.data());
    array.bytes.assign(bytes, bytes + values.size_bytes());
    return array;
}

// The data of a file, in the order they stand in it.
struct VtuGrid {
    std::int64_t points = 0, cells = 0;
    std::vector<VtuArray> point_data, cell_data, coordinates, topology;
};

// The nodes and cells with part and material index of each cell. Cells: 12 (hexahedron), 10 and 24
// (tetrahedra), in VTK's node order, and behind them 5 (triangle) for STL facets. Elements that are `removed`
// (0-based, ascending) have no cell; all nodes stay.
VtuGrid make_vtu_grid(const Model& model, const Mesh& mesh, std::span<const std::int32_t> removed = {});

// The file takes its name when it is whole. What went wrong, empty if nothing.
[[nodiscard]] std::string write_vtu_grid(const VtuGrid& grid, std::string_view target,
                                         std::string_view log_folder, const Progress& progress);
// The same, but the name is left to the caller to take.
[[nodiscard]] std::string hold_vtu_grid(const VtuGrid& grid, std::string_view target,
                                        std::string_view log_folder, const Progress& progress,
                                        HeldFile& file);

// Local nodes of an element in VTK's order, which for these kinds is that of Abaqus too.
std::span<const int> vtk_node_order(ElementKind kind);

}  // namespace kestralum
