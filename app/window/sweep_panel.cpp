#include "app/window/sweep_panel.h"

#include <QChart>
#include <QChartView>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLegend>
#include <QLineSeries>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QTableWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <QValueAxis>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "app/sweep_table.h"
#include "app/window/axis_editor.h"
#include "app/window/dialogs.h"
#include "app/window/widgets.h"
#include "results/text_output.h"

namespace kestralum {

namespace {

constexpr int replot_after = 150;  // milliseconds

// A refusal as the command line words it, without the option's name.
QString without_option(const std::string& refused) {
    QString text = shown(refused);
    for (const char* head : {"--sweep: ", "--sweep "})
        if (text.startsWith(head)) return text.mid(static_cast<qsizetype>(std::string_view(head).size()));
    return text;
}

QTableWidgetItem* cell(const QString& text, Qt::Alignment side = Qt::AlignRight) {
    auto* item = new QTableWidgetItem(text);
    item->setTextAlignment(side | Qt::AlignVCenter);
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    return item;
}

// The range of all points, with round numbers at its ends.
void show_range(std::span<const QList<QPointF>> curves, double (QPointF::*coordinate)() const,
                QValueAxis& axis) {
    double least = std::numeric_limits<double>::infinity(), most = -least;
    for (const QList<QPointF>& points : curves)
        for (const QPointF& point : points) {
            least = std::min(least, (point.*coordinate)());
            most = std::max(most, (point.*coordinate)());
        }
    if (!(least <= most)) return;
    if (least == most) {  // a single value stands in the middle
        const double room = least == 0 ? 1 : 0.1 * std::abs(least);
        least -= room;
        most += room;
    }
    axis.setRange(least, most);
    axis.applyNiceNumbers();
}

}  // namespace

SweepPanel::SweepPanel(std::function<Scene()> scene, QWidget* parent)
    : QWidget(parent),
      scene_(std::move(scene)),
      analysis_(named("sweep analysis", new QComboBox)),
      column_(named("sweep column", new QComboBox)),
      first_(new AxisEditor("first", false)),
      second_(new AxisEditor("second", true)),
      start_(named("sweep start", new QPushButton("Start"))),
      stop_(named("sweep stop", new QPushButton("Stop"))),
      save_(named("sweep save", new QPushButton("Save CSV..."))),
      bar_(named("sweep bar", new QProgressBar)),
      message_(named("sweep message", new QLabel)),
      table_(named("sweep table", new QTableWidget)),
      chart_(new QChart),
      replot_(new QTimer(this)),
      worker_(std::make_unique<Worker>(false)) {
    setObjectName("sweep panel");
    make_choice();
    make_table();
    auto* split = new QSplitter(Qt::Vertical);
    split->addWidget(table_);
    split->addWidget(make_plot());
    static_cast<QVBoxLayout*>(layout())->addWidget(split, 1);
    replot_->setSingleShot(true);
    replot_->setInterval(replot_after);
    connect(replot_, &QTimer::timeout, this, &SweepPanel::plot);
    connect(column_, &QComboBox::currentIndexChanged, this, &SweepPanel::plot);
    connect(start_, &QPushButton::clicked, this, &SweepPanel::start);
    connect(stop_, &QPushButton::clicked, this, &SweepPanel::stop);
    connect(save_, &QPushButton::clicked, this, &SweepPanel::ask_for_csv);
    connect(worker_.get(), &Worker::begun, this, &SweepPanel::show_buttons);
    connect(worker_.get(), &Worker::ended, this, &SweepPanel::show_buttons);
    refresh();
}

SweepPanel::~SweepPanel() = default;

void SweepPanel::make_choice() {
    for (const AnalysisEntry& entry : analysis_table())
        analysis_->addItem(QString(entry.menu_text).remove('&'), QString(entry.batch_word));
    auto* grid = new QGridLayout;
    grid->setColumnStretch(1, 1);
    const std::pair<const char*, QWidget*> rows[] = {
        {"Analysis", analysis_}, {"Parameter", first_}, {"Second", second_}};
    for (int k = 0; k < 3; ++k) {
        grid->addWidget(new QLabel(rows[k].first), k, 0, Qt::AlignTop);
        grid->addWidget(rows[k].second, k, 1);
    }
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(start_);
    buttons->addWidget(stop_);
    buttons->addWidget(bar_, 1);
    buttons->addWidget(save_);
    bar_->setFormat("%v of %m runs");
    bar_->setMinimumWidth(40);
    QSizePolicy kept = bar_->sizePolicy();
    kept.setRetainSizeWhenHidden(true);  // the buttons stay where they are
    bar_->setSizePolicy(kept);
    bar_->hide();
    message_->setWordWrap(true);
    auto* column = new QVBoxLayout(this);
    column->addLayout(grid);
    column->addLayout(buttons);
    column->addWidget(message_);
}

void SweepPanel::make_table() {
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->horizontalHeader()->setStretchLastSection(true);
}

QWidget* SweepPanel::make_plot() {
    auto* view = named("sweep plot", new QChartView(chart_));
    view->setRenderHint(QPainter::Antialiasing);
    view->setMinimumSize(320, 180);
    chart_->setMargins({4, 4, 4, 4});
    chart_->legend()->setAlignment(Qt::AlignRight);
    chart_->legend()->hide();
    auto* head = new QHBoxLayout;
    head->addWidget(new QLabel("Plot"));
    head->addWidget(column_, 1);
    auto* whole = new QWidget;
    auto* column = new QVBoxLayout(whole);
    column->setContentsMargins(0, 0, 0, 0);
    column->addLayout(head);
    column->addWidget(view, 1);
    return whole;
}

void SweepPanel::say(const QString& text, bool wrong) {
    message_->setText(text);
    message_->setStyleSheet(wrong ? "color: #b00020" : "");
}

void SweepPanel::refresh() {
    const std::shared_ptr<const Model> model = scene_().model;
    const bool readable = model && model->source == ModelSource::model_file;
    const std::span<const Parameter> none;
    first_->offer(readable ? std::span(model->parameters) : none);
    second_->offer(readable ? std::span(model->parameters) : none);
    if (!busy())
        say(!readable           ? "A sweep needs a model that was read from a model file."
            : !first_->chosen() ? "The model has no parameter to sweep."
                                : "");
    show_buttons();
}

void SweepPanel::show_buttons() {
    start_->setEnabled(!busy() && first_->chosen());
    stop_->setEnabled(busy());
    save_->setEnabled(!rows_.empty());
    for (QWidget* widget : std::initializer_list<QWidget*>{analysis_, first_, second_})
        widget->setEnabled(!busy());
}

void SweepPanel::start() {
    if (busy() || !first_->chosen()) return;
    Scene scene = scene_();
    SweepPlan plan;
    for (const AxisEditor* editor : {first_, second_}) {
        if (!editor->chosen()) continue;
        const std::string refused = read_sweep_axis(editor->text(), plan.axes.emplace_back());
        if (!refused.empty()) return say(without_option(refused), true);
    }
    std::erase_if(scene.overrides, [&](const ParameterOverride& set) {
        return std::ranges::find(plan.axes, set.name, &SweepAxis::name) != plan.axes.end();
    });
    if (const std::string refused = refused_axes(plan.axes, scene.overrides); !refused.empty())
        return say(without_option(refused), true);
    plan.base = *scene.model;
    plan.base.mesh = {};
    plan.analysis = find_analysis(analysis_->currentData().toString().toStdString());
    plan.overrides = std::move(scene.overrides);
    plan.options = scene.options;
    plan.settings = scene.settings;
    begin(std::move(plan));
}

void SweepPanel::begin(SweepPlan plan) {
    plan_ = std::make_shared<const SweepPlan>(std::move(plan));
    rows_.clear();
    columns_.clear();
    column_->clear();
    QStringList headings;
    for (const SweepAxis& axis : plan_->axes) headings << shown(axis.name);
    for (const SweepColumn& column : sweep_columns()) headings << shown(column.heading());
    headings << "status";
    table_->clear();
    table_->setRowCount(0);
    table_->setColumnCount(static_cast<int>(headings.size()));
    table_->setHorizontalHeaderLabels(headings);
    for (std::size_t c = 0; c < sweep_columns().size(); ++c)
        table_->setColumnHidden(static_cast<int>(plan_->axes.size() + c), true);
    bar_->setRange(0, static_cast<int>(plan_->runs()));
    bar_->setValue(0);
    bar_->show();
    say("");
    plot();
    auto outcome = std::make_shared<SweepOutcome>(SweepOutcome{SweepStatus::bad_input, {}});
    worker_->start(
        "Sweep",
        [this, outcome, plan = plan_](Progress& progress) {
            const auto show = [this](const SweepRow& row) {
                QMetaObject::invokeMethod(
                    this, [this, row] { add_row(row); }, Qt::QueuedConnection);
            };
            *outcome = run_sweep(*plan, show, progress);
        },
        [this, outcome](const Heard& heard) { end(*outcome, heard); });
}

void SweepPanel::stop() {
    worker_->stop();
    if (busy()) say("Stopping");
}

void SweepPanel::add_row(const SweepRow& row) {
    const int at = table_->rowCount(), axes = static_cast<int>(row.parameters.size());
    table_->insertRow(at);
    for (int a = 0; a < axes; ++a) table_->setItem(at, a, cell(shown(sweep_number(row.parameters[a]))));
    for (std::size_t c = 0; c < row.quantities.size(); ++c) {
        if (!row.quantities[c]) continue;
        const int place = axes + static_cast<int>(c);
        table_->setItem(at, place, cell(QString::asprintf(sweep_columns()[c].format, *row.quantities[c])));
        if (!table_->isColumnHidden(place)) continue;
        table_->setColumnHidden(place, false);
        table_->resizeColumnToContents(place);
    }
    const bool done = row.status == RunStatus::done;
    QTableWidgetItem* status =
        cell(done ? QString(word_of(row.status)) : QString(word_of(row.status)) + ": " + shown(row.error),
             Qt::AlignLeft);
    if (!done) status->setForeground(QColor("#b00020"));
    status->setToolTip(shown(row.error));
    table_->setItem(at, table_->columnCount() - 1, status);
    table_->scrollToBottom();
    rows_.push_back(row);
    bar_->setValue(static_cast<int>(rows_.size()));
    save_->setEnabled(true);
    offer_columns();
    if (!replot_->isActive()) replot_->start();
}

void SweepPanel::end(const SweepOutcome& outcome, const Heard& heard) {
    // runs that ended before one that was stopped are not on the table yet
    for (const SweepRow& row : outcome.rows)
        if (std::ranges::find(rows_, row.index, &SweepRow::index) == rows_.end()) add_row(row);
    bar_->hide();
    const auto failed =
        std::ranges::count_if(rows_, [](const SweepRow& row) { return row.status != RunStatus::done; });
    if (outcome.status == SweepStatus::cancelled)
        say(QString("Stopped: %1 of %2 runs are done.").arg(rows_.size()).arg(plan_->runs()));
    else if (!heard.errors.isEmpty())
        say(without_option(heard.errors.front().toStdString()), true);
    else if (failed > 0)
        say(QString("%1 of %2 runs failed.").arg(failed).arg(rows_.size()), true);
    else
        say(QString("%1 runs are done.").arg(rows_.size()));
    plot();
}

// The columns that have a value, for the plot; the first headline is chosen.
void SweepPanel::offer_columns() {
    const std::vector<std::size_t> used = used_columns(std::span(&rows_.back(), 1));
    std::vector<std::size_t> all;
    std::ranges::set_union(used, columns_, std::back_inserter(all));
    if (all == columns_) return;
    const QVariant former = column_->currentData();
    columns_ = std::move(all);
    const QSignalBlocker quiet(column_);
    column_->clear();
    int preset = 0;
    for (std::size_t k = columns_.size(); k-- > 0;)
        if (sweep_columns()[columns_[k]].headline) preset = static_cast<int>(k);
    for (const std::size_t c : columns_)
        column_->addItem(shown(sweep_columns()[c].heading()), static_cast<int>(c));
    const int kept = former.isValid() ? column_->findData(former) : -1;
    column_->setCurrentIndex(kept >= 0 ? kept : preset);
}

// One curve, or one for each value of the second parameter.
void SweepPanel::plot() {
    replot_->stop();
    chart_->removeAllSeries();
    for (QAbstractAxis* axis : chart_->axes()) {
        chart_->removeAxis(axis);
        delete axis;
    }
    chart_->legend()->hide();
    if (!plan_ || rows_.empty() || !column_->currentData().isValid()) return;
    const std::size_t c = static_cast<std::size_t>(column_->currentData().toInt());
    const bool pairs = plan_->axes.size() > 1;
    const std::size_t curves = pairs ? plan_->axes[1].values.size() : 1;
    std::vector<QList<QPointF>> points(curves);
    for (const SweepRow& row : rows_)
        if (row.quantities[c]) points[row.index % curves].append({row.parameters[0], *row.quantities[c]});
    auto *x = new QValueAxis, *y = new QValueAxis;  // the column stands above: its name needs the room
    x->setTitleText(shown(plan_->axes[0].name));
    QFont small = font();
    small.setPointSizeF(0.8 * small.pointSizeF());  // an axis has but a fifth of the width for its labels
    for (QValueAxis* axis : {x, y}) {
        axis->setLabelFormat("%.4g");
        axis->setLabelsFont(small);
    }
    chart_->addAxis(x, Qt::AlignBottom);
    chart_->addAxis(y, Qt::AlignLeft);
    show_range(points, &QPointF::x, *x);
    show_range(points, &QPointF::y, *y);
    for (std::size_t k = 0; k < curves; ++k) {
        std::ranges::sort(points[k], {}, &QPointF::x);
        auto* series = new QLineSeries;
        if (pairs) series->setName(shown(plan_->axes[1].name + "=" + sweep_number(plan_->axes[1].values[k])));
        series->setPointsVisible(true);
        series->replace(points[k]);
        chart_->addSeries(series);
        series->attachAxis(x);
        series->attachAxis(y);
    }
    chart_->legend()->setVisible(pairs && curves <= 20);
}

QString SweepPanel::save_csv(const QString& file_name) const {
    if (!plan_) return "there are no rows";
    SilentProgress silent;
    const std::vector<std::string> names = axis_names(plan_->axes);
    return shown(write_whole(
        file_name.toStdString(), plan_->options.log_folder,
        [&](TextOutput& file) { file.write(sweep_csv(names, rows_)); }, silent));
}

void SweepPanel::ask_for_csv() {
    const QString name = ask_for_new_file(this, "Save the rows", "sweep", ".csv");
    if (name.isEmpty()) return;
    const QString fault = save_csv(name);
    say(fault.isEmpty() ? name + " is written." : fault, !fault.isEmpty());
}

}  // namespace kestralum
