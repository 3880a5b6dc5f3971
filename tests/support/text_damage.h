// Damage as it comes from typing errors and broken copies, for the tests of the readers.
#pragma once

#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "support/text_checks.h"

namespace kestralum::testing {

inline constexpr const char* odd_tokens[] = {
    "%",         "END",        "-1",          "0",          "1e9",         "1e308*1e308",
    "0/0",       "3000000000", "nope",        "((((",       "part_info",   "material_info",
    "parameter", "area",       "node",        "unit=mm",    "x",           "1e-320",
    "-",         "time",       "sin(",        "2147483647", "HOLLOWCYLI",  "VOL",
    "STL",       "\xff\xfe",   "-2147483648", "nan",        "99999999999", "inf",
    "mode_vec",  "Node",       "7",           "0x1"};

// The tokens, one per line; that at index `at` taken out, changed or preceded by an odd one.
inline std::string damaged(std::vector<std::string> tokens, std::size_t at, std::mt19937& random) {
    const auto place = tokens.begin() + static_cast<std::ptrdiff_t>(at);
    const char* const odd = odd_tokens[random() % std::size(odd_tokens)];
    const auto kind = random() % 3;
    if (kind == 0) tokens.erase(place);
    if (kind == 1) *place = odd;
    if (kind == 2) tokens.insert(place, odd);
    return joined(tokens);
}

}  // namespace kestralum::testing
