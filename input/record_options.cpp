#include "input/record_options.h"

#include <algorithm>
#include <cmath>

#include "input/calculator.h"
#include "model/progress.h"

namespace kestralum {

std::vector<OptionRecord> records_with_options(const std::string& name, std::span<const Token> tokens,
                                               const Token& closing, std::span<const std::string_view> keys,
                                               const RecordLength& length, InputRemarks& remarks) {
    const auto is_option = [&](const Token& token) {
        return std::ranges::any_of(keys, [&](std::string_view key) { return token.text.starts_with(key); });
    };
    std::vector<OptionRecord> records;
    std::size_t expected = 0;
    while (!tokens.empty()) {
        expected = length(tokens);
        if (expected == 0) return records;
        if (expected > tokens.size()) break;
        OptionRecord& record = records.emplace_back(OptionRecord{tokens.first(expected), {}});
        tokens = tokens.subspan(expected);
        std::size_t options = 0;
        while (options < tokens.size() && is_option(tokens[options])) ++options;
        record.options = tokens.first(options);
        tokens = tokens.subspan(options);
    }
    check_section_end(name, closing, tokens.size(), expected, remarks);
    return records;
}

std::vector<OptionRecord> records_with_options(const FileSection& section,
                                               std::span<const std::string_view> keys,
                                               const RecordLength& length, InputRemarks& remarks) {
    return records_with_options(spelling(section.keyword), section.tokens, section.closing, keys, length,
                                remarks);
}

FieldExpression field_expression(const Token& token, std::string_view text, FieldOf of,
                                 const RecordFields& fields, std::string_view range) {
    static constexpr std::string_view words[] = {"x", "y", "z", "time"};
    const std::size_t first = of == FieldOf::time ? 3 : 0, last = of == FieldOf::place ? 3 : 4;
    const auto variables = std::span(words).subspan(first, last - first);
    FieldExpression field;
    field.text = text;
    field.varies = last == 4 && names_time(text);
    const Expression expression(text, variables, fields.parameters());
    if (!expression.ok()) {
        const char* names[] = {"x, y, z", "time", "x, y, z, time"};
        fields.remarks().expected(token, "an expression over " + std::string(names[static_cast<int>(of)]) +
                                             " and the parameters defined so far (" + expression.error() +
                                             ")");
    } else if (std::ranges::none_of(variables, [&](auto word) { return uses_name(text, word); })) {
        const double value = expression.at(std::array<double, 4>{});
        if (!std::isfinite(value))
            fields.remarks().expected(token, "a finite value");
        else if (!range.empty() && value < 0)
            fields.remarks().expected(token, range);
        field.at = [value](const double*, double) { return value; };
        return field;
    }
    field.at = [expression, of](const double* x, double time) {
        if (of == FieldOf::time) return expression.at(std::span(&time, 1));
        return expression.at(std::array{x[0], x[1], x[2], time});
    };
    return field;
}

RecordOptions::RecordOptions(std::span<const Token> words, const RecordFields& fields)
    : words_(words), fields_(fields) {
    const auto key_of = [](const Token& word) { return word.text.substr(0, word.text.find('=') + 1); };
    for (std::size_t k = 0; k < words_.size(); ++k)
        if (find(key_of(words_[k])) != &words_[k])
            fields_.remarks().expected(words_[k],
                                       "the option " + std::string(key_of(words_[k])) + " once in a record");
}

const Token* RecordOptions::find(std::string_view key) const {
    for (const Token& word : words_)
        if (word.text.starts_with(key)) return &word;
    return nullptr;
}

std::string_view RecordOptions::value(std::string_view key) const {
    const Token* word = find(key);
    return word ? word->text.substr(key.size()) : std::string_view{};
}

FieldExpression RecordOptions::expression(std::string_view key, FieldOf of, std::string_view range) const {
    const Token* word = find(key);
    return word ? field_expression(*word, value(key), of, fields_, range) : FieldExpression{};
}

std::string RecordOptions::case_name() const {
    const Token* word = find("case=");
    if (!word) return {};
    const std::string_view name = value("case=");
    if (!is_parameter_name(name) || name.size() > name_text_width)
        fields_.remarks().expected(*word, "case=NAME, of a letter and then letters, digits or _, up to " +
                                              std::to_string(name_text_width) + " characters, not time");
    return name == base_case ? std::string() : std::string(name);
}

LoadOptions RecordOptions::of_load() const {
    return {expression("factor=", FieldOf::time), case_name()};
}

void RecordOptions::list(Progress& progress) const {
    if (!any()) return;
    std::string line = " options:";
    for (const Token& word : words_) line.append(" ").append(word.text);
    progress.write(line + "\n");
}

}  // namespace kestralum
