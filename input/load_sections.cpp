// Boundary conditions and applied forces.
#include "input/record_options.h"
#include "input/section_readers.h"
#include "model/format.h"
#include "model/progress.h"

namespace kestralum {

namespace {

constexpr std::size_t support_fields = 9, set_support_fields = 3;
constexpr std::string_view displacement_keys[] = {"ux=", "uy=", "uz="};
constexpr std::string_view support_option_keys[] = {
    "fix=", "ux=", "uy=", "uz=", "spring=", "spring_normal=", "case="};

void read_fix(const Token& word, std::string_view directions, SupportOptions& options,
              InputRemarks& remarks) {
    options.normal = directions == "normal";
    if (options.normal) return;
    bool good = !directions.empty();
    for (const char letter : directions) {
        const bool axis = letter >= 'x' && letter <= 'z';
        good = good && axis && !options.fixed[letter - 'x'];
        if (axis) options.fixed[letter - 'x'] = true;
    }
    if (!good) remarks.expected(word, "fix= with letters of xyz, each once, or fix=normal");
}

SupportOptions support_options(const RecordOptions& given) {
    SupportOptions options;
    InputRemarks& remarks = given.fields().remarks();
    if (const Token* word = given.find("fix=")) read_fix(*word, given.value("fix="), options, remarks);
    bool moved = false;
    for (std::size_t c = 0; c < 3; ++c) {
        options.displacement[c] = given.expression(displacement_keys[c], FieldOf::place_and_time);
        const bool moves = given.find(displacement_keys[c]);
        options.fixed[c] = options.fixed[c] || moves;
        moved = moved || moves;
    }
    constexpr std::string_view range = "a stiffness of at least 0 N/m^3";
    options.spring = given.expression("spring=", FieldOf::place, range);
    options.normal_spring = given.expression("spring_normal=", FieldOf::place, range);
    options.case_name = given.case_name();
    const Token* const of_case = given.find("case=");
    if (of_case && !moved) remarks.expected(*of_case, "ux=, uy= or uz= beside case=");
    options.given = given.any();
    return options;
}

}  // namespace

void read_boundary_condition(const FileSection& section, Model& model, InputRemarks& remarks,
                             Progress& progress) {
    static constexpr std::array<std::string_view, 3> selections{"plane", "area", "volume"};
    echo_tokens(section.tokens, progress);
    const auto length = [](std::span<const Token> rest) {
        return rest.size() > 1 && rest[1].text == set_word ? set_support_fields : support_fields;
    };
    const auto records = records_with_options(section, support_option_keys, length, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("bc_num=%zu\n", records.size());
    std::vector<BoundaryCondition> conditions;
    RecordNames names("both supports act", remarks);
    for (const auto& [record, words] : records) {
        if (progress.cancelled()) return;
        const RecordOptions options(words, fields);
        BoundaryCondition& bc = conditions.emplace_back();
        bc.id = static_cast<std::int32_t>(conditions.size()) - 1;
        bc.name = fields.name(record[0], name_text_width);
        names.add(record[0], bc.name);
        bc.options = support_options(options);
        bc.selection_word = truncate_text(record[1].text, name_text_width);
        if (bc.selection_word == set_word) {
            bc.kind = Selection::volume;
            bc.axis_word = axis_words[0];
            bc.set_name = fields.name(record[2], name_text_width);
            progress.print("%d:%s, %s, %s\n", bc.id, bc.name.c_str(), bc.selection_word.c_str(),
                           bc.set_name.c_str());
            options.list(progress);
            continue;
        }
        bc.kind = static_cast<Selection>(fields.word(record[1], selections, "a selection"));
        bc.axis_word = truncate_text(record[2].text, name_text_width);
        bc.axis = fields.word(record[2], axis_words, "an axis");
        bc.box = fields.numbers<6>(record.subspan(3));
        // a plane takes the upper end along its normal for its place
        if (bc.kind != Selection::plane)
            notice_empty_box(record[0], bc.box, bc.kind == Selection::area ? bc.axis : -1, remarks);
        progress.print("%d:%s, %s[%d], %s[%d]\n", bc.id, bc.name.c_str(), bc.selection_word.c_str(),
                       static_cast<int>(bc.kind), bc.axis_word.c_str(), bc.axis);
        progress.write(":" + labelled_values(record.subspan(3), bc.box) + ",\n");
        options.list(progress);
    }
    model.boundary_conditions = std::move(conditions);
}

namespace {

constexpr std::size_t node_force_fields = 7, area_force_fields = 10, set_force_fields = 5;

// Its kind decides how many tokens a force has; a kind that is not understood ends the counting.
std::vector<OptionRecord> force_records(const FileSection& section, InputRemarks& remarks) {
    std::size_t last = node_force_fields;
    const auto length = [&](std::span<const Token> rest) -> std::size_t {
        if (rest.size() < 2) return last;
        const std::string_view kind = rest[1].text;
        if (kind != "node" && kind != "area" && kind != set_word) {
            remarks.expected(rest[1],
                             "a kind of force (node, area, set); the section cannot be read further");
            return 0;
        }
        last = kind == "area" ? area_force_fields : kind == set_word ? set_force_fields : node_force_fields;
        return last;
    };
    return records_with_options(section, load_option_keys, length, remarks);
}

AppliedForce read_force(std::span<const Token> record, const RecordFields& fields) {
    AppliedForce force;
    force.name = fields.name(record[0], name_text_width);
    force.kind_word = record[1].text;
    force.kind = force.kind_word == "node" ? ForceKind::node : ForceKind::area;
    force.axis_word = truncate_text(record[2].text, name_text_width);
    force.axis = fields.word(record[2], axis_words, "an axis");
    force.value = fields.number(record[3]);
    if (force.kind_word == set_word) {
        force.set_name = fields.name(record[4], name_text_width);
    } else if (force.kind == ForceKind::node) {
        force.point = fields.numbers<3>(record.subspan(4));
    } else {
        force.box = fields.numbers<6>(record.subspan(4));
        notice_empty_box(record[0], force.box, -1, fields.remarks());
    }
    return force;
}

void list_force(const AppliedForce& force, std::span<const Token> record, Progress& progress) {
    progress.print("%d:%s %s %s", force.id, force.name.c_str(), force.kind_word.c_str(),
                   force.axis_word.c_str());
    std::string line = ":" + std::string(record[3].text) + formatted("=%.3e", force.value);
    if (!force.set_name.empty()) {
        progress.write(line + " " + force.set_name);
        return;
    }
    const std::span<const double> place = force.kind == ForceKind::node ? std::span<const double>(force.point)
                                                                        : std::span<const double>(force.box);
    for (std::size_t k = 0; k < place.size(); ++k)
        line += " " + std::string(record[4 + k].text) + formatted("=%.3e", place[k]);
    progress.write(line);
}

}  // namespace

void read_apply_force(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    const auto records = force_records(section, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("force_num=%zu\n", records.size());
    progress.print("Apply_Force\n");
    std::vector<AppliedForce> forces;
    RecordNames names("both forces act", remarks);
    for (const auto& [record, words] : records) {
        if (progress.cancelled()) return;
        const RecordOptions options(words, fields);
        forces.push_back(read_force(record, fields));
        forces.back().options = options.of_load();
        names.add(record[0], forces.back().name);
        forces.back().id = static_cast<std::int32_t>(forces.size()) - 1;
        list_force(forces.back(), record, progress);
        if (options.any()) progress.write("\n");
        options.list(progress);
    }
    model.forces = std::move(forces);
}

}  // namespace kestralum
