// Work that may take minutes, on a thread of its own: the window goes on meanwhile.
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>
#include <memory>
#include <mutex>

#include "model/progress.h"

class QThread;

namespace kestralum {

// What a job said that the user of the window must know, a line each.
struct Heard {
    QStringList errors, notices;
    QString summary;       // the closing report, several lines
    bool stopped = false;  // it was asked to stop
};

// To the standard streams as the batch command prints; errors and notices are kept beside.
class WindowProgress : public Progress {
public:
    // `lines` false: the progress and echo lines are dropped, nothing else.
    explicit WindowProgress(bool lines) : Progress(lines) {}
    Heard heard() const;

protected:
    void take(Kind kind, std::string_view text) override;

private:
    mutable std::mutex lock_;
    Heard heard_;
};

class Worker : public QObject {
    Q_OBJECT

public:
    // Runs on the thread; touches nothing that the window uses, and ends soon after a cancel.
    using Job = std::function<void(Progress&)>;
    // Runs on the thread of the window once the job has ended.
    using Done = std::function<void(const Heard&)>;

    explicit Worker(bool lines, QObject* parent = nullptr) : QObject(parent), lines_(lines) {}
    ~Worker() override;  // stops the job and waits for its end; its `done` is not called

    bool busy() const { return thread_ != nullptr; }
    // Not while busy. `title` names the job for the user. A job that runs out of memory counts as one that
    // said so.
    void start(const QString& title, Job job, Done done);
    void stop();

    // Of the job under way.
    const QString& title() const { return title_; }
    bool stopping() const { return progress_ && progress_->cancelled(); }
    Progress::Place place() const { return progress_ ? progress_->place() : Progress::Place{}; }

    Progress::Course course() const { return progress_ ? progress_->course() : Progress::Course{}; }

signals:
    void begun();
    void ended();  // after `done`; busy again where that has started another job

private:
    void end();

    const bool lines_;
    QString title_;
    std::unique_ptr<WindowProgress> progress_;
    QThread* thread_ = nullptr;
    Done done_;
};

}  // namespace kestralum
