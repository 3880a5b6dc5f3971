// Signs of results in the scene: glyphs, the largest and the smallest value, probes, the plane that is moved.
#pragma once

#include "view/gl/buffers.h"
#include "view/glyphs.h"
#include "view/picture.h"

namespace kestralum::view::gl {

class ResultDrawing {
public:
    // Sends what has changed; it moves with the mesh. `base` is what further quantities are made of.
    void update(Picture& picture, const SceneTables& tables, const DisplayState& state);

    void draw_lines(double pixel_ratio) const;  // lighting off
    void draw_solids() const;                   // lighting on
    void draw_marks(double pixel_ratio) const;  // lighting off; seen through the model
    const std::vector<Label>& labels() const { return labels_; }
    const std::string& text() const { return text_; }  // of the glyphs, for the corner; may be empty
    std::array<Buffer*, 3> buffers() { return {&lines_, &heads_, &marks_}; }
    void forget() { sent_of_ = {}; }  // what lies on the card

private:
    void add_glyphs(Picture& picture, const SceneTables& tables, const DisplayState& state);
    void add_extremes(const Picture& picture, const SceneTables& tables, const DisplayState& state);
    void add_probes(const Picture& picture, const SceneTables& tables, const DisplayState& state);

    struct Key {
        std::uint64_t mesh = 0, faces = 0, places = 0, colors = 0;
        double swing = 0;
        bool operator==(const Key&) const = default;
    } sent_of_;
    struct Wanted {
        Glyphs glyphs = Glyphs::none;
        double glyph_scale = 1;
        bool marks = false;
        DisplayUnits units;
        std::vector<std::int32_t> probes;
        std::vector<ShownSection> sections;
        std::int32_t active_section = -1, contour = -1;
        bool operator==(const Wanted&) const = default;
    } wanted_;
    std::vector<double> places_;        // as drawn
    std::vector<Line> line_list_;       // under way
    std::vector<LitVertex> head_list_;  // the same
    std::vector<ColorVertex> mark_list_;
    Buffer lines_, heads_, marks_;
    std::vector<Label> labels_;
    std::string text_;
};

}  // namespace kestralum::view::gl
