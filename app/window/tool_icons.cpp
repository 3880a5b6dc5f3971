#include "app/window/tool_icons.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <cmath>
#include <numbers>

namespace kestralum {

namespace {

constexpr int side = 64;  // pixels; the paths below live in a square of 32

class Drawing {
public:
    Drawing(QPainter& painter, const QPalette& palette)
        : painter_(painter),
          ink_(palette.color(QPalette::WindowText)),
          mark_(palette.color(QPalette::Highlight)) {}

    void lines(std::initializer_list<QPointF> points, bool marked = false) {
        painter_.setPen(QPen(marked ? mark_ : ink_, 2.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter_.setBrush(Qt::NoBrush);
        painter_.drawPolyline(QPolygonF(QList<QPointF>(points)));
    }
    void arrow(QPointF from, QPointF to, bool marked = true) {
        lines({from, to}, marked);
        const QPointF d = (to - from) / std::hypot(to.x() - from.x(), to.y() - from.y());
        const QPointF side_way(-d.y(), d.x());
        lines({to - 6 * d + 4 * side_way, to, to - 6 * d - 4 * side_way}, marked);
    }
    template <typename Height>
    void curve(Height height, bool marked = true) {
        QPolygonF points;
        for (int k = 0; k <= 48; ++k) points << QPointF(4 + 0.5 * k, height(k / 48.0));
        painter_.setPen(QPen(marked ? mark_ : ink_, 2.4));
        painter_.drawPolyline(points);
    }
    void letter(const QString& text) {
        QFont font = painter_.font();
        font.setPixelSize(20);
        font.setBold(true);
        painter_.setFont(font);
        painter_.setPen(ink_);
        painter_.drawText(QRectF(12, 0, 20, 22), Qt::AlignCenter, text);
    }
    void bar(const QList<QColor>& colors) {
        QLinearGradient gradient(0, 28, 0, 4);
        for (qsizetype k = 0; k < colors.size(); ++k)
            gradient.setColorAt(static_cast<double>(k) / static_cast<double>(colors.size() - 1), colors[k]);
        painter_.setPen(QPen(ink_, 1));
        painter_.setBrush(gradient);
        painter_.drawRect(QRectF(10, 4, 12, 24));
    }
    void arc(QRectF box, int from_degrees, int degrees) {
        painter_.setPen(QPen(ink_, 2.4));
        painter_.drawArc(box, 16 * from_degrees, 16 * degrees);
    }

private:
    QPainter& painter_;
    const QColor ink_, mark_;
};

void draw(Drawing& d, ToolIcon icon) {
    using std::numbers::pi;
    switch (icon) {
        case ToolIcon::check:
            d.lines({{6, 17}, {13, 25}, {27, 7}}, true);
            break;
        case ToolIcon::statics:
            d.lines({{4, 6}, {4, 28}});
            d.lines({{4, 17}, {28, 21}});
            d.arrow({27, 4}, {27, 18});
            break;
        case ToolIcon::eigen:
            d.lines({{4, 16}, {28, 16}});
            d.curve([](double t) { return 16 - 11 * std::sin(2 * pi * t); });
            break;
        case ToolIcon::nonlinear:
            d.lines({{5, 4}, {5, 27}, {29, 27}});
            d.curve([](double t) { return 27 - 20 * (1 - std::exp(-4 * t)); });
            break;
        case ToolIcon::explicit_run:
            d.lines({{26, 4}, {26, 28}});
            d.arrow({4, 16}, {24, 16});
            d.lines({{4, 8}, {12, 8}});
            d.lines({{4, 24}, {12, 24}});
            break;
        case ToolIcon::fit:
            d.lines({{4, 10}, {4, 4}, {10, 4}});
            d.lines({{22, 4}, {28, 4}, {28, 10}});
            d.lines({{28, 22}, {28, 28}, {22, 28}});
            d.lines({{10, 28}, {4, 28}, {4, 22}});
            d.lines({{11, 11}, {21, 11}, {21, 21}, {11, 21}, {11, 11}}, true);
            break;
        case ToolIcon::x:
        case ToolIcon::y:
        case ToolIcon::z:
            d.arrow({4, 28}, {16, 28}, icon != ToolIcon::z);
            d.arrow({4, 28}, {4, 14}, icon == ToolIcon::z);
            d.letter(icon == ToolIcon::x ? "x" : icon == ToolIcon::y ? "y" : "z");
            break;
        case ToolIcon::iso:
            d.lines({{16, 4}, {27, 10}, {27, 22}, {16, 28}, {5, 22}, {5, 10}, {16, 4}});
            d.lines({{5, 10}, {16, 16}, {27, 10}}, true);
            d.lines({{16, 16}, {16, 28}}, true);
            break;
        case ToolIcon::rotate:
            d.arc({6, 6, 20, 20}, 20, 290);
            d.arrow({25, 20}, {26, 11});
            break;
        case ToolIcon::contour:
            d.bar({Qt::blue, Qt::cyan, Qt::green, Qt::yellow, Qt::red});
            break;
        case ToolIcon::plastic:
            d.lines({{4, 27}, {12, 9}});
            d.curve([](double t) { return t < 1.0 / 3 ? 27 - 54 * t : 9 - 6 * (t - 1.0 / 3); });
            d.lines({{16, 27}, {24, 8}});
            break;
        case ToolIcon::all_frames:
            d.lines({{4, 10}, {20, 10}, {20, 26}, {4, 26}, {4, 10}});
            d.lines({{9, 10}, {9, 6}, {25, 6}, {25, 22}, {20, 22}}, true);
            break;
        case ToolIcon::auto_scale:
            d.lines({{4, 26}, {28, 26}});
            d.curve([](double t) { return 26 - 20 * t * t; });
            d.arrow({22, 22}, {22, 13}, false);
            break;
    }
}

}  // namespace

QIcon tool_icon(ToolIcon icon, const QWidget& widget) {
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(side / 32.0, side / 32.0);
    Drawing drawing(painter, widget.palette());
    draw(drawing, icon);
    return pixmap;
}

}  // namespace kestralum
