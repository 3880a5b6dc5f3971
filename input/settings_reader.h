// Reads the machine-dependent settings at start.
#pragma once

#include <cstdint>
#include <string_view>

#include "model/progress.h"
#include "model/settings.h"

namespace kestralum {

enum class SettingsStatus { read, missing };

// Reads the file into `settings` and prints the echo lines. `missing`: it cannot be opened, `settings`
// is as before and the caller ends the program. Values that are not understood are named in a notice and stay
// 0.
SettingsStatus read_setting_file(std::string_view file_name, Settings& settings, Progress& progress);

// The same from a text: two header tokens, then eleven pairs of label and value in fixed order; labels
// are not looked at. `file_name` is for the remarks. N_THREADS is at most `available_threads`, and
// these for the word MAX.
Settings parse_settings(std::string_view text, std::string_view file_name, std::int32_t available_threads,
                        Progress& progress);

// The size of the team that a parallel region gets when it asks for nothing.
std::int32_t count_available_threads();

}  // namespace kestralum
