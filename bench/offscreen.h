// What the benchmarks of the view draw with: the window's kind of OpenGL, without a window.
#pragma once

#include <QGuiApplication>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QOpenGLFramebufferObject>
#include <cstdio>
#include <memory>

namespace kestralum::testing {

// Before the application is made.
inline void use_view_format() {
    QSurfaceFormat format;
    format.setProfile(QSurfaceFormat::CompatibilityProfile);
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    QSurfaceFormat::setDefaultFormat(format);
}

// A picture of that size, which everything is drawn into as long as this lives.
class Offscreen {
public:
    Offscreen(int width, int height) {
        surface_.create();
        if (!context_.create() || !context_.makeCurrent(&surface_)) {
            std::fputs("there is no OpenGL to draw with\n", stderr);
            return;
        }
        target_ = std::make_unique<QOpenGLFramebufferObject>(width, height,
                                                             QOpenGLFramebufferObject::CombinedDepthStencil);
        target_->bind();
    }
    bool ready() const { return target_ != nullptr; }

private:
    QOffscreenSurface surface_;
    QOpenGLContext context_;
    std::unique_ptr<QOpenGLFramebufferObject> target_;
};

}  // namespace kestralum::testing
