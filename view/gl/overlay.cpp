#include "view/gl/overlay.h"

#include <GL/gl.h>
#include <GL/glu.h>

#include <algorithm>

namespace kestralum::view::gl {

namespace {

constexpr Color black{0, 0, 0, 1}, panel{1, 1, 1, 0.8f}, frame{0.4f, 0.4f, 0.4f, 1};

void rectangle(GLenum kind, double x, double y, double width, double height, const Color& color) {
    glColor4fv(color.data());
    glBegin(kind);
    glVertex2d(x, y);
    glVertex2d(x + width, y);
    glVertex2d(x + width, y + height);
    glVertex2d(x, y + height);
    glEnd();
}

// A text on a light panel, kept inside the view where it fits.
void boxed_text(double x, double y, const std::string& text, const Camera& camera, TextPainter& painter) {
    if (text.empty()) return;
    const double width = painter.width(text), height = painter.height();
    x = std::clamp(x, 4.0, std::max(camera.width - width - 4, 4.0));
    y = std::clamp(y, height, std::max(camera.height - 0.4 * height, height));
    rectangle(GL_QUADS, x - 3, y - 0.9 * height, width + 6, 1.3 * height, panel);
    painter.draw(x, y, text, black);
}

BarLayout layout_of(const ContourBar& bar, const Camera& camera, const TextPainter& painter) {
    double widest = 0;
    for (const BarTick& tick : bar.ticks) widest = std::max(widest, painter.width(tick.text));
    // title and marks begin at the bar's left edge, the values right of it
    const double beside = 1.7 * painter.height();
    for (const std::string* text : {&bar.title, &bar.largest, &bar.smallest})
        widest = std::max(widest, painter.width(*text) - beside);
    return bar_layout(camera.width, camera.height, widest, painter.height());
}

void draw_bar(const ContourBar& bar, const Camera& camera, TextPainter& painter) {
    const BarLayout at = layout_of(bar, camera, painter);
    rectangle(GL_QUADS, at.panel_x, at.panel_y, at.panel_width, at.panel_height, {1, 1, 1, 0.85f});
    const double foot = at.bar_y + at.bar_height;
    const double step = at.bar_height / static_cast<double>(bar.colors.size() - 1);
    glBegin(GL_QUAD_STRIP);
    for (std::size_t k = 0; k < bar.colors.size(); ++k) {
        const double y = foot - step * static_cast<double>(k);
        glColor4fv(bar.colors[k].data());
        glVertex2d(at.bar_x, y);
        glVertex2d(at.bar_x + at.bar_width, y);
    }
    glEnd();
    rectangle(GL_LINE_LOOP, at.bar_x, at.bar_y, at.bar_width, at.bar_height, frame);
    painter.draw(at.bar_x, at.title_y, bar.title, black);
    painter.draw(at.bar_x, at.largest_y, bar.largest, black);
    painter.draw(at.bar_x, at.smallest_y, bar.smallest, black);
    double last = foot + 2 * painter.height();
    for (const BarTick& tick : bar.ticks) {  // a low bar leaves values out rather than stack them
        const double y = foot - tick.at * at.bar_height;
        if (last - y < painter.height()) continue;
        painter.draw(at.text_x, y + 0.35 * painter.height(), tick.text, black);
        last = y;
    }
}

void draw_labels(const OverlayTexts& texts, const Camera& camera, const Scene& scene, TextPainter& painter) {
    for (const Label& label : texts.labels)
        if (const auto at = project(camera, scene, label.at))
            boxed_text((*at)[0] + 6, (*at)[1] - 6, label.text, camera, painter);
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
    draw_labels(texts, camera, scene, painter);
    double y = 1.5 * painter.height();
    for (const std::string& line : texts.lines) {
        boxed_text(10, y, line, camera, painter);
        y += 1.3 * painter.height();
    }
    // the legend begins at (10, 5) of a picture of 100 by 100 that counts from its lower left corner
    const double left = 0.1 * camera.width, foot = 0.95 * camera.height;
    boxed_text(left, std::min(foot, camera.height - 1.7 * painter.height()), texts.legend, camera, painter);
    boxed_text(left, std::max(foot + 1.3 * painter.height(), 0.0), texts.scale, camera, painter);
    if (!texts.bar.colors.empty()) draw_bar(texts.bar, camera, painter);
    glEnable(GL_DEPTH_TEST);
}

}  // namespace kestralum::view::gl
