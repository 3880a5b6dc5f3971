// The command line of kestralum.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/command_line.h"
#include "app/window/film_plan.h"
#include "view/camera.h"
#include "view/display_state.h"

namespace kestralum {

struct WindowOptions : CommonOptions {
    // files to write instead of opening a window; "" = none
    std::string snapshot, film, report;
    bool draws() const { return !snapshot.empty() || !film.empty() || !report.empty(); }
    // of such a file
    std::string result_file;     // results to show
    std::string analysis;        // analysis to run first, its batch word
    view::DisplayState display;  // contour, colours, sections, deformation, look
    std::int32_t frame = 1;
    std::optional<view::ViewDirection> direction;
    std::array<int, 2> size{800, 600};
    std::vector<std::size_t> show, hide;  // rows of the View menu
    double scale = 1;                     // mode scale
    double opacity = 1;
    bool orthographic = false;
    bool white = false;                   // background
    bool caption = false;                 // a line below the picture
    std::optional<FilmRange> film_range;  // none: of modes the one of `frame`, else all
    std::int32_t fps = 0;                 // 0: as usual for the analysis
    std::string drawing_option;           // the first option on the line that only such a file has; "" = none
};

WindowOptions parse_window_options(std::span<const char* const> arguments);
std::string window_usage();

}  // namespace kestralum
