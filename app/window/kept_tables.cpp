#include "app/window/kept_tables.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <string_view>
#include <utility>

#include "input/analysis_info_reader.h"
#include "input/kept_sections.h"
#include "model/paths.h"
#include "model/token_reader.h"

namespace kestralum {

namespace {

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
    kept = kept_sections(former, split_sections(text, progress));
    add_control_tables(former, analysis_info_file_name(model_file_name), kept);
    return kept;
}

bool same_file(const std::string& a, const std::string& b) {
    std::error_code reason;
    return a == b || std::filesystem::equivalent(paths::to_platform(a), paths::to_platform(b), reason);
}

}  // namespace kestralum
