// What a sweep varies: a parameter and its values.
#pragma once

#include <QWidget>
#include <span>
#include <string>
#include <vector>

#include "model/records.h"

class QComboBox;
class QLineEdit;
class QSpinBox;
class QStackedWidget;

namespace kestralum {

// The values are a range or a list.
class AxisEditor : public QWidget {
    Q_OBJECT

public:
    // `name` heads the object names; `optional`: the parameter may be none.
    AxisEditor(const QString& name, bool optional, QWidget* parent = nullptr);

    void offer(std::span<const Parameter> parameters);
    bool chosen() const;
    // As read_sweep_axis() takes it.
    std::string text() const;

private:
    void show_choice();

    const bool optional_;
    QComboBox *parameter_, *kind_;
    QStackedWidget* values_;
    QLineEdit *from_, *to_, *list_;
    QSpinBox* count_;
    std::vector<Parameter> parameters_;
};

}  // namespace kestralum
