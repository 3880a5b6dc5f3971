#include "view/gl/overlay.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>

namespace kestralum::view::gl {

namespace {

constexpr Color black{0, 0, 0, 1}, panel{1, 1, 1, 0.75f}, frame{0.4f, 0.4f, 0.4f, 1};

void rectangle(GLenum kind, double x, double y, double width, double height, const Color& color) {
    glColor4fv(color.data());
    glBegin(kind);
    glVertex2d(x, y);
    glVertex2d(x + width, y);
    glVertex2d(x + width, y + height);
    glVertex2d(x, y + height);
    glEnd();
}

struct Box {
    double left, top, right, bottom;
    bool meets(const Box& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

// Texts on light panels that keep clear of each other.
class Panels {
public:
    Panels(const Camera& camera, TextPainter& painter) : camera_(camera), painter_(painter) {}

    void take(const Box& box) { taken_.push_back(box); }

    // At its place.
    void fixed(double x, double y, const std::string& text, TextSize size) {
        if (text.empty()) return;
        const Box box = around(x, y, text, size);
        take(box);
        draw(box, text, size);
    }

    // Beside a place: right or left of it, or the nearest free row above or below, inside the view.
    void label(double x, double y, const std::string& text) {
        constexpr int rows = 12;
        constexpr double beside = 8;
        const double step = 1.4 * painter_.height(TextSize::small);
        const double columns[2] = {x + beside, x - beside - painter_.width(text, TextSize::small)};
        Box best = inside(around(columns[0], y, text, TextSize::small));
        for (int k = 0; k < 4 * rows && occupied(best); ++k) {
            const int row = (k / 2 + 1) / 2 * (k / 2 % 2 ? 1 : -1);  // 0, 1, -1, 2, -2 …
            best = inside(around(columns[k % 2], y + step * row, text, TextSize::small));
        }
        take(best);
        draw(best, text, TextSize::small);
    }

private:
    Box around(double x, double y, const std::string& text, TextSize size) const {
        const double h = painter_.height(size);
        return {x - 3, y - 0.9 * h, x + painter_.width(text, size) + 3, y + 0.35 * h};
    }
    Box inside(Box box) const {
        const double dx = std::max(0.0, 2 - box.left) - std::max(0.0, box.right + 2 - camera_.width);
        const double dy = std::max(0.0, 2 - box.top) - std::max(0.0, box.bottom + 2 - camera_.height);
        return {box.left + dx, box.top + dy, box.right + dx, box.bottom + dy};
    }
    bool occupied(const Box& box) const {
        return std::any_of(taken_.begin(), taken_.end(), [&](const Box& other) { return box.meets(other); });
    }
    void draw(const Box& box, const std::string& text, TextSize size) {
        rectangle(GL_QUADS, box.left, box.top, box.right - box.left, box.bottom - box.top, panel);
        painter_.draw(box.left + 3, box.top + 0.9 * painter_.height(size), text, size, black);
    }

    const Camera& camera_;
    TextPainter& painter_;
    std::vector<Box> taken_;
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

void draw_bar(const ContourBar& bar, const Camera& camera, TextPainter& painter) {
    const BarLayout at = layout_of(bar, camera, painter);
    rectangle(GL_QUADS, at.panel_x, at.panel_y, at.panel_width, at.panel_height, {1, 1, 1, 0.85f});
    const double foot = at.bar_y + at.bar_height;
    const int steps = static_cast<int>(bar.colors.size()) - 1;
    glBegin(GL_QUAD_STRIP);
    for (int k = 0; k <= steps; ++k) {
        const double y = foot - at.bar_height * k / steps;
        glColor4fv(bar.colors[k].data());
        glVertex2d(at.bar_x, y);
        glVertex2d(at.bar_x + at.bar_width, y);
    }
    glEnd();
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

}  // namespace

double bar_width(const ContourBar& bar, const Camera& camera, const TextPainter& painter) {
    if (bar.colors.empty()) return 0;
    return camera.width - layout_of(bar, camera, painter).panel_x;
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
    glLineWidth(1);
    Panels panels(camera, painter);
    const double small = painter.height(TextSize::small), large = painter.height(TextSize::large);
    double y = 1.5 * small;
    for (const std::string& line : texts.lines) {
        panels.fixed(10, y, line, TextSize::small);
        y += 1.25 * small;
    }
    // the legend begins at (10, 5) of a picture of 100 by 100 that counts from its lower left corner
    const double left = 0.1 * camera.width,
                 foot = std::min(0.95 * camera.height, camera.height - 1.7 * large);
    panels.fixed(left, foot, texts.legend, TextSize::large);
    panels.fixed(left, foot + 1.3 * small + 2, texts.scale, TextSize::small);
    if (!texts.bar.colors.empty()) {
        const BarLayout at = layout_of(texts.bar, camera, painter);
        panels.take({at.panel_x, at.panel_y, at.panel_x + at.panel_width, at.panel_y + at.panel_height});
    }
    for (const Label& label : texts.labels)
        if (const auto at = project(camera, scene, label.at))
            panels.label((*at)[0], (*at)[1] - 8, label.text);  // a line to the right stays in sight
    if (!texts.bar.colors.empty()) draw_bar(texts.bar, camera, painter);
    glEnable(GL_DEPTH_TEST);
}

}  // namespace kestralum::view::gl
