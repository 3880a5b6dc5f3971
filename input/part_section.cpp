// Parts: their records, each followed by its options.
#include <cmath>

#include "input/calculator.h"
#include "input/record_fields.h"
#include "input/section_readers.h"
#include "mesh/part_catalogue.h"
#include "model/progress.h"

namespace kestralum {

namespace {

constexpr std::size_t part_fields = 22;
constexpr std::string_view parent_option = "parent=", unit_option = "unit=";

struct PartRecords {
    std::vector<PartRow> rows;
    std::vector<const Token*> first;          // token of each row's first field
    std::vector<Token> unit;                  // token of each row's unit, if given
    std::vector<std::vector<Token>> options;  // tokens of each row's other options
};

// Reads the option in `token`; false where it is none, but the next record's name.
bool read_option(const Token& token, const ShapeRow* shape, PartRow& row, PartRecords& records,
                 InputRemarks& remarks) {
    const auto value_after = [&](std::string_view option, std::string_view expected) {
        const std::string_view value = token.text.substr(option.size());
        if (value.empty()) remarks.expected(token, expected);
        return value;
    };
    if (token.text.starts_with(parent_option)) {
        if (const auto value = value_after(parent_option, "parent=NAME"); !value.empty()) row.parent = value;
    } else if (token.text.starts_with(unit_option)) {
        if (const auto value = value_after(unit_option, "unit=WORD"); !value.empty()) row.unit = value;
        records.unit.back() = token;
    } else if (const PartOption* option = find_part_option(token.text, shape)) {
        const std::string word = std::string(option->word) + "=";
        if (const auto value = value_after(word, option->expected); !value.empty()) {
            row.options.emplace_back(option->kind, value);
            records.options.back().push_back(token);
        }
    } else {
        return false;
    }
    return true;
}

// A record is followed by its options, as far as there are any.
PartRecords part_records(const FileSection& section, const RecordFields& fields) {
    PartRecords records;
    const std::vector<Token>& tokens = section.tokens;
    std::size_t at = 0;
    while (at + part_fields <= tokens.size()) {
        PartRow& row = records.rows.emplace_back();
        records.first.push_back(&tokens[at]);
        records.unit.emplace_back();
        records.options.emplace_back();
        for (std::size_t k = 0; k < part_fields; ++k) row.fields.emplace_back(tokens[at + k].text);
        at += part_fields;
        const ShapeRow* shape = find_shape(row.fields[3]);
        while (at < tokens.size() && read_option(tokens[at], shape, row, records, fields.remarks())) ++at;
    }
    check_section_end(section, tokens.size() - at, part_fields, fields.remarks());
    return records;
}

// The catalogue evaluates the rows' own texts: their address leads to the token.
std::string place_of_text(const PartRecords& records, std::string_view text) {
    for (std::size_t k = 0; k < records.rows.size(); ++k) {
        if (records.rows[k].unit.data() == text.data()) return place_of(records.unit[k]);
        const auto& options = records.rows[k].options;
        for (std::size_t o = 0; o < options.size(); ++o) {
            const std::string& value = options[o].second;
            if (text.data() >= value.data() && text.data() < value.data() + value.size())
                return place_of(records.options[k][o]);
        }
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

}  // namespace kestralum
