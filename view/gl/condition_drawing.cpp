#include "view/gl/condition_drawing.h"

#include <cmath>
#include <numbers>

namespace kestralum::view::gl {

void add_arrow(const Arrow& arrow, const Color& color, std::vector<Line>& shafts,
               std::vector<LitVertex>& heads) {
    constexpr double head_share = 0.22;
    const Vec3 along = minus(arrow.tip, arrow.tail);
    const double length = norm(along);
    const Vec3 back = unit(times(-1, along));
    shafts.push_back({arrow.tail, plus(arrow.tip, times(0.8 * head_share * length, back)), color});
    const double height = head_share * length;
    add_cone(heads, {arrow.tip, back, height, 0.25 * height});
}

void add_turn(const TurnArrow& turn, const Color& color, std::vector<Line>& shafts,
              std::vector<LitVertex>& heads) {
    const double radius = norm(turn.u), height = 0.7 * radius;
    const double end = turn_degrees * std::numbers::pi / 180;
    const Vec3 at = plus(turn.centre, plus(times(std::cos(end), turn.u), times(std::sin(end), turn.v)));
    const Vec3 back = unit(minus(times(std::sin(end), turn.u), times(std::cos(end), turn.v)));
    shafts.push_back({turn.foot, turn.centre, color});
    add_circle(shafts, turn.centre, turn.u, turn.v, turn_degrees, color);
    add_cone(heads, {minus(at, times(height, back)), back, height, 0.3 * height});
}

void ConditionDrawing::send(const ConditionSymbols& symbols) {
    std::vector<Line> lines = symbols.lines;
    std::vector<LitVertex> solids;
    colors_.clear();
    for (const Solids& group : symbols.solids) {
        const std::size_t before = solids.size();
        for (const Cone& cone : group.cones) add_cone(solids, cone);
        for (const Arrow& arrow : group.arrows) add_arrow(arrow, group.color, lines, solids);
        for (const TurnArrow& turn : group.turns) add_turn(turn, group.color, lines, solids);
        colors_.emplace_back(group.color, static_cast<GLsizei>(solids.size() - before));
    }
    lines_.send(GL_ARRAY_BUFFER, line_vertices(lines));
    through_.send(GL_ARRAY_BUFFER, line_vertices(symbols.through));
    solids_.send(GL_ARRAY_BUFFER, solids);
    labels_ = symbols.labels;
}

void ConditionDrawing::draw_lines() const {
    gl::draw_lines(lines_);
    gl::draw_lines(through_);
}

void ConditionDrawing::draw_solids() const {
    GLsizei first = 0;
    for (const auto& [color, count] : colors_) {
        set_material(color);
        draw_lit(solids_, first, count);
        first += count;
    }
}

void ConditionDrawing::draw_through() const {
    gl::draw_lines(through_);
}

}  // namespace kestralum::view::gl
