#include "model/records.h"

namespace kestralum {

std::string truncate_text(std::string_view text, std::size_t width) {
    return std::string(text.substr(0, width));
}

bool is_of_part(std::span<const Part> parts, std::size_t index, std::string_view name) {
    const std::int32_t from = parts[index].derived_from;
    return parts[index].name == name ||
           (from >= 0 && static_cast<std::size_t>(from) < parts.size() && parts[from].name == name);
}

}  // namespace kestralum
