#include "view/gl/result_drawing.h"

#include <algorithm>

#include "model/format.h"
#include "view/aim.h"
#include "view/gl/condition_drawing.h"
#include "view/legend.h"

namespace kestralum::view::gl {

namespace {

constexpr Color arrow_color{0.1f, 0.2f, 0.75f, 1}, largest_color{0.8f, 0, 0, 1},
    smallest_color{0, 0, 0.8f, 1}, probe_color{0.6f, 0, 0.6f, 1};

std::string with_unit(double value, const ShownUnit& unit) {
    return formatted("%.4g", unit.factor * value) +
           (unit.text.empty() || unit.text == "-" ? "" : " " + unit.text);
}

}  // namespace

void ResultDrawing::update(Picture& picture, const SceneTables& tables, const DisplayState& state) {
    Wanted wanted{state.glyphs, state.glyph_scale, state.look.marks,     state.units,
                  state.probes, state.sections,    state.active_section, state.shown_contour()};
    const Key now{picture.mesh_revision(), picture.faces_revision(), picture.places_revision(),
                  picture.color_revision(), picture.swing(state.phase)};
    const bool nothing =
        state.glyphs == Glyphs::none && !state.look.marks && state.probes.empty() && state.active_section < 0;
    if (wanted == wanted_ && (nothing || now == sent_of_)) return;
    wanted_ = std::move(wanted);
    sent_of_ = now;
    line_list_.clear();
    head_list_.clear();
    mark_list_.clear();
    labels_.clear();
    text_.clear();
    if (!nothing) {
        picture.place(tables, state.phase, places_);
        add_glyphs(picture, tables, state);
        add_extremes(picture, tables, state);
        add_probes(picture, tables, state);
        if (state.active_section >= 0 && state.active_section < std::ssize(state.sections)) {
            const SectionFrame frame = section_frame(tables.box(), state.sections[state.active_section]);
            line_list_.insert(line_list_.end(), frame.rim.begin(), frame.rim.end());
            if (!frame.rim.empty()) add_arrow(frame.arrow, frame.rim[0].color, line_list_, head_list_);
        }
    }
    lines_.send(GL_ARRAY_BUFFER, line_vertices(line_list_));
    heads_.send(GL_ARRAY_BUFFER, head_list_);
    marks_.send(GL_ARRAY_BUFFER, mark_list_);
}

void ResultDrawing::add_glyphs(Picture& picture, const SceneTables& tables, const DisplayState& state) {
    const auto frame = state.result_ready ? frame_at(tables.frames(), state.frame) : nullptr;
    if (state.glyphs == Glyphs::none || !frame || frame->mode_vec.size() != tables.mesh().coordinates.size())
        return;
    // beside the surface, the nodes that a section lies between
    std::vector<std::int32_t> nodes = picture.outside().nodes;
    for (const auto& [a, b] : picture.further().between)
        if (a < tables.mesh().node_num() && !state.hides(place_of(tables.mesh(), a))) nodes.push_back(a);
    const GlyphSigns signs = glyph_signs({tables.mesh(), *frame, *picture.field_base(tables, false), nodes,
                                          places_, state.glyphs, state.glyph_scale});
    for (const Arrow& arrow : signs.arrows) add_arrow(arrow, arrow_color, line_list_, head_list_);
    line_list_.insert(line_list_.end(), signs.lines.begin(), signs.lines.end());
    const ShownUnit unit = has_shapes(tables.ana_type()) ? ShownUnit{} : shown_unit(signs.unit, state.units);
    text_ = signs.longest > 0 ? signs.text + ", longest " + with_unit(signs.longest, unit)
                              : "This frame has no values for the glyphs";
}

void ResultDrawing::add_extremes(const Picture& picture, const SceneTables& tables,
                                 const DisplayState& state) {
    if (!state.look.marks || !picture.contour()) return;
    const ShownUnit unit = told_unit(state.shown_contour(), tables.ana_type(), state.units);
    const auto add = [&](const Extreme& extreme, const char* name, const Color& color) {
        if (extreme.frame > 0 && extreme.frame != state.frame) return;
        const Threshold& limits = state.threshold;
        if ((limits.below && extreme.value < *limits.below) ||
            (limits.above && extreme.value > *limits.above))
            return;
        const auto at = place_of_extreme(tables.mesh(), places_, extreme),
                   rest = place_of_extreme(tables.mesh(), tables.mesh().coordinates, extreme);
        if (!at || state.hides(*rest)) return;
        mark_list_.push_back(color_vertex(*at, color));
        labels_.push_back({*at, name + with_unit(extreme.value, unit)});
    };
    add(picture.range()->high, "Max ", largest_color);
    add(picture.range()->low, "Min ", smallest_color);
}

void ResultDrawing::add_probes(const Picture& picture, const SceneTables& tables, const DisplayState& state) {
    const ShownUnit unit = told_unit(state.shown_contour(), tables.ana_type(), state.units);
    for (std::size_t k = 0; k < state.probes.size(); ++k) {
        const std::int32_t n = state.probes[k];
        if (n < 0 || n >= tables.mesh().node_num()) continue;
        const Vec3 at = triple(places_, n);
        mark_list_.push_back(color_vertex(at, probe_color));
        const bool known = picture.contour() && n < std::ssize(picture.values());
        labels_.push_back({at, formatted("P%zu", k + 1) +
                                   (known ? " " + with_unit(picture.values()[n], unit) : std::string())});
    }
}

void ResultDrawing::draw_lines(double pixel_ratio) const {
    glLineWidth(static_cast<float>(2.5 * pixel_ratio));
    glDepthRange(0, 0.9999);  // before the faces that they lie in
    gl::draw_lines(lines_);
    glDepthRange(0, 1);
    glLineWidth(1);
}

void ResultDrawing::draw_solids() const {
    if (heads_.count() == 0) return;
    set_material(arrow_color);
    draw_lit(heads_, 0, heads_.count());
}

void ResultDrawing::draw_marks(double pixel_ratio) const {
    if (marks_.count() == 0) return;
    glDisable(GL_DEPTH_TEST);
    glPointSize(static_cast<float>(8 * pixel_ratio));
    draw_points(marks_);
    glPointSize(1);
    glEnable(GL_DEPTH_TEST);
}

}  // namespace kestralum::view::gl
