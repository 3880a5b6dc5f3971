// How the window is put together: actions, menus, controls, toolbar.
#include <QAction>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QToolBar>
#include <QVBoxLayout>

#include "app/window/main_window.h"
#include "view/contour.h"

namespace kestralum {

QAction* MainWindow::add_action(const char* text, const char* tip, Slot slot) {
    auto* action = new QAction(text, this);
    action->setStatusTip(*tip ? QString(tip) : QString(text).remove('&'));
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void MainWindow::make_menus() {
    QMenu* model = menuBar()->addMenu("&Model");
    model->addAction(add_action("&Open Model File", "", &MainWindow::showInputFileDialog));
    model->addAction(add_action("&Update Model", "", &MainWindow::updateModel));
    model->addAction(add_action("&Open Result File", "", &MainWindow::showResultFileDialog));
    model->addAction(add_action("&Open Disp. File", "", &MainWindow::showDispFileDialog));
    auto* exit = new QAction("E&xit", this);
    exit->setStatusTip("Exit");
    exit->setShortcuts(QKeySequence::Quit);
    connect(exit, &QAction::triggered, this, &MainWindow::close);
    model->addAction(exit);
    model->addSeparator();
    model->addAction(add_action("Open &Part File",
                                "Open a mesh or CAD file; a model of it is written beside it",
                                &MainWindow::showPartFileDialog));

    QMenu* view = menuBar()->addMenu("&View");
    for (std::size_t k = 0; k < view_actions_.size(); ++k) {
        QAction* action = add_action(view::view_entries[k].text, "", &MainWindow::slotsViewMenu);
        action->setCheckable(true);
        action->setChecked(view::view_entries[k].start);
        view->addAction(view_actions_[k] = action);
    }

    view->addSeparator();
    copy_ = add_action("&Copy Selection", "Copy the selected faces as records of set_info",
                       &MainWindow::copySelection);
    copy_->setShortcut(QKeySequence::Copy);
    copy_->setEnabled(false);
    view->addAction(copy_);

    QMenu* analysis = menuBar()->addMenu("&Analysis");
    analysis->addAction(add_action("&Static", "", &MainWindow::slotsExecStatic));
    analysis->addAction(add_action("&Eigen(Subspace)", "EigenSubspace", &MainWindow::slotsExecEigenSubspace));
    analysis->addAction(add_action("&Eigen(Lanczos)", "EigenLanczos", &MainWindow::slotsExecEigenLanczos));
    analysis->addAction(add_action("&Explicit", "", &MainWindow::slotsExecExplicit));
    analysis->addAction(add_action("&Explicit(Real Time)", "", &MainWindow::slotsExecExplicitStep));
    analysis->addAction(
        add_action("&Nonlinear Static", "NonlinearStatic", &MainWindow::slotsExecNonlinearStatic));
    analysis->addSeparator();
    remove_factor_ = analysis->addAction("Remove &Factor Files");
    remove_factor_->setStatusTip("Remove the files of the factor from the log folder after each run");
    remove_factor_->setCheckable(true);
    analysis->addAction(add_action("&Buckling", "", &MainWindow::slotsExecBuckling));
    analysis->addSeparator();
    settings_ = new RunSettings(analysis, this);

    menuBar()->addMenu("&Result")->addAction(
        add_action("&Start Animation", "", &MainWindow::start_animation));

    QMenu* contour = menuBar()->addMenu("&Contour");
    for (std::int32_t k = 0; k < contour_count; ++k) {
        const char* text = k == error_entry ? view::error_estimate.menu_text : view::quantities[k].menu_text;
        QAction* action = add_action(text, "", &MainWindow::slotsContourMenu);
        action->setCheckable(true);
        action->setChecked(k == view_->state().contour);
        contour->addAction(contour_actions_[k] = action);
    }
    contour_actions_[error_entry]->setEnabled(false);
}

// They stand in no menu; the window holds them so that their shortcuts work.
void MainWindow::make_hidden_actions() {
    addAction(add_action("&Open Graph Window", "", &MainWindow::open_graphwindow));
    addAction(add_action("&Open Mov File", "", &MainWindow::showMovFileDialog));
    auto with_key = [&](const char* text, const char* key, Slot slot) {
        QAction* action = add_action(text, "", slot);
        action->setShortcut(QKeySequence(key));
        addAction(action);
    };
    with_key("&Render into Pixmap...", "Ctrl+R", &MainWindow::renderIntoPixmap);
    with_key("&Grab Frame Buffer", "Ctrl+G", &MainWindow::grabFrameBuffer);
    with_key("&Clear Pixmap", "Ctrl+L", &MainWindow::clearPixmap);
    with_key("&Stop Rotate", "Ctrl+S", &MainWindow::stopRotate);
    addAction(add_action("&About", "", &MainWindow::about));
    auto* about_qt = new QAction("About &Qt", this);
    about_qt->setStatusTip("About Qt");
    connect(about_qt, &QAction::triggered, qApp, &QApplication::aboutQt);
    addAction(about_qt);
}

namespace {

constexpr int control_width = 50;  // pixels

template <typename Box>
Box* labelled(QVBoxLayout* column, const char* label, Box* box) {
    auto* text = new QLabel(label);
    auto* row = new QHBoxLayout;
    row->addWidget(text);
    row->addStretch();
    row->addWidget(box);
    column->addLayout(row);
    text->setBuddy(box);
    box->setObjectName(label);
    box->setFixedWidth(control_width);
    box->setKeyboardTracking(false);
    box->setButtonSymbols(
        QAbstractSpinBox::NoButtons);  // the arrow keys and the wheel step; digits need the width
    return box;
}

}  // namespace

QSpinBox* MainWindow::integer_control(QVBoxLayout* column, const char* label, void (MainWindow::*slot)(int)) {
    auto* box = labelled(column, label, new QSpinBox);
    box->setRange(1, 9999);
    box->setSingleStep(1);
    box->setValue(1);
    connect(box, &QSpinBox::valueChanged, this, slot);
    return box;
}

QDoubleSpinBox* MainWindow::decimal_control(QVBoxLayout* column, const char* label,
                                            std::array<double, 4> range_step_start,
                                            void (MainWindow::*slot)(double)) {
    auto* box = labelled(column, label, new QDoubleSpinBox);
    box->setDecimals(2);
    box->setRange(range_step_start[0], range_step_start[1]);
    box->setSingleStep(range_step_start[2]);
    box->setValue(range_step_start[3]);
    connect(box, &QDoubleSpinBox::valueChanged, this, slot);
    return box;
}

void MainWindow::make_controls(QVBoxLayout* column) {
    frame_box_ = integer_control(column, "Anime Frame:", &MainWindow::i_anime_Changed);
    mode_box_ = integer_control(column, "Mode No.:", &MainWindow::slotsModeNumberChanged);
    decimal_control(column, "Mode Scale:", {0.1, 10, 0.1, 1}, &MainWindow::slotsModeScaleChanged);
    decimal_control(column, "Model Trans.:", {0.01, 1, 0.01, 1}, &MainWindow::slotsTransChanged);
    const std::array<double, 4> light{-10, 10, 0.01, view_->shown().mesh().max_length};
    light_boxes_ = {decimal_control(column, "LightX", light, &MainWindow::slotsMainLightPosXChanged),
                    decimal_control(column, "LightY", light, &MainWindow::slotsMainLightPosYChanged),
                    decimal_control(column, "LightZ", light, &MainWindow::slotsMainLightPosZChanged)};
    column->addStretch();
}

void MainWindow::make_toolbar() {
    QToolBar* bar = addToolBar("View");
    bar->setMovable(false);
    auto add = [&](const char* text, const char* tip, auto what) {
        QAction* action = bar->addAction(text);
        action->setStatusTip(tip);
        connect(action, &QAction::triggered, this, what);
        return action;
    };
    add("Fit", "Fit the model into the view (F)", [this] { view_->fit_view(); });
    add("X", "Look from +x (X; Shift+X from -x)", [this] { view_->look_from(view::ViewDirection::x); });
    add("Y", "Look from +y (Y; Shift+Y from -y)", [this] { view_->look_from(view::ViewDirection::y); });
    add("Z", "Look from +z (Z; Shift+Z from -z)", [this] { view_->look_from(view::ViewDirection::z); });
    add("Iso", "Look from all three sides (I)", [this] { view_->look_from(view::ViewDirection::isometric); });
    bar->addSeparator();
    QAction* scale = add("Auto Scale", "Draw small static displacements magnified",
                         [this](bool on) { view_->state().auto_scale = on; });
    scale->setCheckable(true);
    scale->setChecked(view_->state().auto_scale);
    QAction* frames = add("All Frames", "Contour range over all frames, not the one shown",
                          [this](bool on) { view_->state().all_frames_range = on; });
    frames->setCheckable(true);
    plastic_ = add(view::plastic_strain.menu_text, "Equivalent plastic strain in place of the chosen contour",
                   [this](bool on) { view_->state().plastic_strain = on; });
    plastic_->setCheckable(true);
}

}  // namespace kestralum
