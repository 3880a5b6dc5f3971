// Options of a snapshot that say how results are shown.
#pragma once

#include <functional>
#include <string>

#include "app/command_line.h"
#include "view/display_state.h"

namespace kestralum {

// Adds the options, which set their part of a display state.
using AddOption = std::function<void(const std::string& name, const std::string& shape,
                                     const std::string& description, Take take)>;
void describe_display(const AddOption& add_option, view::DisplayState& display);

// Each of the words between a text's commas, until one is refused; why.
std::string each_word(const std::string& text, const Take& take);

// The index of a quantity by its number, by "plastic" or "error", or by its name in files; a contour menu's
// row into display.contour, others into display.further. Why the text is none.
[[nodiscard]] std::string take_contour(const std::string& text, view::DisplayState& display);

}  // namespace kestralum
