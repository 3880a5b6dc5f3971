#include "view/legend.h"

#include <algorithm>

#include "model/format.h"

namespace kestralum::view {

namespace {

std::string mark(const char* name, const Extreme& extreme, double factor) {
    const double value = factor * extreme.value;
    if (extreme.of_element) return formatted("%s %.3e Element:%d", name, value, extreme.node);
    if (extreme.frame > 0)
        return formatted("%s %.3e Node:%d Frame:%d", name, value, extreme.node, extreme.frame);
    return formatted("%s %.3e Node:%d", name, value, extreme.node);
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

namespace {

// Modes are scaled freely: neither their displacement nor the stress from it has a unit.
bool has_unit(const Quantity& quantity, AnalysisType ana_type) {
    return !has_shapes(ana_type) || quantity.unit[0] == '-';
}

// Foot to head, as many as there are colours on the bar.
void add_colors(ContourBar& bar, const ColorScale& scale, bool flat) {
    const int intervals = scale.bands > 0 ? scale.bands : scale.palette == Palette::rainbow ? 8 : 64;
    bar.blended = scale.bands == 0;
    const int count = bar.blended ? intervals + 1 : intervals;
    for (int k = 0; k < count; ++k) {
        const double share = bar.blended ? 1.0 * k / intervals : (k + 0.5) / intervals;
        bar.colors.push_back(scale_color(scale, flat ? 0 : share, 1));
    }
    if (scale.mark_outside && !flat) bar.outside = {scale_color(scale, -1, 1), scale_color(scale, 2, 1)};
}

void add_round_ticks(ContourBar& bar, double low, double high) {
    for (const double value : round_values(low, high, 8))
        bar.ticks.push_back({share_of(value, low, high), formatted("%.6g", value)});
}

void add_even_ticks(ContourBar& bar, const ColorScale& scale, double low, double high) {
    const int borders = scale.bands > 0 ? scale.bands : 8, step = (borders - 1) / 16 + 1;
    for (int k = 0; k <= borders; k += step) {
        const double at = 1.0 * k / borders;
        bar.ticks.push_back({at, formatted("%.3e", low * (1 - at) + high * at)});
        if (!(high > low)) return;
    }
}

}  // namespace

ShownUnit told_unit(std::int32_t contour, AnalysisType ana_type, const DisplayUnits& units) {
    const Quantity* quantity = quantity_at(contour);
    if (!quantity || !has_unit(*quantity, ana_type)) return {};
    return shown_unit(quantity->unit, units);
}

ContourBar contour_bar(std::int32_t contour, AnalysisType ana_type, const ValueRange& range,
                       const BarStyle& style) {
    ContourBar bar;
    const Quantity* quantity = quantity_at(contour);
    if (!quantity || quantity->source == Source::none) return bar;
    const ShownUnit unit = told_unit(contour, ana_type, style.units);
    bar.title = quantity->text;
    if (quantity->unit[0] != '\0')
        bar.title += has_unit(*quantity, ana_type) ? " [" + unit.text + "]" : " [mode amplitude]";
    const auto ends = style.ends.value_or(std::array{range.low.value, range.high.value});
    const double low = unit.factor * ends[0], high = unit.factor * ends[1];
    add_colors(bar, style.scale, !(high > low));
    if (style.scale.round_ticks)
        add_round_ticks(bar, low, high);
    else
        add_even_ticks(bar, style.scale, low, high);
    bar.largest = mark("Max", range.high, unit.factor);
    bar.smallest = mark("Min", range.low, unit.factor);
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
