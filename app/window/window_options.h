// The command line of kestralum.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "view/camera.h"
#include "view/display_state.h"

namespace kestralum {

struct WindowOptions : CommonOptions {
    std::string snapshot;        // image file to write instead of opening a window; "" = none
    std::string result_file;     // for a snapshot: results to show
    std::string analysis;        // for a snapshot: analysis to run first, its batch word
    view::DisplayState display;  // contour, colours, sections, deformation, look
    std::int32_t frame = 1;
    std::optional<view::ViewDirection> direction;
    std::array<int, 2> size{800, 600};
    std::vector<std::size_t> show, hide;  // rows of the View menu
    double scale = 1;                     // mode scale
    double opacity = 1;
};

WindowOptions parse_window_options(std::span<const char* const> arguments);
std::string window_usage();

}  // namespace kestralum
