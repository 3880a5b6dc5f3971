// Loads on faces, of the mass and of temperature.
#include <algorithm>
#include <cmath>

#include "input/record_options.h"
#include "input/section_readers.h"
#include "model/progress.h"

namespace kestralum {

namespace {

struct KindRow {
    std::string_view word;
    LoadKind kind;
    std::size_t tokens;  // behind name and kind
};
constexpr KindRow kinds[] = {
    {"pressure", LoadKind::pressure, 2},
    {"traction", LoadKind::traction, 4},
    {"force", LoadKind::force, 4},
    {"bearing", LoadKind::bearing, 4},
    {"remote", LoadKind::remote, 10},
    {"gravity", LoadKind::gravity, 3},
    {"centrifugal", LoadKind::centrifugal, 7},
    {"temperature", LoadKind::temperature, 2},
};
constexpr std::string_view option_keys[] = {"factor=", "case=", "coupling=", "reference="};

const KindRow* find_kind(std::string_view word) {
    const auto found = std::ranges::find(kinds, word, &KindRow::word);
    return found == std::end(kinds) ? nullptr : found;
}

std::size_t record_length(std::span<const Token> rest, InputRemarks& remarks) {
    const KindRow* kind = rest.size() > 1 ? find_kind(rest[1].text) : nullptr;
    if (kind) return 2 + kind->tokens;
    std::string all;
    for (const KindRow& row : kinds) all += (all.empty() ? "" : ", ") + std::string(row.word);
    remarks.expected(rest.size() > 1 ? rest[1] : rest[0],
                     "a kind of load behind its name (" + all + "); the section cannot be read further");
    return 0;
}

Vec3 read_vector(std::span<const Token> t, const RecordFields& fields) {
    return fields.numbers<3>(t.first(3));
}

void read_axis(std::span<const Token> t, const RecordFields& fields, Load& load) {
    load.point = read_vector(t, fields);
    const Vec3 axis = read_vector(t.subspan(3), fields);
    if (!(norm(axis) > 0) || !std::isfinite(norm(axis)))
        fields.remarks().expected(t[3], "an axis that is not zero");
    load.direction = unit(axis);
    load.speed = fields.number(t[6]);
}

// t: what stands behind name and kind.
void read_values(std::span<const Token> t, const RecordFields& fields, Load& load) {
    const auto field = [&](const Token& token) {
        return field_expression(token, token.text, FieldOf::place_and_time, fields);
    };
    switch (load.kind) {
        case LoadKind::pressure:
        case LoadKind::temperature:
            load.value = field(t[1]);
            break;
        case LoadKind::traction:
            for (std::size_t c = 0; c < 3; ++c) load.vector[c] = field(t[1 + c]);
            break;
        case LoadKind::force:
        case LoadKind::bearing:
            load.force = read_vector(t.subspan(1), fields);
            break;
        case LoadKind::remote:
            load.point = read_vector(t.subspan(1), fields);
            load.force = read_vector(t.subspan(4), fields);
            load.moment = read_vector(t.subspan(7), fields);
            break;
        case LoadKind::gravity:
            load.direction = read_vector(t, fields);
            return;
        case LoadKind::centrifugal:
            return read_axis(t, fields, load);
    }
    (load.kind == LoadKind::temperature ? load.part_name : load.set_name) =
        fields.name(t[0], name_text_width);
}

// Whether the record's coupling is a rigid one.
bool read_coupling(const RecordOptions& options, const Load& load) {
    const Token* word = options.find("coupling=");
    if (!word) return false;
    InputRemarks& remarks = options.fields().remarks();
    const std::string_view value = options.value("coupling=");
    if (load.kind != LoadKind::remote)
        remarks.expected(*word, "coupling= behind a remote load only");
    else if (value != "rigid" && value != "distributing")
        remarks.expected(*word, "coupling=rigid or coupling=distributing");
    return value == "rigid";
}

void read_reference(const RecordOptions& options, Load& load) {
    load.reference = options.number(
        "reference=", 0, [](double) { return true; }, "a reference temperature");
    if (const Token* word = options.find("reference="); word && load.kind != LoadKind::temperature)
        options.fields().remarks().expected(*word, "reference= behind a temperature only");
}

void list_load(std::size_t number, const Load& load, std::span<const Token> record, Progress& progress) {
    std::string line;
    for (const Token& token : record.subspan(2)) line.append(", ").append(token.text);
    progress.print("%zu:%s, %s[%d]", number, load.name.c_str(), std::string(record[1].text).c_str(),
                   static_cast<int>(load.kind));
    progress.write(line + "\n");
}

}  // namespace

void read_load_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    echo_tokens(section.tokens, progress);
    const auto length = [&](std::span<const Token> rest) { return record_length(rest, remarks); };
    const auto records = records_with_options(section, option_keys, length, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("load_num=%zu\n", records.size());
    std::vector<Load> loads, rigid_loads;
    RecordNames names("both loads act", remarks);
    for (std::size_t k = 0; k < records.size(); ++k) {
        if (progress.cancelled()) return;
        const std::span<const Token> record = records[k].tokens;
        const RecordOptions options(records[k].options, fields);
        Load load;
        load.name = fields.name(record[0], name_text_width);
        load.place = place_of(record[0]);
        load.kind = find_kind(record[1].text)->kind;
        names.add(record[0], load.name);
        read_values(record.subspan(2), fields, load);
        const bool rigid = read_coupling(options, load);
        read_reference(options, load);
        load.options = options.of_load();
        list_load(k, load, record, progress);
        options.list(progress);
        (rigid ? rigid_loads : loads).push_back(std::move(load));
    }
    model.loads = std::move(loads);
    model.rigid_loads = std::move(rigid_loads);
}

void remove_rigid_loads(Model& model) {
    std::erase_if(model.rigid_elements, [](const RigidElement& element) { return element.of_load; });
    std::erase_if(model.rigid_forces, [](const RigidForce& force) { return force.of_load; });
}

void add_rigid_loads(Model& model, InputRemarks& remarks) {
    for (const Load& load : model.rigid_loads) {
        if (find_rigid_element(model.rigid_elements, load.name) >= 0)
            remarks.error(load.place + ": load " + load.name + ": a rigid element has this name");
        RigidElement& element = model.rigid_elements.emplace_back();
        element.id = static_cast<std::int32_t>(model.rigid_elements.size()) - 1;
        element.name = load.name;
        element.selection_word = set_word;
        element.reference = load.point;
        element.set_name = load.set_name;
        element.of_load = true;
        for (std::size_t k = 0; k < 6; ++k) {
            const double value = k < 3 ? load.force[k] : load.moment[k - 3];
            if (value == 0) continue;
            RigidForce& force = model.rigid_forces.emplace_back();
            force.id = static_cast<std::int32_t>(model.rigid_forces.size()) - 1;
            force.name = force.element_name = load.name;
            force.element = element.id;
            force.direction_word = rigid_directions[k];
            force.direction = static_cast<RigidDirection>(k);
            force.value = value;
            force.options = load.options;
            force.of_load = true;
        }
    }
}

}  // namespace kestralum
