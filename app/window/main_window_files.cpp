// Models, results and displacements: read by the worker, shown once they are whole.
#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QDropEvent>
#include <QFileInfo>
#include <QMenu>
#include <QMimeData>
#include <QSettings>
#include <QTimer>
#include <QUrl>
#include <utility>

#include "app/window/dialogs.h"
#include "app/window/kept_tables.h"
#include "app/window/main_window.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "input/starter_model.h"
#include "mesh/import_text.h"
#include "model/paths.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

QString file_of(const QString& name) {
    return QFileInfo(name).fileName();
}

QString counts_of(const Model& model) {
    return QString("%1 nodes, %2 elements").arg(model.mesh.node_num()).arg(model.mesh.element_num());
}

}  // namespace

struct MainWindow::Reading {
    const QDateTime begun = QDateTime::currentDateTime();
    std::vector<ParameterOverride> overrides;
    bool run_again = false;  // the last analysis, once the model is read
    std::shared_ptr<Model> model;
    ModelReadReport report;
    AnalysisInfoReport control;

    // Where files ended before their end, a line each.
    QStringList unread() const {
        QStringList lines;
        const auto add = [&](const char* what, const auto& r) {
            if (!r.ended_at_end)
                lines << QString(
                             "The %1 was read up to token %2 '%3', which is no keyword: what follows was not "
                             "read.")
                             .arg(what)
                             .arg(r.end_token_number)
                             .arg(QString::fromStdString(r.end_token));
        };
        add("model file", report);
        if (control.status == AnalysisInfoStatus::read) add("control file", control);
        return lines;
    }
};

void MainWindow::open_model(const QString& name) {
    after_run("Opening " + file_of(name), [this, name] {
        starter_notice_.clear();
        if (is_part_file(name.toStdString()))
            open_part(name);
        else
            look_into(name);
    });
}

// By way of a model beside it.
void MainWindow::open_part(const QString& name) {
    const StarterModel starter = write_starter_model(name.toStdString());
    if (!starter.error.empty()) {
        console_.error("%s", starter.error.c_str());
        return refuse("The part was not opened", {QString::fromStdString(starter.error)});
    }
    starter_notice_ = QString::fromStdString(starter.notice);
    console_.notice("%s", starter.notice.c_str());
    look_into(QString::fromStdString(starter.file));
}

// Another model may leave tables of the former one in force; the user says whether it shall.
void MainWindow::look_into(const QString& name) {
    const std::shared_ptr<const Model> former = store().model;
    const auto start = std::make_shared<const Model>(placeholder_model());
    if (former->source == ModelSource::start_up) return read_model(name, start, Opening::fresh);
    const std::string file = name.toStdString();
    if (same_file(file, former->model_file_name)) return read_model(name, former, Opening::fresh);
    auto kept = std::make_shared<QStringList>();
    worker_->start(
        "Reading " + file_of(name),
        [kept, former, file](Progress& progress) {
            for (const std::string& table : kept_tables(*former, file, progress))
                *kept << QString::fromStdString(table);
        },
        [this, kept, former, start, name](const Heard& heard) {
            if (heard.stopped) return say("Reading " + file_of(name) + " was stopped");
            enum Answer { start_up, keep };
            const bool keeps =
                !kept->empty() &&
                ask(this, file_of(name) + " does not have everything that the model before had.",
                    "Missing: " + kept->join(", ") + ".\nUse the start-up values, or keep those of " +
                        file_of(QString::fromStdString(former->model_file_name)) + "?",
                    {"Start-up values", "Keep"}, start_up, start_up) == keep;
            read_model(name, keeps ? former : start, Opening::fresh);
        });
}

// With the parameters in force; another file has its own.
void MainWindow::read_model(const QString& name, std::shared_ptr<const Model> base, Opening opening) {
    const bool same = same_file(name.toStdString(), store().model->model_file_name);
    read_model(name, std::move(base), opening, same ? overrides_ : std::vector<ParameterOverride>());
}

// `base`: the tables that the file leaves out.
void MainWindow::read_model(const QString& name, std::shared_ptr<const Model> base, Opening opening,
                            const std::vector<ParameterOverride>& overrides, bool run_again) {
    auto reading = std::make_shared<Reading>();
    reading->overrides = overrides;
    reading->run_again = run_again;
    worker_->start(
        "Reading " + file_of(name),
        [reading, base = std::move(base), file = name.toStdString()](Progress& progress) {
            reading->model = std::make_shared<Model>(*base);
            reading->model->model_file_name = file;
            reading->report = read_input_file(*reading->model, reading->overrides, progress);
            if (reading->report.ok) reading->control = read_analysis_info_file(*reading->model, progress);
        },
        [this, reading, opening](const Heard& heard) { take_model(*reading, heard, opening); });
}

void MainWindow::take_model(Reading& reading, const Heard& heard, Opening opening) {
    const QString file = file_of(QString::fromStdString(reading.model->model_file_name));
    const QString starter = std::exchange(starter_notice_, {});
    const QStringList of_starter = starter.isEmpty() ? QStringList{} : QStringList{starter};
    if (heard.stopped || !reading.report.ok) {
        emit reading_refused();
        if (heard.stopped) return say("Reading " + file + " was stopped");
        if (opening != Opening::watched) return refuse("The model was not read", heard.errors + of_starter);
        tell(MessageKind::error,
             QStringList{file + " was not read, the former model is shown"} + heard.errors);
        return;
    }
    overrides_ = reading.overrides;
    saved_meanwhile_ = false;
    control_errors_ = reading.control.status == AnalysisInfoStatus::wrong ? heard.errors : QStringList{};
    view::DisplayState& state = view_->state();
    state.animation_running = false;
    state.phase = 0;
    view_->shown().show(reading.model, nullptr);
    settings_->offer_cases(*reading.model);
    set_frame(1);
    if (opening == Opening::fresh) {
        view_->shown().reset_light();
        show_light_in_controls();
        view_->look_from(view::ViewDirection::isometric);
    }
    view_->update();
    setWindowTitle("KESTRALUM - " + file);
    emit content_shown();
    tell(MessageKind::note, of_starter + heard.notices);
    tell(MessageKind::summary, {file + ": " + counts_of(*reading.model)});
    if (!control_errors_.isEmpty())
        tell(MessageKind::error,
             QStringList{"The control file is not used; no analysis starts before it is mended"} +
                 control_errors_);
    if (const QStringList unread = reading.unread(); !unread.isEmpty())
        tell(MessageKind::error, QStringList{file + " was not read to its end"} + unread);
    remember(QString::fromStdString(reading.model->model_file_name));
    watch_files(reading.begun);
    if (reading.run_again && last_analysis_)
        prepare_run(*last_analysis_, [this] { start_run(*last_analysis_); });
    else
        start_check(false);
}

void MainWindow::updateModel() {
    const QString name = QString::fromStdString(store().model->model_file_name);
    after_run("Updating the model", [this, name] { read_model(name, store().model, Opening::again); });
}

void MainWindow::showInputFileDialog() {
    const QString name = ask_for_file(this, text_files, folder_);
    if (name.isEmpty()) return;
    console_.print("filename=%s\n", name.toStdString().c_str());
    open_model(name);
}

void MainWindow::showPartFileDialog() {
    QStringList endings;
    for (const std::string_view ending : part_file_endings()) {
        const QString pattern = "*" + QString::fromUtf8(ending.data(), static_cast<qsizetype>(ending.size()));
        endings << pattern << pattern.toUpper();
    }
    const QString filter = "Meshes and CAD Files (" + endings.join(' ') + ");;All Files (*)";
    const QString name = ask_for_file(this, filter.toUtf8().constData(), folder_);
    if (name.isEmpty()) return;
    console_.print("filename=%s\n", name.toStdString().c_str());
    open_model(name);
}

void MainWindow::open_frames(const QString& name, const QString& what,
                             std::function<std::optional<StoredRun>(const Model* own, Progress&)> read) {
    after_run("Opening " + file_of(name), [this, name, what, read = std::move(read)] {
        auto stored = std::make_shared<std::optional<StoredRun>>();
        worker_->start(
            "Reading " + file_of(name),
            [stored, read, own = store().model](Progress& progress) { *stored = read(own.get(), progress); },
            [this, stored, name, what](const Heard& heard) {
                if (*stored) {
                    remember(name);
                    return take_frames(**stored, name);
                }
                if (heard.stopped) return say("Reading " + file_of(name) + " was stopped");
                refuse("The " + what + " were not read", heard.errors);
            });
    });
}

void MainWindow::take_frames(StoredRun& stored, const QString& name) {
    // "Update Model" reads the model's file again, whatever was looked at meanwhile
    stored.model.model_file_name = store().model->model_file_name;
    if (stored.model.source != ModelSource::model_file) control_errors_.clear();
    view::DisplayState& state = view_->state();
    state.animation_running = false;
    state.phase = 0;
    view_->shown().show(std::make_shared<const Model>(std::move(stored.model)),
                        std::make_shared<const Run>(std::move(stored.run)));
    settings_->offer_cases(*store().model);
    set_frame(1);
    view_->shown().reset_light();
    show_light_in_controls();
    view_->look_from(view::ViewDirection::isometric);
    setWindowTitle("KESTRALUM - " + file_of(name));
    emit content_shown();
    const int frames = view_->shown().mode_num();
    tell(MessageKind::summary,
         {QString("%1: %2 frame%3").arg(file_of(name)).arg(frames).arg(frames == 1 ? "" : "s")});
}

void MainWindow::open_results(const QString& name) {
    open_frames(name, "results",
                [file = name.toStdString(), folder = log_folder_](const Model*, Progress& progress) {
                    return read_result_file(file, folder, progress);
                });
}

void MainWindow::open_displacements(const QString& name) {
    open_frames(name, "displacements",
                [file = name.toStdString(), folder = log_folder_](const Model* own, Progress& progress) {
                    return read_displacement_file(file, folder, own, progress);
                });
}

void MainWindow::showResultFileDialog() {
    const QString name = ask_for_file(this, text_files, result_folder_);
    if (!name.isEmpty()) open_results(name);
}

void MainWindow::showDispFileDialog() {
    const QString name = ask_for_file(this, text_files, result_folder_);
    if (!name.isEmpty()) open_displacements(name);
}

void MainWindow::open_any(const QString& name) {
    const QString file = file_of(name);
    if (file.startsWith("result_") || file.endsWith(".pvtu") || file.endsWith(".pvd"))
        open_results(name);
    else if (file.startsWith("disp_"))
        open_displacements(name);
    else
        open_model(name);
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    const QList<QUrl> urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls.front().isLocalFile()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    const QString name = event->mimeData()->urls().front().toLocalFile();
    event->acceptProposedAction();
    // not from within the event: the other program waits for its end
    QMetaObject::invokeMethod(
        this, [this, name] { open_any(name); }, Qt::QueuedConnection);
}

// ---- recent files

void MainWindow::remember(const QString& name) {
    constexpr qsizetype most = 12;
    QSettings settings = kept_settings();
    QStringList files = settings.value("recent").toStringList();
    const QString whole =
        QFileInfo(QString::fromStdString(paths::to_platform(name.toStdString()))).absoluteFilePath();
    files.removeAll(whole);
    files.prepend(whole);
    settings.setValue("recent", QStringList(files.mid(0, most)));
}

void MainWindow::list_recent() {
    recent_menu_->clear();
    for (const QString& file : kept_settings().value("recent").toStringList())
        recent_menu_->addAction(QDir::toNativeSeparators(file), this, [this, file] { open_any(file); });
    if (recent_menu_->isEmpty()) recent_menu_->addAction("None yet")->setEnabled(false);
}

// ---- files that are saved while they are shown

// Model, control file and imported meshes, as they were when they were read.
void MainWindow::watch_files(const QDateTime& read_since) {
    const Model& model = *store().model;
    const auto platform = [](const std::string& name) {
        return QFileInfo(QString::fromStdString(paths::to_platform(name))).absoluteFilePath();
    };
    QStringList files{platform(model.model_file_name),
                      platform(analysis_info_file_name(model.model_file_name))};
    for (const Part& part : model.parts)
        if (const std::string path = found_mesh_file(part, model.model_file_name); !path.empty())
            files << platform(path);
    files.removeDuplicates();
    watch_.watch(files, read_since);
}

void MainWindow::read_saved() {
    if (store().model->source != ModelSource::model_file) return;
    // what a question or a menu is about stays as it is until it is answered
    if (QApplication::activeModalWidget() || QApplication::activePopupWidget()) {
        constexpr int later = 300;  // ms
        QTimer::singleShot(later, this, &MainWindow::read_saved);
        return;
    }
    if (worker_->busy() && !check_unasked_) {
        saved_meanwhile_ = true;
        tell(MessageKind::note,
             {"A file of the model was saved; it is read when " + worker_->title() + " has ended"});
        return;
    }
    const QString name = QString::fromStdString(store().model->model_file_name);
    after_run("Reading the saved file", [this, name] { read_model(name, store().model, Opening::watched); });
}

void MainWindow::set_overrides(const std::vector<ParameterOverride>& overrides, bool run_again) {
    after_run("Reading the model with other parameters", [this, overrides, run_again] {
        read_model(QString::fromStdString(store().model->model_file_name), store().model, Opening::watched,
                   overrides, run_again);
    });
}

void MainWindow::showMovFileDialog() {
    const QString name = ask_for_file(this, movie_files, folder_);
    if (!name.isEmpty()) say("Movie files cannot be shown: " + name);
}

}  // namespace kestralum
