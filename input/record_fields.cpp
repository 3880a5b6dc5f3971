#include "input/record_fields.h"

#include <cmath>
#include <limits>

#include "input/calculator.h"
#include "model/format.h"

namespace kestralum {

std::optional<double> RecordFields::evaluate(const Token& token, std::string_view text) const {
    const CalcResult result = calc(text, parameters_);
    if (!result.ok()) {
        remarks_.expected(
            token, "a number or an expression over the parameters defined so far (" + result.error + ")");
        return std::nullopt;
    }
    if (!std::isfinite(result.value)) {
        remarks_.expected(token, "a finite value");
        return std::nullopt;
    }
    if (names_time(text)) remarks_.notice(token, time_is_zero);
    return result.value;
}

std::optional<std::int32_t> RecordFields::count(const Token& token, std::int32_t least) const {
    const auto value = evaluate(token);
    if (!value) return std::nullopt;
    if (*value != std::trunc(*value) || *value < least || *value > std::numeric_limits<std::int32_t>::max()) {
        remarks_.expected(token, "an integer of at least " + std::to_string(least));
        return std::nullopt;
    }
    return static_cast<std::int32_t>(*value);
}

std::int32_t RecordFields::word(const Token& token, std::span<const std::string_view> words,
                                std::string_view what) const {
    std::string list;
    for (std::size_t k = 0; k < words.size(); ++k) {
        if (token.text == words[k]) return static_cast<std::int32_t>(k);
        list += (k ? ", " : "") + std::string(words[k]);
    }
    remarks_.expected(token, std::string(what) + " (" + list + ")");
    return 0;
}

std::string RecordFields::name(const Token& token, std::size_t width) const {
    if (token.text.size() > width)
        remarks_.notice(token, "cut to its first " + std::to_string(width) + " characters");
    return truncate_text(token.text, width);
}

void notice_empty_box(const Token& name, std::span<const double, 6> box, int ignored_axis,
                      InputRemarks& remarks) {
    for (int axis = 0; axis < 3; ++axis) {
        const std::size_t low = 2 * axis;
        if (axis == ignored_axis || box[low] <= box[low + 1]) continue;
        const std::string letter(axis_words[low / 2]);
        remarks.notice(name, "selects nothing, " + letter + "min is above " + letter + "max");
        return;
    }
}

void check_section_end(const std::string& name, const Token& closing, std::size_t left_over,
                       std::size_t length, InputRemarks& remarks) {
    if (left_over > 0)
        remarks.expected(closing, std::to_string(length - left_over) + " more of the " +
                                      std::to_string(length) + " tokens of a record of " + name);
    else if (closing.text.empty())
        remarks.notice("section " + name + " ends with the file, without its closing %");
}

std::vector<std::span<const Token>> records_or_sets(const std::string& name, std::span<const Token> tokens,
                                                    const Token& closing, const SetRecord& record,
                                                    InputRemarks& remarks) {
    std::vector<std::span<const Token>> records;
    std::size_t at = 0, expected = record.length;
    while (at < tokens.size()) {
        const std::size_t word = at + record.set_at;
        expected = word < tokens.size() && tokens[word].text == set_word ? record.with_set : record.length;
        if (at + expected > tokens.size()) break;
        records.push_back(tokens.subspan(at, expected));
        at += expected;
    }
    check_section_end(name, closing, tokens.size() - at, expected, remarks);
    return records;
}

std::vector<std::span<const Token>> records_or_sets(const FileSection& section, std::size_t length,
                                                    std::size_t with_set, InputRemarks& remarks) {
    return records_or_sets(spelling(section.keyword), section.tokens, section.closing, {length, with_set, 1},
                           remarks);
}

void check_section_end(const FileSection& section, std::size_t left_over, std::size_t length,
                       InputRemarks& remarks) {
    check_section_end(spelling(section.keyword), section.closing, left_over, length, remarks);
}

std::vector<std::span<const Token>> records_of(const std::string& name, std::span<const Token> tokens,
                                               const Token& closing, std::size_t length,
                                               InputRemarks& remarks) {
    std::vector<std::span<const Token>> records;
    for (std::size_t k = 0; k + length <= tokens.size(); k += length)
        records.push_back(tokens.subspan(k, length));
    check_section_end(name, closing, tokens.size() % length, length, remarks);
    return records;
}

std::vector<std::span<const Token>> records_of(const FileSection& section, std::size_t length,
                                               InputRemarks& remarks) {
    return records_of(spelling(section.keyword), section.tokens, section.closing, length, remarks);
}

void echo_tokens(std::span<const Token> tokens, Progress& progress) {
    std::string line;
    for (const Token& token : tokens) line.append(" ").append(token.text);
    progress.write(line);
}

std::string labelled_values(std::span<const Token> tokens, std::span<const double> values) {
    std::string line;
    for (std::size_t k = 0; k < values.size(); ++k)
        line += (k ? ", " : "") + std::string(tokens[k].text) + formatted("[%.3e]", values[k]);
    return line;
}

}  // namespace kestralum
