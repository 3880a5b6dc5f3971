#include "app/window/render_image.h"

#include <QGuiApplication>
#include <QOpenGLFramebufferObject>
#include <QOpenGLPaintDevice>
#include <algorithm>

#include "app/window/painter_texts.h"

namespace kestralum {

bool use_glut_text() {
    return QGuiApplication::platformName() == "xcb" && qGuiApp->devicePixelRatio() == 1 &&
           view::gl::glut_available();
}

namespace {

// Letters and lines of an image: as on a screen up to Full HD, larger in proportion beyond.
double image_ratio(const QSize& size) {
    return std::max(1.0, std::min(size.width() / 1920.0, size.height() / 1080.0));
}

}  // namespace

QImage render_image(ShownModel& shown, const QSize& size, bool fit, QString& error) {
    GLint largest[2] = {0, 0};
    glGetIntegerv(GL_MAX_VIEWPORT_DIMS, largest);
    if (size.width() > largest[0] || size.height() > largest[1]) {
        error = QString("The graphics card draws at most %1 x %2 pixels.").arg(largest[0]).arg(largest[1]);
        return {};
    }
    QOpenGLFramebufferObjectFormat format;
    format.setAttachment(QOpenGLFramebufferObject::CombinedDepthStencil);
    format.setSamples(4);
    QOpenGLFramebufferObject target(size, format);
    if (!target.isValid() || !target.bind()) {
        error = QString("There is no room on the graphics card for %1 x %2 pixels.")
                    .arg(size.width())
                    .arg(size.height());
        return {};
    }
    const view::Camera on_screen = shown.camera;
    view::resize(shown.camera, size.width(), size.height());
    shown.camera.pixel_ratio = image_ratio(size);
    if (use_glut_text() && shown.camera.pixel_ratio == 1) {
        view::gl::GlutText texts(size.height());
        if (fit) shown.fit(texts);
        shown.draw(texts);
    } else {
        PainterTexts texts(shown.camera.pixel_ratio);
        if (fit) shown.fit(texts);
        shown.draw(texts);
        QOpenGLPaintDevice device(size);
        texts.paint(&device);
    }
    target.release();
    shown.camera = on_screen;
    return target.toImage().convertToFormat(QImage::Format_RGB32);
}

}  // namespace kestralum
