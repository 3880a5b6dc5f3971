// The analyses: run by the worker, shown once they are whole; the explicit one also while it goes on.
#include <QFileInfo>
#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

#include "analysis/analysis_table.h"
#include "app/run_process.h"
#include "app/run_summary.h"
#include "app/window/dialogs.h"
#include "app/window/live_run.h"
#include "app/window/main_window.h"
#include "app/window/mode_table.h"
#include "app/window/progress_line.h"
#include "results/result_file.h"
#include "system/model_check.h"

namespace kestralum {

namespace {

const AnalysisEntry& entry_of(const char* menu_text) {
    const auto table = analysis_table();
    const auto entry = std::find_if(table.begin(), table.end(), [&](const AnalysisEntry& e) {
        return std::string_view(e.menu_text) == menu_text;
    });
    assert(entry != table.end());
    return *entry;
}

QString plain(const char* menu_text) {
    return QString(menu_text).remove('&');
}

const QString live_title = "Explicit(Real Time)";

QString modes_outcome(const Run& run) {
    const std::vector<ModeReport>& modes = run.report.modes;
    const int elastic = std::max(1, first_elastic_mode(run));
    QString text = QString("%1 modes").arg(modes.size());
    if (elastic > 1) text += QString(", %1 of them rigid motions").arg(elastic - 1);
    return text + QString(", the first%1 at %2 Hz")
                      .arg(elastic > 1 ? " elastic one" : "")
                      .arg(modes[elastic - 1].frequency, 0, 'g', 5);
}

// One line on what came out.
QString outcome(const Run& run) {
    const RunReport& report = run.report;
    if (!report.modes.empty()) return modes_outcome(run);
    if (!report.buckling.factors.empty())
        return QString("%1 load factors, the first is %2")
            .arg(report.buckling.factors.size())
            .arg(report.buckling.factors.front().factor, 0, 'g', 5);
    if (report.cases.size() > 1) {
        const auto size = [](const CaseReport& of_case) { return of_case.largest_displacement.value; };
        const CaseReport& worst = *std::ranges::max_element(report.cases, {}, size);
        return QString("%1 load cases, the largest displacement %2 m in %3")
            .arg(report.cases.size())
            .arg(size(worst), 0, 'e', 3)
            .arg(QString::fromStdString(worst.name));
    }
    if (report.largest_displacement.node > 0)
        return QString("largest displacement %1 m at node %2, largest Mises stress %3 Pa at node %4")
            .arg(report.largest_displacement.value, 0, 'e', 3)
            .arg(report.largest_displacement.node)
            .arg(report.largest_mises.value, 0, 'e', 3)
            .arg(report.largest_mises.node);
    return "complete";
}

// Runs `analyse` with the log folder to itself, and prints what it has to say. None where another run holds
// the folder.
std::shared_ptr<Run> run_in_folder(const Model& model, const std::string& log_folder, Progress& progress,
                                   const std::function<Run()>& analyse) {
    LogLock lock;
    if (!lock.take(log_folder, progress)) return nullptr;
    std::shared_ptr<Run> run;
    try {
        run = std::make_shared<Run>(analyse());
    } catch (...) {
        release_held_results(model.model_file_name, log_folder);
        throw;  // the worker prints why
    }
    print_run_summary({.model = model, .run = *run, .vtu = {}, .factor_files = {}}, progress);
    for (const std::string& error : run->report.remarks.errors) progress.error("%s", error.c_str());
    return run;
}

// Keeps what is said for the messages; the console hears nothing of it.
struct KeptProgress : Progress {
    KeptProgress() : Progress(false) {}
    std::vector<std::pair<MessageKind, QString>> pieces;
    QString summary;

protected:
    void take(Kind kind, std::string_view text) override {
        const QString line = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
        if (kind == Kind::summary)
            summary += line;
        else
            pieces.emplace_back(kind == Kind::error ? MessageKind::error : MessageKind::note, line);
    }
};

// No factor of the model's mesh is larger: every entry of a full matrix, MB.
double full_factor_megabytes(const Mesh& mesh) {
    return 8e-6 * 0.5 * std::pow(mesh.dof_num(), 2);
}

}  // namespace

RunOptions MainWindow::run_options() const {
    RunOptions options;
    options.log_folder = log_folder_;
    settings_->put_into(options);
    return options;
}

// ---- before a run

// Starts where nothing speaks against it, or the user wants it all the same.
void MainWindow::prepare_run(const AnalysisEntry& entry, std::function<void()> start) {
    const QString title = plain(entry.menu_text);
    if (!control_errors_.isEmpty())
        return refuse(title + " was not started: the control file has to be mended first", control_errors_);
    const std::string note = replaced_results_note(*store().model, entry.type, log_folder_);
    enum Answer { replace, leave };
    if (!note.empty() &&
        ask(this, title + " replaces an earlier result file.", QString::fromStdString(note + "."),
            {"Replace", "Leave it"}, replace, leave) == leave)
        return;
    if (entry.type == AnalysisType::explicit_dynamics ||
        full_factor_megabytes(store().model->mesh) <= store().settings.free_hd_size)
        return start();
    check_budget(entry, std::move(start));
}

// Asks where the factor will need more of the disk than the settings allow; the size of a model's factor is
// found once.
void MainWindow::check_budget(const AnalysisEntry& entry, std::function<void()> start) {
    const QString title = plain(entry.menu_text);
    const std::shared_ptr<const Model> model = store().model;
    const Settings settings = store().settings;
    auto found = [this, title, start = std::move(start), allowed = settings.free_hd_size] {
        enum Answer { run, leave };
        if (budget_.factor_megabytes <= allowed) return start();
        const QString text = QString(
                                 "The factor needs %1 MB of disk, FREE_HD_SIZE of setting/setting.txt allows "
                                 "%2 MB. The run will end before it is computed.")
                                 .arg(budget_.factor_megabytes, 0, 'f', 1)
                                 .arg(allowed, 0, 'f', 1);
        if (ask(this, title + " needs more disk than it may use.", text, {"Run all the same", "Leave it"},
                leave, leave) == run)
            start();
    };
    if (budget_.model.lock() == model) return found();
    auto megabytes = std::make_shared<double>(0);
    worker_->start(
        title,
        [model, settings, megabytes](Progress& progress) {
            progress.set_stage("size of the factor");
            *megabytes = check_model(*model, settings, progress).factor_megabytes;
        },
        [this, title, model, megabytes, found](const Heard& heard) {
            if (heard.stopped) return say(title + ": stopped on request");
            budget_ = {model, *megabytes};
            found();
        });
}

// ---- check

void MainWindow::checkModel() {
    after_run("Check", [this] { start_check(true); });
}

// What can be said of the model before it is analysed, kept as one message.
void MainWindow::start_check(bool asked) {
    check_unasked_ = !asked;
    const std::shared_ptr<const Model> model = store().model;
    const QString file = QFileInfo(QString::fromStdString(model->model_file_name)).fileName();
    auto said = std::make_shared<KeptProgress>();
    worker_->start(
        "Checking " + file,
        [said, model, settings = store().settings](Progress& progress) {
            progress.set_stage("check");
            print_check(*model, check_model(*model, settings, progress), *said);
        },
        [this, said, file](const Heard& heard) {
            check_unasked_ = false;
            if (heard.stopped) return;
            for (const auto& [kind, text] : said->pieces) messages_->add(kind, text);
            messages_->add(MessageKind::summary, "check of " + file + "\n" + said->summary);
        });
}

// ---- a run at once

void MainWindow::run_analysis(const char* menu_text) {
    const AnalysisEntry& entry = entry_of(menu_text);
    after_run(plain(menu_text), [this, &entry] { prepare_run(entry, [this, &entry] { start_run(entry); }); });
}

void MainWindow::start_run(const AnalysisEntry& entry) {
    last_analysis_ = &entry;
    QString title = plain(entry.menu_text);
    if (const QString text = settings_->text(entry.type); !text.isEmpty()) title += " (" + text + ")";
    const std::shared_ptr<const Model> model = store().model;
    auto made = std::make_shared<std::shared_ptr<Run>>();
    auto job = [made, model, &entry, settings = store().settings, options = run_options(),
                remove = remove_factor_->isChecked()](Progress& progress) {
        *made = run_in_folder(*model, options.log_folder, progress,
                              [&] { return entry.analyse(*model, settings, options, progress); });
        if (remove && *made) remove_factor_files(options.log_folder);
    };
    worker_->start(title, job, [this, made, model, title](const Heard& heard) {
        const std::shared_ptr<Run> run = *made;
        if (!run) return refuse(title + " was not completed", heard.errors);
        if (run->report.has_results()) {
            view_->shown().show(model, run);
            view_->state().phase = 0;
            view_->state().animation_running = false;
            // steps show where they have led to, modes the first that deforms the body
            set_frame(has_steps(run->ana_type) ? run->mode_num() : std::max(1, first_elastic_mode(*run)));
            view_->fit_if_outside();
            view_->update();
            emit content_shown();
        }
        show_outcome(*run, title, heard);
    });
}

void MainWindow::show_outcome(const Run& run, const QString& title, const Heard& heard) {
    const RunReport& report = run.report;
    QStringList lines = heard.notices;
    for (const std::string& notice : report.remarks.notices) lines << QString::fromStdString(notice);
    lines.removeDuplicates();
    const bool stopped = report.status == RunStatus::cancelled;
    QString what = report.status == RunStatus::done ? outcome(run)
                   : stopped                        ? "stopped on request"
                                                    : "not completed";
    if (stopped && report.has_results()) what += QString(", %1 frames reached").arg(run.mode_num());
    const QString first = title + ": " + what;
    if (!heard.errors.isEmpty() && !stopped && !report.has_results())
        return refuse(first, heard.errors + lines);
    if (!stopped) tell(MessageKind::error, heard.errors);
    tell(MessageKind::note, lines);
    if (!heard.summary.isEmpty()) messages_->add(MessageKind::summary, title + "\n" + heard.summary);
    tell(MessageKind::summary, {first});
}

void MainWindow::slotsExecStatic() {
    run_analysis("&Static");
}

void MainWindow::slotsExecEigenSubspace() {
    view_->state().eigen_method = view::EigenMethod::subspace;
    run_analysis("&Eigen(Subspace)");
}

void MainWindow::slotsExecEigenLanczos() {
    view_->state().eigen_method = view::EigenMethod::lanczos;
    run_analysis("&Eigen(Lanczos)");
}

void MainWindow::slotsExecNonlinearStatic() {
    run_analysis("&Nonlinear Static");
}

void MainWindow::slotsExecBuckling() {
    run_analysis("&Buckling");
}

void MainWindow::slotsExecExplicit() {
    run_analysis("&Explicit");
}

// ---- a run that is drawn while it goes on

void MainWindow::slotsExecExplicitStep() {
    after_run(live_title, [this] { prepare_run(entry_of("&Explicit"), [this] { start_live_run(); }); });
}

void MainWindow::start_live_run() {
    const std::shared_ptr<const Model> model = store().model;
    auto live = std::make_shared<LiveRun>(model, store().settings, run_options());
    live_ = live;
    live->set_pause(std::chrono::milliseconds(run_row_->pause()));
    run_row_->set_live(true);
    const LiveRun::Shows shows{[this](std::shared_ptr<Run> run) {
                                   QMetaObject::invokeMethod(
                                       this, [this, run] { show_live_start(run); }, Qt::QueuedConnection);
                               },
                               [this](std::shared_ptr<const Frame> frame, std::vector<double> row) {
                                   QMetaObject::invokeMethod(
                                       this, [this, frame, row] { show_live_frame(frame, row); },
                                       Qt::QueuedConnection);
                               }};
    auto made = std::make_shared<std::shared_ptr<Run>>();
    worker_->start(
        live_title,
        [made, model, live, shows, folder = log_folder_](Progress& progress) {
            *made = run_in_folder(*model, folder, progress, [&] { return live->work(shows, progress); });
        },
        [this, made](const Heard& heard) { end_live_run(made->get(), heard); });
}

void MainWindow::show_live_start(std::shared_ptr<Run> run) {
    live_frames_ = std::move(run);
    view_->shown().show(store().model, live_frames_);
    view_->state().real_time = true;
    view_->state().animation_running = false;
    view_->state().phase = 0;
    set_frame(1);
    view_->fit_if_outside();
    live_frame_new_ = true;
    view_->update();
    emit content_shown();
    say(live_title + " runs");
}

// The picture goes on with the run unless the user looks at an earlier frame.
void MainWindow::show_live_frame(std::shared_ptr<const Frame> frame, const std::vector<double>& row) {
    const bool follows = view_->state().frame == live_frames_->mode_num();
    live_frames_->history.add(row);
    live_frames_->results.push_back(std::move(frame));
    view_->shown().results_changed();
    if (follows)
        set_frame(live_frames_->mode_num());
    else
        emit frame_shown(view_->state().frame);
    live_frame_new_ = true;
    view_->update();
}

// Frames that were drawn stay; `run` is null where the run could not begin or ran out of memory.
void MainWindow::end_live_run(const Run* run, const Heard& heard) {
    const std::shared_ptr<Run> frames = std::exchange(live_frames_, nullptr);
    live_.reset();
    run_row_->set_live(false);
    view_->state().real_time = false;
    if (frames) {
        if (run) frames->report = run->report;
        emit content_shown();
        show_frame_in_controls();
    }
    if (run && frames) return show_outcome(*frames, live_title, heard);
    if (run && run->report.status == RunStatus::cancelled) return say(live_title + ": stopped on request");
    refuse(live_title + (frames ? " was not completed" : " was not started"), heard.errors);
}

}  // namespace kestralum
