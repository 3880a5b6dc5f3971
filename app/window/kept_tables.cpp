#include "app/window/kept_tables.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include "input/analysis_info_reader.h"
#include "input/model_sections.h"
#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

bool start_materials(const std::vector<Material>& materials, const std::vector<Material>& start) {
    return materials.empty() ||
           std::ranges::equal(materials, start, [](const Material& a, const Material& b) {
               return a.name == b.name && a.density == b.density && a.young == b.young &&
                      a.poisson == b.poisson;
           });
}

bool start_parameters(const std::vector<Parameter>& parameters, const std::vector<Parameter>& start) {
    return parameters.empty() ||
           std::ranges::equal(parameters, start, [](const Parameter& a, const Parameter& b) {
               return a.name == b.name && a.value == b.value;
           });
}

void add_model_tables(const Model& former, std::string_view text, const Progress& progress,
                      std::vector<std::string>& kept) {
    const Model start = placeholder_model();
    std::set<Keyword> given;
    for (const FileSection& section : split_sections(text, progress).sections) given.insert(section.keyword);
    if (given.contains(Keyword::step_num)) given.insert(Keyword::mode_num);
    const std::pair<Keyword, bool> tables[] = {
        {Keyword::material_info, !start_materials(former.materials, start.materials)},
        {Keyword::mode_num, former.mode_count != start.mode_count},
        {Keyword::iteration, former.iteration_limit != start.iteration_limit},
        {Keyword::parameter, !start_parameters(former.parameters, start.parameters)},
        {Keyword::part_info, !former.parts.empty()},
        {Keyword::boundary_condition, !former.boundary_conditions.empty()},
        {Keyword::apply_force, !former.forces.empty()},
        {Keyword::rigid_element, !former.rigid_elements.empty()},
        {Keyword::rigid_force, !former.rigid_forces.empty()},
        {Keyword::rigid_combine, !former.rigid_combines.empty()},
    };
    for (const auto& [keyword, held] : tables)
        if (held && !given.contains(keyword)) kept.push_back(spelling(keyword));
}

void add_control_tables(const Model& former, const std::string& file_name, std::vector<std::string>& kept) {
    std::string text, reason;
    const bool there = paths::read_text(file_name, text, reason);
    if (!there && !(former.control == AnalysisControl{})) kept.push_back("the settings of the control file");
    std::set<std::string_view> given;
    TokenReader tokens(text);
    for (std::string_view token = tokens.next(); !token.empty(); token = tokens.next()) given.insert(token);
    const ExplicitTables& tables = former.explicit_tables;
    const std::pair<const char*, bool> held[] = {{"RIGID_WALL", !tables.walls.empty()},
                                                 {"INITIAL_VELOCITY", !tables.initial_velocities.empty()},
                                                 {"VELOCITY_INPUT", !tables.velocity_inputs.empty()},
                                                 {"ELEMENT_CONTACT", !tables.contacts.empty()}};
    for (const auto& [key, any] : held) {
        const auto first = given.lower_bound(key);  // a token is taken for a key by its beginning
        if (any && (first == given.end() || !first->starts_with(key))) kept.push_back(key);
    }
}

}  // namespace

std::vector<std::string> kept_tables(const Model& former, const std::string& model_file_name,
                                     const Progress& progress) {
    std::vector<std::string> kept;
    std::string text, reason;
    if (!paths::read_text(model_file_name, text, reason)) return kept;
    add_model_tables(former, text, progress, kept);
    add_control_tables(former, analysis_info_file_name(model_file_name), kept);
    return kept;
}

bool same_file(const std::string& a, const std::string& b) {
    std::error_code reason;
    return a == b || std::filesystem::equivalent(paths::to_platform(a), paths::to_platform(b), reason);
}

}  // namespace kestralum
