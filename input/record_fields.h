// Conversion of the fields of a record: number, count, word and name, each with its error.
#pragma once

#include <array>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "input/input_remarks.h"
#include "input/model_sections.h"
#include "model/records.h"

namespace kestralum {

class RecordFields {
public:
    // `parameters` are the names that expressions may use.
    RecordFields(std::span<const Parameter> parameters, InputRemarks& remarks)
        : parameters_(parameters), remarks_(remarks) {}

    // Value of an expression at time 0, with a notice where it names `time`. No value or a non-finite one is
    // an error and gives nothing.
    std::optional<double> evaluate(const Token& token) const { return evaluate(token, token.text); }
    // The same of an expression within the token.
    std::optional<double> evaluate(const Token& token, std::string_view text) const;
    // The same with 0 in place of nothing.
    double number(const Token& token) const { return evaluate(token).value_or(0.0); }
    template <std::size_t N>
    std::array<double, N> numbers(std::span<const Token> tokens) const {
        std::array<double, N> values{};
        for (std::size_t k = 0; k < N; ++k) values[k] = number(tokens[k]);
        return values;
    }
    // A number within a range, named as `range` in the error; 0 outside.
    template <typename Condition>
    double number_where(const Token& token, Condition holds, std::string_view range) const {
        const auto value = evaluate(token);
        if (!value) return 0;
        if (holds(*value)) return *value;
        remarks_.expected(token, range);
        return 0;
    }
    // A whole number of at least `least` that fits 32 bits; otherwise an error and nothing.
    std::optional<std::int32_t> count(const Token& token, std::int32_t least) const;
    // Position of the token in the list; an error and 0 where it is not in it.
    std::int32_t word(const Token& token, std::span<const std::string_view> words,
                      std::string_view what) const;
    // The text cut to `width`, with a notice where that cuts something off.
    std::string name(const Token& token, std::size_t width) const;

    InputRemarks& remarks() const { return remarks_; }
    std::span<const Parameter> parameters() const { return parameters_; }

private:
    std::span<const Parameter> parameters_;
    InputRemarks& remarks_;
};

inline constexpr std::array<std::string_view, 3> axis_words{"x", "y", "z"};

// The notice for an expression that is evaluated once and names `time`.
inline constexpr const char* time_is_zero = "time is 0 here, the value does not change with it";

// Names of a table's records: a name that stands twice gets a notice, which ends with what that means.
class RecordNames {
public:
    RecordNames(std::string_view meaning, InputRemarks& remarks) : meaning_(meaning), remarks_(remarks) {}
    void add(const Token& token, const std::string& name) {
        if (!names_.insert(name).second)
            remarks_.notice(token, "the name stands before; " + std::string(meaning_));
    }

private:
    std::set<std::string> names_;
    std::string_view meaning_;
    InputRemarks& remarks_;
};

// The notice that a box (xmin xmax ymin ymax zmin zmax) is empty along one of the axes but `ignored_axis`.
void notice_empty_box(const Token& name, std::span<const double, 6> box, int ignored_axis,
                      InputRemarks& remarks);

// Records of fixed length: the section's tokens cut into pieces of `length`. What is left over is an
// error, a section that ends with the file a notice.
std::vector<std::span<const Token>> records_of(const FileSection& section, std::size_t length,
                                               InputRemarks& remarks);
std::vector<std::span<const Token>> records_of(const std::string& name, std::span<const Token> tokens,
                                               const Token& closing, std::size_t length,
                                               InputRemarks& remarks);
// The same for records of `length` tokens, or of `with_set` where the second token is the word "set": such a
// record names a set in place of its coordinates.
inline constexpr std::string_view set_word = "set";
std::vector<std::span<const Token>> records_or_sets(const FileSection& section, std::size_t length,
                                                    std::size_t with_set, InputRemarks& remarks);
// The same where the word stands at `set_at` of the record.
struct SetRecord {
    std::size_t length, with_set, set_at;
};
std::vector<std::span<const Token>> records_or_sets(const std::string& name, std::span<const Token> tokens,
                                                    const Token& closing, const SetRecord& record,
                                                    InputRemarks& remarks);
// The error of `left_over` tokens at the end of a section's records of `length`; the notice of a section that
// ends with the file.
void check_section_end(const std::string& name, const Token& closing, std::size_t left_over,
                       std::size_t length, InputRemarks& remarks);
void check_section_end(const FileSection& section, std::size_t left_over, std::size_t length,
                       InputRemarks& remarks);

// The tokens of a section, " %s" each.
void echo_tokens(std::span<const Token> tokens, Progress& progress);
// "%s[%.3e]" per value, the field as written before it, a comma and a blank between them.
std::string labelled_values(std::span<const Token> tokens, std::span<const double> values);

}  // namespace kestralum
