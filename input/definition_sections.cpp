// Materials, parameters, parts and the counts.
#include <cmath>

#include "input/calculator.h"
#include "input/record_fields.h"
#include "input/section_readers.h"
#include "mesh/part_catalogue.h"
#include "model/progress.h"

namespace kestralum {

void read_material_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    const auto records = records_of(section, 4, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("material_num=%zu\n", records.size());
    std::vector<Material> materials;
    RecordNames names("a part takes the later material", remarks);
    for (const auto& record : records) {
        if (progress.cancelled()) return;
        Material& m = materials.emplace_back();
        m.id = static_cast<std::int32_t>(materials.size()) - 1;
        m.name = fields.name(record[0], material_text_width);
        names.add(record[0], m.name);
        m.density = fields.number_where(
            record[1], [](double v) { return v >= 0; }, "a density of at least 0 kg/m^3");
        m.young = fields.number_where(
            record[2], [](double v) { return v > 0; }, "a Young's modulus above 0 Pa");
        m.poisson = fields.number_where(
            record[3], [](double v) { return v > -1 && v < 0.5; }, "a Poisson ratio between -1 and 0.5");
        progress.print(" %s:p=%e, E=%e, nyu=%e\n", m.name.c_str(), m.density, m.young, m.poisson);
    }
    model.materials = std::move(materials);
}

double evaluate_override(const std::string& name, const std::string& expression,
                         std::span<const Parameter> parameters, InputRemarks& remarks) {
    const CalcResult result = calc(expression, parameters);
    if (result.ok() && std::isfinite(result.value)) return result.value;
    remarks.error("parameter set to " + name + "=" + expression +
                  ": expected an expression with a finite value (" +
                  (result.ok() ? "not finite" : result.error) + ")");
    return 0;
}

void read_parameter(const FileSection& section, const OverrideTable& overrides, Model& model,
                    InputRemarks& remarks, Progress& progress) {
    const auto records = records_of(section, 2, remarks);
    std::vector<Parameter> parameters = overrides.lasting;
    RecordNames names("the first value holds", remarks);
    progress.print("param_num=%zu\n", records.size() + parameters.size());
    for (const auto& record : records) {
        if (progress.cancelled()) return;
        // the records before this one are known to it
        const RecordFields fields(parameters, remarks);
        Parameter p;
        p.name = fields.name(record[0], material_text_width);
        if (!is_parameter_name(p.name))
            remarks.notice(record[0], "no expression can refer to this name");
        else
            names.add(record[0], p.name);
        const auto set = overrides.expressions.find(record[0].text);
        const bool replaced = set != overrides.expressions.end();
        p.value =
            replaced ? evaluate_override(p.name, set->second, parameters, remarks) : fields.number(record[1]);
        p.expression =
            truncate_text(replaced ? std::string_view(set->second) : record[1].text, parameter_text_width);
        parameters.push_back(std::move(p));
    }
    for (std::size_t k = 0; k < parameters.size(); ++k) {
        parameters[k].id = static_cast<std::int32_t>(k);
        progress.print(" %s:%e\n", parameters[k].name.c_str(), parameters[k].value);
    }
    model.parameters = std::move(parameters);
}

namespace {

constexpr std::size_t part_fields = 22;
constexpr std::string_view parent_option = "parent=", unit_option = "unit=";

struct PartRecords {
    std::vector<PartRow> rows;
    std::vector<const Token*> first;  // token of each row's first field
    std::vector<Token> unit;          // token of each row's unit, if given
};

// A record is followed by its options, as far as there are any.
PartRecords part_records(const FileSection& section, const RecordFields& fields) {
    PartRecords records;
    const std::vector<Token>& tokens = section.tokens;
    std::size_t at = 0;
    while (at + part_fields <= tokens.size()) {
        PartRow& row = records.rows.emplace_back();
        records.first.push_back(&tokens[at]);
        records.unit.emplace_back();
        for (std::size_t k = 0; k < part_fields; ++k) row.fields.emplace_back(tokens[at + k].text);
        at += part_fields;
        for (; at < tokens.size(); ++at) {
            const std::string_view text = tokens[at].text;
            const bool parent = text.starts_with(parent_option);
            if (!parent && !text.starts_with(unit_option)) break;
            const std::string_view value = text.substr(parent ? parent_option.size() : unit_option.size());
            if (value.empty())
                fields.remarks().expected(tokens[at], parent ? "parent=NAME" : "unit=WORD");
            else
                (parent ? row.parent : row.unit) = value;
            if (!parent) records.unit.back() = tokens[at];
        }
    }
    check_section_end(section, tokens.size() - at, part_fields, fields.remarks());
    return records;
}

// The catalogue evaluates the rows' own texts: their address leads to the token.
std::string place_of_text(const PartRecords& records, std::string_view text) {
    for (std::size_t k = 0; k < records.rows.size(); ++k) {
        if (records.rows[k].unit.data() == text.data()) return place_of(records.unit[k]);
        for (std::size_t f = 0; f < part_fields; ++f)
            if (records.rows[k].fields[f].data() == text.data()) return place_of(records.first[k][f]);
    }
    return "'" + std::string(text) + "'";
}

// A remark of the catalogue on a part as a whole gets the place where the part's record begins.
std::string placed_remark(const PartRecords& records, const std::string& line) {
    if (line.find("token ") != std::string::npos) return line;
    for (std::size_t k = 0; k < records.rows.size(); ++k)
        if (line.starts_with("part \"" + truncate_text(records.rows[k].fields[0], name_text_width) + "\": "))
            return place_of(*records.first[k]) + ": " + line;
    return line;
}

}  // namespace

void read_part_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    const RecordFields fields(model.parameters, remarks);
    const PartRecords records = part_records(section, fields);
    int searches = 0;
    const Evaluate evaluate = [&](std::string_view text, double& value, std::string& error) {
        const CalcResult result = calc(text, model.parameters);
        value = result.value;
        const bool good = result.ok() && std::isfinite(value);
        if (good && !names_time(text)) return true;
        // the search for the place is worth its time for the lines that will be listed
        const std::string place =
            ++searches > remarks_listed ? "'" + std::string(text) + "'" : place_of_text(records, text);
        if (good) {
            remarks.notice(place + ": " + time_is_zero);
            return true;
        }
        error = place;
        error += result.ok() ? ": expected a finite value"
                             : ": expected a number or an expression over the parameters defined so far (" +
                                   result.error + ")";
        return false;
    };
    Remarks of_parts;
    model.parts = create_PART(records.rows, model.materials, evaluate, of_parts, progress);
    RecordNames names("records that name this part take all of the name", remarks);
    for (std::size_t k = 0; k < model.parts.size(); ++k)
        names.add(*records.first[k], fields.name(*records.first[k], name_text_width));
    for (const auto* lines : {&of_parts.errors, &of_parts.notices})
        for (std::size_t k = 0; k < lines->size(); ++k) {
            const std::string& line = (*lines)[k];
            const std::string placed = k < remarks_listed ? placed_remark(records, line) : line;
            lines == &of_parts.errors ? remarks.error(placed) : remarks.notice(placed);
        }
}

void read_count(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    const RecordFields fields(model.parameters, remarks);
    const Token value = section.tokens.empty() ? Token{} : section.tokens[0];
    if (value.text.empty()) {
        remarks.expected(value, std::string("an integer after ") + spelling(section.keyword));
        return;
    }
    const auto count = fields.count(value, 1);
    if (count) {
        (section.keyword == Keyword::iteration ? model.iteration_limit : model.mode_count) = *count;
        progress.print("%d\n", *count);
    }
    if (section.tokens.size() < 2) return;
    const auto passed_over = keyword_of(section.tokens[1].text);
    if (passed_over && *passed_over != Keyword::comment)
        remarks.notice(section.tokens[1],
                       std::string("passed over, one token (usually %) follows the integer of ") +
                           spelling(section.keyword));
}

}  // namespace kestralum
