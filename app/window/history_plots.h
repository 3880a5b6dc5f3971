// The graph window: curves of a run over time, load factor, load case or mode, chosen from a list.
#pragma once

#include <QColor>
#include <QWidget>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "results/history.h"

class QLabel;
class QPushButton;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;

namespace kestralum {

class CurveView;

class HistoryPlots : public QWidget {
    Q_OBJECT

public:
    using ShownRun = std::function<std::shared_ptr<const Run>()>;
    // `run` gives the run that is shown, null where there is none.
    explicit HistoryPlots(ShownRun run, QWidget* parent = nullptr);

    const History& history() const { return history_; }
    // The curves that are drawn, by place in the history.
    std::vector<std::size_t> shown_columns() const;

public slots:
    void refresh();              // another model or run
    void show_frame(int frame);  // another one is drawn, or a run under way has added some; from 1
    // The node whose motion is offered, of the run's mesh, from 1; 0: none. `more`: beside those before.
    void pick_node(int node, bool more = false);
    void save_picture();
    void save_csv();

signals:
    void frame_chosen(int frame);

protected:
    void showEvent(QShowEvent* event) override;

private:
    // A curve that is wished for: its name, "Node *" for the node picked last whichever it is.
    using Key = std::string;

    void make_layout();
    void list_curves();
    void first_choice();
    void take_rows();
    void draw(bool keep);
    void on_item(QTreeWidgetItem* item);
    bool fits_axes(QTreeWidgetItem* item) const;
    std::vector<QTreeWidgetItem*> items() const;
    Key key(std::size_t column) const;
    void tell();
    bool are_of(const Mesh& mesh) const;
    void forget_nodes();
    void keep_last_node();

    const ShownRun run_;
    std::shared_ptr<const Run> shown_;
    History history_;
    std::vector<std::int32_t> nodes_;                 // picked, in their order
    std::vector<std::array<double, 3>> node_places_;  // theirs, m
    int frame_ = 0;
    std::map<Key, QColor> chosen_;  // and their colours, also of curves that this run does not have
    bool stale_ = true;             // not brought up to date since it was hidden

    CurveView* view_;
    QTreeWidget* list_;
    QLabel *empty_, *value_, *message_;
    QPushButton *picture_, *csv_;
    QTimer* rows_;
};

}  // namespace kestralum
