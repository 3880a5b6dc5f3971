#include "model/format.h"

#include <locale.h>
#include <cstdio>
#include <vector>

namespace kestralum {

std::string formatted_list(const char* format, va_list arguments) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t former = uselocale(c_locale);
    char buffer[512];
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    std::string text;
    if (length >= 0 && length < static_cast<int>(sizeof buffer)) {
        text.assign(buffer, length);
    } else if (length > 0) {
        text.resize(length);
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    uselocale(former);
    return text;
}

std::string formatted(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::string text = formatted_list(format, arguments);
    va_end(arguments);
    return text;
}

}  // namespace kestralum
