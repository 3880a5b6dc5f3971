#include "app/window/main_window.h"

#include <QAbstractSpinBox>
#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStatusBar>
#include <array>
#include <utility>

#include "app/run_process.h"
#include "app/window/dialogs.h"
#include "app/window/live_run.h"
#include "app/window/progress_line.h"
#include "app/window/sweep_panel.h"
#include "app/window/view_menu.h"

namespace kestralum {

MainWindow::~MainWindow() {
    worker_.reset();  // a job hands what it makes to this window
}

MainWindow::MainWindow(const std::string& log_folder, bool quiet)
    : log_folder_(log_folder),
      console_(!quiet),
      worker_(std::make_unique<Worker>(!quiet)),
      view_(new GLWidget(console_, log_folder)),
      folder_(first_folder()) {
    setWindowTitle("KESTRALUM");
    auto* area = new QScrollArea;
    area->setWidget(view_);
    area->setWidgetResizable(true);
    area->setFrameShape(QFrame::NoFrame);
    view_->setAutoFillBackground(false);  // the scroll area turned it on; it would wipe the scene
    setCentralWidget(area);
    said_ = new QLabel;
    said_->setObjectName("said");
    said_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    said_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    shown_text_ = new QLabel;
    shown_text_->setObjectName("shown");
    statusBar()->addWidget(said_, 1);
    run_row_ = new ProgressLine(*worker_);
    statusBar()->addPermanentWidget(run_row_);
    connect(run_row_, &ProgressLine::held, this, [this](bool on) {
        if (live_) live_->hold(on);
    });
    connect(run_row_, &ProgressLine::stepped, this, [this] {
        if (live_) live_->step();
    });
    connect(run_row_, &ProgressLine::pause_chosen, this, [this](int milliseconds) {
        if (live_) live_->set_pause(std::chrono::milliseconds(milliseconds));
    });
    statusBar()->addPermanentWidget(shown_text_);

    make_menus();
    make_appended_entries();
    make_toolbars();
    make_docks();
    make_window_menu();
    make_help_menu();
    restore_layout();
    connect(worker_.get(), &Worker::ended, this, &MainWindow::go_on);
    connect(view_, &GLWidget::started, this, &MainWindow::on_started);
    connect(view_, &GLWidget::settings_missing, this, &MainWindow::on_settings_missing);
    connect(view_, &GLWidget::picked, this, &MainWindow::say);
    connect(view_, &GLWidget::said, this, &MainWindow::say);
    view_->shown().on_selection = [this] { copy_->setEnabled(!view_->shown().selection().empty()); };
    connect(view_, &GLWidget::painted, this, [this] {
        if (live_ && std::exchange(live_frame_new_, false)) live_->repainted();
    });
    connect(this, &MainWindow::content_shown, this, &MainWindow::show_what_is_shown);
    connect(this, &MainWindow::frame_shown, this, &MainWindow::show_what_is_shown);
    show_what_is_shown();
    connect(&watch_, &FileWatch::saved, this, &MainWindow::read_saved);
    setAcceptDrops(true);
    say("Open a model: Model, Open Model File");
}

void MainWindow::on_started() {
    show_light_in_controls();
    if (!at_start_.isEmpty()) open_model(at_start_);
}

void MainWindow::on_settings_missing() {
    const QString place = QDir::toNativeSeparators(QDir::currentPath());
    QStringList lines{QString("setting/setting.txt was looked for in %1.").arg(place),
                      "Start the program in the folder that holds the folder setting."};
    if (const std::string hint = missing_settings_hint(); !hint.empty())
        lines << QString::fromStdString(hint) + ".";
    show_errors(this, "The settings file is missing", lines);
    QCoreApplication::exit(0);
}

void MainWindow::say(const QString& text) {
    statusBar()->clearMessage();  // the words about an entry under the pointer
    said_->setText(text.section('\n', 0, 0));
    said_->setToolTip(text);
}

QStringList MainWindow::tell(MessageKind kind, const QStringList& lines) {
    QStringList kept;
    for (const QString& line : lines) kept << messages_->add(kind, line);
    if (!lines.isEmpty() && kind != MessageKind::note) say(lines.front());
    return kept;
}

void MainWindow::refuse(const QString& headline, const QStringList& errors) {
    show_errors(this, headline, tell(MessageKind::error, QStringList{headline} + errors).mid(1));
}

// ---- what waits for a job

void MainWindow::after_run(const QString& what, std::function<void()> action) {
    if (!worker_->busy()) return action();
    if (check_unasked_) {
        wait_with(std::move(action));
        return worker_->stop();
    }
    enum Answer { wait, stop, leave };
    const QString running = worker_->title();
    const int answer =
        ask(this, running + " is under way.", what + ": wait for its end, stop it, or let it go on?",
            {"Wait", "Stop the run", "Leave it"}, wait, leave);
    if (answer == leave) return emit reading_refused();
    if (!worker_->busy()) return action();  // it has ended meanwhile
    wait_with(std::move(action));
    if (answer == stop)
        worker_->stop();
    else
        say(what + " follows when " + running + " has ended");
}

// One action waits; it takes the place of one before, which may have been a reading.
void MainWindow::wait_with(std::function<void()> action) {
    if (std::exchange(after_, std::move(action))) emit reading_refused();
}

void MainWindow::go_on() {
    if (worker_->busy()) return;  // a job that the one before was the first step of
    if (const auto action = std::exchange(after_, nullptr)) action();
    if (!worker_->busy() && std::exchange(saved_meanwhile_, false)) read_saved();
}

// ---- display state

void MainWindow::start_animation() {
    view_->state().frame = 1;
    view::play(view_->state(), view_->shown().mode_num(), false);
    view_->state().animation_repeats = false;
}

void MainWindow::set_frame(int frame) {
    view_->state().frame = view::clamp_frame(frame, view_->shown().mode_num());
    show_frame_in_controls();
    offer_error_estimate();
    told_frame_ = view_->state().frame;
    emit frame_shown(told_frame_);
}

// The frame that was asked for; of several load cases the status bar tells which it is.
void MainWindow::step_to(int frame) {
    view_->state().animation_running = false;
    set_frame(frame);
    const auto shown = view::frame_at(view_->shown().tables().frames(), view_->state().frame);
    if (shown && !shown->name.empty())
        say(QString("Load case %1, %2/%3")
                .arg(QString::fromStdString(shown->name))
                .arg(view_->state().frame)
                .arg(view_->shown().mode_num()));
}

// The entry lives where the frame has an estimate; the picture falls back to the stress it is of.
void MainWindow::offer_error_estimate() {
    view::DisplayState& state = view_->state();
    const auto shown = view::frame_at(view_->shown().tables().frames(), state.frame);
    const bool known = shown && !shown->error.empty();
    contour_actions_.back()->setEnabled(known);
    if (!known && state.further == view::error_row) show_contour(view::DisplayState().contour);
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
    step_to(frame);
}

void MainWindow::slotsModeNumberChanged(int number) {
    step_to(number);
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
        if (k < 2 && checked) console_.print("View Menu [%d] is Checked\n", static_cast<int>(k));
    }
}

void MainWindow::slotsContourMenu() {
    std::array<bool, contour_count> checked{};
    for (std::size_t k = 0; k < checked.size(); ++k) checked[k] = contour_actions_[k]->isChecked();
    const view::DisplayState& state = view_->state();
    const bool error = state.further == view::error_row || before_plastic_ == view::error_row;
    show_contour(view::chosen_contour(checked, error ? error_entry : state.contour));
}

// What was chosen last shows.
void MainWindow::show_contour(std::int32_t entry) {
    view_->state().contour = entry == error_entry ? -1 : entry;
    set_further(entry == error_entry ? view::error_row : 0);
    for (std::int32_t k = 0; k < contour_count; ++k) contour_actions_[k]->setChecked(k == entry);
}

void MainWindow::set_further(std::int32_t index) {
    view_->state().further = index;
    before_plastic_ = 0;
    const QSignalBlocker quiet(plastic_);
    plastic_->setChecked(false);
    for (QAction* action : further_actions_) action->setChecked(action->data().toInt() == index);
    show_what_is_shown();
    emit contour_changed();
}

// An entry of the further quantities; chosen again it takes the colours away, as those of the menu do.
void MainWindow::show_further(std::int32_t index) {
    const bool again = view_->state().further == index;
    show_contour(-1);
    if (!again) set_further(index);
}

// In place of the chosen contour, which comes back.
void MainWindow::show_plastic_strain(bool on) {
    std::int32_t& further = view_->state().further;
    if (on) before_plastic_ = further;
    further = on ? view::plastic_strain_row : std::exchange(before_plastic_, 0);
    show_what_is_shown();
    emit contour_changed();
}

void MainWindow::go_to_extreme(bool largest) {
    const std::int32_t before = view_->state().frame;
    const std::string line = view_->shown().go_to_extreme(largest);
    if (view_->state().frame != before) step_to(view_->state().frame);
    if (!line.empty()) say(QString::fromStdString(line));
    view_->update();
}

// ---- selection

void MainWindow::copySelection() {
    if (view_->shown().selection().empty()) return;
    const QString records = QString::fromStdString(view_->shown().selection_records());
    QApplication::clipboard()->setText(records);
    const QStringList lines = records.trimmed().split('\n');
    say((lines.size() == 1
             ? QString("Copied for set_info: ")
             : QString("Copied %1 records for set_info, the last selects it all: ").arg(lines.size())) +
        lines.back().simplified());
}

void MainWindow::clearSelection() {
    view_->shown().clear_selection();
    view_->update();
}

void MainWindow::about() {
    QMessageBox::about(
        this, "About KESTRALUM",
        QString("<b>KESTRALUM %1</b><p>Structural analysis of solid bodies by finite elements: linear "
                "static, eigen, buckling, nonlinear static and explicit dynamics.</p><p>The command "
                "kestralum-batch is the same program without a window.</p>")
            .arg(program_version));
}

// ---- keys

void MainWindow::set_mouse_mode(view::MouseMode mode) {
    const bool rotation = mode == view::MouseMode::rotation;
    view_->state().mouse_mode = mode;
    rotate_->setChecked(rotation);
    say(rotation ? "Left button turns the model" : "Left button moves the model");
}

// The number boxes take no letters: they mean the view there too. Enter and Escape give the view the keys
// back.
bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress && qobject_cast<QAbstractSpinBox*>(watched)) {
        auto* key = static_cast<QKeyEvent*>(event);
        const bool letter = key->key() >= Qt::Key_A && key->key() <= Qt::Key_Z;
        if (letter && !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier))) {
            keyPressEvent(key);
            return true;
        }
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter || key->key() == Qt::Key_Escape) {
            static_cast<QAbstractSpinBox*>(watched)->interpretText();
            view_->setFocus();
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::keyPressEvent(QKeyEvent* event) {
    using view::ViewDirection;
    console_.print("keyPressEvent:\n");
    const bool back = event->modifiers() & Qt::ShiftModifier;
    switch (event->key()) {
        case Qt::Key_T:
            console_.print("   t\n");
            set_mouse_mode(view::MouseMode::translation);
            break;
        case Qt::Key_R:
            console_.print("   r\n");
            set_mouse_mode(view::MouseMode::rotation);
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
        case Qt::Key_O:
            view_menu_->toggle_projection();
            break;
        case Qt::Key_Escape:
            clearSelection();
            break;
        default:
            QMainWindow::keyPressEvent(event);
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (!worker_->busy() && (!sweep_->busy() || leaves_sweep_)) {
        keep_layout();
        return QMainWindow::closeEvent(event);
    }
    event->ignore();
    // not from within the event: the window system wants its answer first
    QMetaObject::invokeMethod(
        this, [this] { after_run("Exit", [this] { leave_sweep(); }); }, Qt::QueuedConnection);
}

// Its window's end stops a sweep; the rows it has done are lost unless they were saved.
void MainWindow::leave_sweep() {
    enum Answer { stop, stay };
    leaves_sweep_ = !sweep_->busy() || ask(this, "A sweep is under way.", "Exit: stop it, or let it go on?",
                                           {"Stop the sweep", "Leave it"}, stay, stay) == stop;
    if (leaves_sweep_) close();
}

}  // namespace kestralum
