// What shows a run beside the picture: graphs, the table of modes, the bar that moves through the frames.
#include <QAction>
#include <QDockWidget>
#include <QScrollArea>
#include <QToolBar>
#include <utility>

#include "app/window/history_plots.h"
#include "app/window/main_window.h"
#include "app/window/mode_table.h"
#include "app/window/playback_bar.h"
#include "app/window/probe_panel.h"
#include "app/window/section_panel.h"

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

    auto* probes = new ProbePanel(view_->shown());
    auto* probe_scroll = new QScrollArea;  // a narrow window does not grow for it
    probe_scroll->setWidget(probes);
    probe_scroll->setWidgetResizable(true);
    probe_scroll->setFrameShape(QFrame::NoFrame);
    QDockWidget* probe_dock = add_dock("Probes", probe_scroll, Qt::BottomDockWidgetArea, false);
    connect(this, &MainWindow::content_shown, probes, &ProbePanel::refresh);
    connect(view_, &GLWidget::painted, probes, &ProbePanel::follow);
    connect(view_, &GLWidget::picked, probes,
            [this, probes] { probes->pick_node(view_->shown().drawing.picked_node()); });
    connect(probe_dock->toggleViewAction(), &QAction::toggled, probes, [probes](bool open) {
        if (!open) probes->stop_adding();
    });
    connect(probes, &ProbePanel::changed, view_, [this] { view_->update(); });
    connect(probes, &ProbePanel::told, this, &MainWindow::say);
    connect(probes, &ProbePanel::refused, this,
            [this](const QString& why) { tell(MessageKind::error, {why}); });
    connect(probes, &ProbePanel::frame_chosen, this, &MainWindow::step_to);

    auto* sections = new SectionPanel(view_->shown());
    QDockWidget* section_dock = add_dock("Section Forces", sections, Qt::BottomDockWidgetArea, false);
    connect(this, &MainWindow::content_shown, sections, &SectionPanel::follow);
    connect(view_, &GLWidget::painted, sections, &SectionPanel::follow);
    connect(sections, &SectionPanel::refused, this,
            [this](const QString& why) { tell(MessageKind::error, {why}); });
    for (QDockWidget* dock : {graphs_, table, probe_dock, section_dock}) tabifyDockWidget(below, dock);
    for (QDockWidget* dock : {probe_dock, section_dock})
        connect(dock->toggleViewAction(), &QAction::triggered, this, [this, dock](bool open) {
            if (open) make_room(dock);
        });

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
    graphs_->show();
    graphs_->raise();
    make_room(graphs_);
}

// For a table or a chart.
void MainWindow::make_room(QDockWidget* dock) {
    constexpr int least = 240, height = 340;  // pixels
    if (dock->height() < least && !dock->isFloating()) resizeDocks({dock}, {height}, Qt::Vertical);
}

}  // namespace kestralum
