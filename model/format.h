// printf into a string, with a decimal point whatever the user's language.
#pragma once

#include <cstdarg>
#include <string>

namespace kestralum {

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string formatted_list(const char* format, va_list arguments);

}  // namespace kestralum
