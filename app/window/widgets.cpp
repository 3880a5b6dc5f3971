#include "app/window/widgets.h"

#include <QKeyEvent>
#include <utility>

namespace kestralum {

namespace {

class CopyKey : public QObject {
public:
    CopyKey(QWidget* widget, std::function<void()> copy) : QObject(widget), copy_(std::move(copy)) {
        widget->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject* object, QEvent* event) override {
        const bool asked = event->type() == QEvent::ShortcutOverride,
                   pressed = event->type() == QEvent::KeyPress;
        if ((!asked && !pressed) || !static_cast<QKeyEvent*>(event)->matches(QKeySequence::Copy))
            return QObject::eventFilter(object, event);
        event->accept();
        if (pressed) copy_();
        return true;
    }

private:
    const std::function<void()> copy_;
};

}  // namespace

void copies_with_key(QWidget* widget, std::function<void()> copy) {
    new CopyKey(widget, std::move(copy));  // the widget's
}

}  // namespace kestralum
