#include "app/window/history_plots.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/curve_view.h"
#include "app/window/dialogs.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr std::array<QRgb, 10> palette_of_curves{0x1f77b4, 0xd62728, 0x2ca02c, 0xff7f0e, 0x9467bd,
                                                 0x8c564b, 0xe377c2, 0x17becf, 0x7f7f7f, 0xbcbd22};

// The colour that the fewest have.
QColor free_color(const std::map<std::string, QColor>& taken) {
    const auto uses = [&](QRgb color) {
        return std::ranges::count_if(taken, [&](const auto& one) { return one.second == QColor(color); });
    };
    return QColor(*std::ranges::min_element(palette_of_curves, {}, uses));
}

const std::string last_node = "Node * ";
std::string of_node(std::int32_t node) {
    return "Node " + std::to_string(node) + " ";
}

QString unit_text(const std::string& unit) {
    return unit.empty() ? QString("pure numbers") : QString::fromStdString(unit);
}

}  // namespace

HistoryPlots::HistoryPlots(ShownRun run, QWidget* parent)
    : QWidget(parent),
      run_(std::move(run)),
      view_(new CurveView),
      list_(new QTreeWidget),
      empty_(new QLabel),
      value_(new QLabel),
      message_(new QLabel),
      picture_(new QPushButton("Save Picture...")),
      csv_(new QPushButton("Save CSV...")),
      rows_(new QTimer(this)) {
    setObjectName("history_plots");
    list_->setObjectName("curve_list");
    list_->setHeaderHidden(true);
    list_->setRootIsDecorated(true);
    list_->setMinimumWidth(140);
    empty_->setObjectName("plot_empty");
    empty_->setWordWrap(true);
    empty_->setAlignment(Qt::AlignCenter);
    value_->setObjectName("plot_value");
    message_->setObjectName("plot_message");
    message_->setWordWrap(true);
    message_->hide();
    picture_->setObjectName("plot_picture");
    picture_->setToolTip("The chart as it is seen, as a PNG file");
    csv_->setObjectName("plot_csv");
    csv_->setToolTip("The numbers of the curves that are drawn, a line for each frame");
    make_layout();

    constexpr int pace = 100;  // ms between two looks at the rows of a run under way
    rows_->setSingleShot(true);
    rows_->setInterval(pace);
    connect(rows_, &QTimer::timeout, this, &HistoryPlots::take_rows);
    connect(list_, &QTreeWidget::itemChanged, this, &HistoryPlots::on_item);
    connect(view_, &CurveView::frame_chosen, this, &HistoryPlots::frame_chosen);
    connect(view_, &CurveView::pointed_at, value_, &QLabel::setText);
    connect(picture_, &QPushButton::clicked, this, &HistoryPlots::save_picture);
    connect(csv_, &QPushButton::clicked, this, &HistoryPlots::save_csv);
    tell();
}

void HistoryPlots::make_layout() {
    auto* fit = new QPushButton("All");
    fit->setObjectName("plot_fit");
    fit->setToolTip(
        "Show all of the curves, as a double click does. Zoom: wheel, or a band with the left "
        "button. Move: right button");
    connect(fit, &QPushButton::clicked, view_, &CurveView::fit);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(value_, 1);
    for (QPushButton* button : {fit, picture_, csv_}) buttons->addWidget(button);
    auto* right = new QWidget;
    auto* column = new QVBoxLayout(right);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(empty_, 1);
    column->addWidget(view_, 1);
    column->addWidget(message_);
    column->addLayout(buttons);
    auto* split = new QSplitter;
    split->addWidget(list_);
    split->addWidget(right);
    split->setStretchFactor(1, 1);
    split->setSizes({220, 600});
    split->setChildrenCollapsible(false);
    auto* all = new QVBoxLayout(this);
    all->setContentsMargins(4, 4, 4, 4);
    all->addWidget(split);
}

// ---- what there is

void HistoryPlots::refresh() {
    stale_ = !isVisible();
    const auto former = std::exchange(shown_, stale_ ? nullptr : run_());  // no run is kept for nobody
    if (shown_ && !are_of(shown_->mesh)) forget_nodes();
    history_ = shown_ ? make_history(*shown_, nodes_) : History();
    message_->hide();
    if (shown_ != former) first_choice();
    list_curves();
    draw(false);
}

void HistoryPlots::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (stale_) refresh();
    take_rows();
}

void HistoryPlots::pick_node(int node, bool more) {
    const std::shared_ptr<const Run> run = run_();
    const bool known = run && node > 0 && node <= run->mesh.node_num();
    if (more && (!known || std::ranges::find(nodes_, node) != nodes_.end())) return;
    if (!more && nodes_ == (known ? std::vector{node} : std::vector<int>())) return;
    if (more && !nodes_.empty())
        keep_last_node();
    else
        forget_nodes();
    if (known) {
        nodes_.push_back(node);
        std::copy_n(run->mesh.node(node - 1), 3, node_places_.emplace_back().begin());
    }
    refresh();
}

// The nodes are those of this mesh.
bool HistoryPlots::are_of(const Mesh& mesh) const {
    for (std::size_t k = 0; k < nodes_.size(); ++k)
        if (nodes_[k] > mesh.node_num() ||
            !std::equal(node_places_[k].begin(), node_places_[k].end(), mesh.node(nodes_[k] - 1)))
            return false;
    return true;
}

void HistoryPlots::forget_nodes() {
    for (const std::int32_t node : nodes_)
        std::erase_if(chosen_, [&](const auto& one) { return one.first.starts_with(of_node(node)); });
    nodes_.clear();
    node_places_.clear();
}

// Another node is to be the last one: the curves of this one stay with their colours, and the same ones of
// the next get others.
void HistoryPlots::keep_last_node() {
    const std::map<Key, QColor> before = chosen_;
    for (const auto& [name, color] : before) {
        if (!name.starts_with(last_node)) continue;
        chosen_[of_node(nodes_.back()) + name.substr(last_node.size())] = color;
        chosen_.erase(name);
        chosen_[name] = free_color(chosen_);
    }
}

void HistoryPlots::show_frame(int frame) {
    frame_ = frame;
    view_->set_cursor(frame > 0 ? std::optional(std::size_t(frame) - 1) : std::nullopt);
    if (!rows_->isActive()) rows_->start();
}

// Rows of a run under way, some of them together.
void HistoryPlots::take_rows() {
    if (!isVisible() || !shown_ || shown_ != run_() || history_.x.size() >= shown_->results.size()) return;
    const bool first = history_.x.empty();
    extend(history_, *shown_);
    if (first)
        draw(false);
    else
        view_->grow();
}

// ---- the list

HistoryPlots::Key HistoryPlots::key(std::size_t column) const {
    const std::string own = nodes_.empty() ? std::string() : of_node(nodes_.back()),
                      &name = history_.columns[column].name;
    return !own.empty() && name.starts_with(own) ? last_node + name.substr(own.size()) : name;
}

std::vector<QTreeWidgetItem*> HistoryPlots::items() const {
    std::vector<QTreeWidgetItem*> out;
    for (int group = 0; group < list_->topLevelItemCount(); ++group)
        for (int k = 0; k < list_->topLevelItem(group)->childCount(); ++k)
            out.push_back(list_->topLevelItem(group)->child(k));
    return out;
}

// A few curves for a run that none of those chosen so far belong to.
void HistoryPlots::first_choice() {
    static constexpr const char* common[] = {"Total energy",    "Kinetic energy",
                                             "Internal energy", "Largest displacement",
                                             "Frequency",       "Buckling load factor"};
    for (std::size_t c = 0; c < history_.columns.size(); ++c)
        if (chosen_.contains(key(c))) return;
    for (const char* name : common)
        for (const HistoryColumn& column : history_.columns)
            if (column.name == name) chosen_[name] = free_color(chosen_);
}

void HistoryPlots::list_curves() {
    const QSignalBlocker quiet(list_);
    list_->clear();
    std::map<std::string, QTreeWidgetItem*> groups;
    for (std::size_t c = 0; c < history_.columns.size(); ++c) {
        const HistoryColumn& column = history_.columns[c];
        QTreeWidgetItem*& group = groups[column.unit];
        if (!group) {
            group = new QTreeWidgetItem(list_, {unit_text(column.unit)});
            group->setFlags(Qt::ItemIsEnabled);
        }
        auto* item = new QTreeWidgetItem(group, {QString::fromStdString(column.name)});
        item->setToolTip(0, QString::fromStdString(with_unit(column.name, column.unit)));
        item->setData(0, Qt::UserRole, QVariant::fromValue(qulonglong(c)));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable | Qt::ItemIsSelectable);
        item->setCheckState(0, Qt::Unchecked);
        group->setExpanded(true);
    }
    for (QTreeWidgetItem* item : items())
        if (chosen_.contains(key(item->data(0, Qt::UserRole).toULongLong())) && fits_axes(item))
            item->setCheckState(0, Qt::Checked);
}

// Whether there is an axis for the item's unit beside the curves that are checked.
bool HistoryPlots::fits_axes(QTreeWidgetItem* item) const {
    std::vector<std::string> units{history_.columns[item->data(0, Qt::UserRole).toULongLong()].unit};
    for (const std::size_t c : shown_columns())
        if (std::ranges::find(units, history_.columns[c].unit) == units.end())
            units.push_back(history_.columns[c].unit);
    return units.size() <= 2;
}

void HistoryPlots::on_item(QTreeWidgetItem* item) {
    if (!item->parent()) return;
    const std::size_t column = item->data(0, Qt::UserRole).toULongLong();
    message_->hide();
    if (item->checkState(0) != Qt::Checked) {
        chosen_.erase(key(column));
    } else if (fits_axes(item)) {
        chosen_.emplace(key(column), free_color(chosen_));
    } else {
        const QSignalBlocker quiet(list_);
        item->setCheckState(0, Qt::Unchecked);
        QStringList units;
        for (const std::size_t c : shown_columns()) units << unit_text(history_.columns[c].unit);
        units.removeDuplicates();
        message_->setText(QString("There are two axes, and they measure %1: take away the curves of one unit "
                                  "before you add %2.")
                              .arg(units.join(" and "), unit_text(history_.columns[column].unit)));
        message_->show();
        return;
    }
    draw(true);
}

std::vector<std::size_t> HistoryPlots::shown_columns() const {
    std::vector<std::size_t> out;
    for (const QTreeWidgetItem* item : items())
        if (item->checkState(0) == Qt::Checked) out.push_back(item->data(0, Qt::UserRole).toULongLong());
    return out;
}

// ---- the chart

void HistoryPlots::draw(bool keep) {
    std::vector<ShownCurve> curves;
    const std::vector<std::size_t> columns = shown_columns();
    for (const std::size_t c : columns)
        curves.push_back(
            {c, chosen_.at(key(c)), history_.columns[c].unit != history_.columns[columns.front()].unit});
    view_->show_curves(history_, std::move(curves), keep);
    const QSignalBlocker quiet(list_);
    for (QTreeWidgetItem* item : items()) {
        const bool drawn = item->checkState(0) == Qt::Checked;
        item->setForeground(0, drawn ? QBrush(chosen_.at(key(item->data(0, Qt::UserRole).toULongLong())))
                                     : QBrush(palette().color(QPalette::Text)));
    }
    tell();
}

// What to do where there is nothing to see.
void HistoryPlots::tell() {
    const bool drawn = !shown_columns().empty();
    QString text;
    if (!shown_ || history_.x.empty())
        text =
            "Run an analysis or open a result file: its curves over time, load factor, load case or mode "
            "are listed here.";
    else if (history_.columns.empty())
        text = "Click a node of the model: its displacement and stress are listed here.";
    else if (!drawn)
        text = "Check a curve in the list. A click on a node of the model adds its displacement and stress.";
    empty_->setText(text);
    empty_->setVisible(!drawn);
    view_->setVisible(drawn);
    list_->setVisible(!history_.columns.empty());
    picture_->setEnabled(drawn);
    csv_->setEnabled(drawn);
    if (!drawn) value_->clear();
}

// ---- files

void HistoryPlots::save_picture() {
    if (shown_columns().empty()) return;
    const QString name = ask_for_new_file(this, "Save picture", "curves", ".png");
    if (name.isEmpty()) return;
    if (!view_->grab().save(name, "PNG"))
        show_errors(this, "The picture was not saved", {name + " cannot be written."});
}

void HistoryPlots::save_csv() {
    if (shown_columns().empty()) return;
    const QString name = ask_for_new_file(this, "Save CSV", "curves", ".csv");
    if (name.isEmpty()) return;
    SilentProgress silent;
    const std::string fault = write_whole(
        name.toStdString(), "log", [&](TextOutput& file) { file.write(csv_text(history_, shown_columns())); },
        silent);
    if (!fault.empty()) show_errors(this, "The curves were not saved", {QString::fromStdString(fault)});
}

}  // namespace kestralum
