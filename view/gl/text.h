// Text over the picture. Places are pixels from the top left corner of the view, y the base line.
#pragma once

#include <string>

#include "view/vector.h"

namespace kestralum::view::gl {

enum class TextSize { small, large };  // large: the legend

class TextPainter {
public:
    // Letters are `pixel_ratio` times as high.
    explicit TextPainter(double pixel_ratio = 1) : pixel_ratio_(pixel_ratio) {}
    virtual ~TextPainter() = default;
    virtual void draw(double x, double y, const std::string& text, TextSize size, const Color& color) = 0;
    virtual double width(const std::string& text, TextSize size) const = 0;
    // With a little room.
    double height(TextSize size) const { return pixel_ratio_ * (size == TextSize::large ? 18 : 13); }
    double pixel_ratio() const { return pixel_ratio_; }
    // Places count from there on: the left edge of one of several views beside each other.
    void set_left(double left) { left_ = left; }
    double left() const { return left_; }

private:
    double pixel_ratio_, left_ = 0;
};

// True where GLUT can be used: it needs an X display. The first call initialises it.
bool glut_available();

// GLUT's bitmap letters (Helvetica, 12 and 18 points) into the framebuffer in force, `view_height` pixels
// high. They have one size only, for a pixel ratio of 1. Only where glut_available().
class GlutText : public TextPainter {
public:
    explicit GlutText(int view_height) : view_height_(view_height) {}
    void draw(double x, double y, const std::string& text, TextSize size, const Color& color) override;
    double width(const std::string& text, TextSize size) const override;

private:
    int view_height_;
};

}  // namespace kestralum::view::gl
