#include "app/window/parameter_panel.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <utility>

#include "input/calculator.h"

namespace kestralum {

namespace {

enum Column { name_column, expression_column, value_column, file_column, column_count };

const QColor wrong_colour("#b00020");

bool same(const std::vector<ParameterOverride>& a, const std::vector<ParameterOverride>& b) {
    return std::ranges::equal(a, b, [](const ParameterOverride& p, const ParameterOverride& q) {
        return p.name == q.name && p.expression == q.expression;
    });
}

}  // namespace

ParameterPanel::ParameterPanel(std::function<Scene()> scene, Changed changed, QWidget* parent)
    : QWidget(parent),
      scene_(std::move(scene)),
      changed_(std::move(changed)),
      table_(new QTableWidget(0, column_count)),
      message_(new QLabel),
      run_again_(new QCheckBox("Run again")),
      reset_(new QPushButton("Reset")),
      worker_(std::make_unique<Worker>(false)) {
    setObjectName("parameter panel");
    table_->setObjectName("parameter table");
    message_->setObjectName("parameter message");
    run_again_->setObjectName("parameter run again");
    reset_->setObjectName("parameter reset");
    run_again_->setToolTip("Repeats the last analysis after each change");
    reset_->setToolTip("Takes the values of the model file");
    table_->setHorizontalHeaderLabels({"Parameter", "Expression", "Value", "File"});
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    table_->horizontalHeader()->setSectionResizeMode(expression_column, QHeaderView::Stretch);
    table_->setMinimumSize(300, 140);
    message_->setWordWrap(true);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(run_again_);
    buttons->addStretch();
    buttons->addWidget(reset_);
    auto* column = new QVBoxLayout(this);
    column->addWidget(message_);
    column->addWidget(table_, 1);
    column->addLayout(buttons);
    connect(table_, &QTableWidget::cellChanged, this, [this](int row, int at) {
        if (!filling_ && at == expression_column) take(row, table_->item(row, at)->text().trimmed());
    });
    connect(reset_, &QPushButton::clicked, this, &ParameterPanel::reset);
    refresh();
}

ParameterPanel::~ParameterPanel() = default;

void ParameterPanel::refresh() {
    Scene scene = scene_();
    if (!std::exchange(asked_, false) && scene.model == shown_.model &&
        same(scene.overrides, shown_.overrides))
        return;  // another run is shown: what is being typed stays
    const bool other_file =
        !shown_.model || !scene.model || scene.model->model_file_name != shown_.model->model_file_name;
    shown_ = std::move(scene);
    if (other_file) file_.clear();
    rows_.clear();
    if (shown_.model && shown_.model->source == ModelSource::model_file)
        for (const Parameter& p : shown_.model->parameters)
            if (std::ranges::find(rows_, p.name, &Parameter::name) == rows_.end()) rows_.push_back(p);
    show_rows();
    compare_with_file();
}

// What the file says of the parameters that are overridden; read beside the window.
void ParameterPanel::compare_with_file() {
    if (shown_.overrides.empty() || worker_->busy() || !shown_.model) return;
    auto found = std::make_shared<std::vector<FileParameter>>();
    worker_->start(
        "Comparing parameters",
        [found, file = shown_.model->model_file_name](Progress& progress) {
            std::string error;  // the file went away: there is nothing to compare with
            *found = file_parameters(file, error, progress);
        },
        [this, found, of = shown_.model](const Heard&) {
            if (of != shown_.model) return compare_with_file();
            file_.clear();
            for (const FileParameter& p : *found) file_.emplace(p.name, p.expression);
            for (int row = 0; row < table_->rowCount(); ++row) show_row(row);
        });
}

QString ParameterPanel::file_expression(const std::string& name) const {
    const auto at = file_.find(name);
    return at == file_.end() ? QString() : QString::fromStdString(at->second);
}

void ParameterPanel::show_rows() {
    filling_ = true;
    table_->setRowCount(static_cast<int>(rows_.size()));
    for (int row = 0; row < table_->rowCount(); ++row) {
        for (int c = 0; c < column_count; ++c) {
            auto* item = new QTableWidgetItem;
            const bool named = is_parameter_name(rows_[row].name);
            const bool open = c == expression_column && named;
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable |
                           (open ? Qt::ItemIsEditable : Qt::NoItemFlags));
            table_->setItem(row, c, item);
        }
        show_row(row);
    }
    filling_ = false;
    message_->setText(rows_.empty() ? "The model has no parameters." : "");
    message_->setVisible(rows_.empty());
    reset_->setEnabled(!shown_.overrides.empty());
}

void ParameterPanel::show_row(int row) {
    const bool was_filling = std::exchange(filling_, true);
    const Parameter& p = rows_[row];
    const bool differs =
        std::ranges::find(shown_.overrides, p.name, &ParameterOverride::name) != shown_.overrides.end();
    const QString in_file = differs ? file_expression(p.name) : QString::fromStdString(p.expression);
    table_->item(row, name_column)->setText(QString::fromStdString(p.name));
    table_->item(row, expression_column)->setText(QString::fromStdString(p.expression));
    table_->item(row, value_column)->setText(QString::number(p.value, 'g', 8));
    table_->item(row, value_column)->setForeground(QBrush());
    table_->item(row, value_column)->setToolTip({});
    table_->item(row, file_column)->setText(differs ? in_file : QString());
    for (int c = 0; c < column_count; ++c) {
        QFont font = table_->font();
        font.setBold(differs && c != file_column);
        table_->item(row, c)->setFont(font);
    }
    filling_ = was_filling;
}

void ParameterPanel::show_error(int row, const QString& error) {
    filling_ = true;
    QTableWidgetItem* beside = table_->item(row, value_column);
    beside->setText(error);
    beside->setToolTip(error);
    beside->setForeground(wrong_colour);
    filling_ = false;
}

// An expression that was typed: it may name the parameters above it.
void ParameterPanel::take(int row, const QString& text) {
    const Parameter& p = rows_[row];
    if (text == QString::fromStdString(p.expression)) return show_row(row);
    const std::string expression = text.toStdString();
    const CalcResult result = calc(expression, std::span(rows_).first(static_cast<std::size_t>(row)));
    if (text.isEmpty()) return show_error(row, "there is no expression");
    if (!result.ok()) return show_error(row, QString::fromStdString(result.error));
    if (!std::isfinite(result.value)) return show_error(row, "the value is not finite");
    std::vector<ParameterOverride> overrides = shown_.overrides;
    std::erase_if(overrides, [&](const ParameterOverride& set) { return set.name == p.name; });
    if (text != file_expression(p.name)) overrides.push_back({p.name, expression});
    filling_ = true;
    table_->item(row, value_column)->setText("not read yet");
    filling_ = false;
    change(std::move(overrides));
}

void ParameterPanel::reset() {
    if (!shown_.overrides.empty()) change({});
}

void ParameterPanel::change(std::vector<ParameterOverride> overrides) {
    asked_ = true;
    changed_(overrides, run_again_->isChecked());
}

}  // namespace kestralum
