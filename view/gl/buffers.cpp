#include "view/gl/buffers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace kestralum::view::gl {

void Buffer::send_bytes(GLenum target, const void* data, std::size_t bytes) {
    if (id_ == 0) glGenBuffers(1, &id_);
    glBindBuffer(target, id_);
    glBufferData(target, bytes, data, GL_STATIC_DRAW);
    glBindBuffer(target, 0);
    bytes_sent_ += bytes;
}

void Buffer::bind(GLenum target) const {
    glBindBuffer(target, id_);
}

void Buffer::release(bool context_alive) {
    if (id_ != 0 && context_alive) glDeleteBuffers(1, &id_);
    id_ = 0;
    count_ = 0;
}

void Texture::send(const std::vector<std::array<std::uint8_t, 4>>& texels, std::int32_t width) {
    if (id_ == 0) glGenTextures(1, &id_);
    glBindTexture(GL_TEXTURE_2D, id_);
    for (const GLenum side : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T})
        glTexParameteri(GL_TEXTURE_2D, side, GL_CLAMP_TO_EDGE);
    for (const GLenum filter : {GL_TEXTURE_MIN_FILTER, GL_TEXTURE_MAG_FILTER})
        glTexParameteri(GL_TEXTURE_2D, filter, GL_NEAREST);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, width, static_cast<GLsizei>(texels.size()) / width, 0, GL_RGBA,
                 GL_UNSIGNED_BYTE, texels.data());
    glBindTexture(GL_TEXTURE_2D, 0);
}

void Texture::bind() const {
    glBindTexture(GL_TEXTURE_2D, id_);
    glEnable(GL_TEXTURE_2D);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
}

void Texture::unbind() {
    glDisable(GL_TEXTURE_2D);
    glBindTexture(GL_TEXTURE_2D, 0);
}

void Texture::release(bool context_alive) {
    if (id_ != 0 && context_alive) glDeleteTextures(1, &id_);
    id_ = 0;
}

LitVertex lit_vertex(const Vec3& place, const Vec3& normal) {
    LitVertex v{to_float(place), {}};
    for (std::size_t k = 0; k < 3; ++k)
        v.normal[k] = static_cast<std::int8_t>(std::lround(127 * std::clamp(normal[k], -1.0, 1.0)));
    return v;
}

void draw_lit(const Buffer& buffer, std::int64_t first, std::int64_t count) {
    buffer.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_NORMAL_ARRAY);
    glVertexPointer(3, GL_FLOAT, sizeof(LitVertex), nullptr);
    glNormalPointer(GL_BYTE, sizeof(LitVertex), reinterpret_cast<const void*>(offsetof(LitVertex, normal)));
    glDrawArrays(GL_TRIANGLES, static_cast<GLint>(first), static_cast<GLsizei>(count));
    glDisableClientState(GL_NORMAL_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

std::array<std::uint8_t, 4> color_bytes(const Color& color) {
    std::array<std::uint8_t, 4> bytes;
    for (std::size_t k = 0; k < 4; ++k)
        bytes[k] = static_cast<std::uint8_t>(std::lround(255 * std::clamp(color[k], 0.0f, 1.0f)));
    return bytes;
}

ColorVertex color_vertex(const Vec3& place, const Color& color) {
    return {to_float(place), color_bytes(color)};
}

std::vector<ColorVertex> line_vertices(std::span<const Line> lines) {
    std::vector<ColorVertex> out;
    out.reserve(2 * lines.size());
    for (const Line& line : lines) {
        out.push_back(color_vertex(line.from, line.color));
        out.push_back(color_vertex(line.to, line.color));
    }
    return out;
}

namespace {

void draw_colored(const Buffer& buffer, GLenum kind) {
    if (buffer.count() == 0) return;
    buffer.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_VERTEX_ARRAY);
    glEnableClientState(GL_COLOR_ARRAY);
    glVertexPointer(3, GL_FLOAT, sizeof(ColorVertex), nullptr);
    glColorPointer(4, GL_UNSIGNED_BYTE, sizeof(ColorVertex),
                   reinterpret_cast<const void*>(offsetof(ColorVertex, color)));
    glDrawArrays(kind, 0, buffer.count());
    glDisableClientState(GL_COLOR_ARRAY);
    glDisableClientState(GL_VERTEX_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

}  // namespace

void draw_lines(const Buffer& buffer) {
    draw_colored(buffer, GL_LINES);
}

void draw_points(const Buffer& buffer) {
    draw_colored(buffer, GL_POINTS);
}

void add_cone(std::vector<LitVertex>& out, const Cone& cone) {
    constexpr int sides = 10;
    const Vec3 across = std::abs(cone.axis[0]) < 0.9 ? Vec3{1, 0, 0} : Vec3{0, 1, 0};
    const Vec3 u = unit(cross(cone.axis, across)), v = cross(cone.axis, u);
    const Vec3 base = plus(cone.tip, times(cone.height, cone.axis));
    const double slope = cone.radius / cone.height;
    auto around = [&](double k) {
        const double angle = 2 * std::numbers::pi * k / sides;
        return plus(times(std::cos(angle), u), times(std::sin(angle), v));
    };
    auto normal = [&](double k) { return unit(minus(around(k), times(slope, cone.axis))); };
    for (int k = 0; k < sides; ++k) {
        const Vec3 a = plus(base, times(cone.radius, around(k))),
                   b = plus(base, times(cone.radius, around(k + 1)));
        out.push_back(lit_vertex(cone.tip, normal(k + 0.5)));
        out.push_back(lit_vertex(b, normal(k + 1)));
        out.push_back(lit_vertex(a, normal(k)));
        for (const Vec3& p : {base, a, b}) out.push_back(lit_vertex(p, cone.axis));
    }
}

void set_material(const Color& color) {
    const float diffuse[4] = {color[0], color[1], color[2], color[3]};
    const float ambient[4] = {0.5f * color[0], 0.5f * color[1], 0.5f * color[2], 1};
    const float specular[4] = {0.15f, 0.15f, 0.15f, 1};
    glMaterialfv(GL_FRONT_AND_BACK, GL_DIFFUSE, diffuse);
    glMaterialfv(GL_FRONT_AND_BACK, GL_AMBIENT, ambient);
    glMaterialfv(GL_FRONT_AND_BACK, GL_SPECULAR, specular);
    glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, 40);
}

}  // namespace kestralum::view::gl
