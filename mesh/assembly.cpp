#include "mesh/assembly.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "mesh/merge_nodes.h"
#include "mesh/part_mesh.h"
#include "mesh/placement.h"
#include "model/format.h"
#include "model/progress.h"

namespace kestralum {

namespace {

const char* kind_name(ElementKind kind) {
    return kind == ElementKind::tetrahedron4    ? "4-node tetrahedra"
           : kind == ElementKind::tetrahedron10 ? "10-node tetrahedra"
                                                : "8-node hexahedra";
}

bool is_solid(const PartMesh& mesh) {
    return !mesh.surface && !mesh.connectivity.empty();
}

// Meshes and places all parts; goes on after an error so that all of them are known at once.
std::vector<PartMesh> mesh_parts(std::span<const Part> parts, std::string_view model_file_name,
                                 Remarks& remarks, Progress& progress) {
    MeshContext context{model_file_name, memory_budget(), remarks, progress};
    std::vector<PartMesh> meshes(parts.size());
    for (std::size_t p = 0; p < parts.size() && !progress.cancelled(); ++p) {
        if (!mesh_part(parts[p], context, meshes[p])) continue;
        place(parts[p], meshes[p].coordinates);
        const auto& x = meshes[p].coordinates;
        if (!std::all_of(x.begin(), x.end(), [](double v) { return std::isfinite(v); }))
            remarks.errors.push_back("part \"" + parts[p].name +
                                     "\": its coordinates are too large for numbers");
        if (meshes[p].surface && !meshes[p].connectivity.empty())
            remarks.notices.push_back("part \"" + parts[p].name + "\" is an STL surface of " +
                                      std::to_string(meshes[p].element_num()) +
                                      " facets: drawn and exported, left out of analyses");
    }
    return meshes;
}

bool find_kind(std::span<const Part> parts, const std::vector<PartMesh>& meshes, ElementKind& kind,
               Remarks& remarks) {
    const auto first = std::find_if(meshes.begin(), meshes.end(), is_solid);
    kind = first == meshes.end() ? ElementKind::hexahedron : first->kind;
    bool same = true;
    for (std::size_t p = 0; p < parts.size(); ++p)
        if (is_solid(meshes[p]) && meshes[p].kind != kind) {
            remarks.errors.push_back("part \"" + parts[p].name + "\" has " + kind_name(meshes[p].kind) +
                                     ", part \"" + parts[first - meshes.begin()].name + "\" " +
                                     kind_name(kind) + ": a model has one element type");
            same = false;
        }
    return same;
}

void print_parts(std::span<const Part> parts, const std::vector<PartMesh>& meshes, Progress& progress) {
    std::int64_t nodes = 0, elements = 0;
    for (std::size_t p = 0; p < parts.size(); ++p) {
        const Part& part = parts[p];
        nodes += meshes[p].node_num();
        elements += meshes[p].element_num();
        progress.print("part_type:%d\n", static_cast<int>(part.type));
        progress.print("point_num_temp=%ld\n", nodes);
        progress.print("element_num_temp=%ld\n", elements);
        progress.print("i_part=%zu, material_id = %d\n", p, part.material_id);
        progress.print("Nelem1=%ld, Nnode1=%ld\n", meshes[p].element_num(), meshes[p].node_num());
        progress.write(meshes[p].lines);
        if (meshes[p].coordinates.empty()) continue;
        const auto& angles = part.euler_angles;
        const auto origin = origin_in_metres(part);
        progress.print("EULER_ANG=%.3e,%.3e,%.3e\n", angles[0], angles[1], angles[2]);
        progress.print("origin=%.3e,%.3e,%.3e\n", origin[0], origin[1], origin[2]);
    }
}

// The parts' nodes one after the other, and where each part's begin.
std::vector<NodeRange> gather_nodes(const std::vector<PartMesh>& meshes, std::vector<double>& coordinates) {
    std::vector<NodeRange> ranges;
    std::size_t values = 0;
    for (const PartMesh& mesh : meshes) values += mesh.coordinates.size();
    coordinates.reserve(values);
    for (const PartMesh& mesh : meshes) {
        const auto first = static_cast<std::int64_t>(coordinates.size() / 3);
        coordinates.insert(coordinates.end(), mesh.coordinates.begin(), mesh.coordinates.end());
        ranges.push_back({first, first + mesh.node_num(), !mesh.surface});
    }
    return ranges;
}

// Closes the gaps that merged nodes leave; the result gives each gathered node its 1-based number.
std::vector<std::int32_t> number_nodes(const std::vector<std::int32_t>& target,
                                       std::vector<double>& coordinates) {
    std::vector<std::int32_t> number(target.size());
    std::int32_t kept = 0;
    for (std::size_t n = 0; n < target.size(); ++n) {
        if (target[n] != static_cast<std::int32_t>(n)) {
            number[n] = number[target[n]];  // of an earlier part
            continue;
        }
        for (std::size_t k = 0; k < 3; ++k) coordinates[3 * kept + k] = coordinates[3 * n + k];
        number[n] = ++kept;
    }
    coordinates.resize(3 * kept);
    return number;
}

void gather_elements(const std::vector<PartMesh>& meshes, const std::vector<NodeRange>& ranges,
                     const std::vector<std::int32_t>& number, Mesh& mesh) {
    std::size_t nodes = 0;
    for (const PartMesh& part : meshes) nodes += is_solid(part) ? part.connectivity.size() : 0;
    mesh.connectivity.reserve(nodes);
    for (std::size_t p = 0; p < meshes.size(); ++p) {
        const PartMesh& part = meshes[p];
        const std::int32_t* of_part = number.data() + ranges[p].first;
        const std::size_t elements = part.element_num();
        if (part.surface) {
            for (std::size_t f = 0; f < elements; ++f)
                for (std::size_t k = 0; k < 3; ++k)
                    mesh.surface_facets.push_back(of_part[part.connectivity[8 * f + k] - 1]);
            mesh.surface_part_id.insert(mesh.surface_part_id.end(), elements, static_cast<std::int32_t>(p));
        } else {
            for (std::int32_t node : part.connectivity) mesh.connectivity.push_back(of_part[node - 1]);
            mesh.p_ele_part_id.insert(mesh.p_ele_part_id.end(), elements, static_cast<std::int32_t>(p));
        }
    }
}

// The parts' groups, "PART.GROUP", on the nodes and elements of the whole mesh.
void gather_groups(std::span<const Part> parts, const std::vector<PartMesh>& meshes,
                   const std::vector<NodeRange>& ranges, const std::vector<std::int32_t>& number,
                   Mesh& mesh) {
    std::int32_t first_element = 0;
    for (std::size_t p = 0; p < meshes.size(); ++p) {
        for (const PartGroup& group : meshes[p].groups) {
            MeshSet& set = mesh.sets.emplace_back();
            set.name = parts[p].name + "." + group.name;
            for (const std::int32_t node : group.nodes)
                set.nodes.push_back(number[ranges[p].first + node - 1] - 1);
            std::ranges::sort(set.nodes);
            for (const ElementFace& face : group.faces)
                set.faces.push_back({face.element + first_element, face.face});
            std::ranges::sort(set.faces);
            for (const std::int32_t element : group.elements) set.elements.push_back(element + first_element);
        }
        if (!meshes[p].surface) first_element += static_cast<std::int32_t>(meshes[p].element_num());
    }
}

void print_merging(const MergedNodes& merged, Progress& progress) {
    progress.print("match_node_num=%d\n", merged.merged);
    std::int32_t last = -1;
    for (const auto& [earlier, later] : merged.part_pairs) {
        if (earlier != last) progress.print("part:%d\n", earlier);
        progress.print("part:%d, %d\n", earlier, later);
        last = earlier;
    }
}

// Largest edge of the box around the parts that merge, m; 1 where they span nothing.
double merging_extent(const std::vector<PartMesh>& meshes) {
    double longest = 0;
    for (int axis = 0; axis < 3; ++axis) {
        double low = std::numeric_limits<double>::infinity(), high = -low;
        for (const PartMesh& mesh : meshes)
            for (std::size_t k = axis; k < mesh.coordinates.size() && !mesh.surface; k += 3) {
                low = std::min(low, mesh.coordinates[k]);
                high = std::max(high, mesh.coordinates[k]);
            }
        longest = std::max(longest, high - low);
    }
    return longest > 0 ? longest : 1.0;
}

}  // namespace

bool build_mesh(std::span<const Part> parts, std::string_view model_file_name, Mesh& mesh, Remarks& remarks,
                Progress& progress) {
    const auto stopped = [&] {
        if (progress.cancelled()) remarks.errors.push_back("stopped on request");
        return progress.cancelled();
    };
    const std::size_t errors_before = remarks.errors.size();
    const std::vector<PartMesh> meshes = mesh_parts(parts, model_file_name, remarks, progress);
    if (stopped()) return false;
    if (remarks.errors.size() > errors_before) {
        print_parts(parts, meshes, progress);
        return false;
    }

    Mesh built;
    const std::vector<NodeRange> ranges = gather_nodes(meshes, built.coordinates);
    update_extent(built);
    progress.print("max_length=%.3e\n", built.max_length);
    print_parts(parts, meshes, progress);
    if (!find_kind(parts, meshes, built.element_type, remarks)) return false;
    progress.print("element_type=%d\n", static_cast<int>(built.element_type));

    MergedNodes merged;
    std::pair<std::int32_t, std::int32_t> crowded;
    const double extent = merging_extent(meshes);
    const double tolerance = merging_fraction * extent;
    if (!merge_coincident_nodes(built.coordinates, ranges, tolerance, merged, crowded, progress)) {
        remarks.errors.push_back("parts \"" + parts[crowded.first].name + "\" and \"" +
                                 parts[crowded.second].name +
                                 "\" have many nodes within the merging distance " +
                                 formatted("%.3e m, 1e-6 of their extent %.3e m", tolerance, extent) +
                                 ": check units and origins");
        return false;
    }
    if (stopped()) return false;
    const std::vector<std::int32_t> number = number_nodes(merged.target, built.coordinates);
    gather_elements(meshes, ranges, number, built);
    gather_groups(parts, meshes, ranges, number, built);
    print_merging(merged, progress);

    update_extent(built);
    built.node_n_dir.assign(built.coordinates.size(), 0.0);
    progress.print("element_num=%d,point_num=%d,fn=%d\n", built.element_num(), built.node_num(),
                   built.dof_num());
    mesh = std::move(built);
    return true;
}

}  // namespace kestralum
