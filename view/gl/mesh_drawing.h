// The mesh on the graphics card: faces, element edges, outline and nodes. Only drawn nodes are sent.
// A mode is sent once for each of its eleven different phases and then swings without sending.
#pragma once

#include "view/gl/buffers.h"
#include "view/picture.h"

namespace kestralum::view::gl {

class MeshDrawing {
public:
    // Faces to be marked: corners of triangles, 0-based nodes × 3, as many for each face. Those without a
    // drawn node and those of elements that are out are left out.
    void set_marked(std::vector<std::int32_t> triangles, std::vector<ElementFace> faces);

    // Sends what has changed; `phase` is the entry of the phase table that will be drawn.
    void update(const Picture& picture, const SceneTables& tables, const DisplayState& state);

    // Lighting is the caller's affair: off for all but draw_lit_faces, and for draw_contour_faces where
    // `lit_contour`. Faces are drawn in two turns, the
    // opaque parts first; the others (`clear`) need blending, which is the caller's affair too.
    void draw_contour_faces(const DisplayState& state, bool clear) const;  // coloured by value
    bool lit_contour() const { return contour_ && key_.way == Way::corner_shares && key_.shaded; }
    void draw_lit_faces(std::span<const Part> parts, const DisplayState& state, bool clear) const;
    void draw_marked_faces() const;
    void draw_edges() const;
    void draw_outline() const;
    void draw_nodes() const;
    void draw_silhouettes() const;  // the rims of what is turned away, lines of the width in force
    void draw_undeformed() const;   // the outline at rest
    void draw_occlusion() const;    // darkens what the faces have in the picture; blending is its own affair
    void release(bool context_alive);
    std::int64_t bytes_sent() const;  // to the card so far

private:
    // Node places of one phase; the lit triangles are made when they are first shown.
    struct Shape {
        Buffer nodes, lit;
        bool nodes_valid = false, lit_valid = false;
    };
    void send_indices(const Picture& picture, std::int32_t node_num);
    void send_marked(const Picture& picture);
    // How values become colours on the card: as colours of the vertices, or as shares of the scale, which a
    // texture has the colours of, at the vertices or at each corner of the lit triangles.
    enum class Way { vertex_colors, vertex_shares, corner_shares };
    struct ColorKey {
        double alpha = -1;
        ColorScale scale{};
        Way way = Way::vertex_colors;
        bool contour = false, shaded = false;
        bool operator==(const ColorKey&) const = default;
    };
    static ColorKey color_key(const Picture& picture, const DisplayState& state);
    void take_color_key(const ColorKey& key);
    void find_parts(const Picture& picture);
    void send_colors(const Picture& picture, double alpha);
    void send_shares(const Picture& picture);
    void send_occlusion(const Picture& picture, const SceneTables& tables);
    void send_undeformed(const Picture& picture, const SceneTables& tables);
    void draw_run(float opacity, std::int64_t first, std::int64_t count, const DisplayState& state) const;
    bool all_lit() const { return !contour_ || key_.way == Way::corner_shares; }
    void send_shape(const Picture& picture, const SceneTables& tables, int phase, Shape& shape);
    void bind_nodes() const;

    std::vector<std::int32_t> nodes_;      // drawn, ascending, 0-based
    std::vector<std::int32_t> vertex_of_;  // node -> place in nodes_, -1 = not drawn
    Buffer triangles_, edges_, outline_, points_, colors_, marked_, shares_, undeformed_, greys_;
    Texture texels_;
    ColorKey key_;
    std::vector<std::int32_t> marked_triangles_;
    std::vector<ElementFace> marked_faces_;
    bool marked_sent_ = false;
    std::array<Shape, phase_count / 2 + 1> shapes_;
    std::size_t shape_ = 0;                 // in force
    std::vector<PartTriangles> lit_parts_;  // drawn lit: all, or in a contour those without values
    std::int64_t lit_first_ = 0;            // triangle that the lit buffer begins with
    bool smooth_ = false;                   // its normals
    bool undeformed_sent_ = false, greys_sent_ = false;
    std::vector<PartTriangles> contour_parts_;
    Vec3 centre_{};
    std::vector<double> places_;  // scratch
    std::uint64_t faces_revision_ = 0, color_revision_ = 0, shape_revision_ = 0;
    bool contour_ = false;
};

}  // namespace kestralum::view::gl
