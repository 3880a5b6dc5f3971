// Supports with options, loads and ties on the graphics card.
#pragma once

#include <utility>
#include <vector>

#include "view/condition_symbols.h"
#include "view/gl/buffers.h"

namespace kestralum::view::gl {

// Shafts as lines, heads as triangles.
void add_arrow(const Arrow& arrow, const Color& color, std::vector<Line>& shafts,
               std::vector<LitVertex>& heads);
void add_turn(const TurnArrow& turn, const Color& color, std::vector<Line>& shafts,
              std::vector<LitVertex>& heads);

inline constexpr Color force_color{0.85f, 0.1f, 0.1f, 1};

class ConditionDrawing {
public:
    void send(const ConditionSymbols& symbols);
    void draw_lines() const;    // lighting off
    void draw_solids() const;   // lighting on
    void draw_through() const;  // once more where the model hides them; lighting off
    const std::vector<Label>& labels() const { return labels_; }
    std::array<Buffer*, 3> buffers() { return {&lines_, &through_, &solids_}; }

private:
    Buffer lines_, through_, solids_;
    std::vector<std::pair<Color, GLsizei>> colors_;  // of solids_, with the count of vertices
    std::vector<Label> labels_;
};

}  // namespace kestralum::view::gl
