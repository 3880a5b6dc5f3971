#include "app/window/view_menu.h"

#include <QAction>
#include <QInputDialog>
#include <QMenu>
#include <algorithm>
#include <utility>

#include "app/window/dialogs.h"
#include "app/window/gl_widget.h"
#include "app/window/saved_views.h"

namespace kestralum {

namespace {

// A name as it stands, without a key.
QString menu_text(QString name) {
    return name.replace('&', "&&");
}

}  // namespace

ViewMenu::ViewMenu(QMenu* menu, GLWidget& view, std::function<QString()> model_file, QWidget* window)
    : QObject(window), view_(view), model_file_(std::move(model_file)), window_(window) {
    menu->addSeparator();
    parallel_ = menu->addAction("&Orthographic");
    parallel_->setStatusTip("Draw along parallel rays (O): what is as long looks as long");
    parallel_->setCheckable(true);
    connect(parallel_, &QAction::toggled, this, [this](bool on) { view_.set_orthographic(on); });
    views_ = menu->addMenu("Vi&ews");
    make_sides();
    connect(views_, &QMenu::aboutToShow, this, &ViewMenu::list_own);
}

void ViewMenu::make_sides() {
    for (const view::NamedView& side : view::named_views) {
        QAction* action = views_->addAction(side.menu_text);
        action->setStatusTip(QString("Look from %1").arg(side.axis));
        connect(action, &QAction::triggered, this,
                [this, direction = side.direction] { view_.look_from(direction); });
    }
    views_->addSeparator();
    own_end_ = views_->addSeparator();
    save_ = views_->addAction("&Save View...");
    save_->setStatusTip("Keep what the view shows under a name, for this model file");
    connect(save_, &QAction::triggered, this, &ViewMenu::save_view);
    remove_ = views_->addMenu("Remo&ve View");
    list_own();
}

void ViewMenu::list_own() {
    for (QAction* action : std::exchange(own_, {})) delete action;
    remove_->clear();
    const QString file = model_file_();
    for (const SavedView& own : saved_views(file)) {
        auto* action = new QAction(menu_text(own.name), this);
        connect(action, &QAction::triggered, this, [this, name = own.name] { show_own(name); });
        views_->insertAction(own_end_, action);
        own_ << action;
        connect(remove_->addAction(menu_text(own.name)), &QAction::triggered, this,
                [this, file, name = own.name] {
                    remove_view(file, name);
                    list_own();
                });
    }
    remove_->setEnabled(!own_.isEmpty());
    save_->setEnabled(!file.isEmpty());
}

void ViewMenu::toggle_projection() {
    parallel_->toggle();
}

void ViewMenu::show_own(const QString& name) {
    const QList<SavedView> views = saved_views(model_file_());
    const auto own = std::ranges::find(views, name, &SavedView::name);
    if (own == views.end()) return;
    parallel_->setChecked(own->orthographic);
    view::Camera& camera = view_.shown().camera;
    camera.shift = own->shift;
    camera.turn = own->turn;
    view_.update();
}

void ViewMenu::save_view() {
    const QString file = model_file_();
    if (file.isEmpty()) return;
    bool taken = false;
    const QString name =
        QInputDialog::getText(window_, "Save View", "Name of the view:", QLineEdit::Normal, "", &taken)
            .simplified();
    if (!taken) return;
    if (name.isEmpty()) return show_errors(window_, "The view was not saved", {"It wants a name."});
    const QList<SavedView> views = saved_views(file);
    enum Answer { replace, leave };
    if (std::ranges::find(views, name, &SavedView::name) != views.end() &&
        ask(window_, "There is a view " + name + " already.", "Replace it?", {"Replace", "Leave it"}, leave,
            leave) == leave)
        return;
    const view::Camera& camera = view_.shown().camera;
    keep_view(file, {name, camera.shift, camera.turn, camera.orthographic});
    list_own();
}

}  // namespace kestralum
