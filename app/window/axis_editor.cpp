#include "app/window/axis_editor.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "app/sweep.h"
#include "app/window/widgets.h"

namespace kestralum {

AxisEditor::AxisEditor(const QString& name, bool optional, QWidget* parent)
    : QWidget(parent),
      optional_(optional),
      parameter_(named(name + " parameter", new QComboBox)),
      kind_(named(name + " kind", new QComboBox)),
      values_(new QStackedWidget),
      from_(named(name + " from", new QLineEdit)),
      to_(named(name + " to", new QLineEdit)),
      list_(named(name + " list", new QLineEdit)),
      count_(named(name + " count", new QSpinBox)) {
    kind_->addItems({"Range", "List"});
    count_->setRange(1, static_cast<int>(most_sweep_runs));
    count_->setValue(5);
    count_->setSuffix(" values");
    count_->setToolTip("Number of values, both ends included");
    from_->setPlaceholderText("from");
    to_->setPlaceholderText("to");
    list_->setPlaceholderText("values with commas between them");
    auto* range = new QWidget;
    auto* fields = new QHBoxLayout(range);
    fields->setContentsMargins(0, 0, 0, 0);
    for (QWidget* field : std::initializer_list<QWidget*>{from_, new QLabel("to"), to_, count_})
        fields->addWidget(field, field == from_ || field == to_ ? 1 : 0);
    values_->addWidget(range);
    values_->addWidget(list_);
    values_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    auto* choice = new QHBoxLayout;
    choice->addWidget(parameter_, 1);
    choice->addWidget(kind_);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addLayout(choice);
    column->addWidget(values_);
    connect(kind_, &QComboBox::currentIndexChanged, values_, &QStackedWidget::setCurrentIndex);
    connect(parameter_, &QComboBox::currentIndexChanged, this, &AxisEditor::show_choice);
    show_choice();
}

bool AxisEditor::chosen() const {
    return parameter_->currentIndex() >= (optional_ ? 1 : 0);
}

void AxisEditor::offer(std::span<const Parameter> parameters) {
    const QString former = chosen() ? parameter_->currentText() : QString();
    parameters_.assign(parameters.begin(), parameters.end());
    const QSignalBlocker quiet(parameter_);
    parameter_->clear();
    if (optional_) parameter_->addItem("none");
    for (const Parameter& p : parameters_)
        if (parameter_->findText(shown(p.name)) < 0) parameter_->addItem(shown(p.name));
    const int at = former.isEmpty() ? -1 : parameter_->findText(former);
    parameter_->setCurrentIndex(at >= 0 ? at : parameter_->count() > 0 ? 0 : -1);
    if (at < 0) show_choice();
}

// The value in force is the first of the range that is offered.
void AxisEditor::show_choice() {
    kind_->setEnabled(chosen());
    values_->setEnabled(chosen());
    if (!chosen()) return;
    const std::string name = parameter_->currentText().toStdString();
    const auto p = std::ranges::find(parameters_, name, &Parameter::name);
    if (p == parameters_.end()) return;
    from_->setText(shown(sweep_number(p->value)));
    to_->setText(shown(sweep_number(p->value == 0 ? 1 : 2 * p->value)));
}

std::string AxisEditor::text() const {
    const auto of = [](const QLineEdit* field) { return field->text().remove(' ').toStdString(); };
    const std::string head = parameter_->currentText().toStdString() + "=";
    if (kind_->currentIndex() == 1) return head + of(list_);
    return head + of(from_) + ":" + of(to_) + ":" + std::to_string(count_->value());
}

}  // namespace kestralum
