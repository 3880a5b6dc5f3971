#include "app/window/progress_line.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QStyle>
#include <algorithm>
#include <cmath>
#include <utility>

namespace kestralum {

namespace {

constexpr int bar_steps = 1000;

QString span_of(double seconds) {
    const auto whole = static_cast<int>(seconds + 0.5);
    if (whole < 60) return QString("%1 s").arg(whole);
    if (whole < 3600) return QString("%1:%2 min").arg(whole / 60).arg(whole % 60, 2, 10, QChar('0'));
    return QString("%1:%2 h").arg(whole / 3600).arg(whole / 60 % 60, 2, 10, QChar('0'));
}

}  // namespace

ResidualCurve::ResidualCurve(QWidget* parent) : QWidget(parent) {
    setFixedSize(90, 22);
    hide();
}

void ResidualCurve::show_residuals(std::vector<double> residuals) {
    std::erase_if(residuals, [](double r) { return !(r > 0) || !std::isfinite(r); });
    if (residuals == residuals_) return;
    residuals_ = std::move(residuals);
    setVisible(residuals_.size() >= 2);
    if (!residuals_.empty())
        setToolTip(QString("Residual over the loads, iteration by iteration: now %1")
                       .arg(residuals_.back(), 0, 'e', 1));
    update();
}

void ResidualCurve::paintEvent(QPaintEvent*) {
    if (residuals_.size() < 2) return;
    const auto [low, high] = std::ranges::minmax(residuals_);
    const double bottom = std::log10(low), height = std::max(std::log10(high) - bottom, 1.0);
    const double dx = (width() - 8.0) / static_cast<double>(residuals_.size() - 1);
    QPolygonF points;
    for (std::size_t k = 0; k < residuals_.size(); ++k)
        points << QPointF(4 + dx * static_cast<double>(k),
                          4 + (this->height() - 8) * (1 - (std::log10(residuals_[k]) - bottom) / height));
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), palette().base());
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1.5));
    painter.drawPolyline(points);
    painter.setBrush(palette().color(QPalette::Highlight));
    for (const QPointF& p : points) painter.drawEllipse(p, 1.5, 1.5);
}

ProgressLine::ProgressLine(Worker& worker, QWidget* parent)
    : QWidget(parent),
      worker_(worker),
      text_(new QLabel),
      time_(new QLabel),
      curve_(new ResidualCurve),
      bar_(new QProgressBar),
      hold_(new QToolButton),
      step_(new QToolButton),
      stop_(new QToolButton),
      pause_(new QSpinBox) {
    make_row();
    connect(hold_, &QToolButton::toggled, this, [this](bool on) {
        hold_->setText(on ? "Go on" : "Pause");
        step_->setEnabled(on);
        emit held(on);
    });
    connect(step_, &QToolButton::clicked, this, &ProgressLine::stepped);
    connect(pause_, &QSpinBox::valueChanged, this, &ProgressLine::pause_chosen);
    connect(stop_, &QToolButton::clicked, this, [this] {
        worker_.stop();
        show_place();
    });
    connect(&worker, &Worker::begun, this, [this] {
        constexpr int period = 60;  // ms
        job_time_.start();
        stage_time_.start();
        stage_.clear();
        poll_.start(period);
    });
    connect(&worker, &Worker::ended, this, [this] {
        if (worker_.busy()) return;
        poll_.stop();
        curve_->show_residuals({});
        hide();
    });
    connect(&poll_, &QTimer::timeout, this, &ProgressLine::show_place);
    set_live(false);
    hide();
}

void ProgressLine::make_row() {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    for (QWidget* widget :
         std::initializer_list<QWidget*>{text_, curve_, bar_, time_, hold_, step_, pause_, stop_})
        row->addWidget(widget);
    bar_->setFixedWidth(140);
    bar_->setMaximumHeight(14);
    bar_->setTextVisible(false);
    // no button takes the keys: what is typed into the window never stops a run
    for (const auto& [button, text, tip] :
         {std::tuple{hold_, "Pause", "Hold the run; it goes on from here"},
          std::tuple{step_, "Step", "One output interval more of a run that is held"},
          std::tuple{stop_, "Stop", "Stop the work under way; what was reached is kept"}}) {
        button->setText(text);
        button->setObjectName(text);
        button->setToolTip(tip);  // a status tip would wipe what the end of the job says
        button->setFocusPolicy(Qt::NoFocus);
    }
    hold_->setCheckable(true);
    stop_->setIcon(style()->standardIcon(QStyle::SP_BrowserStop));
    stop_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    pause_->setObjectName("interval pause");
    pause_->setRange(0, 1000);
    pause_->setSingleStep(50);
    pause_->setValue(100);
    pause_->setSuffix(" ms");
    pause_->setToolTip("Pause between two output intervals");
    pause_->setFocusPolicy(Qt::ClickFocus);
    text_->setObjectName("course");
    time_->setObjectName("times");
}

void ProgressLine::set_live(bool live) {
    hold_->setChecked(false);
    step_->setEnabled(false);
    for (QWidget* widget : std::initializer_list<QWidget*>{hold_, step_, pause_}) widget->setVisible(live);
}

// Elapsed time of the job, and what remains of the stage.
QString ProgressLine::times(const Progress::Place& at) {
    constexpr double patience = 0.5;  // s of a stage before its rest is foretold
    QString text = span_of(1e-3 * static_cast<double>(job_time_.elapsed()));
    const double seconds = 1e-3 * static_cast<double>(stage_time_.elapsed()), done = at.done();
    if (done > 0.01 && done < 1 && seconds > patience)
        text += ", " + span_of(std::max(seconds * (1 - done) / done, 1.0)) + " left";
    return text;
}

void ProgressLine::show_place() {
    constexpr int patience = 300;        // ms
    if (!worker_.busy()) return hide();  // a box about its end is up
    const Progress::Place at = worker_.place();
    const Progress::Course course = worker_.course();
    if (at.stage != stage_ || at.done() < 0.5 * done_) stage_time_.start();  // it begins again
    stage_ = at.stage;
    done_ = at.done();
    QString text = worker_.title();
    if (!at.stage.empty()) text += ": " + QString::fromStdString(at.stage);
    if (!course.text.empty()) text += "  " + QString::fromStdString(course.text);
    if (!course.residuals.empty()) text += QString("  E/F %1").arg(course.residuals.back(), 0, 'e', 1);
    curve_->show_residuals(course.residuals);
    bar_->setMaximum(done_ >= 0 ? bar_steps : 0);  // 0: moves to and fro
    if (done_ >= 0) {
        bar_->setValue(static_cast<int>(bar_steps * done_));
        text += QString("  %1 %").arg(static_cast<int>(100 * done_));
    }
    if (worker_.stopping()) text += "  (stopping)";
    text_->setText(text);
    text_->setToolTip(text);
    time_->setText(times(at));
    stop_->setEnabled(!worker_.stopping());
    if (job_time_.elapsed() > patience) show();
}

}  // namespace kestralum
