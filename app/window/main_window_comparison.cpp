// A held result beside the one shown, or taken off it: the entries of the Result menu.
#include <QAction>
#include <QMenu>

#include "app/window/main_window.h"

namespace kestralum {

void MainWindow::make_comparison_entries() {
    result_menu_->addSeparator();
    QAction* hold = add_action("&Hold Result", "Keep the result that is shown, to compare others with it",
                               &MainWindow::holdResult);
    result_menu_->addAction(hold);
    const auto add = [&](const char* text, const char* tip, Compare how) {
        QAction* action = result_menu_->addAction(text);
        action->setStatusTip(tip);
        action->setCheckable(true);
        action->setEnabled(false);
        connect(action, &QAction::triggered, this,
                [this, how](bool on) { compare(on ? how : Compare::off); });
        return action;
    };
    beside_ =
        add("Compare Side &by Side", "The held result beside the one shown, with one camera and one range",
            Compare::side_by_side);
    difference_ =
        add("Show &Difference", "What the result shown has more than the held one", Compare::difference);
    // another run may have no part of the comparison
    connect(this, &MainWindow::content_shown, this, &MainWindow::show_comparison);
}

void MainWindow::holdResult() {
    if (view_->shown().mode_num() == 0) return say("There is no result to hold");
    view_->shown().hold_result();
    show_comparison();
    say("Held: " + QString::fromStdString(view_->shown().held_title()));
}

void MainWindow::compare(Compare how) {
    const std::string refused = view_->shown().compare(how);
    if (!refused.empty()) say(QString::fromStdString(refused));
    show_comparison();
    view_->panes_changed();
}

void MainWindow::show_comparison() {
    const ShownModel& shown = view_->shown();
    for (QAction* action : {beside_, difference_}) action->setEnabled(shown.holds_result());
    beside_->setChecked(shown.comparison() == Compare::side_by_side);
    difference_->setChecked(shown.comparison() == Compare::difference);
}

}  // namespace kestralum
