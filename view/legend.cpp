#include "view/legend.h"

#include <algorithm>

#include "model/format.h"

namespace kestralum::view {

namespace {

std::string mark(const char* name, const Extreme& extreme) {
    if (extreme.frame > 0)
        return formatted("%s %.3e Node:%d Frame:%d", name, extreme.value, extreme.node, extreme.frame);
    return formatted("%s %.3e Node:%d", name, extreme.value, extreme.node);
}

// Of a frame with a name.
std::string case_text(const Frame& shown, bool follows, std::int32_t frame, std::int32_t count) {
    if (shown.name.empty()) return "";
    const std::string text = std::string(follows ? ", load case " : "Load case ") + shown.name;
    return count > 1 ? text + formatted(", %d/%d", frame, count) : text;
}

}  // namespace

double frame_time(Frames frames, const AnalysisControl& control, std::int32_t frame) {
    const auto shown = frame_at(frames, frame);
    if (!shown) return 0;
    const bool stored =
        std::any_of(frames.begin(), frames.end(), [](const auto& f) { return f->n_freq != 0; });
    return stored ? shown->n_freq : (frame - 1) * control.end_time / mode_num(frames);
}

std::string legend_text(AnalysisType ana_type, std::int32_t contour, Frames frames,
                        const AnalysisControl& control, std::int32_t frame) {
    const auto shown = frame_at(frames, frame);
    if (!shown) return "";
    const char* text = quantity_text(contour);
    switch (ana_type) {
        case AnalysisType::eigen:
            return formatted("%s%d%s%.2f%s", "Mode", frame, "___", shown->n_freq, "[Hz]");
        case AnalysisType::buckling:
            return formatted("Mode%d___Load factor %.6g", frame, shown->n_freq);
        case AnalysisType::linear_static:
            return formatted("%s", text) + case_text(*shown, text[0] != '\0', frame, mode_num(frames));
        case AnalysisType::nonlinear_static:
            return formatted("%s, step %d/%d", text, frame, mode_num(frames));
        case AnalysisType::explicit_dynamics:
            return formatted("%s, step %d/%d  Time:%.6f[s]", text, frame, mode_num(frames),
                             frame_time(frames, control, frame));
    }
    return "";
}

ContourBar contour_bar(std::int32_t contour, AnalysisType ana_type, const ValueRange& range) {
    constexpr double intervals = 8;
    ContourBar bar;
    const Quantity* quantity = quantity_at(contour);
    if (!quantity || quantity->source == Source::none) return bar;
    bar.title = quantity->text;
    // modes are scaled freely: neither their displacement nor the stress from it has a unit
    const bool has_unit = !has_shapes(ana_type) || quantity->unit[0] == '-';
    if (quantity->unit[0] != '\0')
        bar.title += has_unit ? formatted(" [%s]", quantity->unit) : " [mode amplitude]";
    const bool flat = !(range.high.value > range.low.value);
    for (int k = 0; k <= intervals; ++k) {
        const double at = k / intervals;
        bar.colors.push_back(contour_color(flat ? 0 : at, 1));
        if (!flat || k == 0)
            bar.ticks.push_back({at, formatted("%.3e", range.low.value * (1 - at) + range.high.value * at)});
    }
    bar.largest = mark("Max", range.high);
    bar.smallest = mark("Min", range.low);
    return bar;
}

BarLayout bar_layout(double width, double height, double text_width, double text_height) {
    const double gap = 0.5 * text_height, line = 1.5 * text_height;
    BarLayout layout{};
    layout.bar_width = 1.2 * text_height;
    layout.panel_width = std::min(layout.bar_width + text_width + 3 * gap, std::max(width, 0.0));
    layout.panel_x = std::max(width - layout.panel_width - gap, 0.0);
    // title and largest above the colours, smallest below
    layout.bar_height = std::max(std::min(0.6 * height, height - 2 * gap - 5 * line), 0.0);
    layout.panel_height = std::min(layout.bar_height + 5 * line, std::max(height, 0.0));
    layout.panel_y = std::clamp(gap, 0.0, std::max(height - layout.panel_height, 0.0));
    layout.title_y = layout.panel_y + text_height + 0.25 * gap;
    layout.largest_y = layout.title_y + line;
    layout.bar_x = layout.panel_x + gap;
    layout.bar_y = layout.largest_y + 1.3 * text_height;
    layout.text_x = layout.bar_x + layout.bar_width + gap;
    layout.smallest_y = layout.bar_y + layout.bar_height + 2 * text_height;
    return layout;
}

}  // namespace kestralum::view
