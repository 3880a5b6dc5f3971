// Options of a snapshot that say how results are shown.
#pragma once

#include <string>

#include "app/command_line.h"
#include "view/display_state.h"

namespace kestralum {

// Takes the options into the part of a display state that they set.
void describe_display(CommandLine& line, view::DisplayState& display, const OptionTerms& terms);

// The index of a quantity by its number, by "plastic" or "error", or by its name in files; a contour menu's
// row into display.contour, others into display.further. Why the text is none.
[[nodiscard]] std::string take_contour(const std::string& text, view::DisplayState& display);

}  // namespace kestralum
