// How the window is put together: actions, menus, controls, toolbar.
#include <QAction>
#include <QApplication>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/window/display_panel.h"
#include "app/window/main_window.h"
#include "app/window/tool_icons.h"
#include "app/window/view_menu.h"
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
    model->addAction(tools_.open = add_action("&Open Model File", "", &MainWindow::showInputFileDialog));
    model->addAction(tools_.update = add_action("&Update Model", "", &MainWindow::updateModel));
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
    recent_menu_ = model->addMenu("&Recent Files");
    connect(recent_menu_, &QMenu::aboutToShow, this, &MainWindow::list_recent);
    QAction* watch = model->addAction("&Watch File");
    watch->setStatusTip("Read the model again when its files are saved");
    watch->setCheckable(true);
    watch->setChecked(true);
    connect(watch, &QAction::toggled, this, [this](bool on) { watch_.set_on(on); });

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
    view_menu_ = new ViewMenu(
        view, *view_,
        [this] {
            const Model& shown = *store().model;
            return shown.source == ModelSource::start_up ? QString()
                                                         : QString::fromStdString(shown.model_file_name);
        },
        this);

    QMenu* analysis = menuBar()->addMenu("&Analysis");
    analysis->addAction(tools_.statics = add_action("&Static", "", &MainWindow::slotsExecStatic));
    analysis->addAction(
        tools_.eigen = add_action("&Eigen(Subspace)", "EigenSubspace", &MainWindow::slotsExecEigenSubspace));
    analysis->addAction(add_action("&Eigen(Lanczos)", "EigenLanczos", &MainWindow::slotsExecEigenLanczos));
    analysis->addAction(tools_.explicit_run = add_action("&Explicit", "", &MainWindow::slotsExecExplicit));
    analysis->addAction(add_action("&Explicit(Real Time)", "", &MainWindow::slotsExecExplicitStep));
    analysis->addAction(tools_.nonlinear = add_action("&Nonlinear Static", "NonlinearStatic",
                                                      &MainWindow::slotsExecNonlinearStatic));
    analysis->addSeparator();
    remove_factor_ = analysis->addAction("Remove &Factor Files");
    remove_factor_->setStatusTip("Remove the files of the factor from the log folder after each run");
    remove_factor_->setCheckable(true);
    analysis->addAction(add_action("&Buckling", "", &MainWindow::slotsExecBuckling));
    analysis->addSeparator();
    settings_ = new RunSettings(analysis, this);

    result_menu_ = menuBar()->addMenu("&Result");
    result_menu_->addAction(add_action("&Start Animation", "", &MainWindow::start_animation));

    QMenu* contour = tools_.contour = menuBar()->addMenu("&Contour");
    for (std::int32_t k = 0; k < contour_count; ++k) {
        const char* text = k == error_entry ? view::error_estimate.menu_text : view::quantities[k].menu_text;
        QAction* action = add_action(text, "", &MainWindow::slotsContourMenu);
        action->setCheckable(true);
        action->setChecked(k == view_->state().contour);
        contour->addAction(contour_actions_[k] = action);
    }
    contour_actions_[error_entry]->setEnabled(false);
    contour->addSeparator();
    QMenu* further = contour->addMenu("F&urther");
    for (const view::Quantity& quantity : view::further_quantities()) {
        QAction* action = further->addAction(quantity.menu_text);
        action->setStatusTip(quantity.menu_text);
        action->setCheckable(true);
        action->setData(quantity.group);
        connect(action, &QAction::triggered, this, [this, index = quantity.group] { show_further(index); });
        further_actions_.push_back(action);
    }
}

// Behind the documented entries.
void MainWindow::make_appended_entries() {
    addAction(add_action("&Open Mov File", "", &MainWindow::showMovFileDialog));
    addAction(add_action("&Stop Rotate", "", &MainWindow::stopRotate));
    actions().back()->setShortcut(QKeySequence("Ctrl+S"));
    result_menu_->addSeparator();
    result_menu_->addAction(add_action("&Open Graph Window", "", &MainWindow::open_graphwindow));
    result_menu_->addSeparator();
    auto with_key = [&](const char* text, const char* key, Slot slot) {
        QAction* action = add_action(text, "", slot);
        action->setShortcut(QKeySequence(key));
        result_menu_->addAction(action);
    };
    with_key("&Render into Pixmap...", "Ctrl+R", &MainWindow::renderIntoPixmap);
    with_key("&Grab Frame Buffer", "Ctrl+G", &MainWindow::grabFrameBuffer);
    with_key("&Clear Pixmap", "Ctrl+L", &MainWindow::clearPixmap);
    result_menu_->addSeparator();
    result_menu_->addAction(
        add_action("Save &Picture...", "Save the view as a picture of any size", &MainWindow::savePicture));
    result_menu_->addAction(add_action("Save &Animation...",
                                       "Save the swing of a mode, steps or load cases as a film",
                                       &MainWindow::saveAnimation));
    result_menu_->addAction(add_action("Save &Report...",
                                       "Save model, run and pictures as one page for the browser",
                                       &MainWindow::saveReport));
    make_comparison_entries();
}

void MainWindow::make_help_menu() {
    QMenu* help = menuBar()->addMenu("&Help");
    help->addAction(add_action("&About", "", &MainWindow::about));
    QAction* about_qt = help->addAction("About &Qt");
    about_qt->setStatusTip("About Qt");
    connect(about_qt, &QAction::triggered, qApp, &QApplication::aboutQt);
    help->addAction(add_action("&Verify...",
                               "Compute the problems with a known answer and make a page of them",
                               &MainWindow::verifyProgram));
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
    box->setFocusPolicy(Qt::StrongFocus);
    return box;
}

}  // namespace

QSpinBox* MainWindow::integer_control(QVBoxLayout* column, const char* label, void (MainWindow::*slot)(int)) {
    auto* box = labelled(column, label, new QSpinBox);
    box->setRange(1, 9999);
    box->setSingleStep(1);
    box->setValue(1);
    box->installEventFilter(this);
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
    box->installEventFilter(this);
    connect(box, &QDoubleSpinBox::valueChanged, this, slot);
    return box;
}

void MainWindow::make_controls(QVBoxLayout* column) {
    frame_box_ = integer_control(column, "Anime Frame:", &MainWindow::i_anime_Changed);
    mode_box_ = integer_control(column, "Mode No.:", &MainWindow::slotsModeNumberChanged);
    decimal_control(column, "Mode Scale:", {0.1, 10, 0.1, 1}, &MainWindow::slotsModeScaleChanged);
    decimal_control(column, "Model Trans.:", {0.01, 1, 0.01, 1}, &MainWindow::slotsTransChanged);
    auto* fold = new QToolButton;
    fold->setText("Light");
    fold->setObjectName("Light");
    fold->setCheckable(true);
    fold->setAutoRaise(true);
    fold->setArrowType(Qt::RightArrow);
    fold->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    fold->setFocusPolicy(Qt::NoFocus);
    column->addWidget(fold);
    auto* lights = new QWidget;
    auto* light_column = new QVBoxLayout(lights);
    light_column->setContentsMargins(0, 0, 0, 0);
    const std::array<double, 4> light{-10, 10, 0.01, view_->shown().mesh().max_length};
    light_boxes_ = {decimal_control(light_column, "LightX", light, &MainWindow::slotsMainLightPosXChanged),
                    decimal_control(light_column, "LightY", light, &MainWindow::slotsMainLightPosYChanged),
                    decimal_control(light_column, "LightZ", light, &MainWindow::slotsMainLightPosZChanged)};
    column->addWidget(lights);
    lights->hide();
    connect(fold, &QToolButton::toggled, lights, [fold, lights](bool open) {
        fold->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        lights->setVisible(open);
    });
    column->addStretch();
}

void MainWindow::make_toolbars() {
    QToolBar* bar = nullptr;
    auto begin = [&](const char* title) {
        bar = addToolBar(title);
        bar->setObjectName(title);
        bar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        bar->setIconSize({22, 22});
    };
    auto share = [&](QAction* action, const char* text, const QIcon& icon) {
        action->setIcon(icon);
        action->setIconText(text);
        action->setIconVisibleInMenu(false);
        bar->addAction(action);
    };
    auto add = [&](const char* text, const QIcon& icon, const char* tip, auto what) {
        QAction* action = bar->addAction(icon, text);
        action->setStatusTip(tip);
        action->setToolTip(tip);
        connect(action, &QAction::triggered, this, what);
        return action;
    };
    auto toggle = [&](const char* text, ToolIcon icon, const char* tip, bool on, auto what) {
        QAction* action = add(text, tool_icon(icon, *this), tip, what);
        action->setCheckable(true);
        action->setChecked(on);
        return action;
    };
    auto drawn = [&](ToolIcon icon) { return tool_icon(icon, *this); };

    begin("Model");
    share(tools_.open, "Open", style()->standardIcon(QStyle::SP_DialogOpenButton));
    share(tools_.update, "Update", style()->standardIcon(QStyle::SP_BrowserReload));
    add("Check", drawn(ToolIcon::check), "Look at the model: mass, shape of the elements, supports, loads",
        &MainWindow::checkModel);

    begin("Analysis");
    share(tools_.statics, "Static", drawn(ToolIcon::statics));
    share(tools_.eigen, "Eigen", drawn(ToolIcon::eigen));
    share(tools_.nonlinear, "Nonlinear", drawn(ToolIcon::nonlinear));
    share(tools_.explicit_run, "Explicit", drawn(ToolIcon::explicit_run));
    stop_ = add("Stop", style()->standardIcon(QStyle::SP_BrowserStop), "Stop the work under way",
                [this] { worker_->stop(); });
    stop_->setEnabled(false);
    connect(worker_.get(), &Worker::begun, this, [this] { stop_->setEnabled(true); });
    connect(worker_.get(), &Worker::ended, this, [this] { stop_->setEnabled(worker_->busy()); });

    begin("View");
    add("Fit", drawn(ToolIcon::fit), "Fit the model into the view (F)", [this] { view_->fit_view(); });
    using view::ViewDirection;
    add("X", drawn(ToolIcon::x), "Look from +x (X; Shift+X from -x)",
        [this] { view_->look_from(ViewDirection::x); });
    add("Y", drawn(ToolIcon::y), "Look from +y (Y; Shift+Y from -y)",
        [this] { view_->look_from(ViewDirection::y); });
    add("Z", drawn(ToolIcon::z), "Look from +z (Z; Shift+Z from -z)",
        [this] { view_->look_from(ViewDirection::z); });
    add("Iso", drawn(ToolIcon::iso), "Look from all three sides (I)",
        [this] { view_->look_from(ViewDirection::isometric); });
    rotate_ = toggle(
        "Rotate", ToolIcon::rotate, "The left button turns the model (R), else moves it (T)", false,
        [this](bool on) { set_mouse_mode(on ? view::MouseMode::rotation : view::MouseMode::translation); });

    begin("Picture");
    auto* contour = new QToolButton;
    contour->setText("Contour");
    contour->setObjectName("Contour");
    contour->setIcon(drawn(ToolIcon::contour));
    contour->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    contour->setToolTip("The quantity that colours the model");
    contour->setMenu(tools_.contour);
    contour->setPopupMode(QToolButton::InstantPopup);
    contour->setAutoRaise(true);
    bar->addWidget(contour);
    plastic_ = toggle(view::plastic_strain.menu_text, ToolIcon::plastic,
                      "Equivalent plastic strain in place of the chosen contour", false,
                      [this](bool on) { show_plastic_strain(on); });
    all_frames_ = toggle("All Frames", ToolIcon::all_frames,
                         "Contour range over all frames, not the one shown", false, [this](bool on) {
                             using enum view::RangeKind;
                             view_->state().scale.range = on ? all_frames : automatic;
                             display_->show_state();
                         });
    toggle("Auto Scale", ToolIcon::auto_scale, "Draw small static displacements magnified",
           view_->state().auto_scale, [this](bool on) { view_->state().auto_scale = on; });
}

}  // namespace kestralum
