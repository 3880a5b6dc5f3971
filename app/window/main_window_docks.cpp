// The docks and bars around the view, the menu that opens them, and the layout that is kept between starts.
#include <QAction>
#include <QCloseEvent>
#include <QDockWidget>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QScreen>
#include <QScrollArea>
#include <QSettings>
#include <QSignalBlocker>
#include <QStyle>
#include <QToolBar>
#include <QVBoxLayout>

#include "app/window/caption.h"
#include "app/window/dialogs.h"
#include "app/window/display_panel.h"
#include "app/window/main_window.h"
#include "app/window/model_tree.h"
#include "app/window/parameter_panel.h"
#include "app/window/sweep_panel.h"
#include "view/contour.h"

namespace kestralum {

namespace {

constexpr int layout_version = 1;  // of the kept layout; another one's is left alone

}  // namespace

QDockWidget* MainWindow::add_dock(const char* title, QWidget* content, Qt::DockWidgetArea area, bool open) {
    auto* dock = new QDockWidget(title, this);
    dock->setObjectName(title);
    dock->setWidget(content);
    addDockWidget(area, dock);
    dock->setVisible(open);
    docks_.push_back(dock);
    return dock;
}

void MainWindow::make_docks() {
    setDockOptions(AnimatedDocks | AllowNestedDocks | AllowTabbedDocks);
    setCorner(Qt::BottomRightCorner, Qt::RightDockWidgetArea);
    setCorner(Qt::BottomLeftCorner, Qt::LeftDockWidgetArea);

    auto* tree = new ModelTree(view_->shown());
    add_dock("Model", tree, Qt::LeftDockWidgetArea, true);
    connect(this, &MainWindow::content_shown, tree, &ModelTree::refresh);
    connect(tree, &ModelTree::frame_chosen, this, &MainWindow::step_to);
    connect(tree, &ModelTree::changed, view_, [this] { view_->update(); });

    auto* controls = new QWidget;
    auto* column = new QVBoxLayout(controls);
    make_controls(column);
    auto* scroll = new QScrollArea;
    scroll->setWidget(controls);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setMinimumWidth(controls->sizeHint().width());
    add_dock("Controls", scroll, Qt::RightDockWidgetArea, true);

    auto* parameters = new ParameterPanel(
        [this] {
            return ParameterPanel::Scene{store().model, overrides()};
        },
        [this](const auto& changed, bool run_again) { set_overrides(changed, run_again); });
    connect(this, &MainWindow::content_shown, parameters, &ParameterPanel::refresh);
    connect(this, &MainWindow::reading_refused, parameters, &ParameterPanel::refresh);
    add_dock("Parameters", parameters, Qt::RightDockWidgetArea, false);

    sweep_ = new SweepPanel([this] {
        return SweepPanel::Scene{store().model, overrides(), run_options(), store().settings};
    });
    connect(this, &MainWindow::content_shown, sweep_, &SweepPanel::refresh);
    add_dock("Sweep", sweep_, Qt::RightDockWidgetArea, false);

    display_ = new DisplayPanel(view_->shown());
    auto* display_scroll = new QScrollArea;
    display_scroll->setWidget(display_);
    display_scroll->setWidgetResizable(true);
    display_scroll->setFrameShape(QFrame::NoFrame);
    display_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    display_scroll->setMinimumWidth(display_->minimumSizeHint().width() +
                                    style()->pixelMetric(QStyle::PM_ScrollBarExtent) + 4);
    add_dock("Display", display_scroll, Qt::RightDockWidgetArea, false);
    connect(this, &MainWindow::content_shown, display_, &DisplayPanel::refresh);
    connect(this, &MainWindow::contour_changed, display_, &DisplayPanel::contour_changed);
    connect(view_, &GLWidget::section_moved, display_, &DisplayPanel::show_state);
    connect(display_, &DisplayPanel::changed, view_, [this] {
        show_what_is_shown();
        view_->update();
    });
    connect(display_, &DisplayPanel::range_changed, this, [this] {
        const QSignalBlocker quiet(all_frames_);
        all_frames_->setChecked(view_->state().scale.range == view::RangeKind::all_frames);
    });
    connect(display_, &DisplayPanel::refused, this, &MainWindow::say);
    connect(display_, &DisplayPanel::extreme_asked, this, &MainWindow::go_to_extreme);
    connect(view_, &GLWidget::extreme_clicked, this, &MainWindow::go_to_extreme);

    for (const char* title : {"Parameters", "Sweep", "Display"})
        tabifyDockWidget(findChild<QDockWidget*>("Controls"), findChild<QDockWidget*>(title));

    messages_ = new Messages;
    add_dock("Messages", messages_, Qt::BottomDockWidgetArea, true);
    make_result_docks();
    resizeDocks({docks_.front()}, {260}, Qt::Horizontal);
    for (QDockWidget* dock : docks_)
        if (dockWidgetArea(dock) == Qt::BottomDockWidgetArea && dock->isVisibleTo(this))
            resizeDocks({dock}, {110}, Qt::Vertical);
}

// Behind the documented menus: every dock and bar, and the way back.
void MainWindow::make_window_menu() {
    QMenu* menu = menuBar()->addMenu("&Window");
    for (QDockWidget* dock : docks_) {
        menu->addAction(dock->toggleViewAction());
        // in front of those that it is a tab beside
        connect(dock->toggleViewAction(), &QAction::triggered, dock, [dock](bool open) {
            if (open) dock->raise();
        });
    }
    menu->addSeparator();
    for (QToolBar* bar : findChildren<QToolBar*>()) menu->addAction(bar->toggleViewAction());
    menu->addSeparator();
    QAction* reset = menu->addAction("&Reset Layout");
    reset->setStatusTip("Put docks and tool bars back where they were at the first start");
    connect(reset, &QAction::triggered, this, &MainWindow::reset_layout);
}

void MainWindow::restore_layout() {
    resize(QSize(1280, 860).boundedTo(screen()->availableSize()));
    first_layout_ = saveState(layout_version);
    const QSettings settings = kept_settings();
    restoreGeometry(settings.value("geometry").toByteArray());
    restoreState(settings.value("layout").toByteArray(), layout_version);
    folder_ = settings.value("folder", folder_).toString();
    if (!QFileInfo(folder_).isDir()) folder_ = first_folder();
    result_folder_ = QFileInfo(QString::fromStdString(log_folder_)).absoluteFilePath();
}

void MainWindow::reset_layout() {
    restoreState(first_layout_, layout_version);
}

void MainWindow::keep_layout() {
    QSettings settings = kept_settings();
    settings.setValue("geometry", saveGeometry());
    settings.setValue("layout", saveState(layout_version));
    settings.setValue("folder", folder_);
}

// "model · result · unit".
void MainWindow::show_what_is_shown() {
    const Run* run = store().run.get();
    QStringList texts = shown_names(*store().model, run);
    const view::Quantity* quantity = view::quantity_at(view_->state().shown_contour());
    if (run && !run->results.empty() && quantity && *quantity->unit)
        texts << (has_shapes(run->ana_type)
                      ? "mode amplitude"
                      : QString::fromStdString(view::shown_unit(quantity->unit, view_->state().units).text));
    shown_text_->setText(texts.join("  ·  "));
}

}  // namespace kestralum
