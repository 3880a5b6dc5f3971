#include "input/kept_sections.h"

#include <algorithm>
#include <set>
#include <utility>

namespace kestralum {

namespace {

bool same_materials(const std::vector<Material>& a, const std::vector<Material>& b) {
    return std::ranges::equal(a, b, [](const Material& p, const Material& q) {
        return p.name == q.name && p.density == q.density && p.young == q.young && p.poisson == q.poisson &&
               p.expansion == q.expansion;
    });
}

bool same_parameters(const std::vector<Parameter>& a, const std::vector<Parameter>& b) {
    return std::ranges::equal(
        a, b, [](const Parameter& p, const Parameter& q) { return p.name == q.name && p.value == q.value; });
}

// Whether the rigid table has more than what remote loads put there.
template <typename Record>
bool holds_own(const std::vector<Record>& table) {
    return std::ranges::any_of(table, [](const Record& record) { return !record.of_load; });
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
        {Keyword::rigid_element, holds_own(former.rigid_elements)},
        {Keyword::rigid_force, holds_own(former.rigid_forces)},
        {Keyword::rigid_combine, !former.rigid_combines.empty()},
        {Keyword::set_info, !former.sets.empty()},
        {Keyword::load_info, !former.loads.empty() || !former.rigid_loads.empty()},
        {Keyword::load_combination, !former.combinations.empty()},
        {Keyword::tie_info, !former.ties.empty()},
    };
    std::vector<std::string> kept;
    for (const auto& [keyword, held] : tables)
        if (held && !given.contains(keyword)) kept.emplace_back(spelling(keyword));
    return kept;
}

}  // namespace kestralum
