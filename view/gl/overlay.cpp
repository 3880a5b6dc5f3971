#include "view/gl/overlay.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>

namespace kestralum::view::gl {

namespace {

constexpr Color black{0, 0, 0, 1}, grey{0.3f, 0.3f, 0.3f, 1}, panel{1, 1, 1, 0.75f},
    dim_panel{1, 1, 1, 0.65f}, frame{0.4f, 0.4f, 0.4f, 1};

void rectangle(GLenum kind, double x, double y, double width, double height, const Color& color) {
    glColor4fv(color.data());
    glBegin(kind);
    glVertex2d(x, y);
    glVertex2d(x + width, y);
    glVertex2d(x + width, y + height);
    glVertex2d(x, y + height);
    glEnd();
}

// The box of a text that begins at x on the base line y.
PixelBox text_box(double x, double y, const std::string& text, TextSize size, const TextPainter& painter) {
    const double h = painter.height(size), beside = 3 * painter.pixel_ratio();
    return {x - beside, y - 0.9 * h, x + painter.width(text, size) + beside, y + 0.35 * h};
}

// Texts on light panels that keep clear of each other.
class Panels {
public:
    Panels(const Camera& camera, TextPainter& painter) : camera_(camera), painter_(painter) {}

    void take(const PixelBox& box) { taken_.push_back(box); }

    // At its place.
    void fixed(double x, double y, const std::string& text, TextSize size) {
        if (text.empty()) return;
        const PixelBox box = text_box(x, y, text, size, painter_);
        take(box);
        draw(box, text, size, panel, black);
    }

    // Beside a place: right or left of it, or the nearest free row above or below, inside the view; with a
    // line to the place where it is not next to it. Not at all where all of these rows are taken.
    void label(double x, double y, const std::string& text, bool dim) {
        constexpr int rows = 12;
        const double ratio = painter_.pixel_ratio(), beside = 8 * ratio;
        const double step = 1.4 * painter_.height(TextSize::small);
        const double columns[2] = {x + beside, x - beside - painter_.width(text, TextSize::small)};
        for (int k = 0; k < 4 * rows; ++k) {
            const int row = (k / 2 + 1) / 2 * (k / 2 % 2 ? 1 : -1);  // 0, 1, -1, 2, -2 …
            // a line to the right stays in sight
            const PixelBox box =
                inside(text_box(columns[k % 2], y - 8 * ratio + step * row, text, TextSize::small, painter_));
            if (occupied(box)) continue;
            take(box);
            const Color& color = dim ? grey : black;
            if (std::abs(row) > 1) pointer(x, y, box, color);
            draw(box, text, TextSize::small, dim ? dim_panel : panel, color);
            return;
        }
    }

private:
    PixelBox inside(PixelBox box) const {
        const double edge = 2 * painter_.pixel_ratio();
        const double dx = std::max(0.0, edge - box.left) - std::max(0.0, box.right + edge - camera_.width);
        const double dy = std::max(0.0, edge - box.top) - std::max(0.0, box.bottom + edge - camera_.height);
        return {box.left + dx, box.top + dy, box.right + dx, box.bottom + dy};
    }
    bool occupied(const PixelBox& box) const {
        return std::ranges::any_of(taken_, [&](const PixelBox& other) { return box.meets(other); });
    }
    static void pointer(double x, double y, const PixelBox& box, const Color& color) {
        glColor4fv(color.data());
        glBegin(GL_LINES);
        glVertex2d(x, y);
        glVertex2d(std::clamp(x, box.left, box.right), std::clamp(y, box.top, box.bottom));
        glEnd();
    }
    void draw(const PixelBox& box, const std::string& text, TextSize size, const Color& behind,
              const Color& color) {
        rectangle(GL_QUADS, box.left, box.top, box.right - box.left, box.bottom - box.top, behind);
        painter_.draw(box.left + 3 * painter_.pixel_ratio(), box.top + 0.9 * painter_.height(size), text,
                      size, color);
    }

    const Camera& camera_;
    TextPainter& painter_;
    std::vector<PixelBox> taken_;
};

BarLayout layout_of(const ContourBar& bar, const Camera& camera, const TextPainter& painter) {
    const double height = painter.height(TextSize::small);
    double widest = 0;
    for (const BarTick& tick : bar.ticks)
        widest = std::max(widest, painter.width(tick.text, TextSize::small));
    // title and marks begin at the bar's left edge, the values right of it
    for (const std::string* text : {&bar.title, &bar.largest, &bar.smallest})
        widest = std::max(widest, painter.width(*text, TextSize::small) - 1.7 * height);
    return bar_layout(camera.width, camera.height, widest, height);
}

void draw_colors(const ContourBar& bar, const BarLayout& at) {
    const double foot = at.bar_y + at.bar_height;
    const int count = static_cast<int>(bar.colors.size()), intervals = bar.blended ? count - 1 : count;
    glBegin(GL_QUADS);
    for (int k = 0; k < intervals; ++k) {
        const double y0 = foot - at.bar_height * k / intervals,
                     y1 = foot - at.bar_height * (k + 1) / intervals;
        glColor4fv(bar.colors[k].data());
        glVertex2d(at.bar_x, y0);
        glVertex2d(at.bar_x + at.bar_width, y0);
        glColor4fv(bar.colors[bar.blended ? k + 1 : k].data());
        glVertex2d(at.bar_x + at.bar_width, y1);
        glVertex2d(at.bar_x, y1);
    }
    glEnd();
    if (bar.outside.empty()) return;
    const double height = 0.5 * at.bar_width, middle = at.bar_x + 0.5 * at.bar_width;
    glBegin(GL_TRIANGLES);
    for (const bool above : {false, true}) {
        const double y = above ? at.bar_y : foot;
        glColor4fv(bar.outside[above].data());
        glVertex2d(at.bar_x, y);
        glVertex2d(at.bar_x + at.bar_width, y);
        glVertex2d(middle, above ? y - height : y + height);
    }
    glEnd();
}

void draw_bar(const ContourBar& bar, const Camera& camera, TextPainter& painter) {
    const BarLayout at = layout_of(bar, camera, painter);
    rectangle(GL_QUADS, at.panel_x, at.panel_y, at.panel_width, at.panel_height, {1, 1, 1, 0.85f});
    const double foot = at.bar_y + at.bar_height;
    draw_colors(bar, at);
    rectangle(GL_LINE_LOOP, at.bar_x, at.bar_y, at.bar_width, at.bar_height, frame);
    const double height = painter.height(TextSize::small);
    painter.draw(at.bar_x, at.title_y, bar.title, TextSize::small, black);
    painter.draw(at.bar_x, at.largest_y, bar.largest, TextSize::small, black);
    painter.draw(at.bar_x, at.smallest_y, bar.smallest, TextSize::small, black);
    double last = foot + 2 * height;
    for (const BarTick& tick : bar.ticks) {  // a low bar leaves values out rather than stack them
        const double y = foot - tick.at * at.bar_height;
        if (last - y < height) continue;
        painter.draw(at.text_x, y + 0.35 * height, tick.text, TextSize::small, black);
        last = y;
    }
}

struct CornerLine {
    double x, y;  // where the text begins, base line
    const std::string& text;
};
std::vector<CornerLine> corner_lines(const OverlayTexts& texts, const TextPainter& painter) {
    const double small = painter.height(TextSize::small);
    std::vector<CornerLine> out;
    double y = 1.5 * small;
    for (const std::string& line : texts.lines) {
        out.push_back({10 * painter.pixel_ratio(), y, line});
        y += 1.25 * small;
    }
    return out;
}

// The legend begins at (10, 5) of a picture of 100 by 100 that counts from its lower left corner.
double legend_foot(const Camera& camera, const TextPainter& painter) {
    return std::min(0.95 * camera.height, camera.height - 1.7 * painter.height(TextSize::large));
}
double scale_foot(const Camera& camera, const TextPainter& painter) {
    return legend_foot(camera, painter) + 1.3 * painter.height(TextSize::small) + 2 * painter.pixel_ratio();
}

PixelBox bar_panel(const ContourBar& bar, const Camera& camera, const TextPainter& painter) {
    const BarLayout at = layout_of(bar, camera, painter);
    return {at.panel_x, at.panel_y, at.panel_x + at.panel_width, at.panel_y + at.panel_height};
}

// The model's axes as it is turned, above the legend's line.
PixelBox draw_triad(const Camera& camera, TextPainter& painter) {
    constexpr Color colors[3] = {{0.85f, 0, 0, 1}, {0, 0.55f, 0, 1}, {0, 0, 0.9f, 1}};
    constexpr const char* letters[3] = {"x", "y", "z"};
    const double ratio = painter.pixel_ratio(), length = 30 * ratio, half = 44 * ratio;
    const double x = half, y = legend_foot(camera, painter) - painter.height(TextSize::large) - half;
    std::array<int, 3> order{0, 1, 2};  // the nearest last
    std::ranges::sort(order, {}, [&](int k) { return camera.turn[4 * k + 2]; });
    glLineWidth(static_cast<float>(2.5 * ratio));
    for (const int k : order) {
        const double right = camera.turn[4 * k], down = -camera.turn[4 * k + 1];
        glColor4fv(colors[k].data());
        glBegin(GL_LINES);
        glVertex2d(x, y);
        glVertex2d(x + length * right, y + length * down);
        glEnd();
        const double away = length + 8 * ratio;
        painter.draw(x + away * right - 0.5 * painter.width(letters[k], TextSize::small),
                     y + away * down + 0.3 * painter.height(TextSize::small), letters[k], TextSize::small,
                     colors[k]);
    }
    glLineWidth(static_cast<float>(ratio));
    return {x - half, y - half, x + half, y + half};
}

}  // namespace

std::optional<bool> bar_mark_at(const ContourBar& bar, const Camera& camera, const TextPainter& painter,
                                double x, double y) {
    if (bar.colors.empty()) return std::nullopt;
    const BarLayout at = layout_of(bar, camera, painter);
    const PixelBox pixel{x, y, x, y};
    for (const bool largest : {true, false})
        if (text_box(at.bar_x, largest ? at.largest_y : at.smallest_y, largest ? bar.largest : bar.smallest,
                     TextSize::small, painter)
                .meets(pixel))
            return largest;
    return std::nullopt;
}

OverlayRoom overlay_room(const OverlayTexts& texts, const Camera& camera, const TextPainter& painter) {
    OverlayRoom room;
    PixelBox corner{0, 0, 0, 0};
    for (const CornerLine& line : corner_lines(texts, painter)) {
        const PixelBox box = text_box(line.x, line.y, line.text, TextSize::small, painter);
        corner.right = std::max(corner.right, box.right);
        corner.bottom = std::max(corner.bottom, box.bottom);
    }
    if (!texts.lines.empty()) room.boxes.push_back(corner);
    const double left = 0.1 * camera.width;
    if (!texts.legend.empty()) {
        PixelBox box = text_box(left, legend_foot(camera, painter), texts.legend, TextSize::large, painter);
        box.bottom = camera.height;
        room.strips.push_back(box);
        room.margins.bottom = camera.height - box.top;
    }
    if (!texts.bar.colors.empty()) {
        room.strips.push_back(bar_panel(texts.bar, camera, painter));
        room.margins.right = camera.width - room.strips.back().left;
    }
    return room;
}

void draw_overlay(const OverlayTexts& texts, const Camera& camera, const Scene& scene, TextPainter& painter) {
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    gluOrtho2D(0, camera.width, camera.height, 0);
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glDisable(GL_LIGHTING);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glLineWidth(static_cast<float>(painter.pixel_ratio()));
    Panels panels(camera, painter);
    if (texts.triad) panels.take(draw_triad(camera, painter));
    for (const CornerLine& line : corner_lines(texts, painter))
        panels.fixed(line.x, line.y, line.text, TextSize::small);
    const double left = 0.1 * camera.width;
    panels.fixed(left, legend_foot(camera, painter), texts.legend, TextSize::large);
    panels.fixed(left, scale_foot(camera, painter), texts.scale, TextSize::small);
    if (!texts.bar.colors.empty()) panels.take(bar_panel(texts.bar, camera, painter));
    for (const bool dim : {false, true})
        for (const Label& label : dim ? texts.dim_labels : texts.labels)
            if (const auto at = project(camera, scene, label.at))
                panels.label((*at)[0], (*at)[1], label.text, dim);
    if (!texts.bar.colors.empty()) draw_bar(texts.bar, camera, painter);
    glLineWidth(1);
    glEnable(GL_DEPTH_TEST);
}

}  // namespace kestralum::view::gl
