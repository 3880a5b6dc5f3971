// What shows a run beside the picture: graphs, the table of modes, the bar that moves through the frames.
#include <QDockWidget>
#include <QToolBar>
#include <utility>

#include "app/window/history_plots.h"
#include "app/window/main_window.h"
#include "app/window/mode_table.h"
#include "app/window/playback_bar.h"

namespace kestralum {

void MainWindow::make_result_docks() {
    const auto run = [this] { return store().run.get(); };
    QDockWidget* below = docks_.back();  // the messages: these are tabs beside them
    auto* plots = new HistoryPlots([this] { return store().run; });
    graphs_ = add_dock("Graphs", plots, Qt::BottomDockWidgetArea, false);
    connect(this, &MainWindow::content_shown, plots, &HistoryPlots::refresh);
    connect(this, &MainWindow::frame_shown, plots, &HistoryPlots::show_frame);
    connect(plots, &HistoryPlots::frame_chosen, this, &MainWindow::step_to);
    connect(view_, &GLWidget::picked, plots, [this, plots](const QString&, bool more) {
        plots->pick_node(view_->shown().drawing.picked_node(), more);
    });

    auto* modes = new ModeTable(run);
    QDockWidget* table = add_dock("Modes", modes, Qt::BottomDockWidgetArea, false);
    connect(this, &MainWindow::content_shown, modes, [this, modes] {
        modes->refresh();
        modes->show_frame(view_->state().frame);
    });
    connect(this, &MainWindow::frame_shown, modes, &ModeTable::show_frame);
    connect(modes, &ModeTable::frame_chosen, this, &MainWindow::step_to);
    for (QDockWidget* dock : {graphs_, table}) tabifyDockWidget(below, dock);

    auto* playback = new PlaybackBar(view_->state(), run);
    connect(playback, &PlaybackBar::frame_chosen, this, &MainWindow::step_to);
    connect(this, &MainWindow::content_shown, playback, &PlaybackBar::refresh);
    connect(view_, &GLWidget::painted, playback, &PlaybackBar::refresh);
    auto* bar = new QToolBar("Playback");
    bar->setObjectName("Playback");
    bar->addWidget(playback);
    addToolBar(Qt::BottomToolBarArea, bar);

    // an animation draws frames that nobody has asked for
    connect(view_, &GLWidget::painted, this, [this] {
        if (view_->state().frame != told_frame_) set_frame(view_->state().frame);
    });
}

void MainWindow::open_graphwindow() {
    constexpr int least = 240, height = 340;  // pixels
    graphs_->show();
    graphs_->raise();
    if (graphs_->height() < least && !graphs_->isFloating()) resizeDocks({graphs_}, {height}, Qt::Vertical);
}

}  // namespace kestralum
