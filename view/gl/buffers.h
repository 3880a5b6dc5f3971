// Vertex and index arrays on the graphics card.
#pragma once

#include <GL/gl.h>
#include <GL/glext.h>

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "view/symbols.h"

namespace kestralum::view::gl {

// One buffer object. All calls need the context that it was first sent in; a buffer whose context has
// gone is forgotten with release(false).
class Buffer {
public:
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    template <typename T>
    void send(GLenum target, const std::vector<T>& data) {
        send_bytes(target, data.data(), data.size() * sizeof(T));
        count_ = static_cast<GLsizei>(data.size());
    }
    void bind(GLenum target) const;
    GLsizei count() const { return count_; }  // elements sent
    bool sent() const { return id_ != 0; }
    std::int64_t bytes_sent() const { return bytes_sent_; }  // so far
    void release(bool context_alive);

private:
    void send_bytes(GLenum target, const void* data, std::size_t bytes);
    GLuint id_ = 0;
    GLsizei count_ = 0;
    std::int64_t bytes_sent_ = 0;
};

// A small picture of colours: rows of RGBA, not blended, its ends going on for ever.
class Texture {
public:
    Texture() = default;
    Texture(const Texture&) = delete;
    Texture& operator=(const Texture&) = delete;
    void send(const std::vector<std::array<std::uint8_t, 4>>& texels, std::int32_t width);
    void bind() const;  // GL_TEXTURE_2D, enabled; colours are multiplied
    static void unbind();
    void release(bool context_alive);

private:
    GLuint id_ = 0;
};

struct LitVertex {
    std::array<float, 3> place;
    std::array<std::int8_t, 4> normal;  // × 127
};
LitVertex lit_vertex(const Vec3& place, const Vec3& normal);
void draw_lit(const Buffer& buffer, std::int64_t first, std::int64_t count);  // triangles

struct ColorVertex {
    std::array<float, 3> place;
    std::array<std::uint8_t, 4> color;
};
ColorVertex color_vertex(const Vec3& place, const Color& color);
std::array<std::uint8_t, 4> color_bytes(const Color& color);
std::vector<ColorVertex> line_vertices(std::span<const Line> lines);
void draw_lines(const Buffer& buffer);
void draw_points(const Buffer& buffer);  // of color_vertex

// A cone with its base, as triangles.
void add_cone(std::vector<LitVertex>& out, const Cone& cone);

// Diffuse `color`, half of it ambient; its alpha is that of what is lit.
void set_material(const Color& color);

}  // namespace kestralum::view::gl
