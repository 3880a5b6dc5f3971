// Curves as a drawing of SVG text.
#pragma once

#include <span>
#include <string>

#include "results/history.h"

namespace kestralum {

// `text` with & < > and " as HTML and XML write them.
std::string escaped(const std::string& text);

// The columns over x, all of one unit, with axes, values beside them and names below; none where fewer than
// two rows have a number.
std::string svg_chart(const History& history, std::span<const std::size_t> columns);

}  // namespace kestralum
