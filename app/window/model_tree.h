// The model as a tree: materials, parts, sets, supports, loads, rigid elements, walls, contacts, results.
// What is chosen is pointed out in the view, with its record and line in the file.
#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QTreeWidget>
#include <QWidget>
#include <vector>

#include "app/window/model_outline.h"

namespace kestralum {

class ModelTree : public QWidget {
    Q_OBJECT

public:
    // Sets looks and highlight of the view's display state.
    explicit ModelTree(ShownModel& shown, QWidget* parent = nullptr);

    // Another model or run is shown.
    void refresh();

signals:
    void frame_chosen(int frame);  // a result, from 1
    void changed();                // the view has to be drawn

public slots:
    void hide_chosen();
    void isolate_chosen();
    void show_all();

private:
    void fill();
    void show_chosen();
    void open_place();
    void show_menu(const QPoint& place);
    void take_check(QTreeWidgetItem* row);
    void set_visible(const std::vector<std::int32_t>& parts, bool visible);
    view::PartLook& look(std::int32_t part);
    void choose_color(std::int32_t part);
    void choose_opacity(std::int32_t part);
    void show_checks();
    const OutlineItem* item_of(const QTreeWidgetItem* row) const;
    std::vector<std::int32_t> chosen_parts() const;

    ShownModel& shown_;
    std::vector<OutlineGroup> groups_;
    QTreeWidget* tree_;
    QLineEdit* record_;
    QLabel* place_;
};

}  // namespace kestralum
