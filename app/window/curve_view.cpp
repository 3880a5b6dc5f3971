#include "app/window/curve_view.h"

#include <QCategoryAxis>
#include <QChart>
#include <QGraphicsEllipseItem>
#include <QGraphicsLayout>
#include <QGraphicsLineItem>
#include <QLegend>
#include <QLegendMarker>
#include <QLineSeries>
#include <QMouseEvent>
#include <QRubberBand>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <utility>

namespace kestralum {

namespace {

using Range = CurveView::Range;

// What holds both ends apart though all values are one.
Range widened(Range range, double share) {
    if (!(range.low <= range.high)) return {0, 1};
    double more = share * (range.high - range.low);
    if (range.high - range.low <= 1e-12 * std::max(std::abs(range.low), std::abs(range.high)))
        more = range.low == 0 ? 1 : 0.1 * std::abs(range.low);
    return {range.low - more, range.high + more};
}

void add_to(Range& range, double value) {
    if (!std::isfinite(value)) return;
    range.low = std::min(range.low, value);
    range.high = std::max(range.high, value);
}
constexpr Range nothing{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};

// 1, 2 or 5 times a power of ten: about six of them in the range.
double tick_interval(Range range) {
    const double rough = (range.high - range.low) / 6, power = std::pow(10, std::floor(std::log10(rough)));
    for (const double step : {1.0, 2.0, 5.0})
        if (rough <= step * power) return step * power;
    return 10 * power;
}

// k steps, with the digits that tell one from the next: "0", "1.5", "2.0e-06".
QString tick_text(double k, double step, double most) {
    const auto decade = [](double value) { return static_cast<int>(std::floor(std::log10(value) + 1e-9)); };
    const double value = k * step;
    if (k == 0) return "0";
    if (most < 1e6 && step > 0.99e-4) return QString::number(value, 'f', std::max(0, -decade(step)));
    return QString::number(value, 'e', std::clamp(decade(std::abs(value)) - decade(step), 0, 15));
}

// Steps of at least `least`.
void set_range(QCategoryAxis* axis, Range range, double least = 0) {
    for (const QString& label : axis->categoriesLabels()) axis->remove(label);
    axis->setRange(range.low, range.high);
    axis->setStartValue(range.low);
    const double step = std::max(least, tick_interval(range)),
                 most = std::max(std::abs(range.low), std::abs(range.high)), rounding = 1e-9;
    for (double k = std::ceil(range.low / step - rounding); k <= range.high / step + rounding; ++k)
        axis->append(tick_text(k, step, most), std::clamp(k * step, range.low, range.high));
}

QCategoryAxis* new_axis() {
    auto* axis = new QCategoryAxis;
    axis->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    axis->setTruncateLabels(false);
    return axis;
}

QString title(const std::string& name, const std::string& unit) {
    return QString::fromStdString(with_unit(name, unit));
}

}  // namespace

CurveView::CurveView(QWidget* parent)
    : QChartView(new QChart, parent),
      x_(new_axis()),
      left_(new_axis()),
      right_(new_axis()),
      cursor_(new QGraphicsLineItem(chart())),
      mark_(new QGraphicsEllipseItem(-4, -4, 8, 8, chart())),
      band_(new QRubberBand(QRubberBand::Rectangle, viewport())) {
    setObjectName("curve_view");
    setMouseTracking(true);
    viewport()->setMouseTracking(true);
    setMinimumSize(240, 160);
    chart()->setMargins({4, 4, 28, 4});  // half of the last label stands out
    chart()->layout()->setContentsMargins(0, 0, 0, 0);
    chart()->setBackgroundRoundness(0);
    chart()->legend()->setAlignment(Qt::AlignTop);
    chart()->addAxis(x_, Qt::AlignBottom);
    chart()->addAxis(left_, Qt::AlignLeft);
    chart()->addAxis(right_, Qt::AlignRight);
    cursor_->setPen(QPen(QColor(200, 40, 40), 1, Qt::DashLine));
    cursor_->setZValue(20);
    mark_->setZValue(21);
    for (QGraphicsItem* item : {static_cast<QGraphicsItem*>(cursor_), static_cast<QGraphicsItem*>(mark_)})
        item->hide();
    connect(chart(), &QChart::plotAreaChanged, this, [this] { refill(); });
}

void CurveView::show_curves(const History& history, std::vector<ShownCurve> curves, bool keep) {
    series_.clear();  // before they go: a new layout fills what there is
    chart()->removeAllSeries();
    history_ = &history;
    curves_ = std::move(curves);
    std::array<QString, 2> units;  // empty: no curve
    for (const ShownCurve& curve : curves_) {
        const HistoryColumn& column = history.columns[curve.column];
        auto* series = new QLineSeries;
        series->setName(title(column.name, column.unit));
        series->setPen(QPen(curve.color, 1.6, curve.right ? Qt::DashLine : Qt::SolidLine));
        if (!curve.joined) {
            constexpr double points = 4;  // pixels across
            series->setPen(QPen(curve.color, points, Qt::NoPen));
            series->setMarkerSize(points);
        }
        chart()->addSeries(series);
        series->attachAxis(x_);
        series->attachAxis(curve.right ? right_ : left_);
        for (QLegendMarker* marker : chart()->legend()->markers(series)) marker->setVisible(curve.named);
        series_.push_back(series);
        units[curve.right] =
            column.unit.empty() ? QString("pure number") : QString::fromStdString(column.unit);
    }
    x_->setTitleText(title(history.axis, history.axis_unit));
    left_->setTitleText(units[0]);
    right_->setTitleText(units[1] + " (dashed)");
    left_->setVisible(!units[0].isEmpty());
    right_->setVisible(!units[1].isEmpty());
    right_->setGridLineVisible(false);
    // a right axis that has gone changes nothing
    const auto before = std::exchange(units_, units);
    if (keep && !fitted_ && units[0] == before[0] && (units[1].isEmpty() || units[1] == before[1]))
        set_ranges(x_seen_, left_seen_, right_seen_);
    else
        fit();
}

void CurveView::grow() {
    if (!history_) return;
    if (fitted_)
        fit();
    else
        refill();
}

void CurveView::fit() {
    fitted_ = true;
    if (!history_) return;
    Range x = nothing, left = nothing, right = nothing;
    for (const double value : history_->x) add_to(x, value);
    for (const ShownCurve& curve : curves_)
        for (const double value : history_->columns[curve.column].values)
            add_to(curve.right ? right : left, value);
    set_ranges(widened(x, 0), widened(left, 0.05), widened(right, 0.05));
}

void CurveView::set_ranges(Range x, Range left, Range right) {
    x_seen_ = x;
    left_seen_ = left;
    right_seen_ = right;
    set_range(x_, x, history_->numbered ? 1 : 0);
    set_range(left_, left);
    set_range(right_, right);
    refill();
}

// Only what the pixels show is handed to the chart: a curve of many thousand points is drawn at once.
void CurveView::refill() {
    constexpr std::size_t few = 60;     // points are marked one by one
    constexpr std::size_t most = 5000;  // of points alone that are all drawn
    const int width = std::max(1, static_cast<int>(chart()->plotArea().width()));
    for (std::size_t k = 0; k < series_.size(); ++k) {
        const std::vector<double>& y = history_->columns[curves_[k].column].values;
        QList<QPointF> points;
        if (history_->ordered && (curves_[k].joined || y.size() > most)) {
            for (const CurvePoint& p : thinned(history_->x, y, x_seen_.low, x_seen_.high, width))
                points.append({p.x, p.y});
        } else {
            for (std::size_t row = 0; row < history_->x.size(); ++row)
                if (std::isfinite(y[row])) points.append({history_->x[row], y[row]});
        }
        series_[k]->setPointsVisible(!curves_[k].joined || history_->x.size() <= few);
        series_[k]->replace(points);
    }
    mark_->hide();
    move_cursor();
}

// ---- places

QPointF CurveView::drawn_at(double x, double y, bool right) const {
    const QRectF plot = chart()->plotArea();
    const Range& seen = right ? right_seen_ : left_seen_;
    return {plot.left() + plot.width() * (x - x_seen_.low) / (x_seen_.high - x_seen_.low),
            plot.bottom() - plot.height() * (y - seen.low) / (seen.high - seen.low)};
}

QPointF CurveView::place_of(std::size_t curve, std::size_t row) const {
    const ShownCurve& shown = curves_[curve];
    return drawn_at(history_->x[row], history_->columns[shown.column].values[row], shown.right);
}

QPointF CurveView::share(const QPointF& pixel) const {
    const QRectF plot = chart()->plotArea();
    return {(pixel.x() - plot.left()) / plot.width(), (plot.bottom() - pixel.y()) / plot.height()};
}

// Of the rows at the pointer's place along the axis the curve next to it; where x comes back on itself the
// point next to it.
std::optional<CurveView::Hit> CurveView::nearest(const QPointF& pixel) const {
    if (!history_ || history_->x.empty() || !chart()->plotArea().contains(pixel)) return std::nullopt;
    const std::vector<double>& x = history_->x;
    std::size_t first = 0, end = x.size();
    if (history_->ordered) {
        const double at = x_seen_.low + share(pixel).x() * (x_seen_.high - x_seen_.low);
        first = static_cast<std::size_t>(std::lower_bound(x.begin(), x.end(), at) - x.begin());
        if (first == x.size() || (first > 0 && at - x[first - 1] < x[first] - at)) --first;
        end = first + 1;
    }
    Hit hit{0, first};
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t curve = 0; curve < curves_.size(); ++curve)
        for (std::size_t row = first; row < end; ++row) {
            const QPointF off = place_of(curve, row) - pixel;
            const double distance = std::hypot(off.x(), off.y());
            if (!(distance < least)) continue;
            least = distance;
            hit = {curve, row};
        }
    return hit;
}

void CurveView::set_cursor(std::optional<std::size_t> row) {
    cursor_row_ = row;
    move_cursor();
}

void CurveView::move_cursor() {
    const bool known = history_ && cursor_row_ && *cursor_row_ < history_->x.size() && !curves_.empty();
    const QRectF plot = chart()->plotArea();
    const double x = known ? drawn_at(history_->x[*cursor_row_], 0, false).x() : 0;
    cursor_->setLine(x, plot.top(), x, plot.bottom());
    cursor_->setVisible(known && x >= plot.left() - 0.5 && x <= plot.right() + 0.5);
}

void CurveView::point_at(const QPointF& pixel) {
    const auto hit = curves_.empty() ? std::nullopt : nearest(pixel);
    mark_->setVisible(hit.has_value());
    if (!hit) return emit pointed_at("");
    const ShownCurve& curve = curves_[hit->curve];
    const HistoryColumn& column = history_->columns[curve.column];
    const auto text = [](const std::string& name, double value, const std::string& unit) {
        return QString("%1 = %2 %3")
            .arg(QString::fromStdString(name), QString::number(value, 'g', 6), QString::fromStdString(unit))
            .trimmed();
    };
    const QPointF at = place_of(hit->curve, hit->row);
    mark_->setVisible(chart()->plotArea().contains(at));
    mark_->setPos(at);
    mark_->setPen(QPen(curve.color, 2));
    const double y = column.values[hit->row];
    if (!std::isfinite(y)) return emit pointed_at("");
    emit pointed_at(text(column.name, y, column.unit) + "   at " +
                    text(history_->axis, history_->x[hit->row], history_->axis_unit) +
                    (history_->of_frames ? QString("   (frame %1)").arg(hit->row + 1) : QString()));
}

// ---- mouse

void CurveView::zoom(const QRectF& part) {
    const auto cut = [](Range range, double from, double to) {
        const double size = range.high - range.low;
        return Range{range.low + from * size, range.low + to * size};
    };
    const Range x = cut(x_seen_, part.left(), part.right());
    const auto y = [&](Range range) { return cut(range, part.top(), part.bottom()); };
    for (const Range& range : {x, y(left_seen_), y(right_seen_)}) {
        const double most = std::max(std::abs(range.low), std::abs(range.high)),
                     size = range.high - range.low;
        if (!(size > 1e-11 * most) || !std::isfinite(1e6 * most)) return;  // beyond what numbers can tell
    }
    fitted_ = false;
    set_ranges(x, y(left_seen_), y(right_seen_));
}

void CurveView::mousePressEvent(QMouseEvent* event) {
    if (button_ != Qt::NoButton) return;
    button_ = event->button() == Qt::LeftButton && event->modifiers() & Qt::ShiftModifier ? Qt::MiddleButton
                                                                                          : event->button();
    pressed_at_ = last_at_ = event->pos();
    dragged_ = !chart()->plotArea().contains(event->position());
    if (dragged_) button_ = Qt::NoButton;
    event->accept();
}

void CurveView::mouseMoveEvent(QMouseEvent* event) {
    constexpr int shake = 3;  // pixels of a click
    if (button_ == Qt::NoButton) return point_at(event->position());
    if (!dragged_ && (event->pos() - pressed_at_).manhattanLength() <= shake) return;
    dragged_ = true;
    if (button_ == Qt::LeftButton) {
        band_->setGeometry(QRect(pressed_at_, event->pos()).normalized());
        band_->show();
    } else {
        const QPointF moved = share(last_at_) - share(event->pos());
        last_at_ = event->pos();
        zoom(QRectF(moved.x(), moved.y(), 1, 1));
    }
}

void CurveView::mouseReleaseEvent(QMouseEvent* event) {
    const Qt::MouseButton button = std::exchange(button_, Qt::NoButton);
    band_->hide();
    if (button == Qt::LeftButton && dragged_) {
        constexpr int least = 5;  // pixels: a band that is no line
        const QRect band = QRect(pressed_at_, event->pos()).normalized();
        const QRectF part = QRectF(share(band.bottomLeft()), share(band.topRight())) & QRectF(0, 0, 1, 1);
        if (band.width() >= least && band.height() >= least && !part.isEmpty()) zoom(part);
    } else if (button == Qt::LeftButton) {
        const auto hit = nearest(event->position());
        if (!hit || !history_->of_frames) return;
        row_before_click_ = cursor_row_;
        emit frame_chosen(static_cast<int>(hit->row) + 1);
    }
}

// The first click has asked for a frame: that was not meant.
void CurveView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    if (row_before_click_ && row_before_click_ != cursor_row_)
        emit frame_chosen(static_cast<int>(*row_before_click_) + 1);
    row_before_click_.reset();
    fit();
}

void CurveView::wheelEvent(QWheelEvent* event) {
    event->accept();
    if (!history_ || !chart()->plotArea().contains(event->position())) return;
    const double size = std::pow(0.8, event->angleDelta().y() / 120.0);
    const QPointF at = share(event->position());
    zoom({at.x() * (1 - size), at.y() * (1 - size), size, size});
    point_at(event->position());
}

void CurveView::leaveEvent(QEvent* event) {
    QChartView::leaveEvent(event);
    mark_->hide();
    emit pointed_at("");
}

}  // namespace kestralum
