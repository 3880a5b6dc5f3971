// Texts drawn by Qt where GLUT has no X display: kept until the scene is drawn, then painted over it.
#pragma once

#include <QFont>
#include <QFontMetricsF>
#include <QPainter>
#include <string>
#include <vector>

#include "view/gl/text.h"

namespace kestralum {

class PainterTexts : public view::gl::TextPainter {
public:
    PainterTexts() : font_("sans-serif"), metrics_((font_.setPixelSize(15), font_)) {}

    void draw(double x, double y, const std::string& text, const view::Color& color) override {
        texts_.push_back({x, y, text, color});
    }
    double width(const std::string& text) const override {
        return metrics_.horizontalAdvance(QString::fromStdString(text));
    }
    double height() const override { return 18; }

    // Paints what was drawn, in pixels of the device.
    void paint(QPaintDevice* device) {
        QPainter painter(device);
        const double scale = 1 / device->devicePixelRatioF();
        painter.scale(scale, scale);
        painter.setFont(font_);
        for (const Text& t : texts_) {
            painter.setPen(QColor::fromRgbF(t.color[0], t.color[1], t.color[2], t.color[3]));
            painter.drawText(QPointF(t.x, t.y), QString::fromStdString(t.text));
        }
        texts_.clear();
    }

private:
    struct Text {
        double x, y;
        std::string text;
        view::Color color;
    };
    QFont font_;
    QFontMetricsF metrics_;
    std::vector<Text> texts_;
};

}  // namespace kestralum
