#include "app/window/model_tree.h"

#include <QColorDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QMenu>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

#include "app/window/messages.h"
#include "input/analysis_info_reader.h"
#include "model/paths.h"

namespace kestralum {

namespace {

enum Role { group_role = Qt::UserRole, item_role };

std::string text_of(const std::string& file) {
    std::string text, reason;
    return paths::read_text(file, text, reason) ? text : std::string();
}

QColor color_of(const view::Color& c) {
    return QColor::fromRgbF(c[0], c[1], c[2]);
}

}  // namespace

ModelTree::ModelTree(ShownModel& shown, QWidget* parent)
    : QWidget(parent), shown_(shown), tree_(new QTreeWidget), record_(new QLineEdit), place_(new QLabel) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(2, 2, 2, 2);
    auto* row = new QHBoxLayout;
    const std::pair<const char*, void (ModelTree::*)()> buttons[] = {{"Hide", &ModelTree::hide_chosen},
                                                                     {"Isolate", &ModelTree::isolate_chosen},
                                                                     {"Show All", &ModelTree::show_all}};
    for (const auto& [text, slot] : buttons) {
        auto* button = new QToolButton;
        button->setText(text);
        button->setObjectName(text);
        button->setAutoRaise(true);
        button->setFocusPolicy(Qt::NoFocus);
        connect(button, &QToolButton::clicked, this, slot);
        row->addWidget(button);
    }
    row->addStretch();
    column->addLayout(row);
    column->addWidget(tree_);
    column->addWidget(place_);
    column->addWidget(record_);
    record_->setReadOnly(true);
    record_->setObjectName("record");
    place_->setObjectName("place");
    place_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    tree_->setObjectName("model tree");
    tree_->setColumnCount(2);
    tree_->setHeaderHidden(true);
    tree_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    tree_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    tree_->setContextMenuPolicy(Qt::CustomContextMenu);
    tree_->setUniformRowHeights(true);
    connect(tree_, &QTreeWidget::itemSelectionChanged, this, &ModelTree::show_chosen);
    connect(tree_, &QTreeWidget::itemDoubleClicked, this, &ModelTree::open_place);
    connect(tree_, &QTreeWidget::itemChanged, this, &ModelTree::take_check);
    connect(tree_, &QTreeWidget::customContextMenuRequested, this, &ModelTree::show_menu);
}

void ModelTree::refresh() {
    const Model& model = *shown_.store.model;
    const bool of_files = model.source == ModelSource::model_file;
    groups_ = outline_of(shown_, of_files ? text_of(model.model_file_name) : std::string(),
                         of_files ? text_of(analysis_info_file_name(model.model_file_name)) : std::string());
    fill();
    show_chosen();
}

void ModelTree::fill() {
    QStringList open;
    for (int g = 0; g < tree_->topLevelItemCount(); ++g)
        if (tree_->topLevelItem(g)->isExpanded())
            open << tree_->topLevelItem(g)->data(0, Qt::UserRole + 2).toString();
    const bool first = tree_->topLevelItemCount() == 0;
    const QSignalBlocker quiet(tree_);
    tree_->clear();
    for (std::size_t g = 0; g < groups_.size(); ++g) {
        const QString name = QString::fromStdString(groups_[g].name);
        auto* top = new QTreeWidgetItem(tree_, {name + QString(" (%1)").arg(groups_[g].items.size())});
        top->setData(0, Qt::UserRole + 2, name);
        top->setFlags(Qt::ItemIsEnabled);
        for (std::size_t k = 0; k < groups_[g].items.size(); ++k) {
            const OutlineItem& item = groups_[g].items[k];
            auto* row = new QTreeWidgetItem(
                top, {QString::fromStdString(item.name), QString::fromStdString(item.detail)});
            row->setData(0, group_role, static_cast<int>(g));
            row->setData(0, item_role, static_cast<int>(k));
            row->setToolTip(1, QString::fromStdString(item.detail));
        }
        top->setExpanded(open.contains(name) || (first && name == "Parts"));
    }
    show_checks();
}

// Ticks and colours of the parts.
void ModelTree::show_checks() {
    const QSignalBlocker quiet(tree_);
    const Model& model = *shown_.store.model;
    for (QTreeWidgetItemIterator it(tree_); *it; ++it) {
        const OutlineItem* item = item_of(*it);
        if (!item || item->part < 0) continue;
        const view::PartLook look = view::look_of(shown_.state.part_looks, item->part);
        const auto& own = model.parts[item->part].color;
        QPixmap patch(12, 12);
        patch.fill(look.color ? color_of(*look.color)
                              : QColor::fromRgbF(static_cast<float>(own[0]), static_cast<float>(own[1]),
                                                 static_cast<float>(own[2])));
        (*it)->setIcon(0, patch);
        (*it)->setCheckState(0, look.visible ? Qt::Checked : Qt::Unchecked);
    }
}

const OutlineItem* ModelTree::item_of(const QTreeWidgetItem* row) const {
    if (!row || !row->parent()) return nullptr;
    return &groups_[row->data(0, group_role).toUInt()].items[row->data(0, item_role).toUInt()];
}

std::vector<std::int32_t> ModelTree::chosen_parts() const {
    std::vector<std::int32_t> parts;
    for (const QTreeWidgetItem* row : tree_->selectedItems())
        if (const OutlineItem* item = item_of(row))
            parts.insert(parts.end(), item->highlight.parts.begin(), item->highlight.parts.end());
    return parts;
}

void ModelTree::show_chosen() {
    view::Highlight all;
    const OutlineItem* last = nullptr;
    for (const QTreeWidgetItem* row : tree_->selectedItems()) {
        const OutlineItem* item = item_of(row);
        if (!item) continue;
        last = item;
        const view::Highlight& h = item->highlight;
        all.nodes.insert(all.nodes.end(), h.nodes.begin(), h.nodes.end());
        all.faces.insert(all.faces.end(), h.faces.begin(), h.faces.end());
        all.parts.insert(all.parts.end(), h.parts.begin(), h.parts.end());
        all.points.insert(all.points.end(), h.points.begin(), h.points.end());
        all.sets.insert(all.sets.end(), h.sets.begin(), h.sets.end());
    }
    shown_.state.highlight = std::move(all);
    place_->setText(
        last && last->line > 0
            ? QString("%1: line %2")
                  .arg(QFileInfo(QString::fromStdString(paths::to_platform(last->file))).fileName())
                  .arg(last->line)
            : QString());
    record_->setText(last ? QString::fromStdString(last->record) : QString());
    record_->setCursorPosition(0);
    if (last && last->frame > 0) emit frame_chosen(last->frame);
    emit changed();
}

void ModelTree::open_place() {
    const OutlineItem* item = item_of(tree_->currentItem());
    if (item && item->line > 0)
        open_in_editor(QString::fromStdString(paths::to_platform(item->file)), item->line);
}

// ---- looks of parts

view::PartLook& ModelTree::look(std::int32_t part) {
    auto& looks = shown_.state.part_looks;
    if (std::ssize(looks) <= part) looks.resize(shown_.store.model->parts.size());
    return looks[part];
}

void ModelTree::set_visible(const std::vector<std::int32_t>& parts, bool visible) {
    for (const std::int32_t p : parts) look(p).visible = visible;
    show_checks();
    emit changed();
}

void ModelTree::take_check(QTreeWidgetItem* row) {
    const OutlineItem* item = item_of(row);
    if (!item || item->part < 0) return;
    set_visible({item->part}, row->checkState(0) == Qt::Checked);
}

void ModelTree::hide_chosen() {
    set_visible(chosen_parts(), false);
}

void ModelTree::isolate_chosen() {
    const std::vector<std::int32_t> parts = chosen_parts();
    if (parts.empty()) return;
    for (std::int32_t p = 0; p < std::ssize(shown_.store.model->parts); ++p)
        look(p).visible = std::ranges::find(parts, p) != parts.end();
    show_checks();
    emit changed();
}

void ModelTree::show_all() {
    for (view::PartLook& one : shown_.state.part_looks) one.visible = true;
    show_checks();
    emit changed();
}

void ModelTree::choose_color(std::int32_t part) {
    const QColor chosen = QColorDialog::getColor(Qt::white, this, "Colour of the part");
    if (!chosen.isValid()) return;
    look(part).color = view::Color{chosen.redF(), chosen.greenF(), chosen.blueF(), 1};
    show_checks();
    emit changed();
}

void ModelTree::choose_opacity(std::int32_t part) {
    bool taken = false;
    const double opacity = QInputDialog::getDouble(
        this, "Opacity of the part", "From 0 to 1:", look(part).opacity, 0, 1, 2, &taken, {}, 0.05);
    if (!taken) return;
    look(part).opacity = opacity;
    emit changed();
}

void ModelTree::show_menu(const QPoint& place) {
    const OutlineItem* item = item_of(tree_->itemAt(place));
    QMenu menu;
    menu.addAction("Hide", this, &ModelTree::hide_chosen);
    menu.addAction("Isolate", this, &ModelTree::isolate_chosen);
    menu.addAction("Show All", this, &ModelTree::show_all);
    if (item && item->part >= 0) {
        const std::int32_t part = item->part;
        menu.addSeparator();
        menu.addAction("Colour...", this, [this, part] { choose_color(part); });
        menu.addAction("Opacity...", this, [this, part] { choose_opacity(part); });
        menu.addAction("As in the File", this, [this, part] {
            look(part) = {};
            show_checks();
            emit changed();
        });
    }
    if (item && item->line > 0) {
        menu.addSeparator();
        menu.addAction("Open in the Editor", this, &ModelTree::open_place);
    }
    menu.exec(tree_->viewport()->mapToGlobal(place));
}

}  // namespace kestralum
