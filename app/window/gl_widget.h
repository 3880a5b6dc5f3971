// The 3-D view: camera, mouse, animation.
#pragma once

#include <QElapsedTimer>
#include <QImage>
#include <QOpenGLWidget>
#include <QPoint>
#include <optional>

#include "app/window/render_image.h"
#include "app/window/shown_model.h"
#include "model/progress.h"

namespace kestralum {

class GLWidget : public QOpenGLWidget {
    Q_OBJECT

public:
    // What the view prints goes to `console`; `log_folder` is made at start.
    GLWidget(Progress& console, std::string log_folder, QWidget* parent = nullptr);
    ~GLWidget() override;

    ShownModel& shown() { return shown_; }
    view::DisplayState& state() { return shown_.state; }

    // Views beside each other, or one again.
    void panes_changed();
    void fit_view();
    void fit_if_outside();  // where what is drawn leaves the view or lies under the legend
    void look_from(view::ViewDirection direction);  // and fit
    // The model stands as the last fit left it.
    bool is_fitted() const;
    // Or in perspective; a model that stands as it was fitted is fitted again.
    void set_orthographic(bool on);

    // The picture as it is now, without a step of the animation.
    QImage grab_picture();
    // The same drawn at any size; a null image and why where that is not possible.
    QImage render_picture(const ImageOptions& options, QString& error);

public slots:
    void advanceGears();

signals:
    void started();                               // the settings are read: a model may be opened
    void settings_missing();                      // the program cannot go on
    void picked(const QString& text, bool more);  // more: beside what was picked before
    void said(const QString& text);               // of the held result beside the one shown
    void extreme_clicked(bool largest);           // its text at the contour bar
    void section_moved();                         // by the mouse
    void painted();                               // on the screen

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
    void choose_pane(const QPointF& place);
    bool move_section(const QPoint& at, Qt::KeyboardModifiers keys);
    template <typename Use>
    auto measure_texts(Use use);
    template <typename Use>
    void with_texts(Use use);

    Progress& console_;
    const std::string log_folder_;
    ShownModel shown_;
    struct Painted {
        view::DisplayState state{};
        view::Camera camera{};
        std::uint64_t revision = 0;
    } painted_;                           // what the picture on the screen was made from
    std::optional<view::Camera> fitted_;  // as the last fit left it
    bool grabbing_ = false, tick_ = false, ready_ = false;
    bool click_ = false;
    QPoint pressed_at_;
    int pane_left_ = 0;                    // of the view that the mouse acts in
    QElapsedTimer drawing_, since_drawn_;  // of the picture under way; since the last was shown
    qint64 draw_time_ = 0;                 // of the last picture, ms
};

}  // namespace kestralum
