// Work that may take minutes on the thread of the window.
#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>
#include <functional>

namespace kestralum {

// What the console said meanwhile that the user of the window must know.
struct Heard {
    QStringList errors, notices;
};

// Runs `work`. When it takes longer than a moment a dialog shows the stage, how far it is and how long
// it will still take, and offers to cancel; the console's lines keep it alive. A cancel asked for is
// seen by the work through console::cancel_requested().
Heard run_long_work(QWidget* parent, const QString& title, const std::function<void()>& work);

}  // namespace kestralum
