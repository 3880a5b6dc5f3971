#include "app/window/worker.h"

#include <sys/resource.h>
#include <unistd.h>

#include <QThread>
#include <cassert>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>

namespace kestralum {

namespace {

// The window's own thread goes first, so that the view turns smoothly while every core computes. Niceness is
// a thread's own on Linux, and those that it starts have it from it; without other work nothing gets slower.
void give_way() {
    constexpr int nice = 5;
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice);
}

}  // namespace

Heard WindowProgress::heard() const {
    const std::lock_guard lock(lock_);
    Heard heard = heard_;
    heard.stopped = cancelled();
    return heard;
}

void WindowProgress::take(Kind kind, std::string_view text) {
    if (kind == Kind::error) std::fflush(stdout);
    std::fwrite(text.data(), 1, text.size(), kind == Kind::error ? stderr : stdout);
    if (kind == Kind::line) return;
    const QString line = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
    const std::lock_guard lock(lock_);
    if (kind == Kind::summary) {
        heard_.summary += line;
        return;
    }
    (kind == Kind::error ? heard_.errors : heard_.notices) << line.trimmed();
}

Worker::~Worker() {
    if (!thread_) return;
    stop();
    thread_->wait();
    delete thread_;
}

void Worker::start(const QString& title, Job job, Done done) {
    assert(!busy());
    constexpr unsigned stack = 16u << 20;  // bytes; a thread's own may be as small as 2 MB
    title_ = title;
    done_ = std::move(done);
    progress_ = std::make_unique<WindowProgress>(lines_);
    thread_ = QThread::create([job = std::move(job), progress = progress_.get()] {
        give_way();
        try {
            job(*progress);
        } catch (const std::bad_alloc&) {
            progress->error("not enough memory for this model");
        } catch (const std::exception& e) {
            progress->error("%s", e.what());
        }
    });
    thread_->setStackSize(stack);
    connect(thread_, &QThread::finished, this, &Worker::end);  // queued: end() runs on the window's thread
    thread_->start();
    emit begun();
}

void Worker::stop() {
    if (progress_) progress_->cancel();
}

void Worker::end() {
    thread_->wait();
    thread_->deleteLater();
    thread_ = nullptr;
    const Heard heard = progress_->heard();
    progress_.reset();
    const Done done = std::exchange(done_, nullptr);
    done(heard);
    emit ended();
}

}  // namespace kestralum
