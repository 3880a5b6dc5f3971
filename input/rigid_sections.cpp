// Rigid elements, the forces on them and the springs between them.
#include "input/record_options.h"
#include "input/section_readers.h"
#include "model/progress.h"

namespace kestralum {

namespace {

std::array<double, 6> read_round_region(const Token& name, std::span<const Token> tokens,
                                        const RecordFields& fields) {
    std::array<double, 6> region{};
    for (const std::size_t k : {0U, 1U, 2U, 3U, 5U}) region[k] = fields.number(tokens[k]);
    region[4] = fields.number_where(
        tokens[4], [](double v) { return v == 0 || v == 1 || v == 2; }, "an axis (0, 1, 2)");
    if (region[3] < 0 || region[5] < 0)
        fields.remarks().notice(name, "selects nothing, its radius or half thickness is negative");
    return region;
}

constexpr std::size_t element_fields = 11, set_element_fields = 6, force_fields = 4, combine_fields = 9;
constexpr std::array<std::string_view, 7> combine_option_keys{
    "cx=", "cy=", "cz=", "crx=", "cry=", "crz=", "axes="};

RigidElement read_element(std::span<const Token> record, const RecordFields& fields) {
    static constexpr std::array<std::string_view, 2> selections{"area", "round"};
    RigidElement element;
    element.name = fields.name(record[0], name_text_width);
    element.selection_word = truncate_text(record[1].text, name_text_width);
    if (element.selection_word == set_word) {
        element.reference = fields.numbers<3>(record.subspan(2));
        element.set_name = fields.name(record[5], name_text_width);
        return element;
    }
    element.kind = static_cast<RigidSelection>(fields.word(record[1], selections, "a selection"));
    element.reference = fields.numbers<3>(record.subspan(2));
    if (element.kind == RigidSelection::round) {
        element.region = read_round_region(record[0], record.subspan(5), fields);
    } else {
        element.region = fields.numbers<6>(record.subspan(5));
        notice_empty_box(record[0], element.region, -1, fields.remarks());
    }
    return element;
}

std::int32_t named_element(const Token& token, const std::string& name, const Model& model,
                           InputRemarks& remarks) {
    const std::int32_t element = find_rigid_element(model.rigid_elements, name);
    if (element < 0) remarks.expected(token, "the name of a rigid element defined before");
    return element;
}

}  // namespace

std::int32_t find_rigid_element(const std::vector<RigidElement>& elements, std::string_view name) {
    std::int32_t found = -1;
    for (const RigidElement& element : elements)
        if (element.name == name) found = element.id;
    return found;
}

void read_rigid_element(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    const auto records = records_or_sets(section, element_fields, set_element_fields, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("rigid_element_num=%zu\n", records.size());
    progress.print("Rigid_Element\n");
    std::vector<RigidElement> elements;
    RecordNames names("forces and springs take the later element", remarks);
    for (const auto& record : records) {
        if (progress.cancelled()) return;
        RigidElement& e = elements.emplace_back(read_element(record, fields));
        e.id = static_cast<std::int32_t>(elements.size()) - 1;
        names.add(record[0], e.name);
        progress.print("%d:%s\n", e.id, e.name.c_str());
        progress.print("%.3e,%.3e,%.3e\n", e.reference[0], e.reference[1], e.reference[2]);
        progress.print("%.3e,%.3e,%.3e,%.3e,%.3e,%.3e\n", e.region[0], e.region[1], e.region[2], e.region[3],
                       e.region[4], e.region[5]);
    }
    model.rigid_elements = std::move(elements);
}

void read_rigid_force(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    const auto records = records_with_options(
        section, load_option_keys, [](auto) { return force_fields; }, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("rigid_force_num=%zu\n", records.size());
    progress.print("Rigid_FORCE\n");
    std::vector<RigidForce> forces;
    for (const auto& [record, words] : records) {
        if (progress.cancelled()) return;
        const RecordOptions options(words, fields);
        RigidForce& f = forces.emplace_back();
        f.id = static_cast<std::int32_t>(forces.size()) - 1;
        f.name = fields.name(record[0], name_text_width);
        f.element_name = fields.name(record[1], name_text_width);
        f.element = named_element(record[1], f.element_name, model, remarks);
        f.direction_word = truncate_text(record[2].text, name_text_width);
        f.direction = static_cast<RigidDirection>(fields.word(record[2], rigid_directions, "a direction"));
        f.value = fields.number(record[3]);
        progress.print("%d:%s\n", f.id, f.name.c_str());
        progress.print("%s, %s[%d], %s[%.3e]\n", f.element_name.c_str(), f.direction_word.c_str(),
                       static_cast<int>(f.direction), std::string(record[3].text).c_str(), f.value);
        f.options = options.of_load();
        options.list(progress);
    }
    model.rigid_forces = std::move(forces);
}

void read_rigid_combine(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    const auto records = records_with_options(
        section, combine_option_keys, [](auto) { return combine_fields; }, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("rigid_combine_num=%zu\n", records.size());
    progress.print("Rigid_Combine\n");
    std::vector<RigidCombine> combines;
    for (const auto& [record, words] : records) {
        if (progress.cancelled()) return;
        RigidCombine& c = combines.emplace_back();
        c.id = static_cast<std::int32_t>(combines.size()) - 1;
        c.name = fields.name(record[0], name_text_width);
        for (std::size_t k = 0; k < 2; ++k) {
            c.element_name[k] = fields.name(record[1 + k], name_text_width);
            c.element[k] = named_element(record[1 + k], c.element_name[k], model, remarks);
        }
        const auto stiffness_tokens = record.subspan(3);
        c.stiffness = fields.numbers<6>(stiffness_tokens);
        for (std::size_t k = 0; k < 6; ++k)
            c.stiffness_text[k] = truncate_text(stiffness_tokens[k].text, field_text_width);
        progress.print("%d:%s\n", c.id, c.name.c_str());
        progress.print("%s[%d], %s[%d]\n", c.element_name[0].c_str(), c.element[0], c.element_name[1].c_str(),
                       c.element[1]);
        progress.write(labelled_values(stiffness_tokens, c.stiffness) + "\n");
        const RecordOptions options(words, fields);
        for (std::size_t k = 0; k < 6; ++k)
            c.damping[k] = options.number(
                combine_option_keys[k], 0, [](double v) { return v >= 0; },
                "a damping coefficient of at least 0");
        if (const Token* axes = options.find("axes=")) {
            c.body_axes = options.value("axes=") == "body";
            if (!c.body_axes) remarks.expected(*axes, "axes=body");
        }
        options.list(progress);
    }
    model.rigid_combines = std::move(combines);
}

}  // namespace kestralum
