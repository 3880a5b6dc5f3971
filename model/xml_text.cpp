#include "model/xml_text.h"

#include <algorithm>

namespace kestralum {

namespace {

struct Escape {
    char letter;
    std::string_view written;
};
constexpr Escape escapes[] = {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}};

}  // namespace

std::string xml_escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto* const escape = std::ranges::find(escapes, c, &Escape::letter);
        if (escape == std::end(escapes))
            out += c;
        else
            out += escape->written;
    }
    return out;
}

std::string xml_unescaped(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto* const escape =
            std::ranges::find_if(escapes, [&](const Escape& one) { return text.starts_with(one.written); });
        const bool plain = escape == std::end(escapes);
        out += plain ? text.front() : escape->letter;
        text.remove_prefix(plain ? 1 : escape->written.size());
    }
    return out;
}

}  // namespace kestralum
