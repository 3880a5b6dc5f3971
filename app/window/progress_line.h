// The line in the status bar that shows a job under way: its stage, how far it is, and Stop.
#pragma once

#include <QElapsedTimer>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QWidget>
#include <string>

#include "app/window/worker.h"

namespace kestralum {

// Hidden while the worker is idle and during the first moments of a job.
class ProgressLine : public QWidget {
    Q_OBJECT

public:
    explicit ProgressLine(Worker& worker, QWidget* parent = nullptr);

private:
    void show_place();

    Worker& worker_;
    QLabel* text_;
    QProgressBar* bar_;
    QPushButton* stop_;
    QTimer poll_;
    QElapsedTimer job_time_, stage_time_;
    std::string stage_;
    std::int64_t count_ = 0;
};

}  // namespace kestralum
