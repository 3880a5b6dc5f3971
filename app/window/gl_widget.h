// The 3-D view: camera, mouse, animation.
#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QOpenGLWidget>
#include <QPoint>
#include <functional>
#include <memory>

#include "app/window/shown_model.h"

namespace kestralum {

class GLWidget : public QOpenGLWidget {
    Q_OBJECT

public:
    explicit GLWidget(QWidget* parent = nullptr);
    ~GLWidget() override;

    ShownModel& shown() { return shown_; }
    view::DisplayState& state() { return shown_.state; }

    void fit_view();
    void look_from(view::ViewDirection direction);  // and fit

    // The picture as it is now, without a step of the animation or of an analysis.
    QImage grab_picture();
    // The same drawn at another size; a null image and why where that is not possible.
    QImage render_picture(const QSize& size, QString& error);

    // While on, the last picture stays and the store is not looked at: a long run works on it.
    void hold_picture(bool on);

    // Called before each repaint of the screen: the step of a real-time analysis.
    void set_step(std::function<void()> step) { step_ = std::move(step); }

public slots:
    void advanceGears();

signals:
    void started();           // the store stands: a model may be opened
    void settings_missing();  // the program cannot go on
    void picked(const QString& text);
    void painted();

protected:
    void initializeGL() override;
    void resizeGL(int width, int height) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    bool start_up();  // false: the settings file is missing
    void step_animation();
    void draw_scene();
    void forget_context();
    QPoint pixel(const QPointF& place) const;
    template <typename Use>
    void with_texts(Use use);

    ShownModel shown_;
    QImage held_;
    bool hold_ = false, grabbing_ = false, tick_ = false, stepping_ = false, ready_ = false;
    bool click_ = false;
    QPoint pressed_at_;
    QElapsedTimer drawing_, since_drawn_;  // of the picture under way; since the last was shown
    qint64 draw_time_ = 0;                 // of the last picture, ms
    std::function<void()> step_;
};

}  // namespace kestralum
