#include "input/model_reader.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <new>
#include <set>
#include <utility>

#include "input/calculator.h"
#include "input/section_readers.h"
#include "mesh/assembly.h"
#include "model/console.h"
#include "model/paths.h"

namespace kestralum {

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The file name as typed, without the blanks around it; "" where the console has ended.
std::string ask_for_file_name() {
    console::print("Input File Name ?");
    std::string name;
    std::getline(std::cin, name);
    const auto first = name.find_first_not_of(" \t\r");
    const auto last = name.find_last_not_of(" \t\r");
    name = first == std::string::npos ? std::string() : name.substr(first, last - first + 1);
    console::print("%s\n", name.c_str());
    return name;
}

// Puts the parameters that the file does not define into the table in force.
OverrideTable prepare_overrides(std::span<const ParameterOverride> overrides, const ModelSections& sections,
                                ModelDefinition& model, InputRemarks& remarks) {
    OverrideTable table;
    std::vector<std::string> order;
    for (const ParameterOverride& o : overrides) {
        if (!is_parameter_name(o.name)) {
            remarks.error("parameter set to " + o.name + "=" + o.expression +
                          ": no expression can use this name");
            continue;
        }
        if (!table.expressions.contains(o.name)) order.push_back(o.name);
        table.expressions[o.name] = o.expression;
    }
    std::set<std::string_view> defined;
    for (const FileSection& section : sections.sections)
        if (section.keyword == Keyword::parameter)
            for (std::size_t k = 0; k < section.tokens.size(); k += 2) defined.insert(section.tokens[k].text);
    for (const std::string& name : order) {
        if (defined.contains(name)) continue;
        const std::string& expression = table.expressions[name];
        remarks.notice("--set " + name +
                       ": the model file defines no such parameter; it is there from the start");
        const Parameter p{0, name, evaluate_override(name, expression, model.parameters, remarks),
                          truncate_text(expression, parameter_text_width)};
        table.lasting.push_back(p);
        const auto held = std::find_if(model.parameters.begin(), model.parameters.end(),
                                       [&](const Parameter& q) { return q.name == name; });
        if (held != model.parameters.end()) {
            held->value = p.value;
            held->expression = p.expression;
        } else {
            model.parameters.push_back(p);
            model.parameters.back().id = static_cast<std::int32_t>(model.parameters.size()) - 1;
        }
    }
    return table;
}

void convert_section(const FileSection& section, const OverrideTable& overrides, ModelDefinition& model,
                     InputRemarks& remarks) {
    console::print("str=%s\n", std::string(section.opening.text).c_str());
    switch (section.keyword) {
        case Keyword::material_info:
            return read_material_info(section, model, remarks);
        case Keyword::mode_num:
        case Keyword::step_num:
        case Keyword::iteration:
            return read_count(section, model, remarks);
        case Keyword::parameter:
            return read_parameter(section, overrides, model, remarks);
        case Keyword::part_info:
            return read_part_info(section, model, remarks);
        case Keyword::boundary_condition:
            return read_boundary_condition(section, model, remarks);
        case Keyword::apply_force:
            return read_apply_force(section, model, remarks);
        case Keyword::rigid_element:
            return read_rigid_element(section, model, remarks);
        case Keyword::rigid_force:
            return read_rigid_force(section, model, remarks);
        case Keyword::rigid_combine:
            return read_rigid_combine(section, model, remarks);
        case Keyword::comment:
        case Keyword::end:
            return;
    }
}

// A keyword that stands whole inside a section most likely shows a forgotten "%".
void notice_swallowed_keywords(const FileSection& section, InputRemarks& remarks) {
    if (is_count(section.keyword)) return;
    for (const Token& token : section.tokens) {
        const auto keyword = keyword_of(token.text);
        if (keyword && token.text == spelling(*keyword))
            remarks.notice(token, std::string("stands inside the section ") + spelling(section.keyword) +
                                      "; is a closing % missing before it?");
    }
}

// Names become numbers once more, against the tables as they are at the end: a table may have been
// replaced after the one that refers to it, or the latter may be an earlier model's.
void resolve_references(ModelDefinition& model, InputRemarks& remarks) {
    for (Part& part : model.parts) {
        const auto named = [&](const Material& m) {
            return truncate_text(m.name, name_text_width) == part.material_name;
        };
        const std::size_t id = part.material_id;
        bool found = id < model.materials.size() && named(model.materials[id]);
        if (found) continue;
        for (const Material& material : model.materials)
            if (named(material)) {
                part.material_id = material.id;
                found = true;
            }
        if (!found)
            remarks.error("part " + part.name + ": no material " + part.material_name +
                          " at the end of the file");
    }
    const auto resolve = [&](std::int32_t& element, const std::string& name, const std::string& user) {
        element = find_rigid_element(model.rigid_elements, name);
        if (element < 0) remarks.error(user + ": no rigid element " + name + " at the end of the file");
    };
    for (RigidForce& force : model.rigid_forces)
        resolve(force.element, force.element_name, "rigid force " + force.name);
    for (RigidCombine& combine : model.rigid_combines)
        for (std::size_t k = 0; k < 2; ++k)
            resolve(combine.element[k], combine.element_name[k], "rigid combine " + combine.name);
}

bool same_materials(const std::vector<Material>& a, const std::vector<Material>& b) {
    return std::ranges::equal(a, b, [](const Material& p, const Material& q) {
        return p.name == q.name && p.density == q.density && p.young == q.young && p.poisson == q.poisson;
    });
}

bool same_parameters(const std::vector<Parameter>& a, const std::vector<Parameter>& b) {
    return std::ranges::equal(
        a, b, [](const Parameter& p, const Parameter& q) { return p.name == q.name && p.value == q.value; });
}

// What the file says nothing of and an earlier model has left; the start-up values are nobody's.
void notice_tables_left(const ModelStore& store, const ModelSections& sections, InputRemarks& remarks) {
    const ModelStore start = placeholder_model();
    std::set<Keyword> given;
    for (const FileSection& section : sections.sections) given.insert(section.keyword);
    const std::pair<Keyword, bool> tables[] = {
        {Keyword::material_info,
         !store.materials.empty() && !same_materials(store.materials, start.materials)},
        {Keyword::mode_num, store.mode_count != start.mode_count && !given.contains(Keyword::step_num)},
        {Keyword::iteration, store.iteration_limit != start.iteration_limit},
        {Keyword::parameter,
         !store.parameters.empty() && !same_parameters(store.parameters, start.parameters)},
        {Keyword::part_info, !store.parts.empty()},
        {Keyword::boundary_condition, !store.boundary_conditions.empty()},
        {Keyword::apply_force, !store.forces.empty()},
        {Keyword::rigid_element, !store.rigid_elements.empty()},
        {Keyword::rigid_force, !store.rigid_forces.empty()},
        {Keyword::rigid_combine, !store.rigid_combines.empty()},
    };
    std::string names;
    for (const auto& [keyword, held] : tables)
        if (held && !given.contains(keyword))
            names += (names.empty() ? "" : ", ") + std::string(spelling(keyword));
    if (!names.empty()) remarks.notice("not in the file, left as the earlier model had them: " + names);
}

// The result tables hold six values per frame and degree of freedom; an analysis needs room beside them.
bool results_fit(const ModelDefinition& model, const Mesh& mesh, InputRemarks& remarks) {
    const double bytes = double{1 + stress_groups} * sizeof(double) * model.mode_count * mesh.dof_num;
    const double memory =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    if (bytes <= memory / 2) return true;
    remarks.error(
        console::format("mode_num %d: the results of %d degrees of freedom need %.1f GB, more than half of "
                        "the machine's %.1f",
                        model.mode_count, mesh.dof_num, bytes / 1e9, memory / 1e9));
    return false;
}

// Meshes the parts and puts everything into the store.
void mesh_and_store(ModelDefinition&& model, ModelStore& store, InputRemarks& remarks) {
    Mesh mesh;
    Remarks of_mesh;
    build_mesh(model.parts, store.model_file_name, mesh, of_mesh);
    for (const std::string& text : of_mesh.errors) remarks.error(text);
    for (const std::string& text : of_mesh.notices) remarks.notice(text);
    if (!remarks.ok() || !results_fit(model, mesh, remarks)) return;
    Results results;
    results.resize(model.mode_count, mesh.dof_num);
    console::print("PART_O\n");
    model.parts_o = model.parts;
    console::print("Normal direction\n");
    update_node_normals(mesh);
    console::print("force_point\n");
    resolve_force_points(mesh, model.forces);
    console::print("max_length=%e\n", mesh.max_length);

    store.mesh = std::move(mesh);
    store.results = std::move(results);
    std::move(model).move_into(store);
}

void read_text_and_mesh(const std::string& text, ModelStore& store,
                        std::span<const ParameterOverride> overrides, InputRemarks& remarks,
                        ModelReadReport& report) {
    const auto start = Clock::now();
    const ModelSections sections = split_sections(text);
    report.end_token = sections.end.text;
    report.end_token_number = sections.end.number;
    report.ended_at_end = sections.end.text.empty() || keyword_of(sections.end.text) == Keyword::end;

    ModelDefinition model = ModelDefinition::of(store);
    const OverrideTable table = prepare_overrides(overrides, sections, model, remarks);
    for (const FileSection& section : sections.sections) {
        notice_swallowed_keywords(section, remarks);
        convert_section(section, table, model, remarks);
    }
    if (!sections.end.text.empty()) console::print("str=%s\n", report.end_token.c_str());
    console::print("MATERIAL DATA FILE CLOSE !!\n");
    notice_tables_left(store, sections, remarks);
    if (remarks.ok()) resolve_references(model, remarks);
    report.read_seconds += seconds_since(start);

    if (!remarks.ok()) return;
    const auto mesh_start = Clock::now();
    mesh_and_store(std::move(model), store, remarks);
    report.mesh_seconds = seconds_since(mesh_start);
}

}  // namespace

ModelReadReport read_model_file(ModelStore& store, std::span<const ParameterOverride> overrides) {
    ModelReadReport report;
    if (!store.model_file_known) store.model_file_name = ask_for_file_name();
    InputRemarks remarks(store.model_file_name, report.remarks);
    const auto start = Clock::now();
    try {
        std::string text, reason;
        if (!paths::read_text(store.model_file_name, text, reason)) {
            console::print("INPUT FILE OPEN ERROR\n");
            remarks.error(reason);
            return report;
        }
        store.model_file_known = true;
        console::print("INPUT FILE OPEN !!\n");
        report.read_seconds = seconds_since(start);
        read_text_and_mesh(text, store, overrides, remarks, report);
    } catch (const std::bad_alloc&) {
        remarks.error("not enough memory for this model");
    }
    remarks.close();
    report.ok = report.remarks.ok();
    return report;
}

ModelReadReport read_input_file(std::span<const ParameterOverride> overrides) {
    console::set_stage("read");
    ModelReadReport report = read_model_file(model_store(), overrides);
    print_remarks(report.remarks);
    return report;
}

}  // namespace kestralum
