#include "mesh/part_mesh.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>

#include "mesh/part_catalogue.h"
#include "mesh/section.h"
#include "model/format.h"

namespace kestralum {

namespace {

// Matrix rows, profile index, results and work arrays of an analysis without its factor.
constexpr std::int64_t bytes_per_node = 1536;
constexpr std::int64_t bytes_per_element = 256;

// The first division below 1 as "db = 0", "" where every division the shape reads is at least 1.
std::string division_below_one(const Part& part, const ShapeRow& row) {
    for (std::size_t k = 0; k < row.divisions.size() && row.divisions[k]; ++k)
        if (part.div[k] < 1) return formatted("%s = %d", row.divisions[k], part.div[k]);
    return {};
}

// What is wrong with the sizes themselves, "" where nothing is.
std::string size_fault(const Part& part, const ShapeRow& row) {
    for (std::size_t k = 0; k < row.sizes.size() && row.sizes[k]; ++k) {
        const double value = part.size[k];
        const bool any_sign = row.extruded->signed_size == int(k);
        if (!std::isfinite(value)) return formatted("%s = %e is not finite", row.sizes[k], value);
        if (!(value > 0) && !any_sign)
            return formatted("%s = %e must be greater than 0", row.sizes[k], value);
    }
    return {};
}

bool refuse(const Part& part, const std::string& why, MeshContext& context) {
    context.remarks.errors.push_back("part \"" + part.name + "\" (" + part.type_name + "): " + why);
    return false;
}

void notice_without_elements(const Part& part, const std::string& why, MeshContext& context) {
    context.remarks.notices.push_back("part \"" + part.name + "\" (" + part.type_name +
                                      "): a part without elements, " + why);
}

bool mesh_extruded(const Part& part, const ShapeRow& row, MeshContext& context, PartMesh& mesh) {
    const ExtrudedShape& shape = *row.extruded;
    if (const std::string empty = division_below_one(part, row); !empty.empty()) {
        mesh.lines = shape.head(part, {});
        notice_without_elements(part, "since its division " + empty, context);
        return true;
    }
    std::string fault = size_fault(part, row);
    if (fault.empty() && shape.fault) fault = shape.fault(part);
    if (!fault.empty()) return refuse(part, fault, context);

    const double length = part.size[row.size_count() - 1];
    const std::int32_t layers = part.div[row.division_count() - 1];
    const MeshCounts of_section = shape.section_counts(part);
    const MeshCounts counts{saturated_product(of_section.elements, layers),
                            saturated_product(of_section.nodes, std::int64_t{layers} + 1)};
    if (!take_from_budget(part, counts, context)) return false;
    mesh.lines = shape.head(part, counts);
    return extrude(shape.section(part), length, layers, part.unit_factor, mesh, context.progress);
}

}  // namespace

std::string counts_line(const MeshCounts& counts) {
    return formatted("Nelem1=%ld,Nnode1=%ld\n", counts.elements, counts.nodes);
}

MeshCounts memory_budget() {
    const std::int64_t bytes =
        saturated_product(std::max(sysconf(_SC_PHYS_PAGES), 1L), std::max(sysconf(_SC_PAGE_SIZE), 1L));
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    return {std::min(bytes / bytes_per_element, most), std::min(bytes / bytes_per_node, most / 3)};
}

bool take_from_budget(const Part& part, const MeshCounts& counts, MeshContext& context) {
    if (counts.elements > context.left.elements || counts.nodes > context.left.nodes)
        return refuse(
            part,
            formatted("%.4g elements and %.4g nodes do not fit this machine, "
                      "%.4g elements and %.4g nodes are left",
                      static_cast<double>(counts.elements), static_cast<double>(counts.nodes),
                      static_cast<double>(context.left.elements), static_cast<double>(context.left.nodes)),
            context);
    context.left.elements -= counts.elements;
    context.left.nodes -= counts.nodes;
    return true;
}

bool mesh_part(const Part& part, MeshContext& context, PartMesh& mesh) {
    mesh = {};
    const ShapeRow& row = shape_row(part.type);
    if (!std::isfinite(part.unit_factor) || !(part.unit_factor > 0))
        return refuse(part, formatted("unit factor %e must be greater than 0", part.unit_factor), context);
    if (row.extruded || row.import) {
        const bool good =
            row.extruded ? mesh_extruded(part, row, context, mesh) : row.import(part, context, mesh);
        if (!good) {
            mesh.connectivity.clear();
            mesh.coordinates.clear();
            return false;
        }
        if (row.extruded) return true;
        if (mesh.connectivity.empty()) notice_without_elements(part, "since its file has none", context);
        return true;
    }
    if (row.shape == Shape::sphere || row.shape == Shape::cyli2rect)
        mesh.lines = formatted("%s:dr=%d\nR=%e\n", row.keyword, part.div[0], part.size[0]);
    notice_without_elements(part, "since its shape is not meshed", context);
    return true;
}

}  // namespace kestralum
