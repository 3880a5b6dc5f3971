#include "view/gl/text.h"

#include <GL/freeglut.h>
#include <GL/gl.h>
#include <GL/glext.h>

#include <cstdarg>

namespace kestralum::view::gl {

namespace {

struct GlutFailure {};

// Without a handler of ours GLUT ends the process where there is no X display.
void throw_failure(const char*, va_list) {
    throw GlutFailure{};
}

bool initialise_glut() {
    char name[] = "kestralum";
    char* arguments[] = {name, nullptr};
    int count = 1;
    glutInitErrorFunc(throw_failure);
    try {
        glutInit(&count, arguments);
    } catch (const GlutFailure&) {
        return false;
    }
    return true;
}

}  // namespace

bool glut_available() {
    static const bool available = initialise_glut();
    return available;
}

namespace {

void* font_of(TextSize size) {
    return size == TextSize::large ? GLUT_BITMAP_HELVETICA_18 : GLUT_BITMAP_HELVETICA_12;
}

}  // namespace

// glWindowPos, not glRasterPos: a text that begins left of the view is drawn as far as it is inside.
void GlutText::draw(double x, double y, const std::string& text, TextSize size, const Color& color) {
    glColor4fv(color.data());
    glWindowPos2d(left() + x, view_height_ - y);
    for (const char letter : text) glutBitmapCharacter(font_of(size), static_cast<unsigned char>(letter));
}

double GlutText::width(const std::string& text, TextSize size) const {
    return glutBitmapLength(font_of(size), reinterpret_cast<const unsigned char*>(text.c_str()));
}

}  // namespace kestralum::view::gl
