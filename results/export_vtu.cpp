#include <algorithm>
#include <functional>

#include "model/xml_text.h"
#include "results/export_text.h"
#include "results/vtu_grid.h"

namespace kestralum {

namespace {

// As it may stand between quotes in XML.
std::string xml_name(std::string name) {
    const auto is_plain = [](char c) { return static_cast<signed char>(c) >= ' ' && c != 127; };
    std::ranges::replace_if(name, std::not_fn(is_plain), '_');
    return xml_escaped(name);
}

void add_conditions(const ExportJob& job, VtuGrid& grid) {
    const NodalConditions& conditions = job.conditions;
    std::vector<std::uint8_t> support(grid.points, 0);
    for (const std::int32_t n : conditions.fixed) support[n] = 1;
    for (const HeldNode& held : conditions.held) support[held.node] = 1;
    if (!conditions.held.empty() || !conditions.ties.empty() || !conditions.ground.empty())
        job.remarks.notices.push_back(
            "the directions that supports hold, what they move by, their springs and ties are left out");
    if (conditions.cases.size() > 1)
        job.remarks.notices.push_back(
            formatted("force is the sum of all loads, not of one of the %zu cases", conditions.cases.size()));
    if (std::ranges::any_of(conditions.cases, [](const ConditionCase& one) { return !one.warmth.empty(); }))
        job.remarks.notices.push_back("temperatures are left out");
    grid.point_data.push_back(make_vtu_array<double>("Float64", "force", 3, conditions.load));
    grid.point_data.push_back(make_vtu_array<std::uint8_t>("UInt8", "support", 1, support));
    if (conditions.rigid.empty()) return;
    std::vector<std::int32_t> rigid(grid.points, 0);
    for (std::size_t b = 0; b < conditions.rigid.size(); ++b)
        for (const std::int32_t n : conditions.rigid[b].members) rigid[n] = static_cast<std::int32_t>(b + 1);
    grid.point_data.push_back(make_vtu_array<std::int32_t>("Int32", "rigid", 1, rigid));
    if (!job.model.rigid_forces.empty() || !job.model.rigid_combines.empty())
        job.remarks.notices.push_back("forces on rigid elements and springs between them are left out");
}

void add_sets(const ExportJob& job, VtuGrid& grid) {
    ExportNames names(ExportNames::Rule::quoted, job.remarks.notices);
    for (const MeshSet& set : job.model.mesh.sets) {
        const std::string name = "set_" + xml_name(names.take("set", set.name));
        std::vector<std::uint8_t> in(grid.points, 0);
        for (const std::int32_t n : set.nodes) in[n] = 1;
        grid.point_data.push_back(make_vtu_array<std::uint8_t>("UInt8", name.c_str(), 1, in));
        if (set.elements.empty() && set.faces.empty()) continue;
        in.assign(grid.cells, 0);
        for (const std::int32_t e : set.elements) in[e] = 1;
        for (const ElementFace& face : set.faces) in[face.element] = 1;
        grid.cell_data.push_back(make_vtu_array<std::uint8_t>("UInt8", name.c_str(), 1, in));
    }
}

}  // namespace

bool export_vtu(const ExportJob& job) {
    VtuGrid grid = make_vtu_grid(job.model, job.model.mesh);
    add_conditions(job, grid);
    add_sets(job, grid);
    return put_export(job, [&] { return write_vtu_grid(grid, job.file, "log", job.progress); });
}

}  // namespace kestralum
