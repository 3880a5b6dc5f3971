#include "app/window/progress_line.h"

#include <QHBoxLayout>

namespace kestralum {

namespace {

constexpr int bar_steps = 1000;

QString time_left(double seconds) {
    if (seconds < 60) return QString("%1 s left").arg(static_cast<int>(seconds) + 1);
    return QString("%1 min left").arg(static_cast<int>(seconds / 60) + 1);
}

}  // namespace

ProgressLine::ProgressLine(Worker& worker, QWidget* parent)
    : QWidget(parent),
      worker_(worker),
      text_(new QLabel),
      bar_(new QProgressBar),
      stop_(new QPushButton("Stop")) {
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(text_);
    row->addWidget(bar_);
    row->addWidget(stop_);
    bar_->setFixedWidth(160);
    bar_->setMaximumHeight(14);
    bar_->setTextVisible(false);
    stop_->setMaximumHeight(22);
    stop_->setToolTip("Stop the work under way");  // a status tip would wipe what the end of the job says
    connect(stop_, &QPushButton::clicked, this, [this] {
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
        hide();
    });
    connect(&poll_, &QTimer::timeout, this, &ProgressLine::show_place);
    hide();
}

void ProgressLine::show_place() {
    constexpr int patience = 300;        // ms
    if (!worker_.busy()) return hide();  // a box about its end is up
    const Progress::Place at = worker_.place();
    if (at.stage != stage_ || at.count < count_) stage_time_.start();
    stage_ = at.stage;
    count_ = at.count;
    QString text = worker_.title();
    if (!at.stage.empty()) text += ": " + QString::fromStdString(at.stage);
    const bool counted = at.total > 0 && at.count > 0 && at.count <= at.total;
    bar_->setMaximum(counted ? bar_steps : 0);  // 0: moves to and fro
    if (counted) {
        const double share = static_cast<double>(at.count) / static_cast<double>(at.total);
        bar_->setValue(static_cast<int>(bar_steps * share));
        const double seconds = 1e-3 * static_cast<double>(stage_time_.elapsed());
        text +=
            QString("  %1 %, ").arg(static_cast<int>(100 * share)) + time_left(seconds * (1 - share) / share);
    }
    if (worker_.stopping()) text += "  (stopping)";
    text_->setText(text);
    stop_->setEnabled(!worker_.stopping());
    if (job_time_.elapsed() > patience) show();
}

}  // namespace kestralum
