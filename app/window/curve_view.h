// Curves of a history on a chart with one or two vertical axes: zoomed by a band drawn with the left button
// and by the wheel, moved with the right or middle button, all of it again by a double click.
#pragma once

#include <QChartView>
#include <QColor>
#include <array>
#include <optional>
#include <vector>

#include "results/history.h"

class QCategoryAxis;
class QGraphicsEllipseItem;
class QGraphicsLineItem;
class QLineSeries;
class QRubberBand;

namespace kestralum {

struct ShownCurve {
    std::size_t column = 0;  // of the history
    QColor color{};
    bool right = false;  // measured by the right axis
    bool named = true;   // in the legend; else a further piece of the one before
    bool joined = true;  // by a line; else points alone
};

class CurveView : public QChartView {
    Q_OBJECT

public:
    explicit CurveView(QWidget* parent = nullptr);

    // Draws these; `history` outlives their being shown. The part of the chart that is seen stays with
    // `keep`, where the axes measure the same as before.
    void show_curves(const History& history, std::vector<ShownCurve> curves, bool keep);
    // The history has more rows: they are seen too unless the user looks at a part.
    void grow();
    // The line at the frame shown.
    void set_cursor(std::optional<std::size_t> row);
    void fit();

    struct Range {
        double low = 0, high = 1;
    };
    Range x_range() const { return x_seen_; }
    Range y_range(bool right) const { return right ? right_seen_ : left_seen_; }
    bool fitted() const { return fitted_; }
    // Where a row of a curve is drawn, in the view's own pixels.
    QPointF place_of(std::size_t curve, std::size_t row) const;

signals:
    void frame_chosen(int frame);           // from 1; of a history of frames
    void pointed_at(const QString& value);  // under the pointer; "" where there is none

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void leaveEvent(QEvent* event) override;

private:
    struct Hit {
        std::size_t curve = 0, row = 0;
    };
    void set_ranges(Range x, Range left, Range right);
    void zoom(const QRectF& part);  // of the plot, 0 … 1 from its lower left corner
    QPointF share(const QPointF& pixel) const;
    void refill();
    void move_cursor();
    void point_at(const QPointF& pixel);
    std::optional<Hit> nearest(const QPointF& pixel) const;
    QPointF drawn_at(double x, double y, bool right) const;

    const History* history_ = nullptr;
    std::vector<ShownCurve> curves_;
    std::vector<QLineSeries*> series_;
    std::array<QString, 2> units_;  // of the left and the right axis
    QCategoryAxis *x_, *left_, *right_;
    QGraphicsLineItem* cursor_;
    QGraphicsEllipseItem* mark_;
    std::optional<std::size_t> cursor_row_, row_before_click_;
    Range x_seen_, left_seen_, right_seen_;
    bool fitted_ = true;

    QPoint pressed_at_, last_at_;
    Qt::MouseButton button_ = Qt::NoButton;
    bool dragged_ = false;
    QRubberBand* band_;
};

}  // namespace kestralum
