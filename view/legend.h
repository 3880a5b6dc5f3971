// Texts over the picture and the contour bar.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "view/contour.h"

namespace kestralum::view {

// Simulated time of a frame, s: as stored with the frame; where no frame has a time (a displacement
// file of an unknown model), (frame - 1)·end_time/mode_num.
double frame_time(Frames frames, const AnalysisControl& control, std::int32_t frame);

// The line at the foot of the picture: mode and frequency, quantity with the load case where it has a name,
// or quantity with step and time. Empty where the frame does not exist and for an unknown analysis type.
std::string legend_text(AnalysisType ana_type, std::int32_t contour, Frames frames,
                        const AnalysisControl& control, std::int32_t frame);

struct BarTick {
    double at = 0;     // 0 at the foot of the bar, 1 at its head
    std::string text;  // the value, "%.3e"
};
struct ContourBar {
    std::string title;              // quantity and unit; a mode's amplitude has no unit
    std::vector<Color> colors;      // foot to head, opaque
    bool blended = true;            // neighbours; else each colour has its share of the bar
    std::vector<Color> outside;     // of values below and above the range; empty: they have those of the ends
    std::vector<BarTick> ticks;     // foot to head; one where the range has no width
    std::string largest, smallest;  // value and node, with the frame where all were looked at
};

// How values are shown.
struct BarStyle {
    ColorScale scale{};
    DisplayUnits units{};
    // Where the colours reach to, in the quantity's own unit; nothing: to the ends of the values.
    std::optional<std::array<double, 2>> ends{};
};

// Nine colours and values, the quarter points among them; of bands their colours and borders, where those are
// more than 16 every second or third one, and round values where the scale wants them.
ContourBar contour_bar(std::int32_t contour, AnalysisType ana_type, const ValueRange& range,
                       const BarStyle& style = {});

// Values of a quantity as they are told: with this factor, in this unit ("" for a mode's amplitude and for
// pure numbers).
ShownUnit told_unit(std::int32_t contour, AnalysisType ana_type, const DisplayUnits& units);

// Where the bar stands, in pixels from the top left corner of the view.
struct BarLayout {
    double panel_x, panel_y, panel_width, panel_height;  // light panel behind it all
    double bar_x, bar_y, bar_width, bar_height;          // the colours
    double text_x;                                       // left edge of the values
    double title_y, largest_y, smallest_y;               // base lines of title and marks
};

// A panel at the right edge, inside the view, for texts of `text_height` and `text_width` pixels (the
// widest of the bar). A view too small for it gets a bar as high as there is room, never negative.
BarLayout bar_layout(double width, double height, double text_width, double text_height);

}  // namespace kestralum::view
