#include "app/window/main_window.h"

#include <QAction>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QMessageBox>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStatusBar>
#include <QThread>
#include <QVBoxLayout>
#include <algorithm>
#include <cassert>
#include <span>

#include "analysis/analysis_table.h"
#include "app/run_process.h"
#include "app/run_summary.h"
#include "app/window/dialogs.h"
#include "app/window/long_work.h"
#include "app/window/real_time.h"
#include "input/analysis_info_reader.h"
#include "input/model_reader.h"
#include "model/console.h"
#include "model/model_store.h"
#include "results/result_file.h"

namespace kestralum {

MainWindow::~MainWindow() {
    end_real_time();
}

MainWindow::MainWindow() {
    setWindowTitle("KESTRALUM");
    view_ = new GLWidget;
    auto* area = new QScrollArea;
    area->setWidget(view_);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    view_->setAutoFillBackground(false);  // the scroll area turned it on; it would wipe the scene
    auto* controls = new QVBoxLayout;
    auto* centre = new QWidget;
    auto* row = new QHBoxLayout(centre);
    row->setContentsMargins(4, 4, 8, 4);
    row->addWidget(area, 1);
    row->addLayout(controls);
    setCentralWidget(centre);

    make_menus();
    make_hidden_actions();
    make_controls(controls);
    make_toolbar();
    connect(view_, &GLWidget::started, this, &MainWindow::on_started);
    connect(view_, &GLWidget::settings_missing, this, &MainWindow::on_settings_missing);
    connect(view_, &GLWidget::picked, this, &MainWindow::say);
    resize(1100, 780);
    statusBar()->showMessage("Open a model: Model, Open Model File");
}

void MainWindow::on_started() {
    show_light_in_controls();
    if (!at_start_.isEmpty()) open_model(at_start_);
}

void MainWindow::on_settings_missing() {
    const QString place = QDir::toNativeSeparators(QDir::currentPath());
    show_errors(this, "The settings file is missing",
                {QString("setting/setting.txt was looked for in %1.").arg(place),
                 "Start the program in the folder that holds the folder setting."});
    QCoreApplication::exit(0);
}

void MainWindow::say(const QString& text) {
    statusBar()->showMessage(text);
}

// The view keeps its picture meanwhile, and nothing else can be started.
Heard MainWindow::work(const QString& title, const std::function<void()>& what) {
    busy_ = true;
    view_->hold_picture(true);
    Heard heard = run_long_work(this, title, what);
    view_->hold_picture(false);
    busy_ = false;
    return heard;
}

// ---- files

bool MainWindow::open_model(const QString& name, bool fresh) {
    if (busy_) return false;
    end_real_time();
    ModelStore& store = model_store();
    const std::string former = store.model_file_name;
    store.model_file_name = name.toStdString();
    store.model_file_known = true;
    bool taken = false;
    const Heard heard = work("Reading " + QFileInfo(name).fileName(), [&] {
        taken = read_input_file().ok;
        if (taken) read_analysis_info_file();
    });
    if (taken) {
        view::DisplayState& state = view_->state();
        state.result_ready = false;
        state.animation_running = false;
        state.phase = 0;
        set_frame(1);
        view_->shown().model_changed();
        view_->shown().reset_light();
        show_light_in_controls();
        if (fresh) view_->look_from(view::ViewDirection::isometric);
        setWindowTitle("KESTRALUM - " + QFileInfo(name).fileName());
        say(heard.notices.isEmpty() ? QString("%1: %2 nodes, %3 elements")
                                          .arg(QFileInfo(name).fileName())
                                          .arg(store.mesh.node_num())
                                          .arg(store.mesh.element_num())
                                    : heard.notices.join("   "));
    } else {
        store.model_file_name = former;
    }
    view_->update();
    if (!heard.errors.isEmpty())
        show_errors(this, taken ? "The control file is not used" : "The model was not read", heard.errors);
    return taken;
}

void MainWindow::updateModel() {
    open_model(QString::fromStdString(model_store().model_file_name), false);
}

void MainWindow::showInputFileDialog() {
    const QString name = ask_for_file(this, text_files);
    if (name.isEmpty()) return;
    console::print("filename=%s\n", name.toStdString().c_str());
    open_model(name);
}

void MainWindow::show_results_read(const QString& name) {
    view::DisplayState& state = view_->state();
    state.result_ready = true;
    state.animation_running = false;
    state.phase = 0;
    view_->shown().model_changed();
    set_frame(1);
    view_->shown().reset_light();
    show_light_in_controls();
    view_->look_from(view::ViewDirection::isometric);
    say(QString("%1: %2 frames").arg(QFileInfo(name).fileName()).arg(model_store().results.mode_num()));
}

bool MainWindow::open_frames(const QString& name, const QString& what, bool (*read)()) {
    if (busy_) return false;
    end_real_time();
    model_store().result_file_name = name.toStdString();
    model_store().result_file_known = true;
    bool taken = false;
    const Heard heard = work("Reading " + what, [&] { taken = read(); });
    if (taken) show_results_read(name);
    if (!heard.errors.isEmpty()) show_errors(this, "The " + what + " were not read", heard.errors);
    return taken;
}

bool MainWindow::open_results(const QString& name) {
    return open_frames(name, "results", read_results);
}

bool MainWindow::open_displacements(const QString& name) {
    return open_frames(name, "displacements", read_displacements);
}

void MainWindow::showResultFileDialog() {
    const QString name = ask_for_file(this, text_files);
    if (!name.isEmpty()) open_results(name);
}

void MainWindow::showDispFileDialog() {
    const QString name = ask_for_file(this, text_files);
    if (!name.isEmpty()) open_displacements(name);
}

void MainWindow::showMovFileDialog() {
    const QString name = ask_for_file(this, movie_files);
    if (!name.isEmpty()) say("Movie files cannot be shown: " + name);
}

// ---- analyses

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

// One line on what came out.
QString outcome(const RunReport& report) {
    if (!report.modes.empty())
        return QString("%1 modes, the first at %2 Hz")
            .arg(report.modes.size())
            .arg(report.modes.front().frequency, 0, 'g', 5);
    if (report.largest_displacement.node > 0)
        return QString("largest displacement %1 m at node %2, largest Mises stress %3 Pa at node %4")
            .arg(report.largest_displacement.value, 0, 'e', 3)
            .arg(report.largest_displacement.node)
            .arg(report.largest_mises.value, 0, 'e', 3)
            .arg(report.largest_mises.node);
    return "complete";
}

}  // namespace

void MainWindow::run_analysis(const char* menu_text, const std::function<void()>& select) {
    if (busy_) return;
    end_real_time();
    const AnalysisEntry& entry = entry_of(menu_text);
    const AnalysisType former = model_store().ana_type;
    model_store().ana_type = entry.type;
    view_->state().real_time = false;
    select();
    Heard heard;
    const RunReport report = run_on_store(entry, heard);
    // nothing was computed: what is shown keeps its kind
    if (report.status == RunStatus::bad_input) model_store().ana_type = former;
    show_run(report, plain(menu_text), heard);
}

RunReport MainWindow::run_on_store(const AnalysisEntry& entry, Heard& heard) {
    RunReport report;
    heard = work(plain(entry.menu_text), [&] {
        report.status = RunStatus::failed;  // until the run has come back
        LogLock lock;
        if (!lock.take()) {
            report.status = RunStatus::bad_input;
            return;
        }
        report = entry.run();
        print_run_summary(model_store(), report);
        for (const std::string& error : report.remarks.errors) console::error("%s", error.c_str());
    });
    if (report.status == RunStatus::failed) release_held_results(model_store());
    return report;
}

void MainWindow::show_run(const RunReport& report, const QString& title, const Heard& heard) {
    if (report.status != RunStatus::bad_input) {
        view_->state().result_ready = report.status == RunStatus::done || report.has_results();
        view_->state().phase = 0;
        view_->shown().model_changed();  // the run has renumbered the nodes
        // steps show where they have led to
        set_frame(has_steps(model_store().ana_type) ? model_store().results.mode_num() : 1);
    }
    view_->update();
    show_outcome(report, title, heard);
}

void MainWindow::show_outcome(const RunReport& report, const QString& title, const Heard& heard) {
    QStringList told = heard.notices;
    for (const std::string& notice : report.remarks.notices) told << QString::fromStdString(notice);
    told.removeDuplicates();
    told.prepend(title + ": " +
                 (report.status == RunStatus::done ? outcome(report) : QString("not completed")));
    say(told.join("   "));
    if (!heard.errors.isEmpty())
        show_errors(this, title + (report.has_results() ? " ended with a warning" : " was not completed"),
                    heard.errors);
    if (report.status == RunStatus::disk_budget) QCoreApplication::exit(1);
}

void MainWindow::slotsExecStatic() {
    run_analysis("&Static");
}

void MainWindow::slotsExecEigenSubspace() {
    run_analysis("&Eigen(Subspace)", [this] { view_->state().eigen_method = view::EigenMethod::subspace; });
}

void MainWindow::slotsExecEigenLanczos() {
    run_analysis("&Eigen(Lanczos)", [this] { view_->state().eigen_method = view::EigenMethod::lanczos; });
}

void MainWindow::slotsExecNonlinearStatic() {
    run_analysis("&Nonlinear Static");
}

void MainWindow::slotsExecExplicit() {
    run_analysis("&Explicit", [this] { view_->state().result_ready = true; });
}

// The set-up only; from then on every repaint of the view runs one output interval.
void MainWindow::slotsExecExplicitStep() {
    if (busy_) return;
    const RealTimeDriver* driver = real_time_driver();
    end_real_time();
    view::DisplayState& state = view_->state();
    const AnalysisType former = model_store().ana_type;
    model_store().ana_type = AnalysisType::explicit_dynamics;
    state.real_time = true;
    RunReport report;
    bool begun = false;
    const Heard heard = work("Explicit(Real Time)", [&] {
        log_lock_ = std::make_unique<LogLock>();
        begun = log_lock_->take() && driver->begin(report);
        for (const std::string& error : report.remarks.errors) console::error("%s", error.c_str());
    });
    view_->shown().model_changed();  // the set-up has renumbered the nodes
    if (!begun) {
        model_store().ana_type = former;
        end_real_time();
        show_errors(this, "Explicit(Real Time) was not started", heard.errors);
        return;
    }
    state.result_ready = true;
    set_frame(1);
    say("Explicit(Real Time) runs");
    view_->set_step([this] { step_real_time(); });
}

void MainWindow::step_real_time() {
    view::DisplayState& state = view_->state();
    const RealTimeDriver* driver = real_time_driver();
    if (!state.real_time || model_store().ana_type != AnalysisType::explicit_dynamics) return;
    RunReport report;
    const bool more = driver->advance(report);
    view_->shown().drawing.results_changed();
    state.frame = more ? driver->frame() : model_store().results.mode_num();  // ended: all that was reached
    QThread::msleep(static_cast<unsigned long>(driver->pause));
    if (more) return;
    state.real_time = false;
    log_lock_.reset();
    // not from within a repaint: the box that tells errors repaints the window
    QMetaObject::invokeMethod(
        this,
        [this, report] {
            view_->set_step({});
            Heard heard;
            for (const std::string& error : report.remarks.errors) {
                console::error("%s", error.c_str());
                heard.errors << QString::fromStdString(error);
            }
            show_frame_in_controls();
            show_outcome(report, "Explicit(Real Time)", heard);
        },
        Qt::QueuedConnection);
}

// Whatever replaces the store's tables ends a run that the view steps.
void MainWindow::end_real_time() {
    if (view_->state().real_time) real_time_driver()->drop();
    view_->set_step({});
    view_->state().real_time = false;
    log_lock_.reset();
}

// ---- display state

void MainWindow::start_animation() {
    view_->state().frame = 1;
    view_->state().animation_running = true;
}

void MainWindow::set_frame(int frame) {
    view_->state().frame = view::clamp_frame(frame, model_store().results.mode_num());
    show_frame_in_controls();
}

void MainWindow::show_frame_in_controls() {
    for (QSpinBox* box : {frame_box_, mode_box_}) {
        const QSignalBlocker quiet(box);
        box->setValue(view_->state().frame);
    }
}

void MainWindow::show_light_in_controls() {
    for (std::size_t k = 0; k < 3; ++k) {
        const QSignalBlocker quiet(light_boxes_[k]);
        light_boxes_[k]->setValue(view_->state().light[k]);
    }
}

void MainWindow::i_anime_Changed(int frame) {
    set_frame(frame);
}

void MainWindow::slotsModeNumberChanged(int number) {
    set_frame(number);
}

void MainWindow::add_anime_Changed(int increment) {
    view_->state().frame_increment = increment;
}

void MainWindow::slotsModeScaleChanged(double scale) {
    view_->state().mode_scale = scale;
}

void MainWindow::slotsTransChanged(double opacity) {
    view_->state().transparency = opacity;
}

void MainWindow::slotsMainLightPosXChanged(double x) {
    view_->state().light[0] = x;
}

void MainWindow::slotsMainLightPosYChanged(double y) {
    view_->state().light[1] = y;
}

void MainWindow::slotsMainLightPosZChanged(double z) {
    view_->state().light[2] = z;
}

void MainWindow::slotsViewMenu() {
    for (std::size_t k = 0; k < view_actions_.size(); ++k) {
        const bool checked = view_actions_[k]->isChecked();
        view_->state().flags[k] = checked;
        if (k < 2 && checked) console::print("View Menu [%d] is Checked\n", static_cast<int>(k));
    }
}

void MainWindow::slotsContourMenu() {
    std::array<bool, 18> checked{};
    for (std::size_t k = 0; k < checked.size(); ++k) checked[k] = contour_actions_[k]->isChecked();
    std::int32_t& contour = view_->state().contour;
    contour = view::chosen_contour(checked, contour);
    for (std::size_t k = 0; k < checked.size(); ++k)
        contour_actions_[k]->setChecked(static_cast<std::int32_t>(k) == contour);
    view_->state().plastic_strain = false;  // what was chosen last shows
    plastic_->setChecked(false);
}

// ---- pixmaps

void MainWindow::show_pixmap(const QImage& image) {
    clearPixmap();
    pixmap_ = new PixmapWindow(QPixmap::fromImage(image), this);
    pixmap_->show();
}

void MainWindow::renderIntoPixmap() {
    const auto size = ask_for_size(this, view_->size());
    if (!size) return;
    QString error;
    const QImage image = view_->render_picture(*size, error);
    if (image.isNull())
        show_errors(this, "The pixmap was not drawn", {error});
    else
        show_pixmap(image);
}

void MainWindow::grabFrameBuffer() {
    show_pixmap(view_->grab_picture());
}

void MainWindow::clearPixmap() {
    delete pixmap_;
}

void MainWindow::about() {
    QMessageBox::about(
        this, "About KESTRALUM",
        "The <b>Grabber</b> example demonstrates two approaches for rendering OpenGL into a Qt pixmap.");
}

// ---- keys

void MainWindow::keyPressEvent(QKeyEvent* event) {
    using view::ViewDirection;
    console::print("keyPressEvent:\n");
    const bool back = event->modifiers() & Qt::ShiftModifier;
    switch (event->key()) {
        case Qt::Key_T:
            view_->state().mouse_mode = view::MouseMode::translation;
            console::print("   t\n");
            say("Left button moves the model");
            break;
        case Qt::Key_R:
            view_->state().mouse_mode = view::MouseMode::rotation;
            console::print("   r\n");
            say("Left button turns the model");
            break;
        case Qt::Key_F:
            view_->fit_view();
            break;
        case Qt::Key_X:
            view_->look_from(back ? ViewDirection::minus_x : ViewDirection::x);
            break;
        case Qt::Key_Y:
            view_->look_from(back ? ViewDirection::minus_y : ViewDirection::y);
            break;
        case Qt::Key_Z:
            view_->look_from(back ? ViewDirection::minus_z : ViewDirection::z);
            break;
        case Qt::Key_I:
            view_->look_from(ViewDirection::isometric);
            break;
        default:
            QMainWindow::keyPressEvent(event);
    }
}

// A run holds the store: it is asked to stop, and the window can be closed after it.
void MainWindow::closeEvent(QCloseEvent* event) {
    if (!busy_) return QMainWindow::closeEvent(event);
    console::request_cancel(true);
    event->ignore();
}

}  // namespace kestralum
