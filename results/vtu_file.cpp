#include "results/vtu_file.h"

#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <span>
#include <vector>

#include "model/console.h"
#include "model/paths.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

// VTK's hexahedron runs round the lower face, then the upper one. With local node p at the corner
// (i, j, k) of hexa_corner these are our nodes in VTK's order.
constexpr std::array<int, 8> vtk_hexahedron{1, 5, 6, 2, 0, 4, 7, 3};
// The quadratic tetrahedron: mid-side nodes on edges 01 12 02 03 13 23, as ours.
constexpr std::array<int, 10> vtk_tetrahedron{0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

enum CellType : std::uint8_t { vtk_triangle = 5, vtk_tetra = 10, vtk_hexa = 12, vtk_quadratic_tetra = 24 };

struct Array {
    std::string header;  // the DataArray element without its offset
    std::vector<char> bytes;
};

template <typename T>
Array make_array(const char* type, const char* name, int components, std::span<const T> values) {
    Array array;
    array.header =
        console::format("<DataArray type=\"%s\" Name=\"%s\" NumberOfComponents=\"%d\" format=\"appended\"",
                        type, name, components);
    const char* bytes = reinterpret_cast<const char*>(values.data());
    array.bytes.assign(bytes, bytes + values.size_bytes());
    return array;
}

struct Cells {
    std::vector<std::int64_t> connectivity, offsets;
    std::vector<std::uint8_t> types;
    std::vector<std::int32_t> part, material;
};

Cells make_cells(const ModelStore& store) {
    const Mesh& mesh = store.mesh;
    Cells cells;
    auto add = [&](const std::int32_t* nodes, std::span<const int> order, CellType type, std::int32_t part) {
        for (int local : order) cells.connectivity.push_back(node_index(nodes[local]));
        cells.offsets.push_back(static_cast<std::int64_t>(cells.connectivity.size()));
        cells.types.push_back(type);
        cells.part.push_back(part);
        cells.material.push_back(store.parts[part].material_id);
    };
    const std::size_t per_element = mesh.node_per_element();
    const bool tetra = per_element != 8;
    const std::span<const int> order = tetra ? std::span<const int>(vtk_tetrahedron).first(per_element)
                                             : std::span<const int>(vtk_hexahedron);
    const CellType type = !tetra ? vtk_hexa : per_element == 4 ? vtk_tetra : vtk_quadratic_tetra;
    for (std::size_t e = 0; e < mesh.p_ele_part_id.size(); ++e)
        add(&mesh.connectivity[e * per_element], order, type, mesh.p_ele_part_id[e]);
    constexpr std::array<int, 3> triangle{0, 1, 2};
    for (std::size_t f = 0; f < mesh.surface_part_id.size(); ++f)
        add(&mesh.surface_facets[3 * f], triangle, vtk_triangle, mesh.surface_part_id[f]);
    return cells;
}

// Six components per node from two groups of three of one mode's stresses.
std::vector<double> six_components(const double* group, std::size_t dofs) {
    std::vector<double> out(2 * dofs);
    for (std::size_t n = 0; n < dofs / 3; ++n)
        for (std::size_t c = 0; c < 3; ++c) {
            out[6 * n + c] = group[3 * n + c];
            out[6 * n + 3 + c] = group[dofs + 3 * n + c];
        }
    return out;
}

// The fields of one frame; `suffix` tells it from the others.
void add_frame(const ModelStore& store, std::size_t frame, const std::string& suffix,
               std::vector<Array>& arrays) {
    const std::size_t dofs = store.mesh.dof_num;
    const std::size_t row = store.results.frame_vector[frame];
    const double* stress = store.results.node_stress.data() + frame * stress_groups * dofs;
    std::vector<double> mises(dofs / 3);
    for (std::size_t n = 0; n < mises.size(); ++n) mises[n] = stress[4 * dofs + 3 * n];
    arrays.push_back(make_array<double>("Float64", ("displacement" + suffix).c_str(), 3,
                                        std::span(store.results.mode_vec).subspan(row * dofs, dofs)));
    arrays.push_back(
        make_array<double>("Float64", ("stress" + suffix).c_str(), 6, six_components(stress, dofs)));
    arrays.push_back(make_array<double>("Float64", ("strain" + suffix).c_str(), 6,
                                        six_components(stress + 2 * dofs, dofs)));
    arrays.push_back(make_array<double>("Float64", ("mises" + suffix).c_str(), 1, mises));
}

// Equivalent plastic strain of one frame.
void add_plastic_strain(const ModelStore& store, std::size_t frame, std::vector<Array>& arrays) {
    const std::size_t dofs = store.mesh.dof_num;
    const double* group = store.results.node_stress.data() + (frame * stress_groups + 4) * dofs;
    std::vector<double> strain(dofs / 3);
    for (std::size_t n = 0; n < strain.size(); ++n) strain[n] = group[3 * n + 1];
    arrays.push_back(make_array<double>("Float64", "plastic_strain", 1, strain));
}

// A static analysis holds its result in frame 1; an eigen analysis has a mode in every frame.
std::vector<Array> point_arrays(const ModelStore& store) {
    std::vector<Array> arrays;
    if (store.mesh.dof_num == 0) return arrays;  // the start-up model: a node without values
    if (store.ana_type != AnalysisType::eigen) {
        add_frame(store, 0, "", arrays);
        return arrays;
    }
    for (std::size_t k = 0; k < store.results.n_freq.size(); ++k)
        add_frame(store, k, console::format("_mode%03zu_%.6gHz", k + 1, store.results.n_freq[k]), arrays);
    return arrays;
}

// The data of a file, in the order they stand in it.
using Groups = std::vector<std::pair<const char*, std::vector<Array>>>;

// All that the frames of a mesh share; the first group waits for the point data.
Groups make_groups(const ModelStore& store) {
    const Cells cells = make_cells(store);
    return {{"PointData", {}},
            {"CellData",
             {make_array<std::int32_t>("Int32", "part", 1, cells.part),
              make_array<std::int32_t>("Int32", "material", 1, cells.material)}},
            {"Points", {make_array<double>("Float64", "Points", 3, store.mesh.coordinates)}},
            {"Cells",
             {make_array<std::int64_t>("Int64", "connectivity", 1, cells.connectivity),
              make_array<std::int64_t>("Int64", "offsets", 1, cells.offsets),
              make_array<std::uint8_t>("UInt8", "types", 1, cells.types)}}};
}

// The XML up to the appended data; every array gets its offset in order.
std::string make_xml(const Mesh& mesh, const Groups& groups) {
    std::uint64_t offset = 0;
    std::string xml = console::format(
        "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"%s\" "
        "header_type=\"UInt64\">\n"
        "<UnstructuredGrid>\n<Piece NumberOfPoints=\"%d\" NumberOfCells=\"%zu\">\n",
        std::endian::native == std::endian::little ? "LittleEndian" : "BigEndian", mesh.node_num(),
        mesh.p_ele_part_id.size() + mesh.surface_part_id.size());
    for (const auto& [group, arrays] : groups) {
        xml += console::format("<%s>\n", group);
        for (const Array& array : arrays) {
            xml += array.header +
                   console::format(" offset=\"%llu\"/>\n", static_cast<unsigned long long>(offset));
            offset += sizeof(std::uint64_t) + array.bytes.size();
        }
        xml += console::format("</%s>\n", group);
    }
    return xml + "</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
}

std::string base_of(const ModelStore& store) {
    const std::string base = paths::base_name(store.model_file_name);
    return "log\\" + base.substr(0, base.rfind('.'));
}

bool told(const std::string& trouble) {
    if (!trouble.empty()) console::error("%s", trouble.c_str());
    return trouble.empty();
}

bool write_grid(const Mesh& mesh, const Groups& groups, const std::string& target) {
    return told(write_whole(target, [&](TextOutput& file) {
        file.write(make_xml(mesh, groups));
        for (const auto& [group, arrays] : groups)
            for (const Array& array : arrays) {
                const std::uint64_t size = array.bytes.size();
                file.write({reinterpret_cast<const char*>(&size), sizeof size});
                file.write({array.bytes.data(), array.bytes.size()});
            }
        file.write("\n</AppendedData>\n</VTKFile>\n");
    }));
}

}  // namespace

std::string vtu_file_name(const ModelStore& store) {
    return base_of(store) + ".vtu";
}

bool write_vtu(const ModelStore& store) {
    Groups groups = make_groups(store);
    groups.front().second = point_arrays(store);
    return write_grid(store.mesh, groups, vtu_file_name(store));
}

std::string pvd_file_name(const ModelStore& store) {
    return base_of(store) + ".pvd";
}

bool write_vtu_frames(const ModelStore& store) {
    Groups groups = make_groups(store);
    const std::string base = base_of(store);
    std::string list =
        "<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"1.0\">\n<Collection>\n";
    for (std::size_t k = 0; k < store.results.n_freq.size(); ++k) {
        const std::string target = base + console::format("_%06zu.vtu", k + 1);
        std::vector<Array>& arrays = groups.front().second;
        arrays.clear();
        add_frame(store, k, "", arrays);
        add_plastic_strain(store, k, arrays);
        if (!write_grid(store.mesh, groups, target)) return false;
        list += console::format("<DataSet timestep=\"%.9e\" part=\"0\" file=\"%s\"/>\n",
                                store.results.n_freq[k], paths::base_name(target).c_str());
    }
    return told(write_whole(pvd_file_name(store),
                            [&](TextOutput& file) { file.write(list + "</Collection>\n</VTKFile>\n"); }));
}

}  // namespace kestralum
