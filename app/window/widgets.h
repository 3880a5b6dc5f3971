// Small words for building widgets.
#pragma once

#include <QString>
#include <QWidget>
#include <functional>
#include <string>

namespace kestralum {

// The widget, with the name that it is found by.
template <typename Widget>
Widget* named(const QString& name, Widget* widget) {
    widget->setObjectName(name);
    return widget;
}

inline QString shown(const std::string& text) {
    return QString::fromStdString(text);
}

// Ctrl+C in this widget does `copy`, and no shortcut of the window.
void copies_with_key(QWidget* widget, std::function<void()> copy);

}  // namespace kestralum
