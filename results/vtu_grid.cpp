#include "results/vtu_grid.h"

#include <array>
#include <bit>

namespace kestralum {

namespace {

// VTK's hexahedron runs round the lower face, then the upper one. With local node p at the corner
// (i, j, k) of hexa_corner these are our nodes in VTK's order.
constexpr std::array<int, 8> vtk_hexahedron{1, 5, 6, 2, 0, 4, 7, 3};
// The quadratic tetrahedron: mid-side nodes on edges 01 12 02 03 13 23, as ours.
constexpr std::array<int, 10> vtk_tetrahedron{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

enum CellType : std::uint8_t { vtk_triangle = 5, vtk_tetra = 10, vtk_hexa = 12, vtk_quadratic_tetra = 24 };

struct Cells {
    std::vector<std::int64_t> connectivity, offsets;
    std::vector<std::uint8_t> types;
    std::vector<std::int32_t> part, material;
};

Cells make_cells(const Model& model, const Mesh& mesh, std::span<const std::int32_t> removed) {
    Cells cells;
    auto add = [&](const std::int32_t* nodes, std::span<const int> order, CellType type, std::int32_t part) {
        for (int local : order) cells.connectivity.push_back(node_index(nodes[local]));
        cells.offsets.push_back(cells.connectivity.size());
        cells.types.push_back(type);
        cells.part.push_back(part);
        cells.material.push_back(model.parts[part].material_id);
    };
    const int per_element = mesh.node_per_element();
    const CellType type = per_element == 8 ? vtk_hexa : per_element == 4 ? vtk_tetra : vtk_quadratic_tetra;
    auto next = removed.begin();
    for (std::int32_t e = 0; e < std::ssize(mesh.p_ele_part_id); ++e)
        if (next != removed.end() && *next == e)
            ++next;
        else
            add(mesh.element(e).data(), vtk_node_order(mesh.element_type), type, mesh.p_ele_part_id[e]);
    constexpr std::array<int, 3> triangle{0, 1, 2};
    for (std::size_t f = 0; f < mesh.surface_part_id.size(); ++f)
        add(&mesh.surface_facets[3 * f], triangle, vtk_triangle, mesh.surface_part_id[f]);
    return cells;
}

using Sections = std::array<std::pair<const char*, const std::vector<VtuArray>*>, 4>;

Sections sections_of(const VtuGrid& grid) {
    return {{{"PointData", &grid.point_data},
             {"CellData", &grid.cell_data},
             {"Points", &grid.coordinates},
             {"Cells", &grid.topology}}};
}

// The XML up to the appended data; every array gets its offset in order.
std::string make_xml(const VtuGrid& grid) {
    std::uint64_t offset = 0;
    std::string xml = formatted(
        "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"%s\" "
        "header_type=\"UInt64\">\n"
        "<UnstructuredGrid>\n<Piece NumberOfPoints=\"%ld\" NumberOfCells=\"%ld\">\n",
        std::endian::native == std::endian::little ? "LittleEndian" : "BigEndian", grid.points, grid.cells);
    for (const auto& [section, arrays] : sections_of(grid)) {
        xml += formatted("<%s>\n", section);
        for (const VtuArray& array : *arrays) {
            xml += array.header + " offset=\"" + std::to_string(offset) + "\"/>\n";
            offset += sizeof(std::uint64_t) + array.bytes.size();
        }
        xml += formatted("</%s>\n", section);
    }
    return xml + "</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
}

}  // namespace

std::span<const int> vtk_node_order(ElementKind kind) {
    if (kind == ElementKind::hexahedron) return vtk_hexahedron;
    return std::span(vtk_tetrahedron).first(nodes_per_element(kind));
}

VtuGrid make_vtu_grid(const Model& model, const Mesh& mesh, std::span<const std::int32_t> removed) {
    const Cells cells = make_cells(model, mesh, removed);
    VtuGrid grid;
    grid.points = mesh.node_num();
    grid.cells = static_cast<std::int64_t>(cells.types.size());
    grid.cell_data = {make_vtu_array<std::int32_t>("Int32", "part", 1, cells.part),
                      make_vtu_array<std::int32_t>("Int32", "material", 1, cells.material)};
    grid.coordinates = {make_vtu_array<double>("Float64", "Points", 3, mesh.coordinates)};
    grid.topology = {make_vtu_array<std::int64_t>("Int64", "connectivity", 1, cells.connectivity),
                     make_vtu_array<std::int64_t>("Int64", "offsets", 1, cells.offsets),
                     make_vtu_array<std::uint8_t>("UInt8", "types", 1, cells.types)};
    return grid;
}

std::string hold_vtu_grid(const VtuGrid& grid, std::string_view target, std::string_view log_folder,
                          const Progress& progress, HeldFile& held) {
    const auto fill = [&](TextOutput& file) {
        file.write(make_xml(grid));
        for (const auto& [section, arrays] : sections_of(grid))
            for (const VtuArray& array : *arrays) {
                const std::uint64_t size = array.bytes.size();
                file.write({reinterpret_cast<const char*>(&size), sizeof size});
                file.write({array.bytes.data(), array.bytes.size()});
            }
        file.write("\n</AppendedData>\n</VTKFile>\n");
    };
    return held.write(target, log_folder, fill, progress);
}

std::string write_vtu_grid(const VtuGrid& grid, std::string_view target, std::string_view log_folder,
                           const Progress& progress) {
    HeldFile file;
    std::string trouble = hold_vtu_grid(grid, target, log_folder, progress, file);
    return trouble.empty() ? file.take_name() : trouble;
}

}  // namespace kestralum
