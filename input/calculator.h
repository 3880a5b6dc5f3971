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

// Whether the expression names `time`, as a whole name and not as a part of one.
bool names_time(std::string_view text);

// Whether an expression can refer to a parameter of this name.
bool is_parameter_name(std::string_view text);

}  // namespace kestralum
