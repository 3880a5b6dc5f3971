#include "results/vtu_file.h"

#include <bit>
#include <functional>
#include <span>
#include <vector>

#include "model/format.h"
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
        formatted("<DataArray type=\"%s\" Name=\"%s\" NumberOfComponents=\"%d\" format=\"appended\"", type,
                  name, components);
    const char* bytes = reinterpret_cast<const char*>(values.data());
    array.bytes.assign(bytes, bytes + values.size_bytes());
    return array;
}

struct Cells {
    std::vector<std::int64_t> connectivity, offsets;
    std::vector<std::uint8_t> types;
    std::vector<std::int32_t> part, material;
};

Cells make_cells(const Model& model, const Mesh& mesh) {
    Cells cells;
    auto add = [&](const std::int32_t* nodes, std::span<const int> order, CellType type, std::int32_t part) {
        for (int local : order) cells.connectivity.push_back(node_index(nodes[local]));
        cells.offsets.push_back(cells.connectivity.size());
        cells.types.push_back(type);
        cells.part.push_back(part);
        cells.material.push_back(model.parts[part].material_id);
    };
    const int per_element = mesh.node_per_element();
    const bool tetra = per_element != 8;
    const std::span<const int> order = tetra ? std::span<const int>(vtk_tetrahedron).first(per_element)
                                             : std::span<const int>(vtk_hexahedron);
    const CellType type = !tetra ? vtk_hexa : per_element == 4 ? vtk_tetra : vtk_quadratic_tetra;
    for (std::size_t e = 0; e < mesh.p_ele_part_id.size(); ++e)
        add(mesh.element(e).data(), order, type, mesh.p_ele_part_id[e]);
    constexpr std::array<int, 3> triangle{0, 1, 2};
    for (std::size_t f = 0; f < mesh.surface_part_id.size(); ++f)
        add(&mesh.surface_facets[3 * f], triangle, vtk_triangle, mesh.surface_part_id[f]);
    return cells;
}

// Six components per node from two groups of three of a frame's stresses.
std::vector<double> six_components(const Frame& frame, int first_group) {
    const std::size_t dofs = frame.mode_vec.size();
    const double* group = frame.node_stress.data() + first_group * dofs;
    std::vector<double> out(2 * dofs);
    for (std::size_t n = 0; n < dofs / 3; ++n)
        for (std::size_t c = 0; c < 3; ++c) {
            out[6 * n + c] = group[3 * n + c];
            out[6 * n + 3 + c] = group[dofs + 3 * n + c];
        }
    return out;
}

// One component per node of the last group: 0 Mises stress, 1 equivalent plastic strain.
std::vector<double> scalar(const Frame& frame, int component) {
    const std::size_t dofs = frame.mode_vec.size();
    std::vector<double> out(dofs / 3);
    for (std::size_t n = 0; n < out.size(); ++n) out[n] = frame.node_stress[4 * dofs + 3 * n + component];
    return out;
}

// The fields of one frame; `suffix` distinguishes it from the others.
void add_frame(const Frame& frame, const std::string& suffix, std::vector<Array>& arrays) {
    const auto add = [&](const char* name, int components, std::span<const double> values) {
        arrays.push_back(make_array<double>("Float64", (name + suffix).c_str(), components, values));
    };
    add("displacement", 3, frame.mode_vec);
    add("stress", 6, six_components(frame, 0));
    add("strain", 6, six_components(frame, 2));
    add("mises", 1, scalar(frame, 0));
}

// A static analysis has its result in frame 1; an eigen analysis has a mode in every frame.
std::vector<Array> point_arrays(const Run& run) {
    std::vector<Array> arrays;
    if (run.results.empty() || run.results.front()->mode_vec.empty()) return arrays;
    if (run.ana_type != AnalysisType::eigen) {
        add_frame(*run.results.front(), "", arrays);
        return arrays;
    }
    for (std::size_t k = 0; k < run.results.size(); ++k)
        add_frame(*run.results[k], formatted("_mode%03zu_%.6gHz", k + 1, run.results[k]->n_freq), arrays);
    return arrays;
}

// The data of a file, in the order they stand in it.
using Groups = std::vector<std::pair<const char*, std::vector<Array>>>;

// All that the frames of a mesh share; the first group waits for the point data.
Groups make_groups(const Model& model, const Mesh& mesh) {
    const Cells cells = make_cells(model, mesh);
    return {{"PointData", {}},
            {"CellData",
             {make_array<std::int32_t>("Int32", "part", 1, cells.part),
              make_array<std::int32_t>("Int32", "material", 1, cells.material)}},
            {"Points", {make_array<double>("Float64", "Points", 3, mesh.coordinates)}},
            {"Cells",
             {make_array<std::int64_t>("Int64", "connectivity", 1, cells.connectivity),
              make_array<std::int64_t>("Int64", "offsets", 1, cells.offsets),
              make_array<std::uint8_t>("UInt8", "types", 1, cells.types)}}};
}

// The XML up to the appended data; every array gets its offset in order.
std::string make_xml(const Mesh& mesh, const Groups& groups) {
    std::uint64_t offset = 0;
    std::string xml = formatted(
        "<?xml version=\"1.0\"?>\n<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"%s\" "
        "header_type=\"UInt64\">\n"
        "<UnstructuredGrid>\n<Piece NumberOfPoints=\"%d\" NumberOfCells=\"%zu\">\n",
        std::endian::native == std::endian::little ? "LittleEndian" : "BigEndian", mesh.node_num(),
        mesh.p_ele_part_id.size() + mesh.surface_part_id.size());
    for (const auto& [group, arrays] : groups) {
        xml += formatted("<%s>\n", group);
        for (const Array& array : arrays) {
            xml += array.header + " offset=\"" + std::to_string(offset) + "\"/>\n";
            offset += sizeof(std::uint64_t) + array.bytes.size();
        }
        xml += formatted("</%s>\n", group);
    }
    return xml + "</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
}

// "log\\NAME" + ending.
std::string file_name_of(std::string_view model_file_name, const std::string& ending) {
    const std::string base = paths::base_name(model_file_name);
    return "log\\" + base.substr(0, base.rfind('.')) + ending;
}

// Writes a file into the run's log folder; prints what went wrong.
bool write_file(const Run& run, const std::string& target, const std::function<void(TextOutput&)>& fill,
                Progress& progress) {
    const std::string trouble = write_whole(target, run.origin.options.log_folder, fill, progress);
    if (!trouble.empty()) progress.error("%s", trouble.c_str());
    return trouble.empty();
}

bool write_grid(const Run& run, const Groups& groups, const std::string& target, Progress& progress) {
    const auto fill = [&](TextOutput& file) {
        file.write(make_xml(run.mesh, groups));
        for (const auto& [group, arrays] : groups)
            for (const Array& array : arrays) {
                const std::uint64_t size = array.bytes.size();
                file.write({reinterpret_cast<const char*>(&size), sizeof size});
                file.write({array.bytes.data(), array.bytes.size()});
            }
        file.write("\n</AppendedData>\n</VTKFile>\n");
    };
    return write_file(run, target, fill, progress);
}

}  // namespace

std::string vtu_file_name(std::string_view model_file_name) {
    return file_name_of(model_file_name, ".vtu");
}

bool write_vtu(const Model& model, const Run& run, Progress& progress) {
    Groups groups = make_groups(model, run.mesh);
    groups.front().second = point_arrays(run);
    return write_grid(run, groups, vtu_file_name(model.model_file_name), progress);
}

std::string pvd_file_name(std::string_view model_file_name) {
    return file_name_of(model_file_name, ".pvd");
}

bool write_vtu_frames(const Model& model, const Run& run, Progress& progress) {
    const bool was_cancelled = progress.cancelled();
    // Each file sees a cancel while it is written; here is the place between two.
    const auto goes_on = [&](const std::string& target) {
        if (was_cancelled || !progress.cancelled()) return true;
        progress.error("%s cannot be written: stopped on request",
                       paths::to_platform(target, run.origin.options.log_folder).c_str());
        return false;
    };
    Groups groups = make_groups(model, run.mesh);
    std::string list =
        "<?xml version=\"1.0\"?>\n<VTKFile type=\"Collection\" version=\"1.0\">\n<Collection>\n";
    for (std::size_t k = 0; k < run.results.size(); ++k) {
        const Frame& frame = *run.results[k];
        const std::string target = file_name_of(model.model_file_name, formatted("_%06zu.vtu", k + 1));
        if (!goes_on(target)) return false;
        std::vector<Array>& arrays = groups.front().second;
        arrays.clear();
        add_frame(frame, "", arrays);
        arrays.push_back(make_array<double>("Float64", "plastic_strain", 1, scalar(frame, 1)));
        if (!write_grid(run, groups, target, progress)) return false;
        list += formatted("<DataSet timestep=\"%.9e\" part=\"0\" file=\"%s\"/>\n", frame.n_freq,
                          paths::base_name(target).c_str());
    }
    list += "</Collection>\n</VTKFile>\n";
    const std::string target = pvd_file_name(model.model_file_name);
    return goes_on(target) && write_file(
                                  run, target, [&](TextOutput& file) { file.write(list); }, progress);
}

}  // namespace kestralum
