#include "app/window/probe_panel.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QSplitter>
#include <QTableWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "app/window/curve_view.h"
#include "app/window/widgets.h"
#include "view/legend.h"

namespace kestralum {

namespace {

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t displacement_row = 1;  // of the quantities: for its unit
enum Kind { along_a_line, along_a_set, over_the_frames };
constexpr std::array<QRgb, 8> curve_colors{0x1f77b4, 0xd62728, 0x2ca02c, 0xff7f0e,
                                           0x9467bd, 0x8c564b, 0xe377c2, 0x17becf};

QString with_unit_text(const QString& name, const std::string& unit) {
    return unit.empty() || unit == "-" ? name : name + " [" + shown(unit) + "]";
}

QToolButton* button(const char* name, const char* text, const char* tip) {
    auto* made = named(name, new QToolButton);
    made->setText(text);
    made->setToolTip(tip);
    return made;
}

QString probe_name(int row) {
    return "P" + QString::number(row + 1);
}

QString number(double value) {
    return QString::number(value, 'g', 6);
}

}  // namespace

ProbePanel::ProbePanel(ShownModel& shown_model, QWidget* parent)
    : QWidget(parent),
      shown_(shown_model),
      state_(shown_model.state),
      table_(new_number_table("probe_rows")),
      chart_(new CurveView),
      distance_(named("probe_distance", new QLabel)),
      empty_(named("probe_empty", new QLabel)),
      pointed_(named("probe_pointed", new QLabel)),
      soon_(new QTimer(this)) {
    setObjectName("probe_panel");
    make_layout();
    constexpr int pace = 60;  // ms: a film of steps is followed some times a second
    soon_->setSingleShot(true);
    soon_->setInterval(pace);
    connect(soon_, &QTimer::timeout, this, &ProbePanel::update_all);
    connect(table_, &QTableWidget::itemSelectionChanged, this, [this] {
        show_distance();
        if (kind_->currentIndex() == along_a_line) plot();
    });
    copies_with_key(table_, [this] { copy(); });
    connect(chart_, &CurveView::frame_chosen, this, &ProbePanel::frame_chosen);
    connect(chart_, &CurveView::pointed_at, pointed_, &QLabel::setText);
}

void ProbePanel::make_layout() {
    auto* left = new QWidget;
    auto* column = new QVBoxLayout(left);
    column->setContentsMargins(0, 0, 0, 0);
    column->addLayout(make_buttons());
    column->addWidget(table_, 1);
    column->addWidget(distance_);
    distance_->setWordWrap(true);
    distance_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* right = new QWidget;
    column = new QVBoxLayout(right);
    column->setContentsMargins(0, 0, 0, 0);
    column->addLayout(make_plot_fields());
    column->addWidget(empty_, 1);
    column->addWidget(chart_, 1);
    column->addWidget(pointed_);
    empty_->setWordWrap(true);
    empty_->setAlignment(Qt::AlignCenter);
    auto* split = new QSplitter;
    split->addWidget(left);
    split->addWidget(right);
    split->setSizes({560, 420});
    split->setChildrenCollapsible(false);
    auto* all = new QVBoxLayout(this);
    all->setContentsMargins(4, 4, 4, 4);
    all->addWidget(split);
}

QHBoxLayout* ProbePanel::make_buttons() {
    clicks_ = named("probe_clicks", new QCheckBox("Add by click"));
    clicks_->setToolTip("A click on the model adds its node, another click on it takes it away");
    node_ = named("probe_node", new QLineEdit);
    node_->setPlaceholderText("Node");
    node_->setToolTip("A number and Enter: the node is added and brought into the middle of the view");
    node_->setFixedWidth(node_->fontMetrics().horizontalAdvance("0000000") + 16);
    remove_ = button("probe_remove", "Remove", "The chosen rows");
    clear_ = button("probe_clear", "Clear", "All of them");
    copy_ = button("probe_copy", "Copy", "The table as text onto the clipboard");
    save_ = button("probe_save", "Save CSV...", "The table with all digits");
    connect(node_, &QLineEdit::returnPressed, this, &ProbePanel::add_typed);
    connect(remove_, &QToolButton::clicked, this, [this] { remove(chosen_rows()); });
    connect(clear_, &QToolButton::clicked, this, [this] {
        kept_.clear();
        take_nodes();
    });
    connect(copy_, &QToolButton::clicked, this, &ProbePanel::copy);
    connect(save_, &QToolButton::clicked, this, [this] {
        const QString why = save_csv_text(this, "Save the probes", "probes", csv_text(table()));
        if (!why.isEmpty()) emit refused(why);
    });
    auto* row = new QHBoxLayout;
    row->setSpacing(3);
    row->addWidget(clicks_);
    row->addWidget(node_);
    for (QToolButton* one : {remove_, clear_, copy_, save_}) row->addWidget(one);
    row->addStretch();
    return row;
}

QHBoxLayout* ProbePanel::make_plot_fields() {
    kind_ = named("probe_plot", new QComboBox);
    kind_->addItems({"Along a line", "Along a set", "Over the frames"});
    kind_->setToolTip("Along a line: between two probes, those of two chosen rows, else the last two");
    points_ = named("probe_points", new QSpinBox);
    points_->setRange(2, 1000);
    points_->setValue(101);
    points_->setSuffix(" points");
    set_ = named("probe_set", new QComboBox);
    over_ = named("probe_over", new QComboBox);
    for (const char* axis : set_axis_names) over_->addItem(axis);
    over_->setToolTip("What the values are drawn over; distance: from the first node of the set");
    for (const auto& [box, letters] : {std::pair(kind_, 8), std::pair(set_, 5), std::pair(over_, 3)}) {
        box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        box->setMinimumContentsLength(letters);
    }
    save_plot_ = button("probe_plot_save", "Save CSV...", "The numbers of the curves, and where they are");
    const auto again = [this] { plot(); };
    for (QComboBox* box : {kind_, set_, over_}) connect(box, &QComboBox::currentIndexChanged, this, again);
    connect(points_, &QSpinBox::valueChanged, this, again);
    connect(save_plot_, &QToolButton::clicked, this, [this] {
        std::vector<std::size_t> columns(plotted_.columns.size());
        for (std::size_t c = 0; c < columns.size(); ++c) columns[c] = c;
        const QString why =
            save_csv_text(this, "Save the curves", "probe_curves", csv_text(plotted_, columns));
        if (!why.isEmpty()) emit refused(why);
    });
    auto* row = new QHBoxLayout;
    row->setSpacing(3);
    for (QWidget* one : std::initializer_list<QWidget*>{kind_, points_, set_, over_, save_plot_})
        row->addWidget(one);
    row->addStretch();
    return row;
}

// ---- which nodes

void ProbePanel::add(std::int32_t node) {
    kept_.push_back({node, element_with(shown_.mesh(), node), place_of(shown_.mesh(), node)});
    take_nodes();
}

void ProbePanel::pick_node(int node) {
    if (!clicks_->isChecked() || node < 1 || node > shown_.mesh().node_num()) return;
    shown_.clear_selection();  // the click is for the node: its faces keep their colours
    const auto found = std::ranges::find(kept_, node - 1, &Kept::node);
    if (found == kept_.end())
        add(node - 1);
    else
        remove({static_cast<int>(found - kept_.begin())});
}

void ProbePanel::stop_adding() {
    clicks_->setChecked(false);
}

void ProbePanel::add_typed() {
    bool good = false;
    const QString text = node_->text().trimmed();
    const int node = text.toInt(&good), most = shown_.mesh().node_num();
    if (!good || node < 1 || node > most)
        return emit refused(
            QString("There is no node '%1': the mesh has the nodes 1 to %2").arg(text).arg(most));
    if (std::ranges::find(kept_, node - 1, &Kept::node) == kept_.end()) add(node - 1);
    emit told(shown(shown_.go_to_node(node)));
    emit changed();
    node_->selectAll();
}

void ProbePanel::remove(std::vector<int> rows) {
    if (rows.empty()) return emit refused("Choose the rows of the probes that shall go");
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) kept_.erase(kept_.begin() + *row);
    table_->clearSelection();
    take_nodes();
}

void ProbePanel::take_nodes() {
    state_.probes.clear();
    for (const Kept& one : kept_) state_.probes.push_back(one.node);
    update_all();
    emit changed();
}

void ProbePanel::refresh() {
    const Mesh& mesh = shown_.mesh();
    QStringList gone;
    std::vector<Kept> left;
    for (std::size_t k = 0; k < kept_.size(); ++k) {
        const std::int32_t node = node_at(mesh, kept_[k].place);
        if (node >= 0)
            left.push_back({node, element_with(mesh, node), kept_[k].place});
        else
            gone << probe_name(static_cast<int>(k));
    }
    kept_ = std::move(left);
    if (!gone.isEmpty())
        emit refused("This mesh has no nodes where the probes " + gone.join(", ") + " were: they are gone");
    list_sets();
    take_nodes();
}

std::vector<int> ProbePanel::chosen_rows() const {
    std::vector<int> rows;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows()) rows.push_back(index.row());
    std::ranges::sort(rows);
    return rows;
}

// Two chosen rows, else the last two.
std::optional<std::pair<int, int>> ProbePanel::pair() const {
    const std::vector<int> rows = chosen_rows();
    const int count = static_cast<int>(kept_.size());
    if (rows.size() == 2 && rows[1] < count) return std::pair(rows[0], rows[1]);
    if (count < 2) return std::nullopt;
    return std::pair(count - 2, count - 1);
}

// ---- the numbers

ProbePanel::Key ProbePanel::key() const {
    return {picture().color_revision(),
            picture().places_revision(),
            state_.frame,
            shown_.mode_num(),
            state_.shown_contour(),
            state_.units,
            state_.probes};
}

void ProbePanel::follow() {
    if (!(key() == known_) && !soon_->isActive()) soon_->start();
}

void ProbePanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (stale_) update_all();
}

void ProbePanel::update_all() {
    stale_ = !isVisible();
    if (stale_) return;
    if (state_.probes.empty() && !kept_.empty()) return refresh();  // another result has taken them away
    shown_.drawing.update(shown_.tables(), state_);
    known_ = key();
    {  // the same rows stay chosen
        const QSignalBlocker quiet(table_);
        show_table(table(), *table_);
    }
    const bool any = !kept_.empty();
    for (QToolButton* one : {remove_, clear_, copy_, save_}) one->setEnabled(any);
    show_distance();
    plot();
}

ToldQuantity ProbePanel::told_quantity() const {
    const view::Quantity* quantity = view::quantity_at(state_.shown_contour());
    const view::ShownUnit unit = view::told_unit(state_.shown_contour(), shown_.ana_type(), state_.units),
                          length = view::shown_unit("m", state_.units);
    return {quantity && *quantity->text ? quantity->text : "Value", unit.text == "-" ? "" : unit.text,
            unit.factor, length.text, length.factor};
}

double ProbePanel::value(int row) const {
    const auto& values = picture().values();
    const std::int32_t node = kept_[row].node;
    return picture().contour() && node < std::ssize(values) ? values[node] : unknown;
}

NumberTable ProbePanel::table() {
    shown_.drawing.update(shown_.tables(), state_);
    const ToldQuantity told = told_quantity();
    const view::ShownUnit moved = view::told_unit(displacement_row, shown_.ana_type(), state_.units);
    NumberTable out;
    out.headings << "Probe"
                 << "Node"
                 << "Element";
    for (const char* axis : {"x", "y", "z"}) out.headings << with_unit_text(axis, told.length);
    out.headings << with_unit_text(shown(told.name), told.unit);
    for (const char* axis : {"u", "ux", "uy", "uz"}) out.headings << with_unit_text(axis, moved.text);
    const auto vector = picture().vector();
    for (std::size_t k = 0; k < kept_.size(); ++k) {
        const Kept& one = kept_[k];
        const int row = static_cast<int>(k);
        auto& cells = out.rows.emplace_back();
        cells = {probe_name(row), double(one.node) + 1, one.element < 0 ? unknown : double(one.element) + 1};
        for (const double x : one.place) cells.emplace_back(told.length_factor * x);
        cells.emplace_back(told.factor * value(row));
        Vec3 u{unknown, unknown, unknown};
        if (vector.size() == shown_.mesh().coordinates.size())
            u = times(moved.factor, triple(vector, one.node));
        cells.emplace_back(norm(u));
        for (const double component : u) cells.emplace_back(component);
    }
    return out;
}

// Of the two probes: at rest, displaced by what the result has and not by what is drawn, and their values.
void ProbePanel::show_distance() {
    const auto two = pair();
    if (!two)
        return distance_->setText(
            kept_.empty() ? "No probes yet: tick Add by click and click on nodes, or type a node's number"
                          : "With two probes their distance is told here");
    const ToldQuantity told = told_quantity();
    const auto [a, b] = *two;
    const auto text = [&](const Vec3& way) {
        const Vec3 d = times(told.length_factor, way);
        return QString("%1 %2 (dx %3, dy %4, dz %5)")
            .arg(number(norm(d)), shown(told.length), number(d[0]), number(d[1]), number(d[2]));
    };
    const Vec3 way = minus(kept_[b].place, kept_[a].place);
    QString line = QString("%1 to %2: at rest ").arg(probe_name(a), probe_name(b)) + text(way);
    const auto vector = picture().vector();
    if (vector.size() == shown_.mesh().coordinates.size() && !has_shapes(shown_.ana_type())) {
        const Vec3 moved = plus(way, minus(triple(vector, kept_[b].node), triple(vector, kept_[a].node)));
        const double longer = told.length_factor * (norm(moved) - norm(way));
        line += ", displaced " + text(moved) + ", longer by " + number(longer) + ' ' + shown(told.length);
    }
    const double more = told.factor * (value(b) - value(a));
    if (std::isfinite(more))
        line += "; " + (shown(told.name) + " differs by " + number(more) + ' ' + shown(told.unit)).trimmed();
    distance_->setText(line);
}

void ProbePanel::copy() {
    if (!kept_.empty()) QApplication::clipboard()->setText(tabbed_text(table()));
}

// ---- the plot

void ProbePanel::list_sets() {
    const QSignalBlocker quiet(set_);
    const QString before = set_->currentText();
    set_->clear();
    for (const MeshSet& set : shown_.mesh().sets)
        if (!set.nodes.empty()) set_->addItem(shown(set.name));
    set_->setCurrentIndex(std::max(0, set_->findText(before)));
}

// Why there is no plot; empty: there is one.
QString ProbePanel::nothing_to_plot() const {
    if (shown_.mode_num() == 0) return "No result yet: run an analysis or open a result file";
    if (!picture().contour()) return "Choose a quantity of the menu Contour: its values are drawn here";
    const int kind = kind_->currentIndex();
    if (kind == along_a_set && set_->count() == 0)
        return "This mesh has no sets: name some in set_info of the model file";
    if (kind == over_the_frames && kept_.empty())
        return "Add a probe: its values over the frames are drawn here";
    if (kind == along_a_line && !pair())
        return "Add two probes: the values on the line between them are drawn here";
    return {};
}

// What was found of another mesh is forgotten.
void ProbePanel::look_at_mesh() {
    std::shared_ptr<const void> owner = shown_.store.run;
    if (!owner) owner = shown_.store.model;
    if (!found_of_.owner_before(owner) && !owner.owner_before(found_of_)) return;
    found_of_ = owner;
    locator_.reset();
    line_.clear();
    materials_.clear();
}

const std::vector<LinePoint>& ProbePanel::line(const Vec3& from, const Vec3& to) {
    if (!locator_) locator_.emplace(shown_.mesh());
    const std::size_t count = points_->value();
    if (line_.size() != count || line_.front().place != from || line_.back().place != to)
        line_ = line_points(*locator_, from, to, static_cast<int>(count));
    return line_;
}

std::vector<double> ProbePanel::values_of(const Mesh& nodes, const Frame& at_nodes) {
    std::vector<std::int32_t> material;
    for (const Kept& one : kept_) material.push_back(materials_[one.node]);
    const view::FieldBase base{*shown_.store.model, material};
    return view::nodal_values(state_.shown_contour(), nodes, at_nodes, &base);
}

History ProbePanel::made_plot() {
    const ToldQuantity told = told_quantity();
    const Mesh& mesh = shown_.mesh();
    const auto& values = picture().values();
    look_at_mesh();
    switch (kind_->currentIndex()) {
        case along_a_line: {
            const auto [a, b] = *pair();
            const auto& points = line(kept_[a].place, kept_[b].place);
            const auto gone = [this](std::int32_t e) { return picture().is_removed(e); };
            return along_line(mesh, points, values, gone, told);
        }
        case along_a_set: {
            const auto& sets = mesh.sets;
            const auto set = std::ranges::find(sets, set_->currentText().toStdString(), &MeshSet::name);
            if (set == sets.end()) return {};
            return along_set(mesh, *set, values, static_cast<SetAxis>(over_->currentIndex()), told);
        }
        default: {
            if (materials_.empty()) materials_ = node_materials(*shown_.store.model, mesh);
            const auto value = [this](const Mesh& nodes, const Frame& at) { return values_of(nodes, at); };
            return over_frames(*shown_.store.run, state_.probes, value, told);
        }
    }
}

void ProbePanel::plot() {
    if (!isVisible()) return;
    const int kind = kind_->currentIndex();
    points_->setVisible(kind == along_a_line);
    set_->setVisible(kind == along_a_set);
    over_->setVisible(kind == along_a_set);
    QString why = nothing_to_plot();
    History made = why.isEmpty() ? made_plot() : History();
    const bool any =
        std::ranges::any_of(made.columns.empty() ? std::vector<double>() : made.columns[0].values,
                            [](double v) { return std::isfinite(v); });
    if (why.isEmpty() && !any) why = "There are no values here";
    plotted_ = why.isEmpty() ? std::move(made) : History();
    if (why.isEmpty() && shown_.comparison() == Compare::difference && kind == over_the_frames)
        pointed_->setText("Over the frames: values of the result shown, not differences");
    else
        pointed_->clear();
    empty_->setText(why);
    empty_->setVisible(!why.isEmpty());
    chart_->setVisible(why.isEmpty());
    save_plot_->setEnabled(why.isEmpty());
    if (why.isEmpty()) draw(kind == along_a_line);
}

void ProbePanel::draw(bool split) {
    const bool frames = plotted_.of_frames;
    History next = split ? split_at_gaps(plotted_) : plotted_;
    // nodes of a face that are as far along it have no order
    const bool joined = split || frames || std::ranges::adjacent_find(next.x) == next.x.end();
    const std::size_t count = split || frames ? next.columns.size() : 1;
    std::vector<ShownCurve> curves;
    for (std::size_t c = 0; c < count; ++c) {
        if (frames) next.columns[c].name = probe_name(static_cast<int>(c)).toStdString();  // as in the table
        const QColor color(curve_colors[frames ? c % curve_colors.size() : 0]);
        curves.push_back({c, color, false, frames || c == 0, joined});
    }
    drawn_ = std::move(next);
    chart_->show_curves(drawn_, std::move(curves), std::exchange(drawn_axis_, drawn_.axis) == drawn_.axis);
    chart_->set_cursor(frames && state_.frame > 0 ? std::optional(std::size_t(state_.frame) - 1)
                                                  : std::nullopt);
}

}  // namespace kestralum
