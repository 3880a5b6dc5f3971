// A model's text as Python builds it: records put into their sections, parameters given other expressions.
// Only the words are looked at; what they mean is left to the reader of model files.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "input/model_reader.h"

namespace kestralum::python {

// The sections of a model file, in the order in which a text that is built gets them.
std::vector<std::string_view> section_names();

// The text with a record at the end of a section: the last one of that name, else a new one, which stands
// where the order has it. A keyword with one value (mode_num, step_num, iteration, hexahedra) gets this one.
// `fault`: why it cannot be added, one line; empty: it was.
std::string with_record(const std::string& text, std::string_view section, std::string_view record,
                        std::string& fault);

// The text with these expressions in place of those of its parameters, for a file that reads as the text does
// with the overrides. Each has to be defined in the text.
std::string with_parameters(const std::string& text, std::span<const ParameterOverride> overrides);

}  // namespace kestralum::python
