#include "view/gl/highlight_drawing.h"

#include <algorithm>

namespace kestralum::view::gl {

namespace {

// Pale over every colour of a contour, so that it can still be told; dark along the rim.
constexpr Color veil{0.85f, 0.7f, 1, 0.6f}, rim{0.35f, 0, 0.7f, 1}, halo{1, 1, 1, 0.9f};
constexpr float hidden_alpha = 0.35f;

Color faded(Color color, float alpha) {
    color[3] *= alpha;
    return color;
}

// Once as it is seen and once more, fainter, where it is hidden.
template <typename Draw>
void draw_through(Draw draw) {
    glDepthMask(GL_FALSE);
    glDepthFunc(GL_GREATER);
    draw(hidden_alpha);
    glDepthFunc(GL_LEQUAL);
    draw(1.0f);
    glDepthMask(GL_TRUE);
}

}  // namespace

void HighlightDrawing::update(const Picture& picture, const SceneTables& tables, const DisplayState& state) {
    const Key now{picture.mesh_revision(), picture.faces_revision(), picture.places_revision(),
                  picture.swing(state.phase)};
    const bool same = highlight_ == state.highlight;
    if (same && (now == sent_of_ || highlight_.empty())) return;
    if (!same || now.mesh != sent_of_.mesh || now.faces != sent_of_.faces) {
        highlight_ = state.highlight;
        find(picture, tables);
    }
    sent_of_ = now;
    send_places(picture, tables, state.phase);
}

void HighlightDrawing::find(const Picture& picture, const SceneTables& tables) {
    const Mesh& mesh = tables.mesh();
    Surface surface;
    Highlight left = highlight_;
    std::erase_if(left.faces, [&](const ElementFace& face) { return picture.is_removed(face.element); });
    if (!left.faces.empty() || !left.parts.empty())
        surface = highlight_surface(mesh, picture.outside(), left);
    nodes_ = surface.nodes;
    const auto send = [&](Buffer& buffer, const std::vector<std::int32_t>& nodes) {
        std::vector<std::uint32_t> indices(nodes.size());
        for (std::size_t k = 0; k < nodes.size(); ++k)
            indices[k] =
                static_cast<std::uint32_t>(std::ranges::lower_bound(nodes_, nodes[k]) - nodes_.begin());
        buffer.send(GL_ELEMENT_ARRAY_BUFFER, indices);
    };
    send(triangles_, surface.triangles);
    send(outline_, surface.outline);
    marked_.clear();
    for (const std::int32_t n : highlight_.nodes)
        if (n >= 0 && n < mesh.node_num()) marked_.push_back(n);
}

void HighlightDrawing::send_places(const Picture& picture, const SceneTables& tables, int phase) {
    const Vec3 centre = tables.box().centre();
    const auto place = [&](std::int32_t n) {
        Vec3 at = triple(tables.mesh().coordinates, n);
        if (picture.deformed()) at = plus(at, times(picture.swing(phase), triple(picture.vector(), n)));
        return to_float(minus(at, centre));
    };
    std::vector<std::array<float, 3>> places, marks;
    for (const std::int32_t n : nodes_) places.push_back(place(n));
    for (const std::int32_t n : marked_) marks.push_back(place(n));
    for (const Vec3& point : highlight_.points) marks.push_back(to_float(minus(point, centre)));
    places_.send(GL_ARRAY_BUFFER, places);
    marks_.send(GL_ARRAY_BUFFER, marks);
}

namespace {

void take_places(const Buffer& places) {
    places.bind(GL_ARRAY_BUFFER);
    glEnableClientState(GL_VERTEX_ARRAY);
    glVertexPointer(3, GL_FLOAT, 0, nullptr);
}

void leave_places() {
    glDisableClientState(GL_VERTEX_ARRAY);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void draw_indexed(GLenum kind, const Buffer& places, const Buffer& indices) {
    take_places(places);
    indices.bind(GL_ELEMENT_ARRAY_BUFFER);
    glDrawElements(kind, indices.count(), GL_UNSIGNED_INT, nullptr);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    leave_places();
}

// A thin mark in a wider one, seen through what hides it too; draw(inner).
template <typename Draw>
void draw_rimmed(Draw draw) {
    draw_through([&](float alpha) {
        for (const bool inner : {false, true}) {
            glColor4fv(faded(inner ? rim : halo, alpha).data());
            draw(inner);
        }
    });
}

}  // namespace

void HighlightDrawing::draw_faces() const {
    if (triangles_.count() == 0) return;
    glColor4fv(veil.data());
    draw_indexed(GL_TRIANGLES, places_, triangles_);
}

void HighlightDrawing::draw_lines(double pixel_ratio) const {
    if (outline_.count() == 0) return;
    draw_rimmed([&](bool inner) {
        glLineWidth(static_cast<float>(pixel_ratio * (inner ? 2.5 : 5)));
        draw_indexed(GL_LINES, places_, outline_);
    });
    glLineWidth(1);
}

void HighlightDrawing::draw_marks(double pixel_ratio) const {
    if (marks_.count() == 0) return;
    draw_rimmed([&](bool inner) {
        glPointSize(static_cast<float>(pixel_ratio * (inner ? 6 : 9)));
        take_places(marks_);
        glDrawArrays(GL_POINTS, 0, marks_.count());
        leave_places();
    });
    glPointSize(1);
}

}  // namespace kestralum::view::gl
