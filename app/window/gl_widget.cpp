#include "app/window/gl_widget.h"

#include <QMouseEvent>
#include <QOpenGLContext>
#include <QTimer>
#include <QWheelEvent>
#include <filesystem>
#include <utility>

#include "app/window/painter_texts.h"
#include "app/window/render_image.h"
#include "input/settings_reader.h"
#include "view/aim.h"

namespace kestralum {

namespace {

constexpr int period = 50;  // ms

}  // namespace

GLWidget::GLWidget(Progress& console, std::string log_folder, QWidget* parent)
    : QOpenGLWidget(parent), console_(console), log_folder_(std::move(log_folder)) {
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(200, 150);
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &GLWidget::advanceGears);
    connect(this, &QOpenGLWidget::frameSwapped, this, [this] {
        if (!drawing_.isValid()) return;
        draw_time_ = drawing_.elapsed();
        drawing_.invalidate();
        since_drawn_.start();
    });
    timer->start(period);
    console_.print(" Qt timer %d[ms]\n", period);
}

GLWidget::~GLWidget() {
    forget_context();
    if (context()) disconnect(context(), nullptr, this, nullptr);
}

// The buffers go with their context.
void GLWidget::forget_context() {
    if (!context()) return;
    makeCurrent();
    shown_.release_drawings(true);
    doneCurrent();
}

// A picture that takes longer than the period leaves as much time to the rest of the window.
void GLWidget::advanceGears() {
    if (draw_time_ > period && since_drawn_.isValid() && since_drawn_.elapsed() < draw_time_) return;
    if (view::animates(state(), shown_.ana_type(), shown_.mode_num())) {
        tick_ = true;
        update();
    } else if (shown_.revision() != painted_.revision || shown_.camera != painted_.camera ||
               state() != painted_.state) {
        update();
    }
}

bool GLWidget::start_up() {
    if (read_setting_file("setting\\setting.txt", shown_.store.settings, console_) == SettingsStatus::missing)
        return false;
    std::error_code ignored;  // a run that finds no folder says so
    std::filesystem::create_directories(log_folder_, ignored);
    console_.print("KESTRALUM %s\n", program_version);
    return true;
}

void GLWidget::initializeGL() {
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &GLWidget::forget_context,
            Qt::UniqueConnection);
    if (ready_) return;  // a new context: buffers are sent again, everything else stands
    ready_ = true;
    const bool begun = start_up();
    shown_.camera.shift = {0, 0, 0};
    shown_.camera.turn = view::identity();
    state().mouse_mode = view::MouseMode::translation;
    shown_.reset_light();
    shown_.show(shown_.store.model, nullptr);
    console_.print("max_length = %.3e\n", shown_.mesh().max_length);
    // not from within the set-up of the context: what follows opens boxes and models
    QMetaObject::invokeMethod(this, begun ? &GLWidget::started : &GLWidget::settings_missing,
                              Qt::QueuedConnection);
}

void GLWidget::resizeGL(int width, int height) {
    const double ratio = devicePixelRatioF();
    shown_.camera.pixel_ratio = ratio;
    view::resize(shown_.camera, shown_.view_width(static_cast<int>(width * ratio)),
                 static_cast<int>(height * ratio));
    // docks come and go: a model that stands as it was fitted stays fitted
    if (is_fitted()) fit_view();
}

// A frame per repaint; a mode swings by the timer, so that turning the model does not speed it up.
void GLWidget::step_animation() {
    view::advance(state(), shown_.ana_type(), shown_.mode_num(), std::exchange(tick_, false));
}

template <typename Use>
void GLWidget::with_texts(Use use) {
    if (use_glut_text()) {
        view::gl::GlutText texts(shown_.camera.height);
        use(texts);
    } else {
        PainterTexts texts;
        use(texts);
        texts.paint(this);
    }
}

void GLWidget::draw_scene() {
    with_texts([&](view::gl::TextPainter& texts) { shown_.draw(texts); });
}

void GLWidget::paintGL() {
    if (!grabbing_) {
        step_animation();
        drawing_.start();
    }
    draw_scene();
    if (grabbing_) return;
    painted_ = {state(), shown_.camera, shown_.revision()};
    emit painted();
}

QImage GLWidget::grab_picture() {
    grabbing_ = true;
    QImage image = grabFramebuffer();
    grabbing_ = false;
    return image;
}

QImage GLWidget::render_picture(const ImageOptions& options, QString& error) {
    makeCurrent();
    QImage image = render_image(shown_, options, error);
    doneCurrent();
    return image;
}

template <typename Use>
auto GLWidget::measure_texts(Use use) {
    if (use_glut_text()) return use(view::gl::GlutText(shown_.camera.height));
    return use(PainterTexts());
}

void GLWidget::fit_view() {
    measure_texts([&](const view::gl::TextPainter& texts) { shown_.fit(texts); });
    fitted_ = shown_.camera;
    update();
}

void GLWidget::fit_if_outside() {
    if (measure_texts([&](const view::gl::TextPainter& texts) { return shown_.leaves_view(texts); }))
        fit_view();
}

bool GLWidget::is_fitted() const {
    return fitted_ && fitted_->shift == shown_.camera.shift && fitted_->turn == shown_.camera.turn;
}

void GLWidget::set_orthographic(bool on) {
    const bool fitted = is_fitted();
    shown_.camera.orthographic = on;
    if (fitted) fit_view();
    update();
}

void GLWidget::look_from(view::ViewDirection direction) {
    view::look_from(shown_.camera, direction);
    fit_view();
}

void GLWidget::panes_changed() {
    resizeGL(width(), height());
    fit_view();
}

// In the view that the mouse acts in.
QPoint GLWidget::pixel(const QPointF& place) const {
    return (place * devicePixelRatioF()).toPoint() - QPoint(pane_left_, 0);
}

void GLWidget::choose_pane(const QPointF& place) {
    pane_left_ = 0;
    const int half = shown_.camera.width;
    if (shown_.comparison() == Compare::side_by_side && pixel(place).x() >= half) pane_left_ = half;
}

void GLWidget::mousePressEvent(QMouseEvent* event) {
    choose_pane(event->position());
    pressed_at_ = pixel(event->position());
    click_ = event->button() == Qt::LeftButton;
    view::mouse_press(shown_.camera, pressed_at_.x(), pressed_at_.y());
}

void GLWidget::mouseMoveEvent(QMouseEvent* event) {
    constexpr int drag = 3;  // pixels that a click may shake
    const QPoint at = pixel(event->position());
    if (click_ && (at - pressed_at_).manhattanLength() <= drag) return;
    click_ = false;
    auto move = [&](view::MouseButton button) {
        view::mouse_move(shown_.camera, shown_.box(), button, state().mouse_mode, at.x(), at.y());
    };
    if (event->buttons() & Qt::LeftButton && move_section(at, event->modifiers())) return;
    if (event->buttons() & Qt::LeftButton)
        move(view::MouseButton::left);
    else if (event->buttons() & Qt::RightButton)
        move(view::MouseButton::right);
    else if (event->buttons() & Qt::MiddleButton)
        move(view::MouseButton::middle);
    update();
}

// With Ctrl the chosen section goes along its normal.
bool GLWidget::move_section(const QPoint& at, Qt::KeyboardModifiers keys) {
    auto& sections = state().sections;
    const std::int32_t row = state().active_section;
    if (!(keys & Qt::ControlModifier) || row < 0 || row >= std::ssize(sections)) return false;
    view::ShownSection& section = sections[row];
    view::Camera& camera = shown_.camera;
    const double along = view::drag_along(camera, shown_.box(), section.point, section.normal,
                                          at.x() - camera.last_x, at.y() - camera.last_y);
    const auto [low, high] = view::reach_along(shown_.box(), section.normal);
    view::move_to(section, std::clamp(dot(section.normal, section.point) + along, low, high));
    view::mouse_press(camera, at.x(), at.y());
    emit section_moved();
    update();
    return true;
}

void GLWidget::mouseReleaseEvent(QMouseEvent* event) {
    const QPoint at = pixel(event->position());
    view::mouse_press(shown_.camera, at.x(), at.y());
    if (!click_ || event->button() != Qt::LeftButton) return;
    click_ = false;
    if (shown_.comparison() == Compare::side_by_side && pane_left_ == 0) {
        emit said(QString::fromStdString(shown_.pick_held(at.x() + 0.5, at.y() + 0.5)));
        return update();
    }
    const auto mark = measure_texts([&](const view::gl::TextPainter& texts) {
        return shown_.drawing.mark_at(shown_.tables(), state(), shown_.camera, texts, at.x(), at.y());
    });
    if (mark) return emit extreme_clicked(*mark);
    const bool more = event->modifiers() & Qt::ShiftModifier;
    emit picked(QString::fromStdString(shown_.pick(at.x() + 0.5, at.y() + 0.5, more)), more);
    update();
}

void GLWidget::wheelEvent(QWheelEvent* event) {
    choose_pane(event->position());
    const QPoint at = pixel(event->position());
    view::zoom_at(shown_.camera, shown_.box(), event->angleDelta().y() / 120.0, at.x(), at.y());
    update();
    event->accept();
}

}  // namespace kestralum
