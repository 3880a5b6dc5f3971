// The command line of kestralum-batch.
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "input/model_reader.h"

namespace kestralum {

struct BatchOptions {
    bool help = false, version = false;
    std::string command;  // "check" or an analysis
    std::string model_file;
    std::vector<ParameterOverride> overrides;
    std::string setting_file = "setting\\setting.txt";
    std::string log_folder = "log";
    bool vtu = false, quiet = false, tidy = false;
    std::vector<std::array<double, 3>> probes;  // places whose nearest nodes are told, m
    bool mean_dilatation = false;               // explicit: hexahedra with one pressure
    std::string error;                          // bad usage: why
};

BatchOptions parse_batch_options(std::span<const char* const> arguments);

// The help text.
std::string batch_usage();

}  // namespace kestralum
