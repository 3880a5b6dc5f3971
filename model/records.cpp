#include "model/records.h"

namespace kestralum {

std::string truncate_text(std::string_view text, std::size_t width) {
    return std::string(text.substr(0, width));
}

}  // namespace kestralum
