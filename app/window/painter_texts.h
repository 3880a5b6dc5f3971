// Texts drawn by Qt where GLUT has no X display or no letters of the size: kept until the scene is drawn,
// then painted over it.
#pragma once

#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <cmath>
#include <string>
#include <vector>

#include "view/gl/text.h"

namespace kestralum {

class PainterTexts : public view::gl::TextPainter {
public:
    using Size = view::gl::TextSize;

    explicit PainterTexts(double pixel_ratio = qGuiApp->devicePixelRatio()) : TextPainter(pixel_ratio) {}

    void draw(double x, double y, const std::string& text, Size size, const view::Color& color) override {
        texts_.push_back({left() + x, y, text, size, color});
    }
    double width(const std::string& text, Size size) const override {
        return QFontMetricsF(font(size)).horizontalAdvance(QString::fromStdString(text));
    }

    // The text, its end left out where it is wider.
    std::string cut(const std::string& text, Size size, double width) const {
        return QFontMetricsF(font(size))
            .elidedText(QString::fromStdString(text), Qt::ElideRight, width)
            .toStdString();
    }

    // Paints what was drawn, in pixels of the device.
    void paint(QPaintDevice* device) {
        QPainter painter(device);
        const double scale = 1 / device->devicePixelRatioF();
        painter.scale(scale, scale);
        for (const Text& t : texts_) {
            painter.setFont(font(t.size));
            painter.setPen(QColor::fromRgbF(t.color[0], t.color[1], t.color[2], t.color[3]));
            painter.drawText(QPointF(t.x, t.y), QString::fromStdString(t.text));
        }
        texts_.clear();
    }

private:
    QFont font(Size size) const {
        QFont font("sans-serif");
        font.setPixelSize(static_cast<int>(std::lround(pixel_ratio() * (size == Size::large ? 16 : 12))));
        return font;
    }
    struct Text {
        double x, y;
        std::string text;
        Size size;
        view::Color color;
    };
    std::vector<Text> texts_;
};

}  // namespace kestralum
