#include "app/window/long_work.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProgressDialog>
#include <QThread>
#include <exception>
#include <memory>
#include <mutex>
#include <new>

#include "model/console.h"

namespace kestralum {

namespace {

QString time_left(double seconds) {
    if (seconds < 60) return QString("%1 s left").arg(static_cast<int>(seconds) + 1);
    return QString("%1 min left").arg(static_cast<int>(seconds / 60) + 1);
}

// Listens to the console for the time of its life.
class Listener {
public:
    Listener(QWidget* parent, const QString& title) : parent_(parent), title_(title) {
        console::request_cancel(false);
        total_.start();
        last_.start();
        former_ = console::set_sink([this](console::Kind kind, std::string_view text) { hear(kind, text); });
    }
    ~Listener() {
        console::set_sink(std::move(former_));
        console::request_cancel(false);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    Heard heard;

private:
    void hear(console::Kind kind, std::string_view text) {
        former_(kind, text);
        if (kind == console::Kind::error || kind == console::Kind::notice) {
            const std::lock_guard lock(lock_);
            const QString line =
                QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).trimmed();
            (kind == console::Kind::error ? heard.errors : heard.notices) << line;
        }
        // lines of worker threads cannot touch the window
        if (QThread::currentThread() == qApp->thread()) keep_alive();
    }

    void keep_alive() {
        constexpr int patience = 400, period = 60;  // ms
        if (total_.elapsed() < patience || last_.elapsed() < period || busy_) return;
        last_.restart();
        busy_ = true;
        if (!dialog_) open();
        show_progress();
        QApplication::processEvents();
        if (dialog_->wasCanceled()) console::request_cancel(true);
        busy_ = false;
    }

    void open() {
        dialog_ = std::make_unique<QProgressDialog>(title_, "Cancel", 0, 1000, parent_);
        dialog_->setWindowTitle("KESTRALUM");
        dialog_->setWindowModality(Qt::ApplicationModal);
        dialog_->setAutoClose(false);
        dialog_->setAutoReset(false);
        dialog_->setMinimumDuration(0);
        dialog_->setMinimumWidth(360);
        dialog_->show();
    }

    void show_progress() {
        const console::Progress at = console::progress();
        if (at.stage != stage_ || at.count < count_) stage_time_.start();
        stage_ = at.stage;
        count_ = at.count;
        QString text = title_ + ": " + QString::fromStdString(at.stage);
        if (dialog_->wasCanceled()) text += "\nstops at the next step";
        if (at.total > 0 && at.count > 0 && at.count <= at.total) {
            const double share = static_cast<double>(at.count) / static_cast<double>(at.total);
            dialog_->setMaximum(1000);
            dialog_->setValue(static_cast<int>(1000 * share));
            text += QString("\n%1 %, ").arg(static_cast<int>(100 * share)) +
                    time_left(1e-3 * static_cast<double>(stage_time_.elapsed()) * (1 - share) / share);
        } else {
            dialog_->setMaximum(0);  // moves to and fro
            text += "\n ";
        }
        dialog_->setLabelText(text);
    }

    QWidget* parent_;
    QString title_;
    console::Sink former_;
    std::mutex lock_;
    QElapsedTimer total_, last_, stage_time_;
    std::unique_ptr<QProgressDialog> dialog_;
    std::string stage_;
    std::int64_t count_ = 0;
    bool busy_ = false;
};

}  // namespace

Heard run_long_work(QWidget* parent, const QString& title, const std::function<void()>& work) {
    Listener listener(parent, title);
    try {
        work();
    } catch (const std::bad_alloc&) {
        console::error("not enough memory for this model");
    } catch (const std::exception& e) {
        console::error("%s", e.what());
    }
    return listener.heard;
}

}  // namespace kestralum
