// The end of the View menu: projection, sides of the model by name, and the user's own views.
#pragma once

#include <QObject>
#include <functional>

class QAction;
class QMenu;

namespace kestralum {

class GLWidget;

class ViewMenu : public QObject {
    Q_OBJECT

public:
    // Appends to `menu`. `model_file` names the file whose own views are offered; "" without one.
    ViewMenu(QMenu* menu, GLWidget& view, std::function<QString()> model_file, QWidget* window);

    void toggle_projection();
    // Keeps what the camera shows under a name that is asked for.
    void save_view();

private:
    void make_sides();
    void list_own();
    void show_own(const QString& name);

    GLWidget& view_;
    const std::function<QString()> model_file_;
    QWidget* window_;
    QAction *parallel_, *save_;
    QMenu *views_, *remove_;
    QAction* own_end_;  // the user's own stand before it
    QList<QAction*> own_;
};

}  // namespace kestralum
