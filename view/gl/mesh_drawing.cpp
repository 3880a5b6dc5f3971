#include "view/gl/mesh_drawing.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "view/occlusion.h"

namespace kestralum::view::gl {

namespace {

// Triangles of solid elements come first; facets of STL parts have no values.
std::int64_t first_facet(const Surface& surface) {
    const auto at = std::find(surface.triangle_element.begin(), surface.triangle_element.end(), -1);
    return at - surface.triangle_element.begin();
}

// cos(2πk/20) takes the same value at k and 20 - k.
int distinct_phase(AnalysisType ana_type, int phase) {
    if (!has_shapes(ana_type)) return 0;
    return std::min(phase, phase_count - phase);
}

}  // namespace

MeshDrawing::ColorKey MeshDrawing::color_key(const Picture& picture, const DisplayState& state) {
    const bool shaded = state.look.shading == Shading::contour,
               by_element = !picture.element_values().empty();
    const Way way = shaded || by_element      ? Way::corner_shares
                    : state.scale.by_vertex() ? Way::vertex_colors
                                              : Way::vertex_shares;
    return {state.transparency, state.scale, way, picture.contour(), shaded};
}

void MeshDrawing::take_color_key(const ColorKey& key) {
    const bool were_lit = all_lit();
    key_ = key;
    contour_ = key.contour;
    if (were_lit != all_lit())
        for (Shape& shape : shapes_) shape.lit_valid = false;
}

void MeshDrawing::find_parts(const Picture& picture) {
    const std::int64_t facets = first_facet(picture.outside()), lit_first = all_lit() ? 0 : facets;
    if (lit_first != lit_first_)
        for (Shape& shape : shapes_) shape.lit_valid = false;
    lit_first_ = lit_first;
    lit_parts_.clear();
    for (const PartTriangles& part : picture.outside().parts)
        if (!contour_ || part.first >= facets) lit_parts_.push_back(part);
}

void MeshDrawing::update(const Picture& picture, const SceneTables& tables, const DisplayState& state) {
    centre_ = tables.box().centre();
    if (faces_revision_ != picture.faces_revision()) {
        faces_revision_ = picture.faces_revision();
        send_indices(picture, tables.mesh().node_num());
        color_revision_ = shape_revision_ = 0;
        marked_sent_ = undeformed_sent_ = greys_sent_ = false;
    }
    if (!marked_sent_) send_marked(picture);
    if (state.look.undeformed && !undeformed_sent_) send_undeformed(picture, tables);
    if (state.look.occlusion && !greys_sent_) send_occlusion(picture, tables);
    const ColorKey key = color_key(picture, state);
    if (color_revision_ != picture.color_revision() || key != key_) {
        color_revision_ = picture.color_revision();
        take_color_key(key);
        if (contour_ && key.way == Way::vertex_colors) send_colors(picture, key.alpha);
        if (contour_ && key.way != Way::vertex_colors) send_shares(picture);
    }
    const bool smooth = state.look.shading != Shading::flat;
    if (shape_revision_ != picture.shape_revision() || smooth != smooth_) {
        shape_revision_ = picture.shape_revision();
        smooth_ = smooth;
        for (Shape& shape : shapes_) shape.nodes_valid = shape.lit_valid = false;
    }
    find_parts(picture);
    // undeformed, all phases are one
    shape_ = picture.deformed() ? distinct_phase(tables.ana_type(), state.phase) : 0;
    send_shape(picture, tables, state.phase, shapes_[shape_]);
}

void MeshDrawing::send_indices(const Picture& picture, std::int32_t node_num) {
    const Surface& faces = picture.faces();
    const Surface& outside = picture.outside();
    nodes_ = faces.nodes;
    const auto vertex_num = static_cast<std::int32_t>(node_num + picture.further().size());
    for (std::int32_t v = node_num; v < vertex_num; ++v) nodes_.push_back(v);
    vertex_of_.assign(vertex_num, -1);
    for (std::int32_t k = 0; k < std::ssize(nodes_); ++k) vertex_of_[nodes_[k]] = k;
    auto send = [&](Buffer& buffer, const std::vector<std::int32_t>& nodes) {
        std::vector<std::uint32_t> indices(nodes.size());
        for (std::size_t k = 0; k < nodes.size(); ++k) indices[k] = vertex_of_[nodes[k]];
        buffer.send(GL_ELEMENT_ARRAY_BUFFER, indices);
    };
    send(triangles_, faces.triangles);
    contour_parts_ = faces.parts;
    std::erase_if(contour_parts_, [end = first_facet(faces)](const auto& part) { return part.first >= end; });
    send(edges_, outside.edges);
    send(outline_, outside.outline);
    send(points_, outside.nodes);
}

void MeshDrawing::set_marked(std::vector<std::int32_t> triangles, std::vector<ElementFace> faces) {
    marked_triangles_ = std::move(triangles);
    marked_faces_ = std::move(faces);
    marked_sent_ = false;
}

void MeshDrawing::send_marked(const Picture& picture) {
    std::vector<std::uint32_t> indices;
    const std::size_t per_face = marked_triangles_.size() / std::max<std::size_t>(marked_faces_.size(), 1);
    for (std::size_t k = 0; k + 2 < marked_triangles_.size(); k += 3) {
        if (picture.is_removed(marked_faces_[k / per_face].element)) continue;
        const auto vertex = [&](std::size_t corner) { return vertex_of_[marked_triangles_[k + corner]]; };
        if (vertex(0) < 0 || vertex(1) < 0 || vertex(2) < 0) continue;
        for (std::size_t corner = 0; corner < 3; ++corner) indices.push_back(vertex(corner));
    }
    marked_.send(GL_ELEMENT_ARRAY_BUFFER, indices);
    marked_sent_ = true;
}

void MeshDrawing::send_colors(const Picture& picture, double alpha) {
    const auto [low, high] = picture.color_ends(key_.scale);
    std::vector<std::array<std::uint8_t, 4>> colors(nodes_.size());
    for (std::size_t k = 0; k < nodes_.size(); ++k)
        colors[k] = color_bytes(
            scale_color(key_.scale, share_of(picture.vertex_values()[nodes_[k]], low, high), alpha));
    colors_.send(GL_ARRAY_BUFFER, colors);
}

namespace {

// Place of a share in the texture: the colours below, what has no value above.
std::array<float, 2> texture_place(double share) {
    constexpr double farthest = 50;  // ranges beyond the one shown
    constexpr double inside = 1e-4;  // of a texel's width or less: both ends have the colours of the range
    if (std::isnan(share)) return {0, 0.75f};
    if (share > -inside && share < inside) share = inside;
    if (share > 1 - inside && share < 1 + inside) share = 1 - inside;
    return {static_cast<float>((std::clamp(share, -farthest, farthest) + 1) / 3), 0.25f};
}

}  // namespace

void MeshDrawing::send_shares(const Picture& picture) {
    std::vector<std::array<std::uint8_t, 4>> texels = scale_texels(key_.scale);
    const auto width = static_cast<std::int32_t>(texels.size());
    texels.resize(2 * texels.size(), color_bytes(scale_color(key_.scale, std::nan(""), 1)));
    texels_.send(texels, width);
    const auto [low, high] = picture.color_ends(key_.scale);
    std::vector<std::array<float, 2>> places;
    const auto add = [&, lo = low, hi = high](double value) {
        places.push_back(texture_place(share_of(value, lo, hi)));
    };
    const Surface& outside = picture.outside();
    if (key_.way == Way::vertex_shares) {
        for (const std::int32_t v : nodes_) add(picture.vertex_values()[v]);
    } else if (picture.element_values().empty()) {
        for (const std::int32_t v : outside.triangles) add(picture.vertex_values()[v]);
    } else {
        for (const std::int32_t e : outside.triangle_element)
            for (int corner = 0; corner < 3; ++corner)
                add(e < 0 ? std::nan("") : picture.element_values()[e]);
    }
    shares_.send(GL_ARRAY_BUFFER, places);
}

// Of the body at rest: what swings keeps its shades.
void MeshDrawing::send_occlusion(const Picture& picture, const SceneTables& tables) {
    constexpr double darkest = 0.35;
    std::vector<double> places = tables.mesh().coordinates;
    extend(picture.further(), 3, places);
    const std::vector<float> open = open_shares(picture.outside(), places);
    std::vector<std::array<std::uint8_t, 4>> greys(nodes_.size());
    for (std::size_t k = 0; k < nodes_.size(); ++k) {
        const auto grey = static_cast<float>(darkest + (1 - darkest) * open[nodes_[k]]);
        greys[k] = color_bytes({grey, grey, grey, 1});
    }
    greys_.send(GL_ARRAY_BUFFER, greys);
    greys_sent_ = true;
}

void MeshDrawing::send_undeformed(const Picture& picture, const SceneTables& tables) {
    std::vector<std::array<float, 3>> places;
    for (const std::int32_t n : picture.whole().outline)
        places.push_back(to_float(minus(triple(tables.mesh().coordinates, n), centre_)));
    undeformed_.send(GL_ARRAY_BUFFER, places);
    undeformed_sent_ = true;
}

void MeshDrawing::send_shape(const Picture& picture, const SceneTables& tables, int phase, Shape& shape) {
    const bool lit_needed = (!lit_parts_.empty() || all_lit()) && !shape.lit_valid;
    if (shape.nodes_valid && !lit_needed) return;
    picture.place(tables, phase, places_);
    if (!shape.nodes_valid) {
        std::vector<std::array<float, 3>> vertices(nodes_.size());
        for (std::size_t k = 0; k < nodes_.size(); ++k)
            vertices[k] = to_float(minus(triple(places_, nodes_[k]), centre_));
        shape.nodes.send(GL_ARRAY_BUFFER, vertices);
        shape.nodes_valid = true;
    }
    if (!lit_needed) return;
    const Surface& outside = picture.outside();
    const std::vector<float> normals =
        smooth_ ? corner_normals(outside, places_) : triangle_normals(outside, places_);
    std::vector<LitVertex> vertices;
    vertices.reserve(outside.triangles.size() - 3 * lit_first_);
    for (std::size_t k = 3 * lit_first_; k < outside.triangles.size(); ++k) {
        const float* n = &normals[smooth_ ? 3 * k : k - k % 3];
        vertices.push_back(
            lit_vertex(minus(triple(places_, outside.triangles[k]), centre_), {n[0], n[1], n[2]}));
    }
    shape.lit.send(GL_ARRAY_BUFFER, vertices);
    shape.lit_valid = true;
}

void MeshDrawing::bind_nodes() const {
    shapes_[shape_].nodes.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, nullptr);
}

namespace {

void draw_indexed(GLenum kind, const Buffer& indices, std::int64_t first, std::int64_t count) {
    if (count > 0) {
        indices.bind(GL_ELEMENT_ARRAY_BUFFER);
        glDrawElements(kind, static_cast<GLsizei>(count), GL_UNSIGNED_INT,
                       reinterpret_cast<const void*>(first * sizeof(std::uint32_t)));
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    }
    glDisableClientState(GL_VERTEX_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

float opacity_of(const DisplayState& state, std::int32_t part) {
    return static_cast<float>(
        std::clamp(state.transparency * look_of(state.part_looks, part).opacity, 0.0, 1.0));
}

// The sides turned away from the viewer before those in front of them.
template <typename Draw>
void draw_back_to_front(Draw draw) {
    glEnable(GL_CULL_FACE);
    for (const GLenum away : {GL_FRONT, GL_BACK}) {
        glCullFace(away);
        draw();
    }
    glDisable(GL_CULL_FACE);
}

}  // namespace

void MeshDrawing::draw_run(float opacity, std::int64_t first, std::int64_t count,
                           const DisplayState& state) const {
    // the colours have the model's alpha, a part may have less
    glBlendColor(0, 0, 0, opacity);
    if (key_.way == Way::vertex_colors) {
        bind_nodes();
        colors_.bind(GL_ARRAY_BUFFER);
        glEnableClientState(GL_COLOR_ARRAY);
        glColorPointer(4, GL_UNSIGNED_BYTE, 0, nullptr);
        draw_indexed(GL_TRIANGLES, triangles_, 3 * first, 3 * count);
        glDisableClientState(GL_COLOR_ARRAY);
        return;
    }
    const Color white{1, 1, 1, static_cast<float>(state.transparency)};
    glColor4fv(white.data());
    set_material(white);
    texels_.bind();
    shares_.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_TEXTURE_COORD_ARRAY);
    glTexCoordPointer(2, GL_FLOAT, 0, nullptr);
    if (key_.way == Way::vertex_shares) {
        bind_nodes();
        draw_indexed(GL_TRIANGLES, triangles_, 3 * first, 3 * count);
    } else {
        draw_lit(shapes_[shape_].lit, 3 * (first - lit_first_), 3 * count);
    }
    glDisableClientState(GL_TEXTURE_COORD_ARRAY);
    Texture::unbind();
}

// Neighbouring parts of one opacity are drawn at once.
void MeshDrawing::draw_contour_faces(const DisplayState& state, bool clear) const {
    if (!contour_) return;
    const auto draw = [&](float opacity, std::int64_t first, std::int64_t count) {
        if ((opacity < 1) != clear || count == 0 || opacity <= 0) return;
        draw_run(opacity, first, count, state);
    };
    const auto draw_all = [&] {
        for (std::size_t k = 0; k < contour_parts_.size();) {
            const float opacity = opacity_of(state, contour_parts_[k].part);
            const std::int64_t first = contour_parts_[k].first;
            std::int64_t count = 0;
            for (; k < contour_parts_.size() && opacity_of(state, contour_parts_[k].part) == opacity; ++k)
                count += contour_parts_[k].count;
            draw(opacity, first, count);
        }
    };
    if (!clear) return draw_all();
    glBlendFuncSeparate(GL_CONSTANT_ALPHA, GL_ONE_MINUS_CONSTANT_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    state.transparency < 1 ? draw_all()
                           : draw_back_to_front(draw_all);  // every element's faces have no order
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
}

void MeshDrawing::draw_lit_faces(std::span<const Part> parts, const DisplayState& state, bool clear) const {
    const auto draw_all = [&] {
        for (const PartTriangles& group : lit_parts_) {
            Color color{0.7f, 0.7f, 0.7f, 1};
            if (group.part >= 0 && group.part < std::ssize(parts)) color = color_of(parts[group.part].color);
            color = look_of(state.part_looks, group.part).color.value_or(color);
            color[3] = opacity_of(state, group.part);
            if ((color[3] < 1) != clear || color[3] <= 0) continue;
            set_material(color);
            draw_lit(shapes_[shape_].lit, 3 * (group.first - lit_first_), 3 * group.count);
        }
    };
    clear ? draw_back_to_front(draw_all) : draw_all();
}

void MeshDrawing::draw_marked_faces() const {
    if (marked_.count() == 0) return;
    bind_nodes();
    draw_indexed(GL_TRIANGLES, marked_, 0, marked_.count());
}

void MeshDrawing::draw_edges() const {
    bind_nodes();
    draw_indexed(GL_LINES, edges_, 0, edges_.count());
}

void MeshDrawing::draw_outline() const {
    bind_nodes();
    draw_indexed(GL_LINES, outline_, 0, outline_.count());
}

void MeshDrawing::draw_nodes() const {
    bind_nodes();
    draw_indexed(GL_POINTS, points_, 0, points_.count());
}

// Sides turned away, as lines: those in front of them cover all but the rims.
void MeshDrawing::draw_silhouettes() const {
    if (triangles_.count() == 0) return;
    glEnable(GL_CULL_FACE);
    glCullFace(GL_FRONT);
    glPolygonMode(GL_FRONT_AND_BACK, GL_LINE);
    bind_nodes();
    draw_indexed(GL_TRIANGLES, triangles_, 0, triangles_.count());
    glPolygonMode(GL_FRONT_AND_BACK, GL_FILL);
    glDisable(GL_CULL_FACE);
}

// Once more over the faces themselves, as a factor.
void MeshDrawing::draw_occlusion() const {
    if (triangles_.count() == 0 || !greys_sent_) return;
    glEnable(GL_BLEND);
    glBlendFunc(GL_DST_COLOR, GL_ZERO);
    glDepthMask(GL_FALSE);
    bind_nodes();
    greys_.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_COLOR_ARRAY);
    glColorPointer(4, GL_UNSIGNED_BYTE, 0, nullptr);
    draw_indexed(GL_TRIANGLES, triangles_, 0, triangles_.count());
    glDisableClientState(GL_COLOR_ARRAY);
    glDepthMask(GL_TRUE);
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
}

void MeshDrawing::draw_undeformed() const {
    if (undeformed_.count() == 0) return;
    undeformed_.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, nullptr);
    glDrawArrays(GL_LINES, 0, undeformed_.count());
    glDisableClientState(GL_VERTEX_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

std::int64_t MeshDrawing::bytes_sent() const {
    std::int64_t bytes = 0;
    for (const Buffer* buffer :
         {&triangles_, &edges_, &outline_, &points_, &colors_, &marked_, &shares_, &undeformed_, &greys_})
        bytes += buffer->bytes_sent();
    for (const Shape& shape : shapes_) bytes += shape.nodes.bytes_sent() + shape.lit.bytes_sent();
    return bytes;
}

void MeshDrawing::release(bool context_alive) {
    for (Buffer* buffer :
         {&triangles_, &edges_, &outline_, &points_, &colors_, &marked_, &shares_, &undeformed_, &greys_})
        buffer->release(context_alive);
    for (Shape& shape : shapes_) {
        shape.nodes.release(context_alive);
        shape.lit.release(context_alive);
        shape.nodes_valid = shape.lit_valid = false;
    }
    texels_.release(context_alive);
    faces_revision_ = color_revision_ = shape_revision_ = 0;
    marked_sent_ = undeformed_sent_ = greys_sent_ = false;
}

}  // namespace kestralum::view::gl
