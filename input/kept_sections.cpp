#include "input/kept_sections.h"

#include <algorithm>
#include <set>
#include <utility>

namespace kestralum {

namespace {

bool same_materials(const std::vector<Material>& a, const std::vector<Material>& b) {
    return std::ranges::equal(a, b, [](const Material& p, const Material& q) {
        return p.name == q.name && p.density == q.density && p.young == q.young && p.poisson == q.poisson;
    });
}

bool same_parameters(const std::vector<Parameter>& a, const std::vector<Parameter>& b) {
    return std::ranges::equal(
        a, b, [](const Parameter& p, const Parameter& q) { return p.name == q.name && p.value == q.value; });
}

}  // namespace

std::vector<std::string> kept_sections(const Model& former, const ModelSections& sections) {
    const Model start = placeholder_model();
    std::set<Keyword> given;
    for (const FileSection& section : sections.sections) given.insert(section.keyword);
    const std::pair<Keyword, bool> tables[] = {
        {Keyword::material_info,
         !former.materials.empty() && !same_materials(former.materials, start.materials)},
        {Keyword::mode_num, former.mode_count != start.mode_count && !given.contains(Keyword::step_num)},
        {Keyword::iteration, former.iteration_limit != start.iteration_limit},
        {Keyword::hexahedra, former.hexahedra != start.hexahedra},
        {Keyword::parameter,
         !former.parameters.empty() && !same_parameters(former.parameters, start.parameters)},
        {Keyword::part_info, !former.parts.empty()},
        {Keyword::boundary_condition, !former.boundary_conditions.empty()},
        {Keyword::apply_force, !former.forces.empty()},
        {Keyword::rigid_element, !former.rigid_elements.empty()},
        {Keyword::rigid_force, !former.rigid_forces.empty()},
        {Keyword::rigid_combine, !former.rigid_combines.empty()},
        {Keyword::set_info, !former.sets.empty()},
    };
    std::vector<std::string> kept;
    for (const auto& [keyword, held] : tables)
        if (held && !given.contains(keyword)) kept.emplace_back(spelling(keyword));
    return kept;
}

}  // namespace kestralum
