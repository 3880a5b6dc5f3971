// The arithmetic of the input files: every numeric field may be an expression.
//   expression  a + b, a - b, a * b, a / b, -a, +a, a ^ b (right-associative, above the signs: -2^2 = -4)
//   functions   sin cos asin acos (radians), sgn (sgn(0) = 0), SWITCH(x, a, b, c) = a for x > 0,
//               b for x = 0, c for x < 0 and 0 where x is not a number
//   names       `time`, and parameters by their exact name; a name counts as a function only
//               before "("
// Division by zero and arguments out of range follow floating-point rules: infinities, not-a-number.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/records.h"

namespace kestralum {

inline constexpr std::size_t longest_expression = 1024;  // bytes; bounds the depth of the parse

struct CalcResult {
    double value = 0;   // 0 when there is an error
    std::string error;  // why there is no value, without the text and the place; "" when there is one
    bool ok() const { return error.empty(); }
};

// Value of `text` with `time` in seconds; of several parameters of one name the first counts. Errors:
// unknown name or function, wrong number of arguments, text left over, text too long. Any thread.
CalcResult calc(std::string_view text, std::span<const Parameter> parameters, double time = 0);

// An expression that is read once and evaluated often, by several threads at a time too.
class Expression {
public:
    // `variables` come before the parameters; `time` is known only where it is one of them. Errors as those
    // of calc(): the expression is then 0.
    Expression(std::string_view text, std::span<const std::string_view> variables,
               std::span<const Parameter> parameters);
    // The value with these values of the variables, in their order.
    double at(std::span<const double> values) const;

    const std::string& error() const { return error_; }
    bool ok() const { return error_.empty(); }

    // One step of the evaluation on a stack of values.
    struct Step {
        enum class Kind { number, variable, negate, binary, function } kind;
        double value = 0;
        std::size_t index = 0;  // of the variable; of a function: how many arguments
        double (*binary)(double, double) = nullptr;
        double (*function)(const double* arguments) = nullptr;
    };

private:
    std::vector<Step> steps_;
    std::size_t height_ = 1;  // most values on the stack
    std::string error_;
};

// Whether the expression names `word`, as a whole name and not as a part of one.
bool uses_name(std::string_view text, std::string_view word);
bool names_time(std::string_view text);

// Whether an expression can refer to a parameter of this name.
bool is_parameter_name(std::string_view text);

}  // namespace kestralum
