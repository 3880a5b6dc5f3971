// The command line of kestralum-batch.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/line_table.h"
#include "app/sweep.h"
#include "input/model_reader.h"
#include "model/element_kind.h"
#include "model/section.h"

namespace kestralum {

struct BatchOptions : CommonOptions {
    std::string command;      // "check", "export", "frames", "verify" or an analysis
    std::string export_file;  // of `export`
    std::vector<ParameterOverride> overrides;
    std::vector<SweepAxis> sweep;  // empty: one run
    std::string setting_file = "setting\\setting.txt";
    bool vtu = false, tidy = false;
    bool keep_frames = false;                   // explicit: the frames file stays
    double checkpoint_seconds = 0;              // explicit: between checkpoints; 0: none
    bool restart = false;                       // explicit: goes on from the last checkpoint
    std::vector<std::array<double, 3>> probes;  // places whose nearest nodes are told, m
    std::vector<SectionPlane> sections;         // planes whose forces are told
    std::vector<LineRequest> lines;             // along which values are told
    bool quantities = false;                    // further ones in the files for ParaView
    bool mean_dilatation = false;               // explicit: hexahedra with one pressure
    std::optional<HexahedronForm> hexahedra;    // in place of the model's
    bool prestress = false;                     // eigen: with the stresses of the loads
    std::string load_case;                      // the one that acts; empty: all
    std::string only;                           // of `verify`: cases whose names begin so
    std::vector<std::string> case_names;        // of `verify`, NAME* all that begin so; empty: all
    bool list = false, quick = false;           // of `verify`: no run; without the long cases
    std::string report;                         // of `verify`: page to write; empty: none
    std::string peer;                           // of `verify`: "ccx" or none
};

// Reads NAME=EXPRESSION, for --set. What is wrong with it, empty if nothing.
std::string read_override(const std::string& text, std::vector<ParameterOverride>& overrides);

// Reads the form of hexahedra, for --hexahedra; what is wrong with it, empty if nothing.
std::string read_hexahedra(const std::string& text, std::optional<HexahedronForm>& form);

BatchOptions parse_batch_options(std::span<const char* const> arguments);

// The help text.
std::string batch_usage();

}  // namespace kestralum
