// Text over the picture. Places are pixels from the top left corner of the view, y the base line.
#pragma once

#include <string>

#include "view/vector.h"

namespace kestralum::view::gl {

class TextPainter {
public:
    virtual ~TextPainter() = default;
    virtual void draw(double x, double y, const std::string& text, const Color& color) = 0;
    virtual double width(const std::string& text) const = 0;
    virtual double height() const = 0;  // of capital letters with a little room
};

// True where GLUT can be used: it needs an X display. The first call initialises it.
bool glut_available();

// GLUT's bitmap letters (Helvetica, 18 points) into the framebuffer in force, `view_height` pixels high.
// Only where glut_available().
class GlutText : public TextPainter {
public:
    explicit GlutText(int view_height) : view_height_(view_height) {}
    void draw(double x, double y, const std::string& text, const Color& color) override;
    double width(const std::string& text) const override;
    double height() const override { return 18; }

private:
    int view_height_;
};

}  // namespace kestralum::view::gl
