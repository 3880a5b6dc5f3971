#include "input/model_reader.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <new>
#include <set>
#include <utility>

#include "input/calculator.h"
#include "input/input_remarks.h"
#include "input/kept_sections.h"
#include "input/section_readers.h"
#include "mesh/assembly.h"
#include "mesh/derived_parts.h"
#include "model/paths.h"
#include "model/progress.h"

namespace kestralum {

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The file name as typed, without the blanks around it; "" where the console has ended.
std::string ask_for_file_name(Progress& progress) {
    progress.print("Input File Name ?");
    std::string name;
    std::getline(std::cin, name);
    const auto first = name.find_first_not_of(" \t\r");
    const auto last = name.find_last_not_of(" \t\r");
    name = first == std::string::npos ? std::string() : name.substr(first, last - first + 1);
    progress.print("%s\n", name.c_str());
    return name;
}

// Puts the parameters that the file does not define into the table in force.
OverrideTable prepare_overrides(std::span<const ParameterOverride> overrides, const ModelSections& sections,
                                Model& model, InputRemarks& remarks) {
    OverrideTable table;
    std::vector<std::string> order;
    for (const ParameterOverride& o : overrides) {
        if (!is_parameter_name(o.name)) {
            remarks.error("parameter set to " + shown_text(o.name) + "=" + shown_text(o.expression) +
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
        remarks.notice("--set " + shown_text(name) +
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

void convert_section(const FileSection& section, const OverrideTable& overrides,
                     UnresolvedCombinations& combinations, Model& model, InputRemarks& remarks,
                     Progress& progress) {
    progress.print("str=%s\n", std::string(section.opening.text).c_str());
    switch (section.keyword) {
        case Keyword::material_info:
            return read_material_info(section, model, remarks, progress);
        case Keyword::mode_num:
        case Keyword::step_num:
        case Keyword::iteration:
            return read_count(section, model, remarks, progress);
        case Keyword::parameter:
            return read_parameter(section, overrides, model, remarks, progress);
        case Keyword::part_info:
            return read_part_info(section, model, remarks, progress);
        case Keyword::boundary_condition:
            return read_boundary_condition(section, model, remarks, progress);
        case Keyword::apply_force:
            return read_apply_force(section, model, remarks, progress);
        case Keyword::rigid_element:
            return read_rigid_element(section, model, remarks, progress);
        case Keyword::rigid_force:
            return read_rigid_force(section, model, remarks, progress);
        case Keyword::rigid_combine:
            return read_rigid_combine(section, model, remarks, progress);
        case Keyword::set_info:
            return read_set_info(section, model, remarks, progress);
        case Keyword::load_info:
            return read_load_info(section, model, remarks, progress);
        case Keyword::load_combination:
            return read_load_combination(section, model, combinations, remarks, progress);
        case Keyword::tie_info:
            return read_tie_info(section, model, remarks, progress);
        case Keyword::hexahedra:
            return read_hexahedra(section, model, remarks, progress);
        case Keyword::comment:
        case Keyword::end:
            return;
    }
}

// A keyword that stands whole inside a section most likely shows a forgotten "%".
void notice_swallowed_keywords(const FileSection& section, InputRemarks& remarks, const Progress& progress) {
    if (has_one_value(section.keyword)) return;
    for (const Token& token : section.tokens) {
        if (progress.cancelled()) return;
        const auto keyword = keyword_of(token.text);
        if (keyword && token.text == spelling(*keyword))
            remarks.notice(token, std::string("stands inside the section ") + spelling(section.keyword) +
                                      "; is a closing % missing before it?");
    }
}

// Names become numbers once more, against the tables as they are at the end: a table may have been
// replaced after the one that refers to it, or the latter may be an earlier model's.
void resolve_references(Model& model, InputRemarks& remarks) {
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

std::string joined(std::span<const std::string> names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// Text becomes tables; false with an error in `remarks` or after a stop.
bool read_tables(const std::string& text, std::span<const ParameterOverride> overrides, Model& model,
                 InputRemarks& remarks, ModelReadReport& report, Progress& progress) {
    const ModelSections sections = split_sections(text, progress);
    report.end_token = sections.end.text;
    report.end_token_number = sections.end.number;
    report.ended_at_end = sections.end.text.empty() || keyword_of(sections.end.text) == Keyword::end;

    const auto is_comment = [](const FileSection& section) { return section.keyword == Keyword::comment; };
    if (!report.ended_at_end && std::ranges::all_of(sections.sections, is_comment)) {
        // a picture, a letter, a file of another program
        remarks.expected(sections.end, "a section keyword such as part_info");
        progress.print("MATERIAL DATA FILE CLOSE !!\n");
        return false;
    }
    report.kept_sections = kept_sections(model, sections);
    const OverrideTable table = prepare_overrides(overrides, sections, model, remarks);
    UnresolvedCombinations combinations;
    remove_rigid_loads(model);
    for (const FileSection& section : sections.sections) {
        notice_swallowed_keywords(section, remarks, progress);
        convert_section(section, table, combinations, model, remarks, progress);
        if (progress.cancelled()) return false;
    }
    if (!sections.end.text.empty()) progress.print("str=%s\n", report.end_token.c_str());
    progress.print("MATERIAL DATA FILE CLOSE !!\n");
    if (!report.kept_sections.empty())
        remarks.notice("not in the file, left as the earlier model had them: " +
                       joined(report.kept_sections));
    add_rigid_loads(model, remarks);
    resolve_combinations(combinations, model, remarks);
    if (remarks.ok()) resolve_references(model, remarks);
    return remarks.ok();
}

// The boxes of records that select by a set; an error where the set does not exist or is empty.
void resolve_sets(Model& model, InputRemarks& remarks) {
    const auto resolve = [&](const std::string& user, const std::string& name, std::array<double, 6>& box) {
        if (name.empty()) return;
        const MeshSet* set = find_set(model.mesh, name);
        if (!set)
            remarks.error(user + ": no set or group of an imported mesh has the name " + name);
        else if (set->nodes.empty())
            remarks.error(user + ": the set " + name + " is empty");
        else
            box = measure_set(model.mesh, *set).box;
    };
    for (BoundaryCondition& record : model.boundary_conditions)
        resolve("support " + record.name, record.set_name, record.box);
    for (AppliedForce& record : model.forces) resolve("force " + record.name, record.set_name, record.box);
    for (RigidElement& record : model.rigid_elements)
        resolve("rigid element " + record.name, record.set_name, record.region);
}

bool mesh_model(Model& model, InputRemarks& remarks, Progress& progress) {
    Remarks of_mesh;
    std::erase_if(model.parts, [](const Part& part) { return part.derived_from >= 0; });
    const std::vector<Part> as_read = model.parts;
    if (build_mesh(model.parts, model.model_file_name, model.mesh, of_mesh, progress))
        derive_parts(model.materials, model.parts, model.mesh, of_mesh);
    for (const std::string& text : of_mesh.errors) remarks.error(text);
    for (const std::string& text : of_mesh.notices) remarks.notice(text);
    if (!remarks.ok()) return false;
    Remarks of_sets;
    define_sets(model.sets, model.parts, model.mesh, of_sets, progress);
    for (const std::string& text : of_sets.errors) remarks.error(text);
    if (progress.cancelled()) return false;
    if (remarks.ok()) resolve_sets(model, remarks);
    if (remarks.ok()) check_load_places(model, remarks);
    if (!remarks.ok()) return false;
    progress.print("PART_O\n");
    model.parts_o = as_read;
    progress.print("Normal direction\n");
    update_node_normals(model.mesh, &progress);
    if (progress.cancelled()) return false;
    progress.print("force_point\n");
    progress.print("max_length=%e\n", model.mesh.max_length);
    return true;
}

// Where a model's text comes from: false with an error in the remarks where it cannot be had.
using TextSource = std::function<bool(std::string& text, InputRemarks& remarks)>;

// The text in place of what it names in `model`; false with an error in `remarks` or after a stop.
bool read_and_mesh(const TextSource& source, std::span<const ParameterOverride> overrides, Model& model,
                   InputRemarks& remarks, ModelReadReport& report, Progress& progress) {
    const auto start = Clock::now();
    std::string text;
    if (!source(text, remarks)) return false;
    const bool good = read_tables(text, overrides, model, remarks, report, progress);
    report.read_seconds = seconds_since(start);
    if (!good) return false;
    const auto mesh_start = Clock::now();
    const bool meshed = mesh_model(model, remarks, progress);
    report.mesh_seconds = seconds_since(mesh_start);
    return meshed;
}

ModelReadReport read_from(const TextSource& source, const std::string& file_name, Model& model,
                          std::span<const ParameterOverride> overrides, Progress& progress) {
    progress.set_stage("read");
    ModelReadReport report;
    InputRemarks remarks(file_name, report.remarks);
    try {
        Model read = model;
        read.model_file_name = file_name;
        report.ok =
            read_and_mesh(source, overrides, read, remarks, report, progress) && !progress.cancelled();
        if (report.ok) {
            read.source = ModelSource::model_file;
            model = std::move(read);
        }
    } catch (const std::bad_alloc&) {
        remarks.error("not enough memory for this model");
    }
    remarks.close();
    if (!report.ok && progress.cancelled()) report.remarks.errors = {file_name + ": stopped on request"};
    print_remarks(report.remarks, progress);
    return report;
}

}  // namespace

ModelReadReport read_input_file(Model& model, std::span<const ParameterOverride> overrides,
                                Progress& progress) {
    const std::string file_name =
        model.model_file_name.empty() ? ask_for_file_name(progress) : model.model_file_name;
    const auto from_file = [&](std::string& text, InputRemarks& remarks) {
        std::string reason;
        if (!paths::read_text(file_name, text, reason)) {
            progress.print("INPUT FILE OPEN ERROR\n");
            remarks.error(reason);
            return false;
        }
        progress.print("INPUT FILE OPEN !!\n");
        return true;
    };
    return read_from(from_file, file_name, model, overrides, progress);
}

ModelReadReport read_input_text(Model& model, std::string_view text,
                                std::span<const ParameterOverride> overrides, Progress& progress) {
    const auto at_hand = [&](std::string& copy, InputRemarks&) {
        copy = text;
        return true;
    };
    return read_from(at_hand, std::string(model.model_file_name), model, overrides, progress);
}

}  // namespace kestralum
