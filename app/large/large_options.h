// The command line of kestralum-large.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "input/model_reader.h"
#include "model/element_kind.h"

namespace kestralum {

struct LargeCommand : CommonOptions {
    std::string analysis;
    std::string setting_file = "setting\\setting.txt";
    std::vector<ParameterOverride> overrides;
    std::string load_case;                    // the one that acts; empty: all
    std::optional<HexahedronForm> hexahedra;  // in place of the model's
    bool vtu = false;                         // pieces for ParaView in place of a result file
};

LargeCommand parse_large_command(std::span<const char* const> arguments);

// The help text.
std::string large_usage();

}  // namespace kestralum
