// Materials, parameters and the counts.
#include <cmath>

#include "input/calculator.h"
#include "input/input_remarks.h"
#include "input/record_options.h"
#include "input/section_readers.h"
#include "model/format.h"
#include "model/progress.h"

namespace kestralum {

void read_material_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    static constexpr std::string_view keys[] = {"alpha="};
    const auto records = records_with_options(
        section, keys, [](auto) { return std::size_t{4}; }, remarks);
    const RecordFields fields(model.parameters, remarks);
    progress.print("material_num=%zu\n", records.size());
    std::vector<Material> materials;
    RecordNames names("a part takes the later material", remarks);
    for (const auto& [record, words] : records) {
        if (progress.cancelled()) return;
        const RecordOptions options(words, fields);
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
        m.expansion = options.number(
            "alpha=", 0, [](double) { return true; }, "a thermal expansion in 1/K");
        progress.print(" %s:p=%e, E=%e, nyu=%e\n", m.name.c_str(), m.density, m.young, m.poisson);
        options.list(progress);
    }
    model.materials = std::move(materials);
}

double evaluate_override(const std::string& name, const std::string& expression,
                         std::span<const Parameter> parameters, InputRemarks& remarks) {
    const CalcResult result = calc(expression, parameters);
    if (result.ok() && std::isfinite(result.value)) return result.value;
    remarks.error("parameter set to " + shown_text(name) + "=" + shown_text(expression) +
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

// The token that follows the one value is passed over, whatever it is.
void notice_passed_over(const FileSection& section, const char* value, InputRemarks& remarks) {
    if (section.tokens.size() < 2) return;
    const auto passed_over = keyword_of(section.tokens[1].text);
    if (passed_over && *passed_over != Keyword::comment)
        remarks.notice(section.tokens[1],
                       formatted("passed over, one token (usually %%) follows the %s of %s", value,
                                 spelling(section.keyword)));
}

}  // namespace

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
    notice_passed_over(section, "integer", remarks);
}

void read_hexahedra(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress) {
    const Token value = section.tokens.empty() ? Token{} : section.tokens[0];
    const auto form = hexahedron_form_of(value.text);
    if (!form) {
        remarks.expected(value, "full, enhanced or mean-dilatation after hexahedra");
        return;
    }
    model.hexahedra = *form;
    progress.print("%s\n", word_of(*form));
    notice_passed_over(section, "word", remarks);
}

}  // namespace kestralum
