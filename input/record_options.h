// Options of records: words KEY=VALUE behind a record's last token, and expressions that stay expressions.
#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "input/record_fields.h"
#include "model/load_records.h"

namespace kestralum {

// A record and the options behind it.
struct OptionRecord {
    std::span<const Token> tokens, options;
};

// Cuts `tokens` into records. `length` tells how many tokens the record at the front of what is left has, at
// least 1; 0: it has said why that cannot be told, and the reading ends. Behind a record all words that begin
// with one of `keys` ("KEY=") are its options. What is left over is an error, a section that ends with the
// file a notice.
using RecordLength = std::function<std::size_t(std::span<const Token> rest)>;
std::vector<OptionRecord> records_with_options(const std::string& name, std::span<const Token> tokens,
                                               const Token& closing, std::span<const std::string_view> keys,
                                               const RecordLength& length, InputRemarks& remarks);
std::vector<OptionRecord> records_with_options(const FileSection& section,
                                               std::span<const std::string_view> keys,
                                               const RecordLength& length, InputRemarks& remarks);

// What an expression may name beside the parameters.
enum class FieldOf { place, time, place_and_time };

// The expression `text` within `token`; an error where it names what it may not, and where it is a constant
// that is not finite or, with `range` not empty, below 0.
FieldExpression field_expression(const Token& token, std::string_view text, FieldOf of,
                                 const RecordFields& fields, std::string_view range = {});

// The options of one record. A key that stands twice is an error.
class RecordOptions {
public:
    RecordOptions(std::span<const Token> words, const RecordFields& fields);

    bool any() const { return !words_.empty(); }
    // The word with this key, and what stands behind its "="; null where there is none.
    const Token* find(std::string_view key) const;
    std::string_view value(std::string_view key) const;

    // The value of a number; `otherwise` where it is not given or wrong. range: what is expected where
    // `holds` does not.
    template <typename Condition>
    double number(std::string_view key, double otherwise, Condition holds, std::string_view range) const {
        const Token* word = find(key);
        if (!word) return otherwise;
        const auto number = fields_.evaluate(*word, value(key));
        if (!number || holds(*number)) return number.value_or(otherwise);
        fields_.remarks().expected(*word, range);
        return otherwise;
    }
    // Not given where the option is not; range as field_expression().
    FieldExpression expression(std::string_view key, FieldOf of, std::string_view range = {}) const;
    // case=; empty for `base` and where it is not given.
    std::string case_name() const;
    LoadOptions of_load() const;  // factor= case=
    const RecordFields& fields() const { return fields_; }

    // " options:" and the words, where there are any.
    void list(Progress& progress) const;

private:
    std::span<const Token> words_;
    const RecordFields& fields_;
};

inline constexpr std::string_view load_option_keys[] = {"factor=", "case="};

}  // namespace kestralum
