// The row in the status bar that shows a job under way: stage, increment and iteration with their residuals,
// how far it is, elapsed and remaining time, Stop; and for a live run Pause, Step and the pause between
// intervals.
#pragma once

#include <QElapsedTimer>
#include <QLabel>
#include <QProgressBar>
#include <QSpinBox>
#include <QTimer>
#include <QToolButton>
#include <QWidget>
#include <string>
#include <vector>

#include "app/window/worker.h"

namespace kestralum {

// Residuals of an iteration over its number, on a logarithmic scale.
class ResidualCurve : public QWidget {
    Q_OBJECT

public:
    explicit ResidualCurve(QWidget* parent = nullptr);
    void show_residuals(std::vector<double> residuals);  // hidden with fewer than two
    const std::vector<double>& residuals() const { return residuals_; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::vector<double> residuals_;
};

// Hidden while the worker is idle and during the first moments of a job.
class ProgressLine : public QWidget {
    Q_OBJECT

public:
    explicit ProgressLine(Worker& worker, QWidget* parent = nullptr);

    void set_live(bool live);  // a run begins or ends that can be held
    int pause() const { return pause_->value(); }

signals:
    void held(bool on);
    void stepped();
    void pause_chosen(int milliseconds);

private:
    void make_row();
    void show_place();
    QString times(const Progress::Place& at);

    Worker& worker_;
    QLabel *text_, *time_;
    ResidualCurve* curve_;
    QProgressBar* bar_;
    QToolButton *hold_, *step_, *stop_;
    QSpinBox* pause_;
    QTimer poll_;
    QElapsedTimer job_time_, stage_time_;
    std::string stage_;
    double done_ = 0;
};

}  // namespace kestralum
